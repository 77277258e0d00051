#pragma once

#include <cstddef>
#include <utility>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Task.h"

namespace nvxcore {

/// Room for a few tasks, which lie behind one another in no more space than each needs: what one thread posts
/// and another runs has to travel between their processors, line by line. Links of the lists below.
struct TaskBlock {
  static constexpr size_t kCapacity = 1024 - 2 * sizeof(void*);

  TaskBlock* next = nullptr;
  size_t used = 0;  // once the list has gone on to the next block
  alignas(void*) unsigned char bytes[kCapacity];
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
    const Task::Operations* operations = std::exchange(task._operations, nullptr);
    const size_t length = sizeof(Entry) + operations->size;
    if (!_last || _end + length > TaskBlock::kCapacity) extend();
    auto* entry = ::new (_last->bytes + _end) Entry{operations};
    // Asks ahead for the lines that the other side used last, so that giving up the lock need not wait for
    // them.
    __builtin_prefetch(_last->bytes + _end + kAhead, 1);
    operations->relocate(task._storage, entry->storage());
    _end += length;
    ++_size;
  }
  /// Runs the oldest in place and takes it off. The task itself must not change this list.
  void runFront() {
    Entry* entry = front();
    __builtin_prefetch(_first->bytes + _begin + kAhead);
    const Task::Operations* operations = entry->operations;
    operations->callAndDestroy(entry->storage());
    dropFront(operations);
  }
  Task pop() {
    Entry* entry = front();
    Task task;
    task._operations = entry->operations;
    task._operations->relocate(entry->storage(), task._storage);
    dropFront(task._operations);
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
  static constexpr size_t kAhead = 256;

  struct Entry {
    const Task::Operations* operations;
    void* storage() { return this + 1; }
  };

  Entry* front() { return std::launder(reinterpret_cast<Entry*>(_first->bytes + _begin)); }
  void dropFront(const Task::Operations* operations) {
    _begin += sizeof(Entry) + operations->size;
    --_size;
    if (_size == 0 || (_first != _last && _begin == _first->used)) releaseFront();
  }
  void extend();
  void releaseFront();

  TaskBlockStock& _stock;
  TaskBlock* _first = nullptr;
  TaskBlock* _last = nullptr;
  size_t _begin = 0;  // of the oldest task, in bytes of _first
  size_t _end = 0;    // behind the newest task, in bytes of _last
  size_t _size = 0;
  TaskBlock* _spent = nullptr;  // blocks whose tasks have all been taken off
  TaskBlock* _spentLast = nullptr;
  size_t _spentCount = 0;
};

}  // namespace nvxcore
