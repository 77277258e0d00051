// The head of a POST: who the client is, where it is, and what waits while it has no identity.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "nvxcore/message/schema/client_properties.pb.h"
#include "nvxcore/message/schema/location_descriptor.pb.h"
#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "tests/connection/FakeConnectionTest.h"

namespace nvxcore {
namespace {

using namespace testing;
using namespace std::string_literals;

class IdentityTest : public FakeConnectionTest {
 protected:
  IdentityTest() : FakeConnectionTest(phone()) {}

  static Platform phone() {
    Platform platform;
    auto device = std::make_shared<FakeDeviceFacts>("iPhone");
    device->versionText = "16.1";
    device->density = 3;
    device->scale = 2;
    platform.device = device;
    platform.application = applicationFactsWithDescription({.bundleIdentifier = "com.host.app",
                                                            .bundlePath = {},
                                                            .processName = "host",
                                                            .infoDictionary = {{"CFBundleVersion", "3.2"}}});
    return platform;
  }
  void connect(uint64_t tokens, NVXDASHClientStateRef withState) {
    state = std::move(withState);
    connection = NVXDASHConnection::initWithServerURL(
        URL::withString("http://geo.test/glm"),
        NVXDASHClientDescription::initWithLanguages({"en"}, tokens, "c", "1.0", "9.9", "K", true), state,
        NVXDASHConnectionImpl::fetcherServiceWithUserAgent("test/1"), std::make_shared<NVXSystemClock>());
  }
  static Ref<NVXx_ZLCClientPropertiesResponseProto> response(const char* cohort, const char* country) {
    auto message = NVXx_ZLCClientPropertiesResponseProto::message();
    message->setNewCohort(cohort);
    message->setNewLegalCountry(country);
    return message;
  }
  static NVXDASHClientStateRef stateWithToken() {
    auto state = clientStateWithCookie(0x11);
    auto message = response("C7", "CH");
    message->oatcakeToken().setNid("n");
    message->oatcakeToken().setIssueTimestamp(5);
    state->updateFromZLCClientPropertiesResponseProto(*message, false);
    return state;
  }

  void reply(const FakeHTTPTaskRef& task, const std::string& body) override {
    if (status != 200) {
      task->sendResponse(status);
      task->sendData("no");
    } else {
      task->sendResponse(200, {{"Content-Type", "application/binary"}});
      task->sendData(echoReply(body, identity));
    }
    task->complete();
  }
  /// IDs of the requests of a body.
  std::vector<int32_t> ids(size_t post) {
    std::vector<int32_t> found;
    for (const FramedRequest& request : requestsOf(bodies.at(post))) found.push_back(request.id);
    return found;
  }
  Ref<NVXx_ZLCClientPropertiesRequestProto> propertiesOf(size_t post) {
    for (const FramedRequest& request : requestsOf(bodies.at(post))) {
      if (request.id == kClientPropertiesRequest)
        return NVXx_ZLCClientPropertiesRequestProto::parseFromData(Data::copy(request.payload));
    }
    return nullptr;
  }
  std::string locationOf(size_t post) {
    return _network->tasks().at(post)->originalRequest().headers.value("X-Geo").value_or("");
  }
  /// Each in a POST of its own.
  void sendAlone(const std::string& name) {
    auto request = echoRequest(outcomes, name);
    request->setAllowsCellularAccess(false);
    connection->sendRequest(request);
  }
  void waitForEnd(size_t outcomeCount) {
    ASSERT_TRUE(outcomes.waitForCount(outcomeCount));
    ASSERT_TRUE(connection->drain(kPatience));
  }

  IdentityAnswer identity;
  int status = 200;
  NVXDASHClientStateRef state;
};

TEST_F(IdentityTest, TheHeadNamesTheClientByteForByte) {
  connect(1, stateWithToken());
  connection->setHasLocationFix(true);
  connection->setVoiceSearchEnabled(true);
  connection->setNavUsage(2);
  const auto experiments = NVXx_PBArray::arrayWithInt32s({7, 300});
  connection->setExperimentIDs(experiments.get());
  experiments->addInt32(9);  // not the connection's
  connection->experimentIDs()->addInt32(9);

  const std::string common[] = {
      "\x0A\x02"
      "C7",        // cohort
      "\x20\x01",  // gzip
      "\x2A\x0C"
      "com.host.app",  // application
      "\x32\x02"
      "CH",                            // legal country
      "\x50\x01",                      // courier
      "\xA8\x01\x01",                  // voice search
      "\xB8\x01\x07\xB8\x01\xAC\x02",  // experiments
      "\xC0\x01\x01",                  // tile cache
      "\xBA\x02\x03"
      "3.2",  // application version
      "\xC2\x02\x03"
      "9.9",  // core version
      "\xDA\x02\x11\x0A\x01K\x12\x0C"
      "com.host.app",  // fingerprint
      "\xE8\x02\x01",  // enterprise
  };
  const std::string full = common[0] + "\x10\x01" +  // location fix
                           common[1] + common[2] + common[3] + common[4] + common[5] +
                           "\xB0\x01\x03" +                          // density
                           common[6] + common[7] + "\xC8\x01\x02" +  // navigation
                           "\xDA\x01\x04"
                           "16.1" +                           // system
                           "\xFA\x01\x05\x0A\x01n\x10\x05" +  // token
                           "\x80\x02\x01"s +
                           "\x88\x02\x00"s +  // voice, data
                           "\xA0\x02\x01" +   // token enabled
                           common[8] + common[9] + common[10] + common[11] + "\x9A\x03\x02\x10\x02";  // scale
  send("x");
  waitForEnd(1);
  const std::vector<FramedRequest> requests = requestsOf(bodies[0]);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].id, kClientPropertiesRequest);
  EXPECT_EQ(requests[0].payload, full);
  EXPECT_EQ(bodies[0].substr(2, 8), "\0\0\0\0\0\0\0\x11"s);

  // Suppressed: no cookie, no location, and less of the client.
  const auto here = NVXx_LOCULocationDescriptor::message();
  here->setTimestamp(5);
  connection->setLocationDescriptors({here});
  connection->setSuppressUserState(true);
  send("y");
  waitForEnd(2);
  std::string less;
  for (const std::string& field : common) less += field;
  EXPECT_EQ(requestsOf(bodies[1])[0].payload, less);
  EXPECT_EQ(bodies[1].substr(2, 8), std::string(8, '\0'));
  EXPECT_EQ(locationOf(1), "");
}

TEST_F(IdentityTest, TokensAreSentAsTheyAreEnabled) {
  connect(2, clientStateWithCookie(0x11));
  EXPECT_TRUE(connection->isWaitingForCookies());
  send("x");
  waitForEnd(1);
  EXPECT_TRUE(propertiesOf(0)->melbaCookieEnabled());
  EXPECT_FALSE(propertiesOf(0)->hasMelbaNidCookie());
  EXPECT_FALSE(propertiesOf(0)->hasOatcakeTokenEnabled());
  EXPECT_TRUE(connection->isWaitingForCookies());
  const auto message = NVXx_ZLCClientPropertiesResponseProto::message();
  message->setNewMelbaNidCookie("NID");
  identity.clientProperties = message->data().string();
  send("y");
  waitForEnd(2);
  EXPECT_FALSE(connection->isWaitingForCookies());
  send("z");
  waitForEnd(3);
  EXPECT_EQ(propertiesOf(2)->melbaNidCookie(), "NID");

  // The other token: an empty one is sent while there is none.
  connect(1, clientStateWithCookie(0x11));
  EXPECT_TRUE(connection->isWaitingForCookies());
  send("u");
  waitForEnd(4);
  EXPECT_TRUE(propertiesOf(3)->hasOatcakeToken());
  EXPECT_EQ(propertiesOf(3)->oatcakeToken().serializedSize(), 0u);
  EXPECT_FALSE(propertiesOf(3)->hasMelbaCookieEnabled());
}

TEST_F(IdentityTest, LocationsAreSentWithTheOverridesOfTheirProducers) {
  connect(0, clientStateWithCookie(0x11));
  auto device = NVXx_LOCULocationDescriptor::message();
  device->setProducer(LOCULocationProducer(1));
  device->setTimestamp(5);
  device->latlng().setLatitudeE7(1);
  device->latlng().setLongitudeE7(-1);
  auto other = NVXx_LOCULocationDescriptor::message();
  other->setProducer(LOCULocationProducer(12));
  other->setRadius(1.0F);
  const std::string deviceText = "w EAEYBSoKDQEAAAAV_____w", otherText = "w EAw9AACAPw";

  whileMainIsBusy([&] {
    send("before");
    connection->setLocationDescriptors({device});
    send("after");
    // The same once more, as another object, begins no new batch.
    connection->setLocationDescriptors({device->deepCopy()});
    send("after too");
    EXPECT_EQ(connection->snapshot().groups.size(), 2u);
    // Merged into its producer's, or behind the others.
    auto later = NVXx_LOCULocationDescriptor::message();
    later->setProducer(LOCULocationProducer(1));
    later->setTimestamp(9);
    auto request = echoRequest(outcomes, "overridden");
    request->addLocationDescriptorOverride(device);
    request->addLocationDescriptorOverride(other);
    request->addLocationDescriptorOverride(later);
    EXPECT_EQ(request->locationDescriptorOverridesByProducer().size(), 2u);
    connection->sendRequest(request);
    send("after all");
    EXPECT_EQ(connection->snapshot().groups.size(), 3u);
  });
  waitForEnd(5);
  // A POST says what holds as it starts.
  EXPECT_EQ(locationOf(0), deviceText);
  EXPECT_EQ(locationOf(1), deviceText);
  EXPECT_EQ(bodySizes(), (std::vector<size_t>{1, 3, 1}));
  EXPECT_EQ(locationOf(2), "w EAEYCSoKDQEAAAAV_____w " + otherText);
  EXPECT_EQ(device->timestamp(), 5);

  connection->setLocationDescriptors({device, other});
  EXPECT_EQ(connection->locationDescriptors().size(), 2u);
  send("two");
  waitForEnd(6);
  EXPECT_EQ(locationOf(3), deviceText + " " + otherText);
  Semaphore checked(0);
  connection->checkConnection([&](bool good) {
    EXPECT_TRUE(good);
    checked.signal();
  });
  ASSERT_TRUE(checked.wait(kPatience));
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_EQ(locationOf(4), "");
  EXPECT_EQ(ids(4), (std::vector<int32_t>{62}));
}

TEST_F(IdentityTest, TrafficWaitsForTheFirstAnswerWhileThereIsNoIdentity) {
  connect(0, clientStateWithCookie(0));
  identity.userCookie = 0xABCD;
  identity.clientProperties = response("C1", "DE")->data().string();
  EXPECT_TRUE(connection->isWaitingForCookies());
  whileMainIsBusy([&] {
    send("a");
    sendAlone("b");
    sendAlone("c");
    EXPECT_EQ(connection->numberOfConnectionsInProgress(), 1);
  });
  // They start by themselves.
  waitForEnd(3);
  EXPECT_EQ(ids(0), (std::vector<int32_t>{15, 62, 239}));
  EXPECT_EQ(ids(1), (std::vector<int32_t>{62, 239}));
  EXPECT_EQ(bodies[2].substr(2, 8), "\0\0\0\0\0\0\xAB\xCD"s);
  EXPECT_EQ(state->userCookie(), 0xABCDu);
  EXPECT_EQ(connection->legalCountry(), "DE");
  EXPECT_EQ(propertiesOf(1)->cohort(), "C1");
  EXPECT_EQ(propertiesOf(1)->legalCountry(), "DE");
  // Another connection of the same state waits for nothing.
  connect(0, state);
  EXPECT_FALSE(connection->isWaitingForCookies());
}

TEST_F(IdentityTest, WithoutAnIdentityOnePOSTComesAfterTheOther) {
  for (const int answer : {200, 503}) {
    connect(0, clientStateWithCookie(0));
    bodies.clear();
    status = answer;
    identity.userCookie = 0;  // which is none
    const size_t before = outcomes.count();
    whileMainIsBusy([&] {
      for (const char* name : {"a", "b", "c"}) sendAlone(name);
    });
    ASSERT_TRUE(outcomes.waitForCount(before + 3));
    ASSERT_TRUE(connection->drain(kPatience));
    EXPECT_TRUE(connection->isWaitingForCookies());
    EXPECT_EQ(bodies.size(), 3u);
    EXPECT_EQ(connection->pendingRequestCount(), 0u);
  }
}

TEST_F(IdentityTest, APOSTThatFailsUnreadLeavesTheOthersToTheNextSend) {
  connect(0, clientStateWithCookie(0));
  isUnread = true;
  whileMainIsBusy([&] {
    for (const char* name : {"a", "b"}) sendAlone(name);
  });
  ASSERT_TRUE(outcomes.waitForCount(1));
  ASSERT_TRUE(connection->drain(kPatience));
  EXPECT_EQ(outcomes.summary(), "!a");
  EXPECT_EQ(connection->pendingRequestCount(), 1u);
  isUnread = false;
  send("c");
  waitForEnd(3);
  EXPECT_EQ(outcomes.summary(), "!a b c");
}

}  // namespace
}  // namespace nvxcore
