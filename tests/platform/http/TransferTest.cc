#include <cstdlib>

#include "tests/platform/http/support/HTTPTest.h"
#include "tools/geoserver/BuiltInHandlers.h"

namespace nvxcore::testing {
namespace {

using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::ReplyPlan;
using geoserver::ServerOptions;

/// Plain HTTP/1.1, HTTP/1.1 over TLS, and HTTP/2.
enum class Wire { Plain, TLS, HTTP2 };

ServerOptions optionsFor(Wire wire) {
  ServerOptions options;
  options.tls = wire != Wire::Plain;
  options.http2 = wire == Wire::HTTP2;
  return options;
}

class TransferTest : public HTTPTest, public ::testing::WithParamInterface<Wire> {
 protected:
  TransferTest() : server(optionsFor(GetParam())) { configuration.caFile = server.caFile(); }
  GeoServer server;
};

INSTANTIATE_TEST_SUITE_P(Wires, TransferTest, ::testing::Values(Wire::Plain, Wire::TLS, Wire::HTTP2),
                         [](const auto& info) {
                           return info.param == Wire::Plain ? "plain"
                                  : info.param == Wire::TLS ? "tls"
                                                            : "http2";
                         });

TEST_P(TransferTest, CarriesAReplyOfAnyLengthInOrder) {
  for (const size_t length : {0u, 1u, 70'000u, 3'000'000u}) {
    const auto task = get(server.url("/bytes/" + std::to_string(length)));
    const TaskRecord record = finished(task);
    EXPECT_FALSE(record.error) << record.error.description();
    EXPECT_EQ(record.response.statusCode(), 200);
    EXPECT_EQ(record.response.expectedContentLength(), static_cast<int64_t>(length));
    EXPECT_TRUE(record.body == geoserver::patternBytes(0, length)) << length;
    EXPECT_EQ(task->countOfBytesReceived(), static_cast<int64_t>(length));
    EXPECT_EQ(task->state(), TaskState::Completed);
  }
}

TEST_P(TransferTest, SendsTheRequestAsItIsAndNothingOfItsOwn) {
  URLRequest asked = request(server.url("/headers/../echo?a=%20b#part"), "PATCH", "some body");
  asked.headers.set("X-Geo", "v1");
  asked.headers.set("X-Empty", "");
  asked.headers.set("X-Split", "one\r\nX-Injected: two");
  asked.headers.set("Expect", "100-continue");
  asked.headers.set("Content-Length", "3");
  configuration.additionalHeaders.set("X-Geo", "not this");
  configuration.additionalHeaders.set("User-Agent", "agent/1");
  const TaskRecord record = finished(started(session().dataTaskWithRequest(asked)));
  EXPECT_FALSE(record.error) << record.error.description();
  const Exchange exchange = server.exchanges().front();
  EXPECT_EQ(exchange.method, "PATCH");
  EXPECT_EQ(exchange.target, "/headers/../echo?a=%20b");
  EXPECT_EQ(*exchange.body, "some body");
  const auto field = [&](const char* name) {
    return exchange.headers.has(name) ? exchange.headers.value(name) : std::string_view("(none)");
  };
  EXPECT_EQ(field("X-Geo"), "v1");
  EXPECT_EQ(field("User-Agent"), "agent/1");
  EXPECT_EQ(field("X-Empty"), "");
  EXPECT_EQ(field("X-Injected"), "(none)");
  EXPECT_EQ(field("Expect"), "(none)");
  EXPECT_EQ(field("Content-Type"), "(none)");
  EXPECT_EQ(field("Content-Length"), "9");
  EXPECT_EQ(field("Accept-Encoding"), "gzip, deflate, br");
}

TEST_P(TransferTest, DecodesNegotiatedCodings) {
  for (const char* coding : {"gzip", "deflate", "br"}) {
    const TaskRecord record = finished(get(server.url("/encoded/" + std::string(coding) + "/200000")));
    EXPECT_FALSE(record.error) << record.error.description();
    EXPECT_TRUE(record.body == geoserver::repeatedText(200'000)) << coding;
    EXPECT_EQ(record.response.expectedContentLength(), -1);
    EXPECT_EQ(record.response.headers().value("Content-Encoding"), coding);
  }
}

TEST_P(TransferTest, LeavesTheCodingToARequestThatNamesItsOwn) {
  URLRequest asked = request(server.url("/encoded/gzip/200000"));
  asked.headers.set("accept-encoding", "gzip");
  const TaskRecord record = finished(started(session().dataTaskWithRequest(asked)));
  EXPECT_EQ(static_cast<int64_t>(record.body.size()), record.response.expectedContentLength());
  EXPECT_LT(record.body.size(), 20'000u);
}

TEST_P(TransferTest, PresentsFieldsInTheirUsualSpelling) {
  server.handle("/fields", [](const Exchange&) {
    ReplyPlan plan = ReplyPlan::withBody(200, "Application/Binary; x=1", "ok");
    plan.withHeader("etag", "\"1\"").withHeader("retry-after", "7").withHeader("www-authenticate", "None");
    return plan;
  });
  const URLResponse response = finished(get(server.url("/fields"))).response;
  EXPECT_EQ(response.headers().valueForExactName("ETag"), "\"1\"");
  EXPECT_EQ(response.headers().valueForExactName("Retry-After"), "7");
  EXPECT_EQ(response.headers().valueForExactName("WWW-Authenticate"), "None");
  EXPECT_EQ(response.headers().value("CONTENT-TYPE"), "Application/Binary; x=1");
  EXPECT_EQ(response.mimeType(), "application/binary");
  EXPECT_EQ(response.httpVersion(), GetParam() == Wire::HTTP2 ? "HTTP/2" : "HTTP/1.1");
}

TEST_P(TransferTest, KeepsInterimRepliesAndTrailersToItself) {
  server.handle("/interim", [](const Exchange&) {
    ReplyPlan plan = ReplyPlan::withBody(200, "text/plain", "the body");
    plan.framing = ReplyPlan::Framing::chunked;
    plan.trailers.add("X-Trailer", "late");
    return plan.thenInterim(103, {}).thenRest();
  });
  const TaskRecord record = finished(get(server.url("/interim")));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.response.statusCode(), 200);
  EXPECT_FALSE(record.response.headers().contains("X-Trailer"));
  EXPECT_EQ(record.events, (std::vector<std::string>{"response", "data", "complete"}));
}

TEST_P(TransferTest, ReusesAConnection) {
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(finished(post(server.url("/echo"), "x")).error);
  EXPECT_EQ(server.counters().connectionsAccepted, 1u);
}

TEST_P(TransferTest, CarriesManyAtATime) {
  std::vector<HTTPSessionTaskRef> tasks;
  for (int i = 0; i < 60; ++i) tasks.push_back(post(server.url("/echo"), std::string(5000, 'a' + i % 26)));
  for (int i = 0; i < 60; ++i) EXPECT_TRUE(finished(tasks[i]).body == std::string(5000, 'a' + i % 26));
}

TEST_P(TransferTest, DoesNotPutRequestsInARow) {
  // On a new host none must wait for more than what the first one finds out of the protocol.
  server.setScript(
      [](const Exchange&) { return ReplyPlan::withBody(200, "text/plain", "done").thenStall("all"); });
  std::vector<HTTPSessionTaskRef> tasks;
  for (int i = 0; i < 30; ++i) tasks.push_back(post(server.url("/stall"), "body"));
  EXPECT_TRUE(server.waitUntilStalled(30, std::chrono::seconds(10)));
  EXPECT_EQ(server.counters().connectionsAccepted, GetParam() == Wire::HTTP2 ? 1u : 30u);
  server.release("all");
  for (const auto& task : tasks) EXPECT_EQ(finished(task).body, "done");
}

TEST_P(TransferTest, HeadHasAHeadOnly) {
  const TaskRecord record =
      finished(started(session().dataTaskWithRequest(request(server.url("/bytes/500"), "HEAD"))));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.response.expectedContentLength(), 500);
  EXPECT_EQ(record.events, (std::vector<std::string>{"response", "complete"}));
}

class PlainTransferTest : public HTTPTest {
 protected:
  GeoServer server;
};

TEST_F(PlainTransferTest, IsNotLedAstrayByTheEnvironment) {
  ::setenv("http_proxy", "http://127.0.0.1:1/", 1);
  ::setenv("ALL_PROXY", "http://127.0.0.1:1/", 1);
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);
  ::unsetenv("http_proxy");
  ::unsetenv("ALL_PROXY");
}

TEST_F(PlainTransferTest, GoesThroughTheProxyThatItWasGiven) {
  configuration.proxy = server.url("");
  const TaskRecord record = finished(get("http://elsewhere.invalid/some/page"));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(server.exchanges().front().target, "http://elsewhere.invalid/some/page");
}

TEST_F(PlainTransferTest, ReadsAnHTTP10ReplyOnAKeptConnection) {
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);
  server.enqueue(
      ReplyPlan::raw("HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\nold", ReplyPlan::After::drop));
  const TaskRecord record = finished(get(server.url("/echo")));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.response.httpVersion(), "HTTP/1.0");
  EXPECT_EQ(record.body, "old");
  EXPECT_EQ(server.counters().connectionsAccepted, 1u);
}

}  // namespace
}  // namespace nvxcore::testing
