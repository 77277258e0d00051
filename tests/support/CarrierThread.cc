#include "tests/support/CarrierThread.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace nvxcore::testing {

namespace {

struct FreeCarriers {
  std::mutex mutex;
  std::vector<CarrierThread*> threads;
};

FreeCarriers& freeCarriers() {
  static FreeCarriers& carriers = *new FreeCarriers;
  return carriers;
}

}  // namespace

void Baton::give() {
  _word.store(1, std::memory_order_release);
  syscall(SYS_futex, &_word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

bool Baton::take(int seconds) {
  const timespec limit{seconds, 0};
  while (_word.load(std::memory_order_acquire) == 0) {
    const long result =
        syscall(SYS_futex, &_word, FUTEX_WAIT_PRIVATE, 0, seconds > 0 ? &limit : nullptr, nullptr, 0);
    if (result != 0 && errno == ETIMEDOUT) return false;
  }
  _word.store(0, std::memory_order_relaxed);
  return true;
}

CarrierThread& CarrierThread::obtain(std::function<void(CarrierThread&)> body) {
  FreeCarriers& carriers = freeCarriers();
  std::lock_guard lock(carriers.mutex);
  if (carriers.threads.empty()) {
    auto* carrier = new CarrierThread;
    carriers.threads.push_back(carrier);
    std::thread([carrier] { carrier->run(); }).detach();
  }
  CarrierThread& carrier = *carriers.threads.back();
  carriers.threads.pop_back();
  carrier._body = std::move(body);
  return carrier;
}

void CarrierThread::setFree() {
  FreeCarriers& carriers = freeCarriers();
  std::lock_guard lock(carriers.mutex);
  carriers.threads.push_back(this);
}

void CarrierThread::run() {
  for (;;) {
    _baton.take();
    // Out of the member, which the next user sets while this one ends.
    std::exchange(_body, nullptr)(*this);
  }
}

}  // namespace nvxcore::testing
