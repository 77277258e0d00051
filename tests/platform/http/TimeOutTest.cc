#include <poll.h>
#include <sys/socket.h>

#include "nvxcore/platform/Semaphore.h"
#include "tests/platform/http/support/HTTPTest.h"
#include "tests/platform/http/support/RawServer.h"
#include "tests/platform/http/support/ScriptedStream.h"

namespace nvxcore::testing {
namespace {

using geoserver::Acceptance;
using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::ReplyPlan;
using geoserver::ServerOptions;

class TimeOutTest : public ManualTimeHTTPTest, public ::testing::WithParamInterface<bool> {
 protected:
  TimeOutTest() : server(options()) { configuration.caFile = server.caFile(); }
  static ServerOptions options() {
    ServerOptions options;
    options.tls = GetParam();
    return options;
  }
  bool hasFinished(const HTTPSessionTaskRef& task) { return delegate->record(task).completions > 0; }
  /// Lets the service see what has happened so far.
  void aRoundTrip() { EXPECT_FALSE(finished(get(server.url("/echo"))).error); }
  GeoServer server;
};

INSTANTIATE_TEST_SUITE_P(Wires, TimeOutTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "http2" : "http1"; });

TEST_P(TimeOutTest, ComesWhenNothingHappensForThatLong) {
  server.handle("/never", [](const Exchange&) { return ReplyPlan::withStatus(200).thenStall(); });
  const auto task = get(server.url("/never"));
  EXPECT_TRUE(server.waitUntilStalled(1, std::chrono::seconds(10)));
  time->advance(14.9);
  aRoundTrip();
  EXPECT_FALSE(hasFinished(task));
  time->advance(0.2);
  EXPECT_EQ(finished(task).error.code(), kURLErrorTimedOut);
}

TEST_P(TimeOutTest, ComesInTheMiddleOfAReply) {
  server.handle("/half", [](const Exchange&) {
    return ReplyPlan::withBody(200, "a/b", "0123456789").thenBytes(5).thenStall();
  });
  const auto task = get(server.url("/half"));
  EXPECT_TRUE(delegate->waitUntil(task, [](const TaskRecord& record) { return record.body.size() == 5; }));
  time->advance(15.1);
  const TaskRecord record = finished(task);
  EXPECT_EQ(record.error.code(), kURLErrorTimedOut);
  EXPECT_EQ(record.body, "01234");
}

TEST_P(TimeOutTest, DoesNotComeWhileBytesDrip) {
  ReplyPlan plan = ReplyPlan::withBody(200, "a/b", std::string(60, 'd'));
  for (int i = 0; i < 60; ++i) plan.thenBytes(1).thenStall("byte" + std::to_string(i));
  server.enqueue(plan);
  const auto task = get(server.url("/drip"));
  for (size_t i = 0; i < 60; ++i) {
    ASSERT_TRUE(delegate->waitUntil(task, [i](const TaskRecord& record) { return record.body.size() > i; }));
    time->advance(1);
    server.release("byte" + std::to_string(i));
  }
  const TaskRecord record = finished(task);
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.body.size(), 60u);
}

TEST_P(TimeOutTest, CountsConnecting) {
  server.setAcceptScript([](uint64_t) { return Acceptance::silent; });
  const auto task = get(server.url("/echo"));
  EXPECT_TRUE(server.waitForOpenConnections(1, std::chrono::seconds(10)));
  GeoServer other;
  EXPECT_FALSE(finished(get(other.url("/echo"))).error);  // By then the connection has been noticed.
  time->advance(15.1);
  EXPECT_EQ(finished(task).error.code(), kURLErrorTimedOut);
}

TEST_P(TimeOutTest, DoesNotCountWaitingForTheHost) {
  ResponseDispositionHandler answer;
  Semaphore asked(0);
  delegate->onResponse = [&](const HTTPSessionTaskRef&, ResponseDispositionHandler handler) {
    answer = std::move(handler);
    asked.signal();
  };
  const auto task = get(server.url("/bytes/10"));
  asked.wait();
  time->advance(100);
  delegate->onResponse = nullptr;
  aRoundTrip();
  time->advance(100);
  aRoundTrip();
  answer(ResponseDisposition::Allow);
  EXPECT_FALSE(finished(task).error);

  const auto stream = std::make_shared<ScriptedStream>();
  delegate->onStream = [&](BodyStreamHandler handler) { handler(stream); };
  const auto upload = started(session().uploadTaskWithStreamedRequest(request(server.url("/echo"), "POST")));
  EXPECT_TRUE(stream->waitUntilRead(1));
  time->advance(100);
  aRoundTrip();
  stream->add("one");
  EXPECT_TRUE(stream->waitUntilRead(2));
  time->advance(100);
  aRoundTrip();
  time->advance(100);
  stream->end();
  EXPECT_FALSE(finished(upload).error);
}

TEST_P(TimeOutTest, OfAStalledReplyComesThoughOthersGoOn) {
  server.handle("/half", [](const Exchange&) {
    return ReplyPlan::withBody(200, "a/b", "0123456789").thenBytes(5).thenStall();
  });
  const auto stalled = get(server.url("/half"));
  EXPECT_TRUE(delegate->waitUntil(stalled, [](const TaskRecord& record) { return record.body.size() == 5; }));
  for (int i = 0; i < 4; ++i) {
    time->advance(4);
    aRoundTrip();
  }
  EXPECT_EQ(finished(stalled).error.code(), kURLErrorTimedOut);
}

class HeadTimeOutTest : public ManualTimeHTTPTest {};

TEST_F(HeadTimeOutTest, DoesNotComeWhileAHeadDrips) {
  RawServer server;
  const auto task = get(server.url("/"));
  RawServer::Connection connection = server.accept();
  connection.readHead();
  // No line of this head is complete within the time-out.
  const std::string reply =
      "HTTP/1.1 200 OK\r\nX-Something-Long: 0123456789abcdef\r\nContent-Length: 2\r\n\r\nok";
  for (char c : reply) {
    connection.send(std::string(1, c));
    ASSERT_TRUE(connection.waitUntilTaken());
    time->advance(1);
  }
  const TaskRecord record = finished(task);
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.body, "ok");
}

TEST_F(HeadTimeOutTest, DoesNotComeWhileALargeBodyIsTaken) {
  RawServer server;
  const auto task = post(server.url("/"), std::string(24 << 20, 'u'));
  RawServer::Connection connection = server.accept();
  // Less at a time than a socket tells of.
  for (size_t taken = 0; taken < (24u << 20);) {
    taken += connection.readSome(100'000);
    time->advance(1);
  }
  connection.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  EXPECT_FALSE(finished(task).error) << finished(task).error.description();
}

}  // namespace
}  // namespace nvxcore::testing
