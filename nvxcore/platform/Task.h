#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Where closures lie that are too large to lie within a task. They are made on one thread and end on
/// another: their blocks come from the library's lists. Any thread.
struct TaskHeap {
  template <class F, class Source>
  static F* make(Source&& source) {
    if constexpr (alignof(F) > alignof(std::max_align_t)) {
      return new F(std::forward<Source>(source));
    } else {
      struct Guard {
        void* block;
        ~Guard() {
          if (block) free(block, sizeof(F));
        }
      } guard{allocate(sizeof(F))};
      F* function = ::new (guard.block) F(std::forward<Source>(source));
      guard.block = nullptr;
      return function;
    }
  }

  template <class F>
  static void end(F* function) {
    if constexpr (alignof(F) > alignof(std::max_align_t)) {
      delete function;
    } else {
      std::destroy_at(function);
      free(function, sizeof(F));
    }
  }

 private:
  NVXCORE_EXPORT static void* allocate(size_t size);
  NVXCORE_EXPORT static void free(void* block, size_t size) noexcept;
};

/// A move-only closure without arguments. One of up to 56 bytes lies within it and allocates nothing.
/// Calling it consumes it: what it holds is destroyed when the call ends.
class Task {
 public:
  static constexpr size_t kInlineSize = 56;

  Task() = default;
  template <class F>
  requires(!std::is_same_v<std::decay_t<F>, Task> && std::is_invocable_v<std::decay_t<F>&>)
      Task(F&& function) {  // NOLINT(google-explicit-constructor): a closure is a task
    using Function = std::decay_t<F>;
    if constexpr (fitsInline<Function>()) {
      ::new (static_cast<void*>(_storage)) Function(std::forward<F>(function));
      _operations = &kInline<Function>;
    } else {
      ::new (static_cast<void*>(_storage)) Function*(TaskHeap::make<Function>(std::forward<F>(function)));
      _operations = &kHeap<Function>;
    }
  }
  Task(Task&& other) noexcept { take(other); }
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      reset();
      take(other);
    }
    return *this;
  }
  ~Task() { reset(); }

  explicit operator bool() const { return _operations != nullptr; }

  void operator()() {
    const Operations* operations = std::exchange(_operations, nullptr);
    operations->callAndDestroy(_storage);
  }

  void reset() {
    if (const Operations* operations = std::exchange(_operations, nullptr)) operations->destroy(_storage);
  }

 private:
  friend class TaskList;

  struct Operations {
    void (*callAndDestroy)(void*);
    void (*destroy)(void*);
    void (*relocate)(void* from, void* to);
    size_t size;  // of what is stored, a multiple of 8
  };

  template <class F>
  static constexpr bool fitsInline() {
    return sizeof(F) <= kInlineSize && alignof(F) <= alignof(void*) &&
           std::is_nothrow_move_constructible_v<F>;
  }

  template <class F>
  static constexpr Operations kInline = {[](void* storage) {
                                           struct Guard {
                                             F* function;
                                             ~Guard() { std::destroy_at(function); }
                                           } guard{static_cast<F*>(storage)};
                                           (*guard.function)();
                                         },
                                         [](void* storage) { std::destroy_at(static_cast<F*>(storage)); },
                                         [](void* from, void* to) {
                                           ::new (to) F(std::move(*static_cast<F*>(from)));
                                           std::destroy_at(static_cast<F*>(from));
                                         },
                                         (sizeof(F) + 7) / 8 * 8};

  template <class F>
  static constexpr Operations kHeap = {[](void* storage) {
                                         struct Guard {
                                           F* function;
                                           ~Guard() { TaskHeap::end(function); }
                                         } guard{*static_cast<F**>(storage)};
                                         (*guard.function)();
                                       },
                                       [](void* storage) { TaskHeap::end(*static_cast<F**>(storage)); },
                                       [](void* from, void* to) { ::new (to) F*(*static_cast<F**>(from)); },
                                       sizeof(F*)};

  void take(Task& other) noexcept {
    _operations = std::exchange(other._operations, nullptr);
    if (_operations) _operations->relocate(other._storage, _storage);
  }

  alignas(void*) unsigned char _storage[kInlineSize];
  const Operations* _operations = nullptr;
};

}  // namespace nvxcore
