#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace nvxcore {

/// A counted reference to an object that counts itself: 8 bytes. It can hold nothing.
template <class T>
class Ref {
 public:
  Ref() = default;
  Ref(std::nullptr_t) {}              // NOLINT(google-explicit-constructor): so are the next ones
  Ref(T* object) : _object(object) {  // NOLINT
    if (_object) _object->retain();
  }
  Ref(T& object) : Ref(&object) {}  // NOLINT
  Ref(const Ref& other) : Ref(other._object) {}
  Ref(Ref&& other) noexcept : _object(std::exchange(other._object, nullptr)) {}
  template <class U>
  requires(!std::is_same_v<U, T> && std::is_convertible_v<U*, T*>) Ref(const Ref<U>& other)  // NOLINT
      : Ref(static_cast<T*>(other.get())) {}
  template <class U>
  requires(!std::is_same_v<U, T> && std::is_convertible_v<U*, T*>) Ref(Ref<U>&& other)
  noexcept  // NOLINT
      : _object(other.take()) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(_object, other._object);
    return *this;
  }
  ~Ref() {
    if (_object) _object->release();
  }

  /// Takes over a reference that is already counted.
  static Ref adopt(T* object) {
    Ref ref;
    ref._object = object;
    return ref;
  }
  /// Hands the counted reference over.
  T* take() { return std::exchange(_object, nullptr); }

  T* get() const { return _object; }
  T* operator->() const { return _object; }
  T& operator*() const { return *_object; }
  explicit operator bool() const { return _object != nullptr; }
  friend bool operator==(const Ref& a, const Ref& b) { return a._object == b._object; }
  friend bool operator==(const Ref& a, const T* b) { return a._object == b; }

 private:
  T* _object = nullptr;
};

}  // namespace nvxcore
