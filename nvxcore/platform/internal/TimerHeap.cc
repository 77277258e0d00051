#include "nvxcore/platform/internal/TimerHeap.h"

#include <utility>

#include "nvxcore/platform/internal/Deadline.h"

namespace nvxcore {

uint64_t TimerHeap::add(int64_t deadlineNanos, Item item) {
  if (_freeSlots.empty()) {
    _freeSlots.push_back(static_cast<uint32_t>(_slots.size()));
    _slots.emplace_back();
  }
  const uint32_t index = _freeSlots.back();
  _freeSlots.pop_back();
  Slot& slot = _slots[index];
  slot.item = std::move(item);
  const Node node{deadlineNanos, _nextSequence++, index};
  _heap.push_back(node);
  siftUp(_heap.size() - 1, node);
  return uint64_t{slot.generation} << 32 | index;
}

bool TimerHeap::remove(uint64_t id, Item& removed) {
  const uint32_t index = static_cast<uint32_t>(id);
  if (index >= _slots.size() || _slots[index].generation != id >> 32) return false;
  removed = takeAt(_slots[index].position);
  return true;
}

bool TimerHeap::takeDue(int64_t nowNanos, uint64_t before, Item& item) {
  if (_heap.empty() || _heap.front().deadline > nowNanos || _heap.front().sequence >= before) return false;
  item = takeAt(0);
  return true;
}

std::vector<TimerHeap::Item> TimerHeap::takeAll() {
  std::vector<Item> items;
  while (!_heap.empty()) items.push_back(takeAt(0));
  return items;
}

int64_t TimerHeap::nextDeadline() const { return _heap.empty() ? kNeverNanos : _heap.front().deadline; }

void TimerHeap::place(size_t position, const Node& node) {
  _heap[position] = node;
  _slots[node.slot].position = position;
}

void TimerHeap::siftUp(size_t position, const Node& node) {
  while (position > 0) {
    const size_t parent = (position - 1) / 2;
    if (!(node < _heap[parent])) break;
    place(position, _heap[parent]);
    position = parent;
  }
  place(position, node);
}

void TimerHeap::siftDown(size_t position, const Node& node) {
  for (;;) {
    size_t child = 2 * position + 1;
    if (child >= _heap.size()) break;
    if (child + 1 < _heap.size() && _heap[child + 1] < _heap[child]) ++child;
    if (!(_heap[child] < node)) break;
    place(position, _heap[child]);
    position = child;
  }
  place(position, node);
}

TimerHeap::Item TimerHeap::takeAt(size_t position) {
  const uint32_t index = _heap[position].slot;
  const Node last = _heap.back();
  _heap.pop_back();
  if (position < _heap.size()) {
    siftDown(position, last);
    siftUp(_slots[last.slot].position, last);
  }
  Slot& slot = _slots[index];
  if (++slot.generation == 0) slot.generation = 1;
  _freeSlots.push_back(index);
  return std::exchange(slot.item, Item{});
}

}  // namespace nvxcore
