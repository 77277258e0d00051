#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <thread>

#include "support/CurlClient.h"
#include "support/RawClient.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {
namespace {

size_t openDescriptors() {
  size_t count = 0;
  DIR* folder = opendir("/proc/self/fd");
  while (readdir(folder)) ++count;
  closedir(folder);
  return count;
}

TEST(ServerLifeTest, HundredsOfStalledRepliesHoldUpNobody) {
  constexpr size_t kStalled = 400;
  GeoServer server;
  server.setHeadScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    if (exchange.path == "/stall") return faults::stalledBody(2, exchange.sequence % 2 ? "odd" : "even");
    return std::nullopt;
  });
  std::deque<RawClient> clients;
  for (size_t i = 0; i < kStalled; ++i)
    clients.emplace_back(server.port()).send(postRequest(postBody(1, 5), "/stall"));
  ASSERT_TRUE(server.waitUntilStalled(kStalled, kPatience));
  RawClient healthy(server.port());
  const auto start = std::chrono::steady_clock::now();
  healthy.send(postRequest(postBody(1, 5)));
  EXPECT_EQ(bodyOf(healthy.readReply()), goodReply(1, 5));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

  server.release("odd");
  ASSERT_TRUE(server.waitForEndedCount(kStalled / 2 + 1, kPatience));
  EXPECT_EQ(server.counters().exchangesStalled, kStalled / 2);
  server.releaseAll();
  for (RawClient& client : clients) EXPECT_EQ(bodyOf(client.readReply()), goodReply(1, 5));

  // A gate once released stays open, until it is to hold again.
  clients.front().send(postRequest(postBody(1, 5), "/stall"));
  clients.front().send(postRequest(postBody(1, 5), "/stall"));
  server.release("even");
  EXPECT_EQ(bodyOf(clients.front().readReply()), goodReply(1, 5));
  EXPECT_EQ(bodyOf(clients.front().readReply()), goodReply(1, 5));
  server.holdAgain("even");
  server.holdAgain("odd");
  clients.front().send(postRequest(postBody(1, 5), "/stall"));
  EXPECT_TRUE(server.waitUntilStalled(1, kPatience));
}

TEST(ServerLifeTest, StopsAtOnceWhateverIsUnderWay) {
  const size_t before = openDescriptors();
  std::string caFile;
  for (const bool tls : {false, true}) {
    ServerOptions options;
    options.tls = tls;
    auto server = std::make_unique<GeoServer>(options);
    caFile = server->caFile();
    server->setHeadScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
      if (exchange.query == "stall") return faults::stalledBody(3);
      if (exchange.query == "late") return faults::delayedHead(Millis(3600 * 1000));
      return std::nullopt;
    });
    std::vector<std::unique_ptr<RawClient>> clients;
    if (!tls) {
      for (const char* request : {"", "POST", "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 9\r\n\r\nabc"}) {
        clients.emplace_back(std::make_unique<RawClient>(server->port()))->send(request);
      }
    } else {
      clients.emplace_back(std::make_unique<RawClient>(server->port()))->send("\x16\x03\x01");
    }
    std::thread transfers([&] {
      CurlClient client(*server, tls ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1);
      const std::string body = postBody(1, 1);
      for (const CurlReply& reply :
           client.runAll({{.path = "/?stall", .body = body}, {.path = "/?late", .body = body}})) {
        EXPECT_NE(reply.code, CURLE_OK);
      }
    });
    const uint64_t expected = tls ? 2 : 3;
    EXPECT_TRUE(server->waitFor(
        [&](const Counters& c) { return c.exchangesStarted == expected && c.exchangesStalled == 1; },
        kPatience))
        << server->counters().exchangesStarted << " started, " << server->counters().exchangesStalled
        << " stalled";
    EXPECT_TRUE(server->waitForExchangeCount(2, kPatience));
    server->stop();
    transfers.join();
    EXPECT_EQ(server->counters().connectionsOpen, 0u);
    EXPECT_EQ(server->counters().exchangesEnded, expected);
    for (const Exchange& exchange : server->exchanges()) EXPECT_EQ(exchange.ending, Ending::serverStopped);
    server->stop();
  }
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_NE(access(caFile.c_str(), F_OK), 0);
}

TEST(ServerLifeTest, StopListeningRefusesConnectsAndServesOn) {
  GeoServer server;
  RawClient client(server.port());
  client.send(getRequest("/status/200"));
  client.readReply();
  server.stopListening();
  // The loop takes its tasks in turn: once this reply is here, the listener is gone.
  client.send(getRequest("/status/201"));
  EXPECT_TRUE(client.readReply().starts_with("HTTP/1.1 201"));
  EXPECT_THROW(RawClient{server.port()}, std::system_error);
}

TEST(ServerLifeTest, TheRecordCanBeReadFromAnyThreadWhileItGrows) {
  GeoServer server;
  std::atomic<uint64_t> observed{0};
  server.setObserver([&](const Exchange& exchange) {
    EXPECT_EQ(exchange.ending, Ending::answered);
    ++observed;
  });
  std::atomic<bool> done{false};
  std::thread reader([&] {
    while (!done) {
      for (const Exchange& exchange : server.exchanges()) {
        EXPECT_FALSE(exchange.summary().empty());
        EXPECT_LE(exchange.body->size(), 2000u);
      }
      if (server.counters().exchangesEnded > 400) server.clear();
    }
  });
  std::vector<std::thread> clients;
  for (size_t i = 0; i < 3; ++i) {
    clients.emplace_back([&] {
      RawClient client(server.port());
      for (size_t j = 0; j < 200; ++j) {
        client.send(postRequest(postBody(5, 10)));
        EXPECT_EQ(bodyOf(client.readReply()), goodReply(5, 10));
      }
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_TRUE(server.waitForEndedCount(600, kPatience));
  done = true;
  reader.join();
  server.stop();
  EXPECT_EQ(observed, 600u);
  server.clear();
  EXPECT_TRUE(server.exchanges().empty());
}

TEST(ServerLifeTest, TheRecordKeepsAsMuchAsItIsTold) {
  for (const RecordLevel level : {RecordLevel::withoutBodies, RecordLevel::countersOnly}) {
    ServerOptions options;
    options.record = level;
    GeoServer server(options);
    RawClient client(server.port());
    client.send(postRequest(postBody(2, 10)));
    EXPECT_EQ(bodyOf(client.readReply()), goodReply(2, 10));
    ASSERT_TRUE(server.waitForEndedCount(1, kPatience));
    EXPECT_EQ(server.counters().requestsReceived, 2u);
    const auto exchanges = server.exchanges();
    ASSERT_EQ(exchanges.size(), level == RecordLevel::countersOnly ? 0u : 1u);
    if (!exchanges.empty()) {
      EXPECT_EQ(*exchanges[0].body, "");
      EXPECT_EQ(exchanges[0].bodyBytes, postBody(2, 10).size());
      EXPECT_EQ(exchanges[0].answersSent, 2u);
    }
  }
}

}  // namespace
}  // namespace nvxcore::geoserver
