#pragma once

#include <sys/epoll.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Task.h"
#include "nvxcore/platform/ThreadAnnotations.h"
#include "nvxcore/platform/Threading.h"

namespace nvxcore {

/// What the I/O thread drives: the connections of one session. Called on the I/O thread only.
class SocketClient {
 public:
  /// `events` are EPOLLIN, EPOLLOUT, EPOLLERR and EPOLLHUP.
  virtual void socketReady(int descriptor, uint32_t events) = 0;
  /// Called at the end of each turn; does what is due and answers when it is to be called at the latest, in
  /// milliseconds from now, or -1.
  virtual int64_t endOfTurn() = 0;
  /// Fails what has made no progress for too long. Answers the moment of the seam's clock at which to look
  /// again, or INT64_MAX.
  virtual int64_t failTimedOut(int64_t nowNanos) = 0;

 protected:
  ~SocketClient() = default;
};

/// The one thread that does the network work of a service. It starts when something is posted, sleeps while
/// nothing happens, and ends when it has had no client for a while.
class CurlIOThread : public std::enable_shared_from_this<CurlIOThread> {
 public:
  CurlIOThread();
  ~CurlIOThread();
  CurlIOThread(const CurlIOThread&) = delete;
  CurlIOThread& operator=(const CurlIOThread&) = delete;

  // Any thread.

  /// Runs `command` on the I/O thread, in the order of posting.
  void post(Task command);
  /// Lets the thread end as soon as it has no client.
  void retire();
  /// The seam's monotonic clock.
  int64_t clockNanos() const;
  /// Brings the I/O threads of the process to a stop between two turns, for good: the process leaves, and
  /// what they use goes.
  static void stopAll();

  // On the I/O thread.

  void addClient(SocketClient* client);
  void removeClient(SocketClient* client);
  /// The clock when this turn began.
  int64_t now() const { return _now; }
  /// Sees to it that `failTimedOut` is called at that moment.
  void lookForTimeOutsAt(int64_t nanos);
  /// Without a transfer there is nothing to look at, and the thread need not wake up for it.
  void transferBegan() { ++_transferCount; }
  void transferEnded() {
    if (--_transferCount == 0) _nextTimeOut = INT64_MAX;
  }

  /// Watches a socket for `events`. With `lazily` set, events that are no longer wanted may stay watched
  /// until they occur, which saves a system call where they are wanted again soon; such a socket is to be
  /// forgotten before it is closed.
  void watch(int descriptor, uint32_t events, SocketClient* client, bool lazily);
  void forget(int descriptor);

 private:
  static constexpr int kMaximumEvents = 64;

  struct Watch {
    SocketClient* client = nullptr;
    uint32_t wanted = 0;
    uint32_t armed = 0;
  };

  void startThread() NVX_REQUIRES(_lock);
  void run();
  bool runs();
  void runCommands();
  bool mayEnd();
  void arm(int descriptor, uint32_t events);
  void waitForEvents(int timeoutMillis);
  void dispatchEvents();
  void failTimedOut();
  void dispatch(int descriptor, uint32_t events);
  int waitLimit(int64_t clientMillis) const;
  void wake();

  const int _epoll;
  const int _wakeUp;
  Threading* const _threading;

  std::timed_mutex _turn;  ///< Held while the thread does anything but wait.

  Mutex _lock;
  std::vector<Task> _commands NVX_GUARDED_BY(_lock);
  bool _runs NVX_GUARDED_BY(_lock) = false;
  bool _sleeps NVX_GUARDED_BY(_lock) = false;
  bool _retired NVX_GUARDED_BY(_lock) = false;
  std::shared_ptr<void> _jumpListener NVX_GUARDED_BY(_lock);

  // Of the I/O thread.
  std::vector<Task> _running;
  std::vector<SocketClient*> _clients;
  std::vector<Watch> _watches;  ///< By descriptor.
  epoll_event _events[kMaximumEvents];
  int _eventCount = 0;
  int64_t _now = 0;
  int64_t _nextTimeOut = INT64_MAX;
  size_t _transferCount = 0;
  int64_t _idleSince = -1;
};

}  // namespace nvxcore
