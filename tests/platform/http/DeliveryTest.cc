#include <atomic>

#include "nvxcore/platform/Semaphore.h"
#include "tests/platform/http/support/HTTPTest.h"
#include "tests/support/Proof.h"
#include "tools/geoserver/BuiltInHandlers.h"

namespace nvxcore::testing {
namespace {

using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::ReplyPlan;
using geoserver::ServerOptions;

class DeliveryTest : public HTTPTest, public ::testing::WithParamInterface<bool> {
 protected:
  DeliveryTest() : server(options()) { configuration.caFile = server.caFile(); }
  static ServerOptions options() {
    ServerOptions options;
    options.tls = GetParam();
    options.sendBufferBytes = 64 << 10;
    return options;
  }
  /// Bytes that the server got rid of while it can't get rid of more.
  uint64_t bytesOutAtRest() {
    uint64_t before = 0;
    uint64_t now = server.counters().bytesOut;
    do {
      before = now;
      server.waitFor([&](const auto& counters) { return counters.bytesOut > before; },
                     std::chrono::milliseconds(300));
      now = server.counters().bytesOut;
    } while (now != before);
    return now;
  }
  GeoServer server;
};

INSTANTIATE_TEST_SUITE_P(Wires, DeliveryTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "http2" : "http1"; });

constexpr size_t kMiB = 1 << 20;
/// What may lie in the buffers of two sockets and of libcurl.
constexpr uint64_t kInBuffers = 16 * kMiB;

TEST_P(DeliveryTest, AnUnansweredResponsePausesTheTransfer) {
  ResponseDispositionHandler answer;
  delegate->onResponse = [&](const HTTPSessionTaskRef&, ResponseDispositionHandler handler) {
    answer = std::move(handler);
  };
  const auto task = get(server.url("/bytes/60000000"));
  EXPECT_TRUE(delegate->waitUntil(task, [](const TaskRecord& record) { return record.saw("response"); }));
  EXPECT_LT(bytesOutAtRest(), kInBuffers);
  EXPECT_LE(task->countOfBytesReceived(), 64 << 10);
  EXPECT_EQ(delegate->record(task).body.size(), 0u);
  answer(ResponseDisposition::Allow);
  answer(ResponseDisposition::Cancel);  // Comes too late to count.
  const TaskRecord record = finished(task);
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_TRUE(record.body == geoserver::patternBytes(0, 60'000'000));
}

TEST_P(DeliveryTest, AtMostAMebibyteWaitsForTheHost) {
  Semaphore goOn(0);
  std::atomic<bool> first{true};
  delegate->onData = [&](const HTTPSessionTaskRef&, const Data&) {
    if (first.exchange(false)) goOn.wait();
  };
  const auto task = get(server.url("/bytes/60000000"));
  EXPECT_TRUE(delegate->waitUntil(task, [](const TaskRecord& record) { return record.saw("data"); }));
  EXPECT_LT(bytesOutAtRest(), kInBuffers);
  EXPECT_LE(task->countOfBytesReceived(), static_cast<int64_t>(kMiB));
  goOn.signal();
  EXPECT_TRUE(finished(task).body == geoserver::patternBytes(0, 60'000'000));
}

TEST_P(DeliveryTest, APausedTaskHoldsUpNobodyElse) {
  delegate->onResponse = [&](const HTTPSessionTaskRef& task, ResponseDispositionHandler handler) {
    if (task->response().expectedContentLength() < 1000) return handler(ResponseDisposition::Allow);
    delegate->queue->postAfter(1000, [handler] { handler(ResponseDisposition::Allow); });
  };
  const auto paused = get(server.url("/bytes/60000000"));
  EXPECT_TRUE(delegate->waitUntil(paused, [](const TaskRecord& record) { return record.saw("response"); }));
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(finished(get(server.url("/bytes/100"))).error);
  paused->cancel();
  finished(paused);
}

TEST_P(DeliveryTest, AnAnswerThatIsNeverGivenCancels) {
  delegate->onResponse = [](const HTTPSessionTaskRef&, const ResponseDispositionHandler&) {};
  EXPECT_EQ(finished(get(server.url("/bytes/100"))).error.code(), kURLErrorCancelled);
  delegate->onRedirect = [](const URLRequest&, const RedirectHandler&) {};
  EXPECT_EQ(finished(get(server.url("/redirect/302?to=/echo"))).error.code(), kURLErrorCancelled);
  delegate->onChallenge = [](const AuthenticationChallenge&, const ChallengeHandler&) {};
  EXPECT_EQ(finished(get(server.url("/basic-auth/a/b"))).error.code(), kURLErrorCancelled);
  delegate->onStream = [](const BodyStreamHandler&) {};
  EXPECT_EQ(finished(started(session().uploadTaskWithStreamedRequest(request(server.url("/echo"), "POST"))))
                .error.code(),
            kURLErrorCancelled);
}

TEST_P(DeliveryTest, ACancelledTaskTellsItsEndAndNothingMore) {
  delegate->onData = [](const HTTPSessionTaskRef& task, const Data&) { task->cancel(); };
  const auto task = get(server.url("/bytes/3000000"));
  const TaskRecord record = finished(task);
  EXPECT_EQ(record.error.code(), kURLErrorCancelled);
  EXPECT_EQ(record.events, (std::vector<std::string>{"response", "data", "complete"}));
  EXPECT_LE(record.body.size(), kMiB);
  task->cancel();  // Harmless.
  EXPECT_EQ(task->state(), TaskState::Completed);
}

TEST_P(DeliveryTest, CancellingInTheResponseLeavesTheConnectionInOrder) {
  delegate->onResponse = [](const HTTPSessionTaskRef&, ResponseDispositionHandler handler) {
    handler(ResponseDisposition::Cancel);
  };
  const TaskRecord record = finished(get(server.url("/bytes/100000")));
  EXPECT_EQ(record.error.code(), kURLErrorCancelled);
  EXPECT_EQ(record.events, (std::vector<std::string>{"response", "complete"}));
  delegate->onResponse = nullptr;
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);
}

TEST_P(DeliveryTest, ATaskThatNeverRanTellsItsCancellationOnly) {
  const auto task = session().dataTaskWithRequest(request(server.url("/echo")));
  EXPECT_EQ(task->state(), TaskState::Suspended);
  task->cancel();
  const TaskRecord record = finished(task);
  EXPECT_EQ(record.events, (std::vector<std::string>{"complete"}));
  EXPECT_EQ(record.error.code(), kURLErrorCancelled);
  task->resume();
  EXPECT_TRUE(server.exchanges().empty());
}

TEST_P(DeliveryTest, CancellingAtAnyMomentGivesOneEnd) {
  // Over HTTP/2 whoever is not cancelled must get its last bytes too, though the others' end lies among them.
  // What that takes comes together once in many rounds.
  for (size_t round = 0; round < proofCount(5, 500) && !HasFailure(); ++round) {
    std::vector<HTTPSessionTaskRef> tasks;
    for (int i = 0; i < 100; ++i) {
      const auto task =
          i % 2 ? post(server.url("/echo"), std::string(2000, 'x')) : get(server.url("/bytes/300000"));
      tasks.push_back(task);
      if (i % 3 == 0) task->cancel();
      if (i % 3 == 1) Queue::global()->post([task] { task->cancel(); });
    }
    for (const auto& task : tasks) EXPECT_EQ(finished(task).completions, 1);
  }
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);
}

TEST_P(DeliveryTest, AReplyBeyondTheCeilingFails) {
  configuration.maximumReplyLength = 100'000;
  EXPECT_FALSE(finished(get(server.url("/bytes/100000"))).error);
  EXPECT_EQ(finished(get(server.url("/bytes/100001"))).error.code(), kURLErrorDataLengthExceedsMaximum);
  // It counts what the host would get, not what is on the wire.
  EXPECT_EQ(finished(get(server.url("/encoded/gzip/100001"))).error.code(),
            kURLErrorDataLengthExceedsMaximum);
}

TEST_P(DeliveryTest, ASessionEndsAfterItsTasks) {
  const auto unstarted = session().dataTaskWithRequest(request(server.url("/echo")));
  server.handle("/wait", [](const Exchange&) { return ReplyPlan::withStatus(200).thenStall("wait"); });
  const auto task = get(server.url("/wait"));
  EXPECT_TRUE(server.waitUntilStalled(1, std::chrono::seconds(10)));

  Semaphore listed(0);
  HTTPSession::Tasks tasks;
  session().getTasksWithCompletionHandler([&](HTTPSession::Tasks found) {
    EXPECT_TRUE(delegate->queue->isCurrent());
    tasks = std::move(found);
    listed.signal();
  });
  listed.wait();
  EXPECT_EQ(tasks.data, (std::vector<HTTPSessionTaskRef>{unstarted, task}));

  session().finishTasksAndInvalidate();
  EXPECT_EQ(session().dataTaskWithRequest(request(server.url("/echo"))), nullptr);
  EXPECT_NE(session().delegate(), nullptr);
  server.release("wait");
  EXPECT_FALSE(finished(task).error);
  unstarted->cancel();
  finished(unstarted);
  EXPECT_TRUE(delegate->waitUntilInvalid());
  Semaphore dropped(0);
  delegate->queue->post([&] { dropped.signal(); });
  dropped.wait();
  EXPECT_EQ(session().delegate(), nullptr);
}

TEST_P(DeliveryTest, EachSessionHasConnectionsOfItsOwn) {
  HTTPSessionConfiguration settings;
  settings.caFile = server.caFile();
  const auto one = makeSession(settings);
  const auto other = makeSession(settings);
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(finished(started(one->dataTaskWithRequest(request(server.url("/echo"))))).error);
    EXPECT_FALSE(finished(started(other->dataTaskWithRequest(request(server.url("/echo"))))).error);
  }
  EXPECT_EQ(server.counters().connectionsAccepted, 2u);
  one->finishTasksAndInvalidate();
  EXPECT_TRUE(server.waitForOpenConnections(1, std::chrono::seconds(10)));
  EXPECT_FALSE(finished(started(other->dataTaskWithRequest(request(server.url("/echo"))))).error);
}

}  // namespace
}  // namespace nvxcore::testing
