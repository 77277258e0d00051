#include "nvxcore/platform/internal/TaskList.h"

namespace nvxcore {

TaskBlock* TaskBlockStock::take() {
  {
    Lock lock(_mutex);
    if (TaskBlock* block = _first) {
      _first = std::exchange(block->next, nullptr);
      --_count;
      return block;
    }
  }
  return new TaskBlock;
}

void TaskBlockStock::give(TaskBlock* block) {
  {
    Lock lock(_mutex);
    if (_count < kMost) {
      block->next = std::exchange(_first, block);
      ++_count;
      return;
    }
  }
  delete block;
}

void TaskBlockStock::trim() {
  TaskBlock* block;
  {
    Lock lock(_mutex);
    block = std::exchange(_first, nullptr);
    _count = 0;
  }
  while (block) delete std::exchange(block, block->next);
}

TaskList::~TaskList() {
  while (!empty()) pop();
  delete _first;
}

void TaskList::extend() {
  TaskBlock* block = _stock.take();
  if (_last) {
    _last->next = block;
  } else {
    _first = block;
  }
  _last = block;
  _end = 0;
}

void TaskList::releaseFront() {
  _begin = 0;
  if (_first == _last) {
    _end = 0;  // Empty: the one block starts anew.
  } else {
    _stock.give(std::exchange(_first, _first->next));
  }
}

}  // namespace nvxcore
