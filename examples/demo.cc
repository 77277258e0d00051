// The library's main job, seen from a host: requests are handed to a connection, ride in a few POSTs to a geo
// server in this process, and are answered while the replies still arrive. Ends with 0 only if all went as it
// should.

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
#include "tools/geoserver/GeoServer.h"

namespace {

using namespace nvxcore;
using geoserver::Exchange;
using geoserver::ReplyPlan;

constexpr int32_t kEchoRequest = 239;
constexpr double kPatience = 20.0;

/// Lines of several threads, each with the time since the start.
class Journal {
 public:
  __attribute__((format(printf, 2, 3))) void line(const char* format, ...) {
    const double now = seconds();
    std::lock_guard<std::mutex> lock(_mutex);
    std::printf("%8.1f ms  ", now * 1e3);
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::printf("\n");
    std::fflush(stdout);
  }
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
  }

 private:
  const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
  std::mutex _mutex;
};

Journal journal;

/// What is to hold; the first that does not decides the exit status.
class Checks {
 public:
  void expect(bool held, const std::string& what) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (held) return;
    ++_failures;
    std::printf("             NOT AS IT SHOULD BE: %s\n", what.c_str());
  }
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

Checks checks;

/// Makes requests whose text the server echoes, and counts their outcomes.
class Client {
 public:
  explicit Client(std::shared_ptr<NVXDASHConnectionImpl> connection) : _connection(std::move(connection)) {}

  std::shared_ptr<NVXDASHBlocksRequest> request(const std::string& name) {
    const double made = journal.seconds();
    auto request = NVXDASHBlocksRequest::requestWithID(
        kEchoRequest,
        [name](utils::JavaDataOutput* output) {
          output->WriteInt(static_cast<int32_t>(name.size()));
          output->WriteBytes(name.data(), name.size());
        },
        [this, name, made](utils::JavaDataInput* input) {
          const int32_t length = input->ReadInt();
          const Data echo = input->ReadDataOfLength(static_cast<size_t>(std::max(length, 0)));
          checks.expect(echo.view() == name, "the answer to " + name + " is its echo");
          journal.line("  answer to %-14s after %6.1f ms", name.c_str(), (journal.seconds() - made) * 1e3);
          outcome(name);
          return true;
        });
    request->setAsyncRequestFailedHandler([this, name](const Error& error) {
      checks.expect(false, name + " failed: " + error.description());
      outcome(name);
    });
    ++_handedIn;
    return request;
  }
  void send(const std::string& name) { _connection->sendRequest(request(name)); }
  void enqueue(const std::string& name) { _connection->enqueueRequest(request(name)); }

  bool waitForOutcomes(size_t count) {
    while (outcomes() < count) {
      if (!_arrived.wait(kPatience)) return false;
    }
    return true;
  }
  size_t outcomes() {
    std::lock_guard<std::mutex> lock(_mutex);
    return _outcomes.size();
  }
  void checkEachHasOneOutcome() {
    std::lock_guard<std::mutex> lock(_mutex);
    checks.equal(_outcomes.size(), _handedIn, "requests with an outcome");
    for (const auto& [name, count] : _outcomes) checks.equal(count, 1, "outcomes of " + name);
  }

 private:
  void outcome(const std::string& name) {
    {
      std::lock_guard<std::mutex> lock(_mutex);
      ++_outcomes[name];
    }
    _arrived.signal();
  }

  const std::shared_ptr<NVXDASHConnectionImpl> _connection;
  std::atomic<size_t> _handedIn{0};
  Semaphore _arrived{0};
  std::mutex _mutex;
  std::map<std::string, int> _outcomes;
};

std::string hexadecimal(std::string_view bytes) {
  std::string text;
  char byte[4];
  for (unsigned char c : bytes) {
    std::snprintf(byte, sizeof byte, "%02X ", c);
    text += byte;
  }
  return text;
}

/// Every byte of the body of a small POST, by field.
void printDump(const Exchange& exchange) {
  const std::string& body = *exchange.body;
  size_t at = 0;
  auto field = [&](size_t length, const char* name, const std::string& meaning) {
    std::printf("    %04zX  %-44s %-16s %s\n", at,
                hexadecimal(std::string_view(body).substr(at, length)).c_str(), name, meaning.c_str());
    at += length;
  };
  auto number = [&](size_t length) {
    uint64_t value = 0;
    for (size_t i = 0; i < length; ++i) value = value << 8 | static_cast<unsigned char>(body[at + i]);
    return value;
  };
  auto string = [&](const char* name) {
    const size_t length = number(2);
    field(2 + length, name, "\"" + body.substr(at + 2, length) + "\"");
  };
  std::printf("\n  The body of POST %llu, %zu bytes:\n", static_cast<unsigned long long>(exchange.sequence),
              body.size());
  field(2, "version", std::to_string(number(2)));
  field(8, "user cookie", number(8) ? "set" : "none");
  string("language");
  string("platform");
  string("software");
  string("channel");
  while (at < body.size()) {
    field(2, "request ID", std::to_string(number(2)));
    const size_t length = number(4);
    field(4, "payload length", std::to_string(length));
    field(length, "payload", "\"" + body.substr(at, length) + "\"");
  }
  std::printf("\n");
}

void printPost(const Exchange& exchange) {
  journal.line("POST %llu over connection %llu: %zu requests, %llu bytes out, %llu bytes back, %s",
               static_cast<unsigned long long>(exchange.sequence),
               static_cast<unsigned long long>(exchange.connection), exchange.post.requests.size(),
               static_cast<unsigned long long>(exchange.bodyBytes),
               static_cast<unsigned long long>(exchange.replyBytesSent),
               geoserver::endingName(exchange.ending));
}

int run() {
  geoserver::GeoServer server;
  server.setObserver(printPost);
  // A POST with riders is answered in two parts, the second when this program says so; every full one a
  // little late.
  server.setScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    const size_t requests = exchange.post.requests.size();
    if (requests == 30) return ReplyPlan().thenUpToAnswer(5).thenStall("rest");
    if (requests == 50) return ReplyPlan().thenPause(std::chrono::milliseconds(60));
    return std::nullopt;
  });
  journal.line("the geo server listens on %s", server.url().c_str());

  auto service = NVXDASHConnectionImpl::fetcherServiceWithUserAgent(
      NVXDASHConnectionImpl::userAgentForBundle(nullptr, "demo/1"));
  auto connection = NVXDASHConnection::initWithServerURL(
      URL::withString(server.url()), NVXDASHClientDescription::initWithLanguages({"en"}, 0, "demo", "1.0"),
      std::make_shared<NVXDASHClientState>(), service, std::make_shared<NVXSystemClock>());
  Client client(connection);

  journal.line(
      "10 requests wait for room in somebody's POST, 120 are sent, one of its own avoids cellular networks");
  for (int i = 1; i <= 10; ++i) client.enqueue("rider " + std::to_string(i));
  // The main thread is busy meanwhile, so that no POST starts before all are handed in and every run looks
  // the same.
  auto handedIn = std::make_shared<Semaphore>(0);
  Queue::main()->post([handedIn] { handedIn->wait(); });
  for (int i = 1; i <= 120; ++i) client.send("request " + std::to_string(i));
  auto homeOnly = client.request("wifi only");
  homeOnly->setAllowsCellularAccess(false);
  connection->sendRequest(homeOnly);
  handedIn->signal();

  checks.expect(server.waitUntilStalled(1, std::chrono::seconds(20)),
                "a reply stands still after its fifth answer");
  checks.expect(client.waitForOutcomes(50 + 50 + 5 + 1),
                "the first answers are there before the last byte was sent");
  journal.line("%zu answers are here, and the server still holds back the end of a reply", client.outcomes());
  checks.equal(client.outcomes(), 106, "answers before the last byte");
  server.release("rest");
  checks.expect(connection->drain(kPatience), "all POSTs end");

  journal.line("a connection check");
  Semaphore checked(0);
  connection->checkConnection([&](bool good) {
    journal.line("  the server is %s", good ? "there" : "not there");
    checks.expect(good, "the check finds the server");
    checked.signal();
  });
  checks.expect(checked.wait(kPatience), "the check calls back");

  journal.line("3 requests and a rider while sending is suspended");
  connection->suspendSending();
  for (int i = 1; i <= 3; ++i) client.send("held back " + std::to_string(i));
  client.enqueue("held rider");
  const NVXDASHConnectionSnapshot held = connection->snapshot();
  journal.line("  held back: %zu and %zu, in the air: %lld", held.suspended, held.suspendedEnqueued,
               static_cast<long long>(held.postsInProgress));
  checks.equal(held.suspended, 3, "requests held back");
  connection->resumeSending();
  checks.expect(connection->drain(kPatience), "the held ones end");

  client.checkEachHasOneOutcome();
  server.waitForEndedCount(6, std::chrono::seconds(20));
  std::vector<size_t> sizes;
  int64_t bytesOut = 0, bytesBack = 0;
  for (const Exchange& exchange : server.exchanges()) {
    sizes.push_back(exchange.post.requests.size());
    bytesOut += static_cast<int64_t>(exchange.bodyBytes);
    bytesBack += static_cast<int64_t>(exchange.replyBytesSent);
    if (exchange.post.requests.size() == 1) printDump(exchange);
  }
  std::sort(sizes.begin(), sizes.end());
  checks.expect(sizes == std::vector<size_t>({0, 1, 4, 30, 50, 50}),
                "POSTs of 50, 50, 30, 1, 0 and 4 requests");
  int64_t outgoing = 0, incoming = 0;
  connection->getOutgoingByteCount(&outgoing, &incoming);
  journal.line("bytes framed %lld, bytes read %lld", static_cast<long long>(outgoing),
               static_cast<long long>(incoming));
  checks.equal(outgoing, bytesOut, "bytes framed, beside those that the server got");
  checks.equal(incoming, bytesBack, "bytes read, beside those that the server sent");

  std::printf("\n%s\n", checks.failures() ? "Something is not as it should be." : "All is as it should be.");
  return checks.failures() ? 1 : 0;
}

}  // namespace

int main() { return run(); }
