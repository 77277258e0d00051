#include "nvxcore/platform/linux/CurlConnectionPool.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "nvxcore/platform/linux/CurlTransfer.h"

namespace nvxcore {

namespace {

/// Handles and connections that are kept while nothing uses them.
constexpr size_t kIdleHandles = 16;
constexpr long kIdleConnections = 32;

int64_t systemMillis() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

CurlTransfer* transferOf(CURL* handle) {
  char* transfer = nullptr;
  curl_easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
  return reinterpret_cast<CurlTransfer*>(transfer);
}

}  // namespace

CurlConnectionPool::CurlConnectionPool(std::shared_ptr<CurlIOThread> thread,
                                       std::shared_ptr<HostResolver> resolver,
                                       std::shared_ptr<const HTTPSessionConfiguration> configuration)
    : _thread(std::move(thread)), _resolver(std::move(resolver)), _configuration(std::move(configuration)) {}

CurlConnectionPool::~CurlConnectionPool() = default;

void CurlConnectionPool::postTransfer(Task step) {
  _isUsed.store(true, std::memory_order_relaxed);
  _thread->post(std::move(step));
}

void CurlConnectionPool::close() {
  if (!_isUsed.exchange(false)) return;  // No thread is to start for nothing.
  _thread->post([self = shared_from_this()] {
    self->_closes = true;
    if (self->_transfers.empty()) self->closeNow();
  });
}

void CurlConnectionPool::open() {
  _multi = curl_multi_init();
  curl_multi_setopt(_multi, CURLMOPT_SOCKETFUNCTION, &onSocket);
  curl_multi_setopt(_multi, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(_multi, CURLMOPT_TIMERFUNCTION, &onTimer);
  curl_multi_setopt(_multi, CURLMOPT_TIMERDATA, this);
  curl_multi_setopt(_multi, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
  curl_multi_setopt(_multi, CURLMOPT_MAXCONNECTS, kIdleConnections);
  curl_multi_setopt(_multi, CURLMOPT_MAX_HOST_CONNECTIONS,
                    static_cast<long>(std::min<size_t>(_configuration->maximumConnectionsPerHost, INT_MAX)));
  _thread->addClient(this);
}

void CurlConnectionPool::closeNow() {
  for (CURL* handle : _idleHandles) curl_easy_cleanup(handle);
  _idleHandles.clear();
  if (!_multi) return;
  curl_multi_cleanup(std::exchange(_multi, nullptr));
  _thread->removeClient(this);
}

void CurlConnectionPool::add(std::shared_ptr<CurlTransfer> transfer) {
  if (!_multi) open();
  transfer->indexInPool = _transfers.size();
  _thread->lookForTimeOutsAt(transfer->timeOutAt());
  _transfers.push_back(std::move(transfer));
  _thread->transferBegan();
}

void CurlConnectionPool::remove(CurlTransfer& transfer) {
  const std::shared_ptr<CurlTransfer> held = std::move(_transfers[transfer.indexInPool]);
  if (transfer.indexInPool + 1 != _transfers.size()) {
    _transfers[transfer.indexInPool] = std::move(_transfers.back());
    _transfers[transfer.indexInPool]->indexInPool = transfer.indexInPool;
  }
  _transfers.pop_back();
  std::erase(_progressToTell, &transfer);
  _thread->transferEnded();
}

CURL* CurlConnectionPool::takeHandle() {
  if (!_idleHandles.empty()) {
    CURL* handle = _idleHandles.back();
    _idleHandles.pop_back();
    return handle;
  }
  CURL* handle = curl_easy_init();
  if (handle) configure(handle);
  return handle;
}

void CurlConnectionPool::giveBack(CURL* handle) {
  CurlTransfer* const transfer = transferOf(handle);
  curl_multi_remove_handle(_multi, handle);
  if (transfer->descriptor >= 0) {
    if (Connection& last = connection(transfer->descriptor); last.user == transfer) last.user = nullptr;
  }
  curl_easy_setopt(handle, CURLOPT_PRIVATE, nullptr);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
  if (_idleHandles.size() < kIdleHandles) {
    _idleHandles.push_back(handle);
  } else {
    curl_easy_cleanup(handle);
  }
}

void CurlConnectionPool::configure(CURL* handle) {
  const auto set = [handle](CURLoption option, auto value) { curl_easy_setopt(handle, option, value); };
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  set(CURLOPT_PATH_AS_IS, 1L);
  set(CURLOPT_HTTP09_ALLOWED, 0L);
  set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  set(CURLOPT_BUFFERSIZE, 32L << 10);
  // The time-outs here know of progress, which these do not.
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(INT_MAX));
  // An empty text keeps libcurl from asking the environment.
  set(CURLOPT_PROXY, _configuration->proxy.c_str());
  set(CURLOPT_NOPROXY, "");
  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  const bool ownTrust = !_configuration->caFile.empty() || !_configuration->caDirectory.empty();
  if (ownTrust) {
    const auto orNull = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
    set(CURLOPT_CAINFO, orNull(_configuration->caFile));
    set(CURLOPT_CAPATH, orNull(_configuration->caDirectory));
  }
  set(CURLOPT_OPENSOCKETFUNCTION, &onOpenSocket);
  set(CURLOPT_OPENSOCKETDATA, this);
  set(CURLOPT_CLOSESOCKETFUNCTION, &onCloseSocket);
  set(CURLOPT_CLOSESOCKETDATA, this);
  CurlTransfer::configure(handle);
}

void CurlConnectionPool::tellAtEndOfTurn(std::shared_ptr<CurlTransfer> transfer) {
  _toTell.push_back(std::move(transfer));
}

void CurlConnectionPool::tellProgress(CurlTransfer& transfer) {
  constexpr int64_t kDelayMillis = 10;
  if (_progressToTell.empty()) _tellProgressMillis = systemMillis() + kDelayMillis;
  if (_progressToTell.empty() || _progressToTell.back() != &transfer) _progressToTell.push_back(&transfer);
}

CurlConnectionPool::Connection& CurlConnectionPool::connection(int descriptor) {
  if (static_cast<size_t>(descriptor) >= _connections.size()) _connections.resize(descriptor + 1);
  return _connections[descriptor];
}

int CurlConnectionPool::onSocket(CURL* easy, curl_socket_t descriptor, int what, void* self, void*) noexcept {
  auto& pool = *static_cast<CurlConnectionPool*>(self);
  Connection& connection = pool.connection(descriptor);
  if (what == CURL_POLL_REMOVE) connection.user = nullptr;
  if (what == CURL_POLL_REMOVE && !connection.isOpen) {
    pool._thread->forget(descriptor);  // It is not closed through `onCloseSocket`.
    return 0;
  }
  const bool wantsIn = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
  const bool wantsOut = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;
  pool._thread->watch(descriptor, (wantsIn ? EPOLLIN : 0u) | (wantsOut ? EPOLLOUT : 0u), &pool,
                      connection.isOpen);
  if (CurlTransfer* transfer = transferOf(easy)) {
    if (what != CURL_POLL_REMOVE && connection.isOpen) {
      // A transfer that goes on over another connection leaves the one before.
      if (transfer->descriptor >= 0 && transfer->descriptor != descriptor) {
        if (Connection& before = pool._connections[transfer->descriptor]; before.user == transfer)
          before.user = nullptr;
      }
      connection.user = transfer;
      transfer->descriptor = descriptor;
    }
    if (!wantsIn && transfer->mayBeAnsweredEarly())
      pool._answeredEarly.push_back(transfer->shared_from_this());
  }
  return 0;
}

int CurlConnectionPool::onTimer(CURLM*, long millis, void* self) noexcept {
  static_cast<CurlConnectionPool*>(self)->setTimer(millis);
  return 0;
}

void CurlConnectionPool::setTimer(long millis) {
  _timerMillis = millis <= 0 ? millis : systemMillis() + millis + 1;
}

void CurlConnectionPool::setTimer() {
  long millis = -1;
  curl_multi_timeout(_multi, &millis);
  setTimer(millis);
}

curl_socket_t CurlConnectionPool::onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept {
  const int descriptor = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (descriptor < 0) return CURL_SOCKET_BAD;
  static_cast<CurlConnectionPool*>(self)->connection(descriptor) = {true, nullptr};
  return descriptor;
}

int CurlConnectionPool::onCloseSocket(void* self, curl_socket_t descriptor) noexcept {
  auto& pool = *static_cast<CurlConnectionPool*>(self);
  pool._thread->forget(descriptor);
  pool.connection(descriptor) = Connection();
  return ::close(descriptor);
}

void CurlConnectionPool::socketReady(int descriptor, uint32_t events) {
  // What happens on a connection that is shared may be of concern to others only.
  if (CurlTransfer* user = connection(descriptor).user; user && !user->isMultiplexed()) user->madeProgress();
  const int action = (events & EPOLLIN ? CURL_CSELECT_IN : 0) | (events & EPOLLOUT ? CURL_CSELECT_OUT : 0) |
                     (events & (EPOLLERR | EPOLLHUP) ? CURL_CSELECT_ERR : 0);
  int running = 0;
  curl_multi_socket_action(_multi, descriptor, action, &running);
}

int64_t CurlConnectionPool::endOfTurn() {
  if (_lookAgainDelay && systemMillis() >= _lookAgainMillis) lookAgain();
  // What runs at once may set the timer to "at once" again; others are to have their turn after a while.
  for (int i = 0; i < 16 && _timerMillis >= 0; ++i) {
    if (_timerMillis > 0 && systemMillis() < _timerMillis) break;
    _timerMillis = -1;
    int running = 0;
    curl_multi_socket_action(_multi, CURL_SOCKET_TIMEOUT, 0, &running);
    // libcurl tells of changes only, and takes a call that comes a moment early for none.
    if (_timerMillis < 0) setTimer();
  }
  takeFinished();
  endAnsweredEarly();
  for (size_t i = 0; i < _toTell.size(); ++i) _toTell[i]->tell();
  _toTell.clear();
  if (!_progressToTell.empty() && systemMillis() >= _tellProgressMillis) {
    for (CurlTransfer* transfer : std::exchange(_progressToTell, {})) transfer->tell();
  }
  if (_closes && _transfers.empty()) closeNow();
  int64_t next = _lookAgainDelay ? _lookAgainMillis : INT64_MAX;
  if (_timerMillis >= 0) next = std::min(next, _timerMillis);
  if (!_progressToTell.empty()) next = std::min(next, _tellProgressMillis);
  return next == INT64_MAX ? -1 : next == 0 ? 0 : std::max<int64_t>(0, next - systemMillis());
}

void CurlConnectionPool::lookAtOthersAgain() {
  _lookAgainDelay = 1;
  _lookAgainMillis = 0;
}

void CurlConnectionPool::lookAgain() {
  constexpr int64_t kLongestDelay = 512;
  bool anyShares = false;
  for (size_t i = 0; i < _transfers.size(); ++i) anyShares |= _transfers[i]->lookAgain();
  _lookAgainMillis = systemMillis() + _lookAgainDelay;
  _lookAgainDelay = anyShares && _lookAgainDelay < kLongestDelay ? 2 * _lookAgainDelay : 0;
}

void CurlConnectionPool::takeFinished() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(_multi, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode result = message->data.result;
    transferOf(message->easy_handle)->finish(result);
  }
}

void CurlConnectionPool::endAnsweredEarly() {
  for (const auto& transfer : std::exchange(_answeredEarly, {})) transfer->finishAnsweredEarly();
}

int64_t CurlConnectionPool::failTimedOut(int64_t nowNanos) {
  int64_t next = INT64_MAX;
  for (const auto& transfer : std::vector(_transfers)) {
    transfer->lookAtSending();
    if (transfer->timeOutAt() <= nowNanos) {
      transfer->timeOut();
    } else {
      next = std::min(next, transfer->nextLookAt());
    }
  }
  return next;
}

}  // namespace nvxcore
