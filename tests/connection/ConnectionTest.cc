#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "tests/connection/FakeConnectionTest.h"

namespace nvxcore {
namespace {

using namespace testing;
using namespace std::string_literals;

class ConnectionTest : public FakeConnectionTest {};

TEST_F(ConnectionTest, APOSTIsFramedByteForByte) {
  connection = makeConnection("http://geo.test/glm", {}, 0x0102030405060708);
  connection->sendRequest(NVXDASHBlocksRequest::requestWithID(
      39, Data::copy("\0\0\0\x03\xAA\xBB\xCC"s), [](utils::JavaDataInput* input) {
        return input->ReadDataOfLength(static_cast<size_t>(input->ReadInt())).view() == "\xAA\xBB\xCC";
      }));
  ASSERT_TRUE(connection->drain(kPatience));
  ASSERT_EQ(bodies.size(), 1u);
  EXPECT_EQ(bodies[0],
            "\0\x18"                            // protocol version
            "\x01\x02\x03\x04\x05\x06\x07\x08"  // user cookie
            "\0\x02"
            "en"
            "\0\x05"
            "ios:x"
            "\0\x03"
            "1.0"
            "\0\x01"
            "c"
            "\0\x3E\0\0\0\x2C"  // the client's properties
            "\x10\0\x20\x01\x2A\0\x50\x01\xA8\x01\0\xB0\x01\x01\xC0\x01\x01\xC8\x01\0\xDA\x01\x05"
            "1.2.3\x80\x02\0\x88\x02\0\xDA\x02\x02\x12\0\x9A\x03\x02\x10\x01"
            "\0\x27\0\0\0\x03\xAA\xBB\xCC"s);
  const URLRequest request = _network->lastTask()->originalRequest();
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.headers.value("Content-Type"), "application/binary");
  EXPECT_EQ(request.headers.value("User-Agent"), "test/1 (gzip)");
  EXPECT_EQ(request.cachePolicy, URLRequestCachePolicy::ReloadIgnoringLocalCacheData);
  EXPECT_EQ(request.timeoutInterval, 15.0);

  connection->setSuppressUserState(true);
  send("x");
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_EQ(bodies[1].substr(2, 8), std::string(8, '\0'));
  int64_t outgoing = 0, incoming = 0;
  connection->getOutgoingByteCount(&outgoing, &incoming);
  EXPECT_EQ(outgoing, static_cast<int64_t>(bodies[0].size() + bodies[1].size()));
  EXPECT_EQ(incoming, (2 + 6 + 2 + 4 + 3) + (2 + 6 + 2 + 4 + 1));
}

TEST_F(ConnectionTest, BatchesOfFiftyLeaveInArrivalOrder) {
  whileMainIsBusy([&] {
    for (int i = 0; i < 120; ++i) send(std::to_string(i));
    EXPECT_EQ(connection->numberOfConnectionsInProgress(), 3);
    EXPECT_EQ(connection->pendingRequestCount(), 120u);
  });
  ASSERT_TRUE(outcomes.waitForCount(120));
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_EQ(bodySizes(), (std::vector<size_t>{50, 50, 20}));
  int next = 0;
  for (const std::string& body : bodies) {
    for (const std::string& payload : payloadsOf(body)) EXPECT_EQ(payload, std::to_string(next++));
  }
  EXPECT_EQ(connection->pendingRequestCount(), 0u);
  EXPECT_EQ(connection->numberOfConnectionsInProgress(), 0);
}

TEST_F(ConnectionTest, EnqueuedRequestsFillTheRoomThatIsLeft) {
  struct {
    size_t sent, enqueued;
    std::vector<size_t> posts;
    size_t left;
  } cases[] = {{10, 45, {50}, 5}, {50, 3, {50}, 3}, {10, 3, {13}, 0}, {51, 3, {50, 4}, 0}};
  for (const auto& given : cases) {
    connection = makeConnection("http://geo.test/glm");
    bodies.clear();
    for (size_t i = 0; i < given.enqueued; ++i) enqueue("rider " + std::to_string(i));
    EXPECT_EQ(connection->pendingEnqueueCount(), given.enqueued);
    EXPECT_EQ(connection->numberOfConnectionsInProgress(), 0);
    whileMainIsBusy([&] {
      for (size_t i = 0; i < given.sent; ++i) send(std::to_string(i));
    });
    ASSERT_TRUE(connection->drain(kPatience));
    EXPECT_EQ(bodySizes(), given.posts);
    EXPECT_EQ(connection->pendingEnqueueCount(), given.left);
    if (given.sent == 10) {
      EXPECT_EQ(payloadsOf(bodies[0])[10], "rider 0");
    }
  }
}

TEST_F(ConnectionTest, GroupsAreByAuthorizerBatchAndCellularAccess) {
  class Authorizer : public HTKFetcherAuthorizationProtocol {
   public:
    void authorizeRequest(const URLRequest&, AuthorizedHandler) override {}
    void stopAuthorization() override {}
    void stopAuthorizationForRequest(const URLRequest&) override {}
    bool isAuthorizingRequest(const URLRequest&) const override { return false; }
    bool isAuthorizedRequest(const URLRequest&) const override { return true; }
    std::string userEmail() const override { return "a@b.test"; }
  };
  auto authorizer = std::make_shared<Authorizer>();
  whileMainIsBusy([&] {
    send("a1");
    auto authorized = echoRequest(outcomes, "b1");
    authorized->setAuthorizer(authorizer);
    connection->sendRequest(authorized);
    auto wifi = echoRequest(outcomes, "c");
    wifi->setAllowsCellularAccess(false);
    wifi->setHTTPTimeout(40);
    connection->sendRequest(wifi);
    send("a2");
    connection->startNewBatch();
    send("d");
    const auto groups = connection->snapshot().groups;
    ASSERT_EQ(groups.size(), 4u);
    EXPECT_EQ(groups[0].requests, 2u);
    EXPECT_EQ(groups[0].decidedPosts, 1u);
    EXPECT_EQ(groups[0].xGeoVersion, 0);
    EXPECT_EQ(groups[3].xGeoVersion, 2);
  });
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_EQ(bodySizes(), (std::vector<size_t>{2, 1, 1, 1}));
  const auto tasks = _network->tasks();
  EXPECT_TRUE(tasks[0]->originalRequest().allowsCellularAccess);
  EXPECT_FALSE(tasks[2]->originalRequest().allowsCellularAccess);
  EXPECT_EQ(tasks[2]->originalRequest().timeoutInterval, 40);

  // Without one of its own a request takes the service's authorizer, also while sending is suspended.
  connection->fetcherService()->setAuthorizer(authorizer);
  connection->suspendSending();
  auto request = echoRequest(outcomes, "e");
  connection->sendRequest(request);
  EXPECT_EQ(request->authorizer(), authorizer);
  connection->resumeSending();
  const auto key = NVXDASHRequestGroupID::initWithAutorizer(authorizer, 3);
  EXPECT_EQ(*key, *NVXDASHRequestGroupID::initWithAutorizer(authorizer, 3));
  EXPECT_FALSE(*key == *NVXDASHRequestGroupID::initWithAutorizer(nullptr, 3));
  EXPECT_NE((NVXDASHRequestGroup{key, {request}, 0}.description().find("(a@b.test), 1 requests")),
            std::string::npos);
}

TEST_F(ConnectionTest, SuspensionHoldsEverythingBackUntilOneResume) {
  connection->suspendSending();
  connection->suspendSending();
  for (int i = 0; i < 51; ++i) send(std::to_string(i));
  enqueue("rider");
  connection->sendRequest(NVXDASHBlocksRequest::requestWithID(0, NVXDASHBlocksRequest::SerializeHandler()));
  EXPECT_EQ(connection->numberOfBatchesInSuspension(), 2u);
  EXPECT_EQ(connection->pendingRequestCount(), 0u);
  EXPECT_EQ(connection->pendingEnqueueCount(), 0u);
  const auto snapshot = connection->snapshot();
  EXPECT_TRUE(snapshot.isSuspended);
  EXPECT_EQ(snapshot.suspended, 51u);
  EXPECT_EQ(snapshot.suspendedEnqueued, 1u);
  whileMainIsBusy([&] { connection->resumeSending(); });
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_EQ(bodySizes(), (std::vector<size_t>{50, 2}));
  EXPECT_EQ(payloadsOf(bodies[1])[1], "rider");
  connection->resumeSending();
  EXPECT_FALSE(connection->snapshot().isSuspended);
}

TEST_F(ConnectionTest, NotificationsAndIdleTime) {
  std::atomic<int> starts{0}, changes{0};
  std::atomic<bool> onMain{true};
  auto& center = NotificationCenter::defaultCenter();
  auto started = center.addObserver(NVXx_kDASHConnectionStartingSendNotification, connection.get(),
                                    [&](const Notification&) {
                                      ++starts;
                                      onMain = onMain && Queue::main()->isCurrent();
                                    });
  auto changed =
      center.addObserver(NVXx_kDASHConnectionServerURLChanged, connection.get(), [&](const Notification&) {
        ++changes;
        EXPECT_EQ(connection->serverURL().host(), "other.test");
      });
  EXPECT_EQ(connection->connectionIdleTimeMS(), kNVXTimingClock_InvalidTime);
  connection->setServerURL(URL::withString("http://other.test/"));
  EXPECT_EQ(changes, 1);
  whileMainIsBusy([&] {
    send("x");
    connection->setLastRequestCompletedTime(5);
    EXPECT_EQ(connection->connectionIdleTimeMS(), 0);
  });
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_EQ(starts, 1);
  EXPECT_TRUE(onMain);
  EXPECT_EQ(_network->lastTask()->originalRequest().url.host(), "other.test");
  EXPECT_GE(connection->connectionIdleTimeMS(), 0);
  EXPECT_GT(connection->lastRequestCompletedTime(), 5);
  EXPECT_TRUE(connection->waitOnCurrentStreamingConnectionsWithTimeout(0.001));
}

TEST_F(ConnectionTest, WithoutAnArgumentThereIsNoConnection) {
  const URL url = URL::withString("http://geo.test/");
  auto description = NVXDASHClientDescription::initWithLanguages({"en"}, 0, "c", "1.0");
  auto state = std::make_shared<NVXDASHClientState>();
  auto service = connection->fetcherService();
  auto clock = std::make_shared<NVXSystemClock>();
  EXPECT_TRUE(NVXDASHConnection::initWithServerURL(url, description, state, service, clock));
  EXPECT_FALSE(NVXDASHConnection::initWithServerURL(URL(), description, state, service, clock));
  EXPECT_FALSE(NVXDASHConnection::initWithServerURL(url, nullptr, state, service, clock));
  EXPECT_FALSE(NVXDASHConnection::initWithServerURL(url, description, nullptr, service, clock));
  EXPECT_FALSE(NVXDASHConnection::initWithServerURL(url, description, state, nullptr, clock));
  EXPECT_FALSE(NVXDASHConnection::initWithServerURL(url, description, state, service, nullptr));
}

TEST_F(ConnectionTest, ADestroyedConnectionFailsWhatItStillHolds) {
  connection->suspendSending();
  send("suspended");
  enqueue("suspended rider");
  auto other = makeConnection("http://geo.test/glm");
  other->enqueueRequest(echoRequest(outcomes, "rider"));
  other.reset();
  connection.reset();
  ASSERT_TRUE(outcomes.waitForCount(3));
  for (const auto& outcome : outcomes.all()) {
    EXPECT_FALSE(outcome.answered);
    EXPECT_TRUE(outcome.error.is(kURLErrorDomain, kURLErrorCancelled));
  }
  // One with a POST under way lives on until that has ended.
  auto busy = makeConnection("http://geo.test/glm");
  busy->sendRequest(echoRequest(outcomes, "last"));
  busy.reset();
  ASSERT_TRUE(outcomes.waitForCount(4));
  EXPECT_TRUE(outcomes.all().back().answered);
}

TEST_F(ConnectionTest, DrainTurnsTheMainLoop) {
  Semaphore done(0);
  bool drained = false;
  Queue::main()->post([&] {
    send("x");
    drained = connection->drain(kPatience);
    done.signal();
  });
  ASSERT_TRUE(done.wait(kPatience));
  EXPECT_TRUE(drained);
  EXPECT_EQ(outcomes.summary(), "x");
}

}  // namespace
}  // namespace nvxcore
