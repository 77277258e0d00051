#include "tools/geoserver/FaultScript.h"

#include <gtest/gtest.h>

#include "support/CurlClient.h"
#include "support/RawClient.h"

namespace nvxcore::geoserver {
namespace {

TEST(FaultScriptTest, ASeedRepeatsAndWholeDecksAreEven) {
  FaultScript one(7), same(7), other(8);
  Exchange http1, http2;
  http1.version = "HTTP/1.1";
  http2.version = "HTTP/2";
  size_t differences = 0;
  const FaultWeights weights = FaultScript::defaultWeights();
  size_t deck = 0;
  for (const uint32_t weight : weights) deck += weight;
  for (size_t i = 0; i < 50 * deck; ++i) {
    const ReplyPlan plan = one.next(http2);
    const ReplyPlan again = same.next(http2);
    EXPECT_EQ(plan.fault, again.fault);
    EXPECT_EQ(plan.steps.size(), again.steps.size());
    EXPECT_EQ(plan.status, again.status);
    differences += plan.fault != other.next(http2).fault;
  }
  EXPECT_GT(differences, deck);
  for (size_t kind = 0; kind < kFaultKindCount; ++kind)
    EXPECT_EQ(one.counts()[kind], 50 * weights[kind]) << kind;
  for (size_t i = 0; i < 1000; ++i) EXPECT_FALSE(needsHttp2(other.next(http1).fault));
  EXPECT_NE(one.report().find("      50  goaway, refused\n"), std::string::npos);
}

// The server's record and what a client got agree, exchange for exchange, whatever was dealt.
TEST(FaultScriptTest, TheRecordTellsWhatAClientGot) {
  for (const bool tls : {false, true}) {
    ServerOptions options;
    options.tls = tls;
    GeoServer server(options);
    FaultScript faults(20);
    faults.attachTo(server);
    const std::string good = goodReply(20, 30);
    const auto answersIn = [&](const CurlReply& reply) {
      if (reply.status != 200 || reply.headers.find("application/binary\r\n") == std::string::npos)
        return uint64_t{0};
      uint64_t answers = 0;
      while (answers < 20 &&
             reply.body.compare(0, 2 + (answers + 1) * 36, good, 0, 2 + (answers + 1) * 36) == 0) {
        ++answers;
      }
      return answers;
    };
    for (uint64_t started = 0; started < 260;) {
      // A new connection each time, so that curl repeats nothing by itself, but for a stream that was refused
      // (RFC 9113, 8.7).
      CurlClient client(server);
      const CurlReply reply = client.run({.body = postBody(20, 30)});
      started = server.counters().exchangesStarted;
      ASSERT_TRUE(server.waitForEndedCount(started, kPatience));
      const auto exchanges = server.exchanges();
      server.clear();
      for (size_t i = 0; i + 1 < exchanges.size(); ++i)
        ASSERT_EQ(exchanges[i].fault, FaultKind::streamResetBeforeHead) << exchanges[i].summary();
      const Exchange& exchange = exchanges.back();
      const bool mayLose = exchange.ending != Ending::answered || exchange.fault == FaultKind::garbage;
      const uint64_t got = answersIn(reply);
      if (exchange.fault == FaultKind::closeMidBody || exchange.fault == FaultKind::resetMidBody) {
        EXPECT_LT(exchange.replyBytesSent, exchange.replyBytes);
        EXPECT_NE(reply.code, CURLE_OK) << exchange.summary();
      }
      if (mayLose) {
        EXPECT_LE(got, exchange.answersSent) << exchange.summary();
      } else {
        EXPECT_EQ(got, exchange.answersSent) << exchange.summary();
        EXPECT_EQ(reply.code, CURLE_OK) << exchange.summary();
        EXPECT_EQ(reply.status, exchange.status) << exchange.summary();
      }
    }
    EXPECT_GT(faults.faultCount(), 100u);
  }
}

// Faults on connections that others use at the same time: every exchange comes to an end, and nothing is left
// behind.
TEST(FaultScriptTest, ConcurrentFaultsAllEnd) {
  for (const bool tls : {false, true}) {
    ServerOptions options;
    options.tls = tls;
    options.lingerTime = std::chrono::milliseconds(100);
    GeoServer server(options);
    FaultScript faults(3);
    faults.attachTo(server);
    size_t good = 0;
    for (int round = 0; round < 8; ++round) {
      CurlClient client(server, tls ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1);
      for (const CurlReply& reply :
           client.runAll(std::vector<CurlRequest>(100, {.body = postBody(20, 200)}))) {
        EXPECT_NE(reply.code, CURLE_OPERATION_TIMEDOUT);
        good += reply.code == CURLE_OK && reply.body == goodReply(20, 200);
      }
    }
    EXPECT_GT(good, 0u);
    ASSERT_TRUE(server.waitForOpenConnections(0, kPatience));
    const Counters counters = server.counters();
    EXPECT_EQ(counters.exchangesStarted, counters.exchangesEnded);
    EXPECT_EQ(counters.exchangesStalled, 0u);
    EXPECT_EQ(server.exchanges().size(), counters.exchangesStarted);
    for (const Exchange& exchange : server.exchanges()) {
      EXPECT_LE(exchange.answersSent, exchange.answersPlanned);
      if (exchange.fault == FaultKind::none && exchange.ending == Ending::answered) {
        EXPECT_EQ(exchange.answersSent, 20u);
      }
    }
  }
}

}  // namespace
}  // namespace nvxcore::geoserver
