// One thread's loop over epoll, timers and posted tasks.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <queue>
#include <unordered_map>
#include <vector>

namespace nvxcore::geoserver {

// All but post() and quit() belong to the thread that calls run(), or to one thread before and after it.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Task = std::function<void()>;
  using TimerId = uint64_t;  // 0 names no timer

  class Watcher {
   public:
    virtual void onEvents(uint32_t events) = 0;

   protected:
    ~Watcher() = default;
  };

  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Runs until quit(). What was posted before that still runs.
  void run();
  void quit();           // any thread
  void post(Task task);  // any thread

  // `events` are epoll's; level-triggered.
  void watch(int fd, uint32_t events, Watcher* watcher);
  void rewatch(int fd, uint32_t events, Watcher* watcher);
  void unwatch(int fd);

  TimerId startTimer(Clock::duration delay, Task task);
  void cancelTimer(TimerId timer);

  // Runs the task once the events at hand are dealt with: the way to destroy a watcher that may still be
  // among them.
  void afterEvents(Task task) { _afterEvents.push_back(std::move(task)); }

 private:
  struct Deadline {
    Clock::time_point when;
    TimerId timer;
    bool operator>(const Deadline& other) const {
      return when != other.when ? when > other.when : timer > other.timer;
    }
  };

  int untilNextDeadline();
  void fireTimers();
  void runPosted();
  void runAfterEvents();

  int _epoll = -1;
  int _wakeUp = -1;
  bool _quitting = false;

  TimerId _lastTimer = 0;
  std::unordered_map<TimerId, Task> _timers;
  // Deadlines of cancelled timers stay until they are due or come to the top.
  std::priority_queue<Deadline, std::vector<Deadline>, std::greater<>> _deadlines;
  std::vector<Task> _afterEvents;

  std::mutex _mutex;  // guards what follows
  std::vector<Task> _posted;
};

}  // namespace nvxcore::geoserver
