#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "support/CurlClient.h"
#include "support/RawClient.h"
#include "tools/geoserver/BuiltInHandlers.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {
namespace {

ServerOptions overTls() {
  ServerOptions options;
  options.tls = true;
  return options;
}

TEST(Http2Test, TlsAndAlpn) {
  for (const bool http2 : {true, false}) {
    ServerOptions options = overTls();
    options.http2 = http2;
    GeoServer server(options);
    for (const long version : {CURL_HTTP_VERSION_2TLS, CURL_HTTP_VERSION_1_1}) {
      CurlClient client(server, version);
      const CurlReply reply = client.run({.body = postBody(50, 100)});
      EXPECT_EQ(reply.code, CURLE_OK);
      EXPECT_EQ(reply.body, goodReply(50, 100));
      const bool two = http2 && version == CURL_HTTP_VERSION_2TLS;
      EXPECT_EQ(reply.version, two ? CURL_HTTP_VERSION_2_0 : CURL_HTTP_VERSION_1_1);
      EXPECT_EQ(server.exchanges().back().version, two ? "HTTP/2" : "HTTP/1.1");
      EXPECT_TRUE(server.exchanges().back().tls);
    }
    EXPECT_EQ(server.counters().tlsHandshakes, 2u);
  }
}

TEST(Http2Test, BadCertificatesAndOldVersionsAreRefusedByAClientThatChecks) {
  const auto codeWith = [](auto change) {
    ServerOptions options = overTls();
    change(options);
    GeoServer server(options);
    return CurlClient(server).run({.path = "/status/200"}).code;
  };
  EXPECT_EQ(codeWith([](ServerOptions&) {}), CURLE_OK);
  EXPECT_EQ(codeWith([](ServerOptions& o) { o.certificate = CertificateKind::expired; }),
            CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_EQ(codeWith([](ServerOptions& o) { o.certificate = CertificateKind::wrongHost; }),
            CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_EQ(codeWith([](ServerOptions& o) { o.onlyOutdatedTls = true; }), CURLE_SSL_CONNECT_ERROR);
}

TEST(Http2Test, ManyStreamsOfAllSizesShareOneConnection) {
  GeoServer server(overTls());
  CurlClient client(server);
  std::vector<CurlRequest> requests;
  for (size_t i = 0; i < 60; ++i) {
    if (i % 3 == 0) requests.push_back({.body = postBody(i, i * 50)});
    if (i % 3 == 1) requests.push_back({.path = "/bytes/" + std::to_string(i * i * 1000)});
    if (i % 3 == 2) requests.push_back({.path = "/echo", .body = patternBytes(i, i * 20000)});
  }
  const auto replies = client.runAll(requests);
  for (size_t i = 0; i < 60; ++i) {
    EXPECT_EQ(replies[i].code, CURLE_OK) << i;
    const std::string expected = i % 3 == 0   ? goodReply(i, i * 50)
                                 : i % 3 == 1 ? patternBytes(0, i * i * 1000)
                                              : patternBytes(i, i * 20000);
    EXPECT_TRUE(replies[i].body == expected) << i;
  }
  EXPECT_EQ(server.counters().connectionsAccepted, 1u);
  ASSERT_TRUE(server.waitForEndedCount(60, kPatience));
  for (const Exchange& exchange : server.exchanges()) EXPECT_EQ(exchange.ending, Ending::answered);
}

TEST(Http2Test, FaultsEndTheStreamOrTheConnectionAndNothingElse) {
  struct Case {
    ReplyPlan plan;
    bool good;
    size_t bodyBytes;
    Ending ending;
  };
  const size_t whole = goodReply(3, 10).size();
  const Case cases[] = {
      {faults::streamResetBeforeHead(2), false, 0, Ending::streamReset},
      {faults::streamResetMidBody(20, 2), false, 20, Ending::streamReset},
      {faults::goAwayServed(), true, whole, Ending::answered},
      {faults::goAwayRefused(2), false, 0, Ending::refused},
      {faults::closeBeforeReply(), false, 0, Ending::cut},
      {faults::closeAfterHead(), false, 0, Ending::cut},
      {faults::closeMidBody(20), false, 20, Ending::cut},
      {faults::resetMidBody(20), false, 20, Ending::reset},
      {faults::garbage("HTTP/1.1 200 OK\r\n\r\n"), false, 0, Ending::answered},
      {faults::truncated(20), true, 20, Ending::answered},
      {faults::drip(7, Millis(1)), true, whole, Ending::answered},
      {faults::pieces({1, 2, 30}, Millis(1)), true, whole, Ending::answered},
  };
  for (const Case& c : cases) {
    GeoServer server(overTls());
    // A handler, so that a client that tries again would meet the same.
    server.setScript([&](const Exchange&) { return c.plan; });
    CurlClient client(server);
    const CurlReply reply = client.run({.body = postBody(3, 10)});
    EXPECT_EQ(reply.code == CURLE_OK, c.good) << c.plan.label << ": " << curl_easy_strerror(reply.code);
    // A close may reach curl before it has handed on what came ahead of it.
    if (c.ending == Ending::answered) {
      EXPECT_EQ(reply.body, goodReply(3, 10).substr(0, c.bodyBytes)) << c.plan.label;
    }
    ASSERT_TRUE(server.waitForEndedCount(1, kPatience));
    const Exchange exchange = server.exchanges().front();
    EXPECT_EQ(exchange.ending, c.ending) << c.plan.label;
    EXPECT_EQ(exchange.replyBytesSent, c.bodyBytes) << c.plan.label;
  }
}

TEST(Http2Test, AStalledStreamHoldsUpNoOther) {
  GeoServer server(overTls());
  server.setHeadScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    if (exchange.query == "stall") return faults::stalledBody(10, "gate");
    if (exchange.query == "reset") return faults::streamResetMidBody(10, 8);
    return std::nullopt;
  });
  CurlClient client(server);
  const std::string body = postBody(3, 10);
  std::thread releaser([&] {
    EXPECT_TRUE(server.waitFor(
        [](const Counters& c) { return c.exchangesStalled == 2 && c.exchangesEnded == 3; }, kPatience));
    server.release("gate");
  });
  const auto replies = client.runAll({{.path = "/?stall", .body = body},
                                      {.path = "/", .body = body},
                                      {.path = "/?reset", .body = body},
                                      {.path = "/?stall", .body = body},
                                      {.path = "/", .body = body}});
  releaser.join();
  for (const size_t i : {0, 1, 3, 4}) EXPECT_EQ(replies[i].body, goodReply(3, 10)) << i;
  EXPECT_EQ(replies[2].code, CURLE_HTTP2_STREAM);
  EXPECT_EQ(server.counters().connectionsAccepted, 1u);
}

TEST(Http2Test, AConnectionCutTakesItsOtherStreamsAlong) {
  GeoServer server(overTls());
  server.setHeadScript([](const Exchange& exchange) -> std::optional<ReplyPlan> {
    if (exchange.query == "stall") return faults::stalledBody(10);
    return ReplyPlan().thenStall("cut").thenClose();
  });
  CurlClient client(server);
  std::thread releaser([&] {
    EXPECT_TRUE(server.waitUntilStalled(3, kPatience));
    server.release("cut");
  });
  const std::string body = postBody(3, 10);
  const auto replies = client.runAll(
      {{.path = "/?stall", .body = body}, {.path = "/", .body = body}, {.path = "/?stall", .body = body}});
  releaser.join();
  for (const CurlReply& reply : replies) EXPECT_NE(reply.code, CURLE_OK);
  std::map<Ending, int> endings;
  for (const Exchange& exchange : server.exchanges()) ++endings[exchange.ending];
  EXPECT_EQ(endings[Ending::cut], 1);
  EXPECT_EQ(endings[Ending::collateral], 2);
}

TEST(Http2Test, CancelledStreamsAndEarlyRepliesAreNoted) {
  GeoServer server(overTls());
  CurlClient client(server);
  server.enqueue(faults::stalledBody(10));
  EXPECT_EQ(client.run({.body = postBody(1, 10), .timeoutMs = 200}).code, CURLE_OPERATION_TIMEDOUT);
  // curl sends its RST_STREAM with what it has to send next.
  EXPECT_EQ(client.run({.path = "/status/200"}).status, 200);
  ASSERT_TRUE(server.waitForEndedCount(2, kPatience));
  EXPECT_EQ(server.exchanges().front().ending, Ending::clientGone);
  EXPECT_EQ(server.counters().exchangesStalled, 0u);

  server.enqueue(faults::earlyReply(413, "too much"));
  const CurlReply early = client.run({.path = "/", .body = std::string(32 * 1024 * 1024, 'x')});
  EXPECT_EQ(early.status, 413);
  EXPECT_EQ(early.body, "too much");

  ReplyPlan trailing = ReplyPlan::withBody(200, "text/plain", "body");
  trailing.framing = ReplyPlan::Framing::chunked;  // no Content-Length: curl would stop there
  trailing.trailers.add("X-Sum", "7");
  trailing.withHeader("Connection", "close").thenInterim(103, {{"Link", "</a>"}});
  server.enqueue(trailing);
  const CurlReply reply = client.run({.path = "/"});
  EXPECT_EQ(reply.code, CURLE_OK);
  EXPECT_EQ(reply.body, "body");
  EXPECT_NE(reply.headers.find("HTTP/2 103"), std::string::npos);
  EXPECT_NE(reply.headers.find("x-sum: 7"), std::string::npos);
}

TEST(Http2Test, BytesThatAreNoTlsOrNoHttp2EndOnlyTheirConnection) {
  GeoServer server(overTls());
  RawClient plain(server.port());
  plain.send(getRequest("/"));
  plain.readToEnd();
  RawClient quitter(server.port());
  quitter.send("\x16\x03\x01");
  quitter.endOutput();
  quitter.readToEnd();
  EXPECT_EQ(CurlClient(server).run({.path = "/status/200"}).status, 200);
}

}  // namespace
}  // namespace nvxcore::geoserver
