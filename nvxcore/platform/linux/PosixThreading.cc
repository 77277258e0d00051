#include "nvxcore/platform/linux/PosixThreading.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <system_error>
#include <utility>

#include "nvxcore/platform/linux/FutexParker.h"

namespace nvxcore {

namespace {

int64_t clockNanos(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

struct Start {
  std::string name;
  Task body;
};

// Nothing catches here, so that an exception that nobody handles ends the process with the stack that threw
// it.
void* runThread(void* argument) {
  std::unique_ptr<Start> start(static_cast<Start*>(argument));
  constexpr size_t kLongestName = 15;
  pthread_setname_np(pthread_self(), start->name.substr(0, kLongestName).c_str());
  start->body();
  return nullptr;
}

class PosixThread final : public ThreadHandle {
 public:
  explicit PosixThread(pthread_t thread) : _thread(thread) {}
  ~PosixThread() override {
    if (!_joined) pthread_detach(_thread);
  }
  void join() override {
    pthread_join(_thread, nullptr);
    _joined = true;
  }

 private:
  const pthread_t _thread;
  bool _joined = false;
};

}  // namespace

std::unique_ptr<ThreadHandle> PosixThreading::startThread(const std::string& name, Task body) {
  auto start = std::make_unique<Start>(Start{name, std::move(body)});
  // Signals are the host's affair: the new thread inherits that it gets none.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const int error = pthread_create(&thread, nullptr, &runThread, start.get());
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (error != 0) throw std::system_error(error, std::generic_category(), "pthread_create");
  start.release();
  return std::make_unique<PosixThread>(thread);
}

std::unique_ptr<Parker> PosixThreading::makeParker() { return std::make_unique<FutexParker>(); }

int64_t PosixThreading::monotonicNanos() { return clockNanos(CLOCK_MONOTONIC); }

int64_t PosixThreading::wallClockNanos() { return clockNanos(CLOCK_REALTIME); }

int64_t PosixThreading::uptimeNanos() { return clockNanos(CLOCK_BOOTTIME); }

}  // namespace nvxcore
