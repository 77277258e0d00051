#include "nvxcore/platform/Console.h"

#include <utility>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

namespace {

using LineHandler = std::function<void(std::string_view)>;

struct HandlerSlot {
  Mutex mutex;
  std::shared_ptr<const LineHandler> handler NVX_GUARDED_BY(mutex);
};

// Never destroyed: a thread may log while the process leaves.
HandlerSlot& slot() {
  static HandlerSlot& slot = *new HandlerSlot;
  return slot;
}

}  // namespace

void setConsoleLineHandler(LineHandler handler) {
  std::shared_ptr<const LineHandler> shared;  // Afterwards the one before, which goes without the lock.
  if (handler) shared = std::make_shared<const LineHandler>(std::move(handler));
  Lock lock(slot().mutex);
  slot().handler.swap(shared);
}

void writeConsoleLine(std::string_view line) {
  std::shared_ptr<const LineHandler> handler;
  {
    Lock lock(slot().mutex);
    handler = slot().handler;
  }
  if (handler) {
    (*handler)(line);
  } else {
    Platform::current().console->writeLine(line);
  }
}

}  // namespace nvxcore
