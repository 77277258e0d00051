// Requests that wait for an identity, whatever becomes of the POST that is to bring it.

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <string>
#include <vector>

#include "nvxcore/connection/NVXDASHProtobufferRequest.h"
#include "nvxcore/message/schema/client_properties.pb.h"
#include "nvxcore/platform/URLErrors.h"
#include "tests/connection/ConnectionHarness.h"
#include "tests/support/FakeHTTPSession.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tests/support/Proof.h"
#include "tests/support/SteppedThreading.h"

namespace nvxcore::testing {
namespace {

/// One schedule: threads that send, enqueue, suspend and resume at random, over a server that answers, fails
/// and gives an identity as it likes.
class Schedule {
 public:
  explicit Schedule(uint64_t seed)
      : _seed(seed),
        _network(std::make_shared<FakeHTTPSessionService>()),
        _threading(std::make_shared<SteppedThreading>(seed)),
        _scope(Platform{.threading = _threading, .httpSessionService = _network}) {
    _network->onResume = [this](const FakeHTTPTaskRef& task) { serve(task); };
    _connection = makeConnection("http://geo.test/", {}, 0);
  }

  void run() {
    std::vector<std::unique_ptr<ThreadHandle>> threads;
    for (uint64_t thread = 0; thread < 3; ++thread) {
      threads.push_back(_threading->startThread("operations", [this, thread] {
        std::minstd_rand random(static_cast<unsigned>(_seed * 3 + thread + 1));
        for (int i = 0; i < 8; ++i) operate(random);
      }));
    }
    for (const auto& thread : threads) thread->join();
    _connection->resumeSending();
    _threading->runUntilIdle();
    _stalled = _connection->pendingRequestCount() > 0;
    _isHealthy = true;
    _connection->sendRequest(request());
    _threading->runUntilIdle();
    check();
    _connection.reset();
  }

  bool wasStalled() const { return _stalled; }

 private:
  void operate(std::minstd_rand& random) {
    switch (random() % 12) {
      case 0:
        _connection->suspendSending();
        break;
      case 1:
      case 2:
        _connection->resumeSending();
        break;
      case 3:
        _connection->setSuppressUserState(random() % 2);
        break;
      case 4:
        _connection->checkConnection({});
        break;
      case 5:
        _connection->startNewBatch();
        break;
      case 6:
        _connection->enqueueRequest(request());
        break;
      case 7:
      case 8: {
        auto alone = request();
        alone->setAllowsCellularAccess(false);
        _connection->sendRequest(alone);
        break;
      }
      case 9:
        _connection->sendRequest(retryingRequest());
        break;
      default:
        _connection->sendRequest(request());
    }
  }

  int& newOutcome() {
    Lock lock(_lock);
    return _outcomes.emplace_back(0);
  }
  std::shared_ptr<NVXDASHConnectionRequest> request() {
    int& outcome = newOutcome();
    auto request = NVXDASHBlocksRequest::requestWithID(
        39, [](utils::JavaDataOutput* output) { output->WriteInt(0); },
        [&outcome](utils::JavaDataInput* input) {
          ++outcome;
          return input->ReadInt() == 0;
        });
    request->setAsyncRequestFailedHandler([&outcome](const Error&) { ++outcome; });
    return request;
  }
  std::shared_ptr<NVXDASHConnectionRequest> retryingRequest() {
    int& outcome = newOutcome();
    auto request = NVXDASHProtobufferRequest::requestWithID<NVXx_ZLCOatcakeTokenProto>(
        75, NVXx_ZLCOatcakeTokenProto::message(), Queue::main(),
        [&outcome](const Ref<NVXx_ZLCOatcakeTokenProto>&, const Error&) { ++outcome; });
    request->setRetryEnabled(true);
    request->setStartingRetryInterval(1.0);
    return request;
  }

  void serve(const FakeHTTPTaskRef& task) {
    std::minstd_rand random(static_cast<unsigned>(_seed * 977 + task->taskIdentifier()));
    random.discard(3);
    // Which identity it gives is a matter of the seed even when it is healthy.
    IdentityAnswer identity{.userCookie = random() % 3 ? 0x11U : 0U, .clientProperties = {}};
    const auto way = _isHealthy ? 0 : random() % 7;
    if (way == 1) return task->complete(Error(kURLErrorDomain, kURLErrorCannotConnectToHost));
    if (way == 2) identity.clientProperties = "\xFF";
    task->pullBody([task, way, identity](const Data& body) {
      if (way == 3) return task->complete(Error(kURLErrorDomain, kURLErrorNetworkConnectionLost));
      std::string reply = echoReply(body.view(), identity);
      if (way == 4) reply.resize(reply.size() / 2);
      task->sendResponse(way == 5 ? 503 : 200, {{"Content-Type", "application/binary"}});
      task->sendData(reply);
      task->complete();
    });
  }

  void check() {
    EXPECT_EQ(_connection->pendingRequestCount(), 0u) << "seed " << _seed;
    EXPECT_EQ(_connection->pendingEnqueueCount(), 0u) << "seed " << _seed;
    EXPECT_EQ(_connection->numberOfConnectionsInProgress(), 0) << "seed " << _seed;
    EXPECT_TRUE(_connection->drain(0)) << "seed " << _seed;
    for (const int outcomes : _outcomes) EXPECT_EQ(outcomes, 1) << "seed " << _seed;
  }

  const uint64_t _seed;
  const std::shared_ptr<FakeHTTPSessionService> _network;
  const std::shared_ptr<SteppedThreading> _threading;
  PlatformScope _scope;
  std::shared_ptr<NVXDASHConnectionImpl> _connection;
  Mutex _lock;
  std::deque<int> _outcomes;
  bool _isHealthy = false;
  bool _stalled = false;
};

class WaitingScheduleTest : public NVXTest {};

TEST_F(WaitingScheduleTest, NothingIsLeftPendingAfterOneMoreSend) {
  expectConsoleLine("Needed ");
  size_t stalled = 0;
  const ProofRange seeds = proofRange(proofCount(400, 100000));
  for (uint64_t seed = seeds.first; seed < seeds.first + seeds.count && !HasFailure(); ++seed) {
    Schedule schedule(seed);
    schedule.run();
    stalled += schedule.wasStalled();
  }
  // The case that the last request is for did come up.
  EXPECT_GT(stalled, seeds.count / 100);
  std::printf("%zu schedules, %zu of them left requests to the next send\n", seeds.count, stalled);
}

}  // namespace
}  // namespace nvxcore::testing
