#include "nvxcore/platform/Queue.h"

#include <utility>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/internal/ConcurrentQueue.h"
#include "nvxcore/platform/internal/Executors.h"
#include "nvxcore/platform/internal/PlatformRuntime.h"
#include "nvxcore/platform/internal/SerialQueue.h"
#include "nvxcore/platform/internal/WorkerPool.h"

namespace nvxcore {

QueueRef Queue::serial(std::string_view label) {
  const auto& executors = PlatformRuntime::current().executors();
  return std::make_shared<SerialQueue>(executors, WorkerLane::Brief, label);
}

QueueRef Queue::concurrent(std::string_view label) {
  const auto& executors = PlatformRuntime::current().executors();
  return std::make_shared<ConcurrentQueue>(executors, WorkerLane::Brief, label, Executors::kConcurrentWidth);
}

QueueRef Queue::main() { return PlatformRuntime::current().mainQueue(); }

QueueRef Queue::global() { return PlatformRuntime::current().globalQueue(); }

QueueRef Queue::blocking() { return PlatformRuntime::current().blockingQueue(); }

const std::string& Queue::currentLabel() {
  if (const PoolQueue* queue = PoolQueue::current()) return queue->label();
  const QueueRef& main = PlatformRuntime::current().mainQueue();
  if (main->isCurrent()) return main->label();
  static const std::string& none = *new std::string;
  return none;
}

namespace {
thread_local bool handOffIsOpen = false;
}  // namespace

HandOffScope::HandOffScope() : _wasOpen(std::exchange(handOffIsOpen, true)) {}

HandOffScope::~HandOffScope() { handOffIsOpen = _wasOpen; }

bool HandOffScope::isOpen() { return handOffIsOpen; }

void HandOffScope::settle() { WorkerPool::settleHandOff(); }

}  // namespace nvxcore
