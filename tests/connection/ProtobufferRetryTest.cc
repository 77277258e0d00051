#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "nvxcore/platform/URLErrors.h"
#include "tests/connection/ProtobufferHarness.h"

namespace nvxcore {
namespace {

using namespace testing;

class ProtobufferRetryTest : public ProtobufferTest {
 protected:
  NVXDASHProtobufferRequestRef retrying(const std::string& url, TimeInterval wait = 1.5) {
    auto request = this->request(url);
    request->setRetryEnabled(true);
    request->setStartingRetryInterval(wait);
    return request;
  }
  size_t posts() { return bodies.size(); }
  /// The next POST leaves after `wait` seconds and not before.
  void expectPostAfter(TimeInterval wait) {
    const size_t before = posts();
    advance(wait - 0.001);
    EXPECT_EQ(posts(), before) << "too early";
    advance(0.001);
    EXPECT_EQ(posts(), before + 1) << "too late";
  }
};

TEST_F(ProtobufferRetryTest, WaitsGrowByTheFactorAndTheLastFailureIsHeardOnce) {
  statuses = {503, -1001, 408};
  const auto request = retrying("a");
  request->setRetryFactor(3.0);
  sendAndSettle({request});
  expectPostAfter(1.5);
  expectPostAfter(4.5);
  EXPECT_EQ(heard, "!408");
  EXPECT_EQ(request->retryCount(), 2u);
  EXPECT_FALSE(request->handler());
  EXPECT_EQ(request->responseProtoClass(), &Echo::messageClass());
  // The same request with the same message each time.
  EXPECT_EQ(payloadsOf(bodies[0]), payloadsOf(bodies[2]));
  advance(3600);
  EXPECT_EQ(posts(), 3u);
}

TEST_F(ProtobufferRetryTest, ARetryThatSucceedsIsAllThatIsHeard) {
  statuses = {504, 502};
  const auto request = retrying("a", 0.25);
  request->setMaxRetries(5);
  sendAndSettle({request});
  expectPostAfter(0.25);
  expectPostAfter(0.5);
  EXPECT_EQ(heard, "a");
  EXPECT_EQ(request->retryCount(), 2u);
}

TEST_F(ProtobufferRetryTest, WithoutRetryOrForOtherErrorsTheHandlerIsCalledAtOnce) {
  std::set<TimeInterval> waits;
  for (int i = 0; i < 100; ++i) {
    const auto request = this->request("x");
    EXPECT_FALSE(request->isRetryEnabled());
    request->setStartingRetryInterval(i % 2 ? -1.0 : 0.0);
    waits.insert(request->startingRetryInterval());
  }
  EXPECT_GT(waits.size(), 50u);
  EXPECT_GE(*waits.begin(), 1.0);
  EXPECT_LE(*waits.rbegin(), 2.0);

  statuses = {503, 500, -1009};
  sendAndSettle({request("a")});
  sendAndSettle({retrying("b")});
  sendAndSettle({retrying("c")});
  EXPECT_EQ(heard, "!503 !500 !-1009");
  const auto none = retrying("d");
  none->setMaxRetries(0);
  none->setRetryBlock([](bool, const Error&) {
    ADD_FAILURE() << "no retry is left";
    return true;
  });
  statuses = {503};
  sendAndSettle({none});
  EXPECT_EQ(heard, "!503 !500 !-1009 !503");
}

TEST_F(ProtobufferRetryTest, TheErrorsThatPassAreThese) {
  for (int code = -1100; code < 600; ++code) {
    const bool passes = code == -1001 || code == -1005;
    const bool passesAsStatus = code == 408 || code == 502 || code == 503 || code == 504;
    ASSERT_EQ(NVXDASHProtobufferRequest::isRetryableError(Error(kURLErrorDomain, code)), passes) << code;
    ASSERT_EQ(NVXDASHProtobufferRequest::isRetryableError(Error("com.ovrasoft.HTTPStatus", code)),
              passesAsStatus);
    ASSERT_FALSE(
        NVXDASHProtobufferRequest::isRetryableError(Error("com.ovrasoft.Atlas.NVXDASHConnection", code)));
  }
  EXPECT_FALSE(NVXDASHProtobufferRequest::isRetryableError(Error()));
}

TEST_F(ProtobufferRetryTest, TheRetryHandlerHasTheLastWordWhileRetriesAreLeft) {
  std::string asked;
  const auto answering = [&](bool decision) {
    return [&asked, decision](bool willRetry, const Error& error) {
      asked += (willRetry ? "+" : "-") + std::to_string(error.code()) + " ";
      return decision;
    };
  };
  statuses = {503};
  const auto refused = retrying("a");
  refused->setRetryBlock(answering(false));
  sendAndSettle({refused});
  EXPECT_EQ(heard, "!503");
  EXPECT_EQ(refused->retryCount(), 0u);
  EXPECT_FALSE(refused->retryBlock());

  // An answer that doesn't parse, twice, and the third time there is nobody to ask.
  answer = [](const std::string&) { return plain("\xFF"); };
  const auto insisted = retrying("b");
  insisted->setRetryBlock(answering(true));
  sendAndSettle({insisted});
  expectPostAfter(1.5);
  expectPostAfter(3.0);
  EXPECT_EQ(heard, "!503 !101");
  EXPECT_EQ(asked, "+503 -101 -101 ");
  EXPECT_EQ(insisted->retryCount(), 2u);
}

TEST_F(ProtobufferRetryTest, AnErrorOfAHookCountsLikeAnyOther) {
  int calls = 0;
  NVXDASHProtobufferRequest::addResponseHookWithID("fail once", [&](auto&& request, auto&&, Error* error) {
    if (request->requestID() == 39 && calls++ == 0) *error = Error(kURLErrorDomain, kURLErrorTimedOut);
  });
  sendAndSettle({retrying("a")});
  EXPECT_EQ(heard, "");
  expectPostAfter(1.5);
  EXPECT_EQ(heard, "a");
}

TEST_F(ProtobufferRetryTest, ARetryWhoseConnectionIsGoneComesToNothing) {
  statuses = {503};
  const auto request = retrying("a");
  sendAndSettle({request});
  const std::weak_ptr<NVXDASHConnectionImpl> gone = connection;
  connection.reset();
  settle();
  EXPECT_FALSE(gone.lock());
  advance(10);
  EXPECT_EQ(heard, "");
  EXPECT_EQ(posts(), 1u);
  // Nor is there a retry for a failure that comes without one.
  const auto orphan = retrying("b");
  orphan->asyncRequestFailed(Error(kURLErrorDomain, kURLErrorTimedOut), nullptr);
  settle();
  EXPECT_EQ(heard, "!-1001");
}

/// Abandons a request at a point of its way, beside one in the same POST that must not notice.
class AbandonTest : public ProtobufferRetryTest {
 protected:
  const NVXDASHProtobufferRequestRef left = retrying("left");
  /// On the handler queue, and waits for it.
  void abandonOnHandlerQueue() {
    handlers->post([this] { left->abandon(); });
  }
  void expectOnlyTheOtherHeard(const std::string& other = "other") {
    settle();
    advance(100);
    EXPECT_EQ(heard, other);
    EXPECT_FALSE(left->handler() || left->retryBlock() || left->responseProtoClass());
    // The request went for good; another one is answered.
    sendAndSettle({request("later")});
    EXPECT_EQ(heard, other + " later");
  }
};

TEST_F(AbandonTest, Queued) {
  connection->suspendSending();
  connection->sendRequest(left);
  connection->sendRequest(request("other"));
  abandonOnHandlerQueue();
  settle();
  connection->resumeSending();
  expectOnlyTheOtherHeard();
  // It rides all the same, and its answer is passed over.
  EXPECT_EQ(payloadsOf(bodies[0]).size(), 2u);
}

TEST_F(AbandonTest, Framed) {
  answer = [this](const std::string& payload) {
    left->abandon();
    return plain(payload);
  };
  sendAndSettle({left, request("other")});
  expectOnlyTheOtherHeard();
}

/// Answers in two pieces, the first of which ends within the answer to the first request.
class AbandonWhileParsingTest : public AbandonTest {
 protected:
  void reply(const FakeHTTPTaskRef& task, const std::string& body) override {
    if (!between) return AbandonTest::reply(task, body);
    const std::string bytes = echoReply(body);
    task->sendResponse(200, {{"Content-Type", "application/binary"}});
    task->sendData(std::string_view(bytes).substr(0, 2 + 2 + 4 + 1));
    std::exchange(between, nullptr)();
    task->sendData(std::string_view(bytes).substr(2 + 2 + 4 + 1));
    task->complete();
  }
  std::function<void()> between;
};

TEST_F(AbandonWhileParsingTest, Parsing) {
  between = [this] {
    auto done = std::make_shared<Semaphore>(0);
    handlers->post([this, done] {
      left->abandon();
      done->signal();
    });
    done->wait();
  };
  sendAndSettle({left, request("other")});
  expectOnlyTheOtherHeard();
}

TEST_F(AbandonTest, InAHook) {
  NVXDASHProtobufferRequest::addResponseHookWithID(
      "abandon", [this](const NVXDASHProtobufferRequestRef& request, auto&&...) {
        if (request == left) request->abandon();
      });
  sendAndSettle({left, request("other")});
  expectOnlyTheOtherHeard();
}

TEST_F(AbandonTest, Dispatched) {
  auto dispatched = std::make_shared<Semaphore>(0);
  NVXDASHProtobufferRequest::addResponseHookWithID(
      "see the next", [&](const NVXDASHProtobufferRequestRef& request, auto&&...) {
        // When the other one's answer comes by, the first one's outcome waits on the handler queue.
        if (request != left) dispatched->signal();
      });
  handlers->post([this, dispatched] {
    dispatched->wait();
    left->abandon();
  });
  sendAndSettle({left, request("other")});
  expectOnlyTheOtherHeard();
}

TEST_F(AbandonTest, InTheRetryHandler) {
  for (const bool decision : {false, true}) {
    statuses = {503};
    const auto request = retrying("gone");
    request->setRetryBlock([weak = std::weak_ptr(request), decision](bool, const Error&) {
      weak.lock()->abandon();
      return decision;
    });
    sendAndSettle({request});
    advance(100);
    EXPECT_EQ(heard, "");
  }
  EXPECT_EQ(posts(), 2u);
}

TEST_F(AbandonTest, WaitingForItsRetry) {
  statuses = {503};
  sendAndSettle({left, request("other")});
  EXPECT_EQ(left->retryCount(), 1u);
  abandonOnHandlerQueue();
  expectOnlyTheOtherHeard("!503");
  EXPECT_EQ(posts(), 2u);
}

TEST_F(AbandonTest, WhenItsTimerHasFired) {
  statuses = {503};
  sendAndSettle({left, request("other")});
  auto held = std::make_shared<Semaphore>(0);
  Queue::main()->post([held] { held->wait(); });
  _time->advance(2);  // Its retry waits behind that.
  handlers->post([this, held] {
    left->abandon();
    held->signal();
  });
  expectOnlyTheOtherHeard("!503");
  EXPECT_EQ(posts(), 2u);
}

}  // namespace
}  // namespace nvxcore
