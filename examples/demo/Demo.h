// What the chapters of the demo share.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/platform/Semaphore.h"
#include "tools/geoserver/Exchange.h"

namespace demo {

inline constexpr double kPatience = 20.0;
/// A type that the server doesn't know: it echoes the payload.
inline constexpr int32_t kEchoRequest = 239;

/// Lines of several threads, each with the time since the start.
class Journal {
 public:
  __attribute__((format(printf, 2, 3))) void line(const char* format, ...);
  /// Text of several lines, the first of them with the time.
  void text(const std::string& lines);
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
  }

 private:
  void time();
  const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
  std::mutex _mutex;
};

/// What is to hold; the first that does not decides the exit status.
class Checks {
 public:
  void expect(bool held, const std::string& what);
  template <class A, class B>
  void equal(const A& found, const B& wanted, const std::string& what) {
    expect(found == static_cast<A>(wanted),
           what + ": found " + std::to_string(found) + ", wanted " + std::to_string(wanted));
  }
  int failures() const { return _failures; }

 private:
  std::mutex _mutex;
  int _failures = 0;
};

extern Journal journal;
extern Checks checks;

/// Makes requests whose text the server echoes, and counts their outcomes.
class Client {
 public:
  explicit Client(std::shared_ptr<nvxcore::NVXDASHConnectionImpl> connection)
      : _connection(std::move(connection)) {}

  std::shared_ptr<nvxcore::NVXDASHBlocksRequest> request(const std::string& name);
  void send(const std::string& name) { _connection->sendRequest(request(name)); }
  void enqueue(const std::string& name) { _connection->enqueueRequest(request(name)); }
  bool waitForOutcomes(size_t count);
  size_t outcomes();
  void checkEachHasOneOutcome();

 private:
  void outcome(const std::string& name);

  const std::shared_ptr<nvxcore::NVXDASHConnectionImpl> _connection;
  std::atomic<size_t> _handedIn{0};
  nvxcore::Semaphore _arrived{0};
  std::mutex _mutex;
  std::map<std::string, int> _outcomes;
};

/// Keeps the main thread busy until it is destroyed, so that no POST starts before all is handed in and every
/// run looks the same.
class MainThreadIsBusy {
 public:
  MainThreadIsBusy();
  ~MainThreadIsBusy();

 private:
  const std::shared_ptr<nvxcore::Semaphore> _over = std::make_shared<nvxcore::Semaphore>(0);
};

/// How many requests of a POST are not the connection's own.
size_t callersRequests(const nvxcore::geoserver::Exchange& exchange);

/// A connection with the library's defaults.
std::shared_ptr<nvxcore::NVXDASHConnectionImpl> connectTo(const std::string& url);

/// Who the client is: identity, messages, retries, location.
void showIdentity(bool isVerbose);
/// How requests travel: batches, riders, early answers, a check, a suspension.
void showSpine();

}  // namespace demo
