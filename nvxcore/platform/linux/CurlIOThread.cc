#include "nvxcore/platform/linux/CurlIOThread.h"

#include <openssl/crypto.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <system_error>
#include <utility>

#include "nvxcore/platform/Platform.h"

namespace nvxcore {

namespace {

constexpr int64_t kNanosPerMilli = 1'000'000;
/// How long the thread stays without a client, so that a host that makes one session after another does not
/// start a thread for each.
constexpr int64_t kLingerNanos = 5'000 * kNanosPerMilli;

int checked(int descriptor) {
  if (descriptor < 0) throw std::system_error(errno, std::generic_category());
  return descriptor;
}

/// All that there are. Never destroyed, since they are looked for when the process leaves.
struct Threads {
  std::mutex mutex;
  std::vector<CurlIOThread*> all;
};

Threads& threads() {
  static Threads& threads = *new Threads;
  return threads;
}

}  // namespace

CurlIOThread::CurlIOThread()
    : _epoll(checked(::epoll_create1(EPOLL_CLOEXEC))),
      _wakeUp(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))),
      _threading(Platform::current().threading.get()) {
  // Edge-triggered: each write is an event, so that the counter need never be read.
  arm(_wakeUp, EPOLLIN | EPOLLET);
  std::lock_guard lock(threads().mutex);
  threads().all.push_back(this);
}

CurlIOThread::~CurlIOThread() {
  {
    std::lock_guard lock(threads().mutex);
    std::erase(threads().all, this);
  }
  ::close(_wakeUp);
  ::close(_epoll);
}

int64_t CurlIOThread::clockNanos() const { return _threading->monotonicNanos(); }

void CurlIOThread::post(Task command) {
  bool asleep;
  {
    Lock lock(_lock);
    _commands.push_back(std::move(command));
    if (!_runs) startThread();
    asleep = std::exchange(_sleeps, false);
  }
  if (asleep) wake();
}

void CurlIOThread::retire() {
  bool asleep;
  {
    Lock lock(_lock);
    _retired = true;
    asleep = std::exchange(_sleeps, false);
  }
  if (asleep) wake();
}

bool CurlIOThread::runs() {
  Lock lock(_lock);
  return _runs;
}

void CurlIOThread::wake() {
  const uint64_t one = 1;
  while (::write(_wakeUp, &one, sizeof(one)) < 0 && errno == EINTR) {
  }
}

void CurlIOThread::startThread() {
  _runs = true;
  if (_threading->timeIsManual() && !_jumpListener) {
    // A turn looks at the clock before it sleeps, so one more has to follow each jump.
    _jumpListener = _threading->addJumpListener([weak = weak_from_this()] {
      auto self = weak.lock();
      if (self && self->runs()) self->post([] {});
    });
  }
  _threading->startThread("nvx.http", [self = shared_from_this()] {
    self->run();
    // What OpenSSL keeps for each thread would go a moment later, when nobody waits for this thread any more.
    OPENSSL_thread_stop();
  });
}

void CurlIOThread::stopAll() {
  // A turn waits for nobody. Should one be long all the same, the process leaves without it.
  constexpr std::chrono::seconds kPatience(1);
  std::lock_guard lock(threads().mutex);
  for (CurlIOThread* thread : threads().all) static_cast<void>(thread->_turn.try_lock_for(kPatience));
}

void CurlIOThread::run() {
  std::unique_lock turn(_turn);
  _now = clockNanos();
  _idleSince = -1;
  while (true) {
    runCommands();
    int64_t clientMillis = -1;
    for (size_t i = _clients.size(); i-- > 0;) {  // Backwards, since a client may leave in its turn.
      const int64_t millis = _clients[i]->endOfTurn();
      if (millis >= 0 && (clientMillis < 0 || millis < clientMillis)) clientMillis = millis;
    }
    if (_now >= _nextTimeOut) {
      failTimedOut();
      clientMillis = 0;  // What failed is told at the end of the next turn.
    }
    if (mayEnd()) return;
    turn.unlock();
    waitForEvents(waitLimit(clientMillis));
    turn.lock();
    _now = clockNanos();
    dispatchEvents();
  }
}

/// Looks at the sockets once more, after the clock: what came before that moment is progress.
void CurlIOThread::failTimedOut() {
  _eventCount = ::epoll_wait(_epoll, _events, kMaximumEvents, 0);
  dispatchEvents();
  int64_t next = INT64_MAX;
  for (SocketClient* client : _clients) next = std::min(next, client->failTimedOut(_now));
  _nextTimeOut = _transferCount ? next : INT64_MAX;
}

void CurlIOThread::runCommands() {
  {
    Lock lock(_lock);
    std::swap(_running, _commands);
  }
  for (Task& command : _running) command();
  _running.clear();
}

/// Decides, with nothing posted and no client left, whether the thread's time has come.
bool CurlIOThread::mayEnd() {
  if (!_clients.empty()) {
    _idleSince = -1;
    return false;
  }
  if (_idleSince < 0) _idleSince = _now;
  Lock lock(_lock);
  if (!_commands.empty() || (!_retired && _now - _idleSince < kLingerNanos)) return false;
  _runs = false;
  return true;
}

int CurlIOThread::waitLimit(int64_t clientMillis) const {
  int64_t nanos = INT64_MAX;
  if (!_threading->timeIsManual()) {
    if (_nextTimeOut != INT64_MAX) nanos = std::max<int64_t>(0, _nextTimeOut - _now);
    if (_idleSince >= 0) nanos = std::min(nanos, std::max<int64_t>(0, _idleSince + kLingerNanos - _now));
  }
  int64_t millis = nanos == INT64_MAX ? -1 : nanos / kNanosPerMilli + 1;
  if (clientMillis >= 0 && (millis < 0 || clientMillis < millis)) millis = clientMillis;
  return static_cast<int>(std::min<int64_t>(millis, INT_MAX));
}

void CurlIOThread::waitForEvents(int timeoutMillis) {
  {
    Lock lock(_lock);
    if (_commands.empty()) {
      _sleeps = true;
    } else {
      timeoutMillis = 0;
    }
  }
  _eventCount = ::epoll_wait(_epoll, _events, kMaximumEvents, timeoutMillis);
  Lock lock(_lock);
  _sleeps = false;
}

void CurlIOThread::dispatchEvents() {
  for (int i = 0; i < _eventCount; ++i) {
    if (_events[i].data.fd != _wakeUp) dispatch(_events[i].data.fd, _events[i].events);
  }
  _eventCount = 0;
}

void CurlIOThread::dispatch(int descriptor, uint32_t events) {
  if (static_cast<size_t>(descriptor) >= _watches.size()) return;
  const Watch& watch = _watches[descriptor];
  if (!watch.client || !watch.wanted) {
    // An idle connection was closed by its server, or a paused one has more. Nobody wants to know now.
    arm(descriptor, 0);
    return;
  }
  watch.client->socketReady(descriptor, events);
}

void CurlIOThread::addClient(SocketClient* client) { _clients.push_back(client); }

void CurlIOThread::removeClient(SocketClient* client) {
  _clients.erase(std::remove(_clients.begin(), _clients.end(), client), _clients.end());
}

void CurlIOThread::lookForTimeOutsAt(int64_t nanos) { _nextTimeOut = std::min(_nextTimeOut, nanos); }

void CurlIOThread::watch(int descriptor, uint32_t events, SocketClient* client, bool lazily) {
  if (static_cast<size_t>(descriptor) >= _watches.size()) _watches.resize(descriptor + 1);
  Watch& watch = _watches[descriptor];
  watch.client = client;
  watch.wanted = events;
  const uint32_t armed = watch.armed;
  const bool missing = (events & ~armed) != 0;
  // A socket is nearly always writable: that must not stay watched.
  const bool superfluous = lazily ? (armed & ~events & EPOLLOUT) != 0 : armed != events;
  if (missing || superfluous) arm(descriptor, lazily ? events | (armed & EPOLLIN) : events);
}

void CurlIOThread::forget(int descriptor) {
  if (static_cast<size_t>(descriptor) >= _watches.size()) return;
  arm(descriptor, 0);
  _watches[descriptor] = Watch();
}

void CurlIOThread::arm(int descriptor, uint32_t events) {
  uint32_t armed = 0;
  if (descriptor != _wakeUp) armed = std::exchange(_watches[descriptor].armed, events);
  if (armed == events) return;
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  const int operation = !armed ? EPOLL_CTL_ADD : !events ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
  ::epoll_ctl(_epoll, operation, descriptor, &event);
}

}  // namespace nvxcore
