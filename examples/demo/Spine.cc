// How requests travel: they are handed to a connection, ride in a few POSTs to a geo server, and are answered
// while the replies still arrive.

#include <algorithm>
#include <utility>

#include "examples/demo/Demo.h"
#include "tools/geoserver/GeoServer.h"

namespace demo {

using namespace nvxcore;
using geoserver::Exchange;
using geoserver::ReplyPlan;

namespace {

std::string hexadecimal(std::string_view bytes) {
  std::string text;
  char byte[4];
  for (unsigned char c : bytes) {
    std::snprintf(byte, sizeof byte, "%02X ", c);
    text += byte;
  }
  return text;
}

constexpr size_t kDumped = 14;  // bytes on a line

std::string readable(std::string bytes) {
  for (char& c : bytes) {
    if (c < ' ' || c > '~') c = '.';
  }
  return "\"" + bytes + "\"";
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
    for (size_t left = length; left > 0;) {
      const size_t part = std::min(left, kDumped);
      field(part, "payload", readable(body.substr(at, part)));
      left -= part;
    }
  }
  std::printf("\n");
}

void printPost(const Exchange& exchange) {
  journal.line("POST %llu over connection %llu: %zu requests, %llu bytes out, %llu bytes back, %s",
               static_cast<unsigned long long>(exchange.sequence),
               static_cast<unsigned long long>(exchange.connection), callersRequests(exchange),
               static_cast<unsigned long long>(exchange.bodyBytes),
               static_cast<unsigned long long>(exchange.replyBytesSent),
               geoserver::endingName(exchange.ending));
}

}  // namespace

void showSpine() {
  geoserver::GeoServer server;
  server.setObserver(printPost);
  // A POST with riders is answered in two parts, the second when this program says so; every full one a
  // little late.
  server.setScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    const size_t requests = callersRequests(exchange);
    // One answer more than that is the connection's own.
    if (requests == 30) return ReplyPlan().thenUpToAnswer(1 + 5).thenStall("rest");
    if (requests == 50) return ReplyPlan().thenPause(std::chrono::milliseconds(60));
    return std::nullopt;
  });
  journal.line("the geo server listens on %s", server.url().c_str());

  auto connection = connectTo(server.url());
  Client client(connection);

  journal.line(
      "10 requests wait for room in somebody's POST, 120 are sent, one of its own avoids cellular networks");
  for (int i = 1; i <= 10; ++i) client.enqueue("rider " + std::to_string(i));
  {
    MainThreadIsBusy busy;
    for (int i = 1; i <= 120; ++i) client.send("request " + std::to_string(i));
    auto homeOnly = client.request("wifi only");
    homeOnly->setAllowsCellularAccess(false);
    connection->sendRequest(homeOnly);
  }

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
    sizes.push_back(callersRequests(exchange));
    bytesOut += static_cast<int64_t>(exchange.bodyBytes);
    bytesBack += static_cast<int64_t>(exchange.replyBytesSent);
    if (callersRequests(exchange) == 1) printDump(exchange);
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
}

}  // namespace demo
