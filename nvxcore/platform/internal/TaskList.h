#pragma once

#include <cstddef>
#include <utility>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Task.h"

namespace nvxcore {

/// Room for a few tasks; links of the lists below.
struct TaskBlock {
  static constexpr size_t kCapacity = 15;

  TaskBlock* next = nullptr;
  Task tasks[kCapacity];
};

/// Blocks that no list needs at the moment, so that a burst of posts allocates only when it is the largest so
/// far. Any thread.
class TaskBlockStock {
 public:
  TaskBlockStock() = default;
  ~TaskBlockStock() { trim(); }

  TaskBlock* take() NVX_EXCLUDES(_mutex);
  /// Takes over the chain of `count` blocks from `first` to `last`.
  void give(TaskBlock* first, TaskBlock* last, size_t count) NVX_EXCLUDES(_mutex);
  /// Gives the memory back to the system.
  void trim() NVX_EXCLUDES(_mutex);

 private:
  static constexpr size_t kMost = 1024;  // 1 MB

  Mutex _mutex;
  TaskBlock* _first NVX_GUARDED_BY(_mutex) = nullptr;
  size_t _count NVX_GUARDED_BY(_mutex) = 0;
};

/// A first-in, first-out list of tasks that never moves one once it is in. It keeps one block when it runs
/// empty, so that short traffic doesn't touch the stock. One thread at a time.
class TaskList {
 public:
  explicit TaskList(TaskBlockStock& stock) : _stock(stock) {}
  TaskList(const TaskList&) = delete;
  TaskList& operator=(const TaskList&) = delete;
  ~TaskList();

  bool empty() const { return _size == 0; }
  size_t size() const { return _size; }

  void push(Task&& task) {
    if (_end == TaskBlock::kCapacity || !_last) extend();
    _last->tasks[_end++] = std::move(task);
    ++_size;
  }
  /// The oldest; runs in place. Valid until `dropFront`, whatever is pushed.
  Task& front() { return _first->tasks[_begin]; }
  /// Takes off the oldest, which has been run or moved away.
  void dropFront() {
    --_size;
    if (++_begin == TaskBlock::kCapacity || _size == 0) releaseFront();
  }
  Task pop() {
    Task task = std::move(front());
    dropFront();
    return task;
  }
  /// Both lists must use one stock.
  void swap(TaskList& other) {
    std::swap(_first, other._first);
    std::swap(_last, other._last);
    std::swap(_begin, other._begin);
    std::swap(_end, other._end);
    std::swap(_size, other._size);
    std::swap(_spent, other._spent);
    std::swap(_spentLast, other._spentLast);
    std::swap(_spentCount, other._spentCount);
  }

 private:
  void extend();
  void releaseFront();

  TaskBlockStock& _stock;
  TaskBlock* _first = nullptr;
  TaskBlock* _last = nullptr;
  size_t _begin = 0;  // of the oldest task in _first
  size_t _end = 0;    // behind the newest task in _last
  size_t _size = 0;
  TaskBlock* _spent = nullptr;  // blocks whose tasks have all been taken off
  TaskBlock* _spentLast = nullptr;
  size_t _spentCount = 0;
};

}  // namespace nvxcore
