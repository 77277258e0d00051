#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/URLErrors.h"
#include "tests/connection/ConnectionHarness.h"
#include "tests/support/Eventually.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore {
namespace {

using namespace testing;
using geoserver::Exchange;
using geoserver::ReplyPlan;
using std::chrono::seconds;

/// A connection against a real server on loopback.
class LiveServerTest : public NVXTest {
 protected:
  ~LiveServerTest() override {
    server.releaseAll();
    if (connection) {
      EXPECT_TRUE(connection->drain(kPatience));
    }
    connection.reset();
    _scope.settle();
  }

  /// Each in a POST of its own.
  void sendAlone(const std::string& name) {
    auto request = echoRequest(outcomes, name);
    request->setAllowsCellularAccess(false);
    connection->sendRequest(request);
  }

  PlatformScope _scope;
  Outcomes outcomes;
  geoserver::GeoServer server;
  std::shared_ptr<NVXDASHConnectionImpl> connection = makeConnection(server.url());
};

TEST_F(LiveServerTest, StalledRepliesKeepNobodyElseWaiting) {
  constexpr size_t kStalled = 200;
  connection->fetcherService()->setMaxRunningFetchersPerHost(0);
  server.setScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    if (exchange.payload(exchange.post.requests.back()).ends_with("healthy")) return std::nullopt;
    return ReplyPlan().thenBytes(2).thenStall("gate");
  });
  sendAlone("healthy first");
  ASSERT_TRUE(server.waitUntilStalled(1, seconds(20)));
  server.releaseAll();
  ASSERT_TRUE(outcomes.waitForCount(1));
  ASSERT_TRUE(connection->drain(kPatience));
  const size_t threadsBefore = takeRuntimeSnapshot().threads.size();

  for (size_t i = 0; i < kStalled; ++i) sendAlone(std::to_string(i));
  ASSERT_TRUE(server.waitUntilStalled(kStalled, seconds(20)));
  ASSERT_TRUE(eventually([] { return takeRuntimeSnapshot().blockedWorkers == kStalled; }));
  EXPECT_EQ(connection->numberOfConnectionsInProgress(), static_cast<int64_t>(kStalled));
  const auto start = std::chrono::steady_clock::now();
  sendAlone("healthy");
  ASSERT_TRUE(outcomes.waitForCount(2));
  EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(1));
  EXPECT_LE(takeRuntimeSnapshot().threads.size(), maximumThreadCount());

  server.release("gate");
  ASSERT_TRUE(outcomes.waitForCount(kStalled + 2));
  ASSERT_TRUE(connection->drain(kPatience));
  for (const auto& outcome : outcomes.all()) EXPECT_TRUE(outcome.answered) << outcome.name;
  EXPECT_TRUE(eventually([&] { return takeRuntimeSnapshot().threads.size() <= threadsBefore; }))
      << takeRuntimeSnapshot().threads.size() << " threads, " << threadsBefore << " before";
}

TEST_F(LiveServerTest, TheEleventhWaitsUnderTheDefaultLimit) {
  server.setScript(
      [](const Exchange&) -> std::optional<ReplyPlan> { return ReplyPlan().thenBytes(2).thenStall("gate"); });
  for (int i = 0; i < 11; ++i) sendAlone(std::to_string(i));
  ASSERT_TRUE(server.waitUntilStalled(10, seconds(20)));
  const auto service = connection->fetcherService();
  ASSERT_TRUE(eventually([&] { return service->numberOfDelayedFetchers() == 1; }));
  EXPECT_EQ(service->numberOfRunningFetchers(), 10u);
  EXPECT_EQ(server.counters().exchangesStarted, 10u);
  server.release("gate");
  ASSERT_TRUE(outcomes.waitForCount(11));
  for (const auto& outcome : outcomes.all()) EXPECT_TRUE(outcome.answered) << outcome.name;
}

TEST_F(LiveServerTest, FirstAnswersComeBeforeTheLastByte) {
  server.enqueue(ReplyPlan().thenUpToAnswer(3).thenStall("gate"));
  connection->suspendSending();
  for (const char* name : {"a", "b", "c", "d"}) connection->sendRequest(echoRequest(outcomes, name));
  connection->resumeSending();
  ASSERT_TRUE(outcomes.waitForCount(2));
  EXPECT_EQ(outcomes.summary(), "a b");
  EXPECT_FALSE(connection->drain(0));
  EXPECT_FALSE(connection->waitOnCurrentStreamingConnectionsWithTimeout(0.001));
  server.release("gate");
  ASSERT_TRUE(outcomes.waitForCount(4));
  EXPECT_EQ(outcomes.summary(), "a b c d");
}

TEST_F(LiveServerTest, AStoppedFetchEndsItsStalledReader) {
  expectConsoleLine("Needed ");
  server.enqueue(ReplyPlan().thenUpToAnswer(2).thenStall());
  connection->suspendSending();
  for (const char* name : {"a", "b"}) connection->sendRequest(echoRequest(outcomes, name));
  connection->resumeSending();
  ASSERT_TRUE(outcomes.waitForCount(1));
  connection->fetcherService()->stopAllFetchers();
  ASSERT_TRUE(outcomes.waitForCount(2));
  EXPECT_EQ(outcomes.summary(), "a !b");
  EXPECT_TRUE(outcomes.all()[1].error.is(kURLErrorDomain, kURLErrorCancelled));
  EXPECT_TRUE(connection->drain(kPatience));
}

/// A process that leaves with POSTs in the air, in each state that one can be in.
void leaveWithPostsInFlight(bool tls) {
  geoserver::ServerOptions options;
  options.tls = tls;
  // Neither is ever destroyed: they run while the process leaves, as a host's would.
  auto* server = new geoserver::GeoServer(options);
  auto* outcomes = new Outcomes;
  server->setScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    return exchange.sequence % 2 ? ReplyPlan().thenBytes(2).thenStall() : ReplyPlan().thenStall();
  });
  auto service = NVXDASHConnectionImpl::fetcherServiceWithUserAgent("leave/1");
  service->updateSettings([&](NVXx_HTKSessionFetcherService::Settings& settings) {
    settings.configuration = HTTPSessionConfiguration::ephemeral();
    settings.configuration->caFile = server->caFile();
  });
  auto connection = makeConnection(server->url(), service);
  for (int i = 0; i < 20; ++i) {
    auto request = echoRequest(*outcomes, std::to_string(i));
    request->setAllowsCellularAccess(false);
    connection->sendRequest(request);
  }
  server->waitUntilStalled(10, seconds(20));
  std::exit(0);
}

TEST(LeavingTheProcessDeathTest, NeitherHangsNorCrashesWithPostsInFlight) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (bool tls : {false, true}) {
    EXPECT_EXIT(leaveWithPostsInFlight(tls), ::testing::ExitedWithCode(0), "");
  }
}

}  // namespace
}  // namespace nvxcore
