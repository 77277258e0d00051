#include "nvxcore/platform/internal/TaskList.h"

namespace nvxcore {

namespace {
void deleteChain(TaskBlock* block) {
  while (block) delete std::exchange(block, block->next);
}
}  // namespace

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

void TaskBlockStock::give(TaskBlock* first, TaskBlock* last, size_t count) {
  {
    Lock lock(_mutex);
    if (_count + count <= kMost) {
      last->next = std::exchange(_first, first);
      _count += count;
      return;
    }
  }
  deleteChain(first);
}

void TaskBlockStock::trim() {
  TaskBlock* block;
  {
    Lock lock(_mutex);
    block = std::exchange(_first, nullptr);
    _count = 0;
  }
  deleteChain(block);
}

TaskList::~TaskList() {
  while (!empty()) pop();
  delete _first;
}

void TaskList::extend() {
  TaskBlock* block = _spent;
  if (block) {
    _spent = std::exchange(block->next, nullptr);
    --_spentCount;
  } else {
    block = _stock.take();
  }
  if (_last) {
    _last->used = _end;
    _last->next = block;
  } else {
    _first = block;
  }
  _last = block;
  _end = 0;
}

void TaskList::releaseFront() {
  _begin = 0;
  if (_first != _last) {
    TaskBlock* block = std::exchange(_first, _first->next);
    block->next = std::exchange(_spent, block);
    if (_spentCount++ == 0) _spentLast = block;
  } else {
    _end = 0;  // Empty: the one block starts anew.
    if (_spent) _stock.give(std::exchange(_spent, nullptr), _spentLast, std::exchange(_spentCount, 0));
  }
}

}  // namespace nvxcore
