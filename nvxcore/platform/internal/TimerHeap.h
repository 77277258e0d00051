#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Task.h"

namespace nvxcore {

/// Delayed tasks in the order of their deadlines, equal ones in the order in which they were added. Adding
/// and removing take logarithmic time and allocate only while the number of tasks is the largest so far. One
/// thread at a time.
class TimerHeap {
 public:
  struct Item {
    Task task;
    QueueRef queue;  ///< Where the task is to run; null where the owner of the heap runs it.
  };

  /// Answers an id, never 0 and never used twice in practice.
  uint64_t add(int64_t deadlineNanos, Item item);
  /// Moves the item to `removed`; false when it is no longer there.
  bool remove(uint64_t id, Item& removed);
  /// Takes the first item when its deadline has come, and it was added before `nextSequence()` answered
  /// `before`.
  bool takeDue(int64_t nowNanos, uint64_t before, Item& item);
  std::vector<Item> takeAll();

  size_t size() const { return _heap.size(); }
  /// kNeverNanos without an item.
  int64_t nextDeadline() const;
  uint64_t nextSequence() const { return _nextSequence; }

 private:
  struct Node {
    int64_t deadline;
    uint64_t sequence;
    uint32_t slot;
    bool operator<(const Node& other) const {
      return deadline != other.deadline ? deadline < other.deadline : sequence < other.sequence;
    }
  };
  struct Slot {
    Item item;
    uint32_t generation = 1;  // of the id, so that an old one doesn't fit
    size_t position = 0;      // in the heap
  };

  void place(size_t position, const Node& node);
  void siftUp(size_t position, const Node& node);
  void siftDown(size_t position, const Node& node);
  Item takeAt(size_t position);

  std::vector<Node> _heap;
  std::vector<Slot> _slots;
  std::vector<uint32_t> _freeSlots;
  uint64_t _nextSequence = 0;
};

}  // namespace nvxcore
