#include "tools/geoserver/internal/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

namespace nvxcore::geoserver {
namespace {

constexpr int kEventsAtOnce = 256;

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

}  // namespace

EventLoop::EventLoop() {
  _epoll = epoll_create1(EPOLL_CLOEXEC);
  if (_epoll < 0) fail("epoll_create1");
  _wakeUp = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (_wakeUp < 0) {
    close(_epoll);
    fail("eventfd");
  }
  watch(_wakeUp, EPOLLIN, nullptr);
}

EventLoop::~EventLoop() {
  close(_wakeUp);
  close(_epoll);
}

void EventLoop::run() {
  epoll_event events[kEventsAtOnce];
  while (!_quitting) {
    const int count = epoll_wait(_epoll, events, kEventsAtOnce, untilNextDeadline());
    if (count < 0 && errno != EINTR) fail("epoll_wait");
    // Posted tasks go first: who posts one and then sends bytes finds that they come in this order.
    for (int i = 0; i < count; ++i) {
      if (!events[i].data.ptr) runPosted();
    }
    for (int i = 0; i < count; ++i) {
      if (auto* watcher = static_cast<Watcher*>(events[i].data.ptr)) watcher->onEvents(events[i].events);
    }
    fireTimers();
    runAfterEvents();
  }
}

void EventLoop::quit() {
  post([this] { _quitting = true; });
}

void EventLoop::post(Task task) {
  bool first = false;
  {
    std::lock_guard lock(_mutex);
    first = _posted.empty();
    _posted.push_back(std::move(task));
  }
  if (!first) return;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(_wakeUp, &one, sizeof(one));
}

void EventLoop::watch(int fd, uint32_t events, Watcher* watcher) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = watcher;
  if (epoll_ctl(_epoll, EPOLL_CTL_ADD, fd, &event) < 0) fail("epoll_ctl");
}

void EventLoop::rewatch(int fd, uint32_t events, Watcher* watcher) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = watcher;
  if (epoll_ctl(_epoll, EPOLL_CTL_MOD, fd, &event) < 0) fail("epoll_ctl");
}

void EventLoop::unwatch(int fd) { epoll_ctl(_epoll, EPOLL_CTL_DEL, fd, nullptr); }

EventLoop::TimerId EventLoop::startTimer(Clock::duration delay, Task task) {
  const TimerId timer = ++_lastTimer;
  _timers.emplace(timer, std::move(task));
  _deadlines.push({Clock::now() + delay, timer});
  return timer;
}

void EventLoop::cancelTimer(TimerId timer) { _timers.erase(timer); }

int EventLoop::untilNextDeadline() {
  while (!_deadlines.empty() && !_timers.contains(_deadlines.top().timer)) _deadlines.pop();
  if (_deadlines.empty()) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(_deadlines.top().when - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, std::numeric_limits<int>::max()));
}

void EventLoop::fireTimers() {
  if (_deadlines.empty()) return;
  // Timers that start while others fire wait for the next round, so that no chain of them can hold the loop.
  const Clock::time_point now = Clock::now();
  while (!_deadlines.empty() && _deadlines.top().when <= now) {
    const TimerId timer = _deadlines.top().timer;
    _deadlines.pop();
    if (auto node = _timers.extract(timer)) node.mapped()();
  }
}

void EventLoop::runPosted() {
  uint64_t count = 0;
  [[maybe_unused]] const ssize_t bytes = read(_wakeUp, &count, sizeof(count));
  std::vector<Task> tasks;
  {
    std::lock_guard lock(_mutex);
    tasks.swap(_posted);
  }
  for (Task& task : tasks) task();
}

void EventLoop::runAfterEvents() {
  while (!_afterEvents.empty()) {
    std::vector<Task> tasks;
    tasks.swap(_afterEvents);
    for (Task& task : tasks) task();
  }
}

}  // namespace nvxcore::geoserver
