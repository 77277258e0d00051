#include "nvxcore/platform/Files.h"
#include "tests/platform/http/support/HTTPTest.h"
#include "tests/platform/http/support/ScriptedStream.h"

namespace nvxcore::testing {
namespace {

using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::ReplyPlan;
using geoserver::ServerOptions;

class BodyTest : public HTTPTest, public ::testing::WithParamInterface<bool> {
 protected:
  BodyTest() : server(options()), stream(std::make_shared<ScriptedStream>()) {
    configuration.caFile = server.caFile();
    delegate->onStream = [this](BodyStreamHandler handler) { handler(stream); };
  }
  static ServerOptions options() {
    ServerOptions options;
    options.tls = GetParam();
    return options;
  }
  bool isHTTP2() const { return GetParam(); }
  HTTPSessionTaskRef postStream(std::string_view path) {
    return started(session().uploadTaskWithStreamedRequest(request(server.url(path), "POST")));
  }
  Exchange onlyExchange() {
    EXPECT_EQ(server.exchanges().size(), 1u);
    return server.exchanges().front();
  }

  GeoServer server;
  const std::shared_ptr<ScriptedStream> stream;
};

INSTANTIATE_TEST_SUITE_P(Wires, BodyTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "http2" : "http1"; });

TEST_P(BodyTest, AStreamThatEndsWithinItsFirstPullIsSentWithItsLength) {
  stream->add("the whole ");
  stream->add("body");
  stream->end();
  const TaskRecord record = finished(postStream("/echo"));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.body, "the whole body");
  EXPECT_EQ(onlyExchange().headers.value("Content-Length"), "14");
  EXPECT_FALSE(onlyExchange().headers.has("Transfer-Encoding"));
  EXPECT_EQ(record.totalSent, 14);
  EXPECT_EQ(record.bytesSent, 14);
  EXPECT_EQ(record.expectedToSend, 14);
  EXPECT_TRUE(stream->waitUntilClosed());
  EXPECT_EQ(stream->opened, 1);
  EXPECT_EQ(stream->closed, 1);
}

TEST_P(BodyTest, AnEmptyStreamIsAnEmptyBody) {
  stream->end();
  EXPECT_FALSE(finished(postStream("/echo")).error);
  EXPECT_EQ(onlyExchange().headers.value("Content-Length"), "0");
}

TEST_P(BodyTest, AStreamOfUnknownLengthGoesOutAsItComes) {
  const auto task = postStream("/echo");
  std::string all;
  for (int i = 0; i < 5; ++i) {
    const std::string piece(1000 + i, static_cast<char>('a' + i));
    all += piece;
    EXPECT_TRUE(stream->waitUntilRead(i + 1));
    stream->add(piece);
    // It arrives while the stream has nothing more to give.
    EXPECT_TRUE(eventually([&] { return server.counters().bytesIn >= all.size(); }));
  }
  stream->end();
  const TaskRecord record = finished(task);
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_TRUE(record.body == all);
  EXPECT_EQ(record.totalSent, static_cast<int64_t>(all.size()));
  EXPECT_EQ(record.expectedToSend, -1);
  EXPECT_EQ(task->countOfBytesSent(), static_cast<int64_t>(all.size()));
  EXPECT_FALSE(onlyExchange().headers.has("Content-Length"));
}

TEST_P(BodyTest, AStreamIsNotPulledAheadOfNeed) {
  constexpr size_t kLength = 64 << 20;
  stream->add(std::string(kLength, 'x'));
  stream->end();
  ReplyPlan plan = ReplyPlan::withBody(200, "text/plain", "read nothing");
  plan.answeredEarly(ReplyPlan::Intake::unread).thenStall("go");
  server.enqueue(plan);
  const auto task = postStream("/slow");
  EXPECT_TRUE(server.waitUntilStalled(1, std::chrono::seconds(10)));
  task->cancel();
  EXPECT_EQ(finished(task).error.code(), kURLErrorCancelled);
  EXPECT_TRUE(stream->waitUntilClosed());
  // What the sockets' buffers hold, and a piece.
  EXPECT_LT(stream->bytesRead, 16 << 20);
}

TEST_P(BodyTest, AStreamThatHangsHoldsUpNobodyElse) {
  const auto stuck = postStream("/echo");
  EXPECT_TRUE(stream->waitUntilRead(1));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(finished(post(server.url("/echo"), "free")).error);
  stuck->cancel();
  EXPECT_EQ(finished(stuck).error.code(), kURLErrorCancelled);
  EXPECT_EQ(stream->closed, 0);  // Not while it is being read.
  stream->end();
  EXPECT_TRUE(stream->waitUntilClosed());
}

TEST_P(BodyTest, AStreamThatFailsFailsItsTask) {
  stream->add("some");
  const auto task = postStream("/echo");
  EXPECT_TRUE(stream->waitUntilRead(2));
  stream->failWith(Error("disk", 5));
  EXPECT_TRUE(finished(task).error.is("disk", 5));
  EXPECT_TRUE(stream->waitUntilClosed());
}

TEST_P(BodyTest, NoStreamIsAnError) {
  delegate->onStream = [](BodyStreamHandler handler) { handler(nullptr); };
  EXPECT_EQ(finished(postStream("/echo")).error.code(), kURLErrorRequestBodyStreamExhausted);
}

TEST_P(BodyTest, ABodyFromAFileIsSentWithItsLength) {
  const URL file = uniqueTemporaryFile("nvxcore-http-test");
  const std::string contents(300'000, 'f');
  EXPECT_FALSE(writeFile(file, Data::copy(contents)));
  const TaskRecord record =
      finished(started(session().uploadTaskWithRequestFromFile(request(server.url("/echo"), "PUT"), file)));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_TRUE(record.body == contents);
  EXPECT_EQ(onlyExchange().method, "PUT");
  EXPECT_EQ(onlyExchange().headers.value("Content-Length"), "300000");
  EXPECT_EQ(record.expectedToSend, 300'000);
  removeFile(file);
  EXPECT_EQ(
      finished(started(session().uploadTaskWithRequestFromFile(request(server.url("/echo"), "PUT"), file)))
          .error.code(),
      kURLErrorFileDoesNotExist);
}

TEST_P(BodyTest, ALargeBufferIsSentWhole) {
  const std::string contents(5 << 20, 'b');
  const auto task = started(
      session().uploadTaskWithRequestFromData(request(server.url("/echo"), "POST"), Data::copy(contents)));
  const TaskRecord record = finished(task);
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_TRUE(record.body == contents);
  EXPECT_EQ(record.bytesSent, 5 << 20);
  EXPECT_EQ(task->countOfBytesSent(), 5 << 20);
}

TEST_P(BodyTest, AnEarlyReplyEndsTheTask) {
  for (const int status : {200, 413}) {
    for (const auto framing : {ReplyPlan::Framing::length, ReplyPlan::Framing::chunked}) {
      // Over HTTP/2 libcurl tells the end of a reply without a length only when the stream is closed.
      if (isHTTP2() && framing == ReplyPlan::Framing::chunked) continue;
      const auto body = std::make_shared<ScriptedStream>();
      delegate->onStream = [body](BodyStreamHandler handler) { handler(body); };
      ReplyPlan plan = ReplyPlan::withBody(status, "text/plain", "enough");
      plan.framing = framing;
      server.enqueue(plan.answeredEarly());
      const auto task = postStream("/early");
      body->add("the first of more");
      SCOPED_TRACE(std::to_string(status) + (framing == ReplyPlan::Framing::length ? " length" : " chunked"));
      const TaskRecord record = finished(task);  // The stream never ends.
      EXPECT_FALSE(record.error) << record.error.description();
      EXPECT_EQ(record.response.statusCode(), status);
      EXPECT_EQ(record.body, "enough");
      body->end();
      EXPECT_TRUE(body->waitUntilClosed());
    }
  }
  EXPECT_FALSE(finished(post(server.url("/echo"), "next")).error);
  // A connection with half a request on it is of no use any more.
  EXPECT_EQ(server.counters().connectionsAccepted, isHTTP2() ? 1u : 5u);
}

TEST_P(BodyTest, NoBodyReachesAServerTwice) {
  // A connection that dies when the request is on its way would make libcurl send it anew by itself.
  const auto file = uniqueTemporaryFile("nvxcore-http-test");
  EXPECT_FALSE(writeFile(file, Data::copy("body")));
  stream->add("body");
  stream->end();
  const URLRequest asked = request(server.url("/lost"), "POST");
  for (int kind = 0; kind < 4; ++kind) {
    EXPECT_FALSE(finished(get(server.url("/echo"))).error);  // So that there is a kept connection.
    server.enqueue(kind == 1 ? ReplyPlan().thenReset() : ReplyPlan().thenClose());
    const size_t before = server.exchanges().size();
    const auto task = kind == 0   ? session().uploadTaskWithStreamedRequest(asked)
                      : kind == 1 ? session().uploadTaskWithRequestFromFile(asked, file)
                      : kind == 2 ? session().uploadTaskWithRequestFromData(asked, Data::copy("body"))
                                  : session().dataTaskWithRequest(asked);  // Without a body.
    const TaskRecord record = finished(started(task));
    EXPECT_EQ(record.error.code(), kURLErrorNetworkConnectionLost) << record.error.description();
    EXPECT_EQ(server.exchanges().size(), before + 1) << kind;
  }
  removeFile(file);
}

TEST_P(BodyTest, AGetIsSentAnewWhenItsConnectionDied) {
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);
  server.enqueue(ReplyPlan().thenClose());
  const TaskRecord record = finished(get(server.url("/bytes/5")));
  // Over HTTP/2 a stream is not known to be the connection's first.
  EXPECT_EQ(record.error.code(), isHTTP2() ? int64_t{kURLErrorNetworkConnectionLost} : 0)
      << record.error.description();
  EXPECT_EQ(record.body.size(), isHTTP2() ? 0u : 5u);
}

TEST_P(BodyTest, EmptyBodiesSayThatTheyAreEmpty) {
  EXPECT_FALSE(finished(post(server.url("/echo"), "")).error);
  EXPECT_EQ(onlyExchange().headers.value("Content-Length"), "0");
  // Only what has ended is forgotten, and the client may know of the end before the server does.
  EXPECT_TRUE(server.waitForEndedCount(1, std::chrono::seconds(10)));
  server.clear();
  EXPECT_FALSE(
      finished(started(session().dataTaskWithRequest(request(server.url("/echo"), "DELETE")))).error);
  EXPECT_EQ(onlyExchange().method, "DELETE");
  EXPECT_FALSE(onlyExchange().headers.has("Content-Length"));
}

}  // namespace
}  // namespace nvxcore::testing
