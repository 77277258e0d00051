#pragma once

#include <curl/curl.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/linux/CurlIOThread.h"
#include "nvxcore/platform/linux/HostResolver.h"

namespace nvxcore {

class CurlTransfer;

/// The connections of one session: a multi handle with its transfers, driven by the events of their sockets.
/// All of it happens on the I/O thread, but for what says otherwise.
class CurlConnectionPool final : public SocketClient,
                                 public std::enable_shared_from_this<CurlConnectionPool> {
 public:
  /// Any thread.
  CurlConnectionPool(std::shared_ptr<CurlIOThread> thread, std::shared_ptr<HostResolver> resolver,
                     std::shared_ptr<const HTTPSessionConfiguration> configuration);
  ~CurlConnectionPool();

  // Any thread.

  CurlIOThread& thread() const { return *_thread; }
  HostResolver& resolver() const { return *_resolver; }
  const HTTPSessionConfiguration& configuration() const { return *_configuration; }
  /// Runs `step` of a transfer on the I/O thread.
  void postTransfer(Task step);
  /// Closes the connections once the transfers have ended. None may start any more.
  void close();

  // The life of a transfer. The pool looks for its time-out from `add` to `remove`.

  void add(std::shared_ptr<CurlTransfer> transfer);
  void remove(CurlTransfer& transfer);
  /// A handle with all that is the same for every transfer of the session. Null when there is no memory.
  CURL* takeHandle();
  /// Ends what the handle does and keeps it for the next transfer.
  void giveBack(CURL* handle);
  bool start(CURL* handle) { return curl_multi_add_handle(_multi, handle) == CURLM_OK; }
  /// A stream of HTTP/2 has ended, or was cut off. libcurl 7.88 may then sit on bytes of others that have
  /// come behind it on the connection: it is made to look for them a few times, less and less often.
  void lookAtOthersAgain();
  /// Sees to it that what the transfer has for its task is told at the end of this turn.
  void tellAtEndOfTurn(std::shared_ptr<CurlTransfer> transfer);
  /// As `tellAtEndOfTurn`, but a moment later: most bodies are followed by their reply within less, and one
  /// turn of the delegate queue then tells of both.
  void tellProgress(CurlTransfer& transfer);

  void socketReady(int descriptor, uint32_t events) override;
  int64_t endOfTurn() override;
  int64_t failTimedOut(int64_t nowNanos) override;

 private:
  /// A socket of a connection, by descriptor.
  struct Connection {
    bool isOpen = false;
    CurlTransfer* user = nullptr;  ///< The transfer that asked for its events last.
  };

  void open();
  void closeNow();
  void configure(CURL* handle);
  Connection& connection(int descriptor);
  void lookAgain();
  void setTimer();
  void setTimer(long millis);
  void takeFinished();
  void endAnsweredEarly();

  static int onSocket(CURL* easy, curl_socket_t descriptor, int what, void* self, void*) noexcept;
  static int onTimer(CURLM*, long millis, void* self) noexcept;
  static curl_socket_t onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept;
  static int onCloseSocket(void* self, curl_socket_t descriptor) noexcept;

  const std::shared_ptr<CurlIOThread> _thread;
  const std::shared_ptr<HostResolver> _resolver;
  const std::shared_ptr<const HTTPSessionConfiguration> _configuration;

  std::atomic<bool> _isUsed{false};
  CURLM* _multi = nullptr;
  bool _closes = false;
  int64_t _lookAgainDelay = 0;  ///< In milliseconds; 0 when there is no need.
  int64_t _lookAgainMillis = 0;
  int64_t _timerMillis = -1;  ///< On the system's monotonic clock, as libcurl's own times are.
  std::vector<std::shared_ptr<CurlTransfer>> _transfers;
  std::vector<CURL*> _idleHandles;
  std::vector<Connection> _connections;
  std::vector<std::shared_ptr<CurlTransfer>> _toTell;
  std::vector<CurlTransfer*> _progressToTell;  ///< Of `_transfers`.
  int64_t _tellProgressMillis = 0;
  std::vector<std::shared_ptr<CurlTransfer>> _answeredEarly;
};

}  // namespace nvxcore
