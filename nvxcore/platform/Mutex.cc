#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

std::atomic<LockObserver*> LockObserver::current{nullptr};

}  // namespace nvxcore
