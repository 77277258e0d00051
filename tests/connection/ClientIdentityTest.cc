#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nvxcore/connection/CookieStore.h"
#include "nvxcore/connection/NVXDASHClientDescription.h"
#include "nvxcore/connection/NVXDASHClientState.h"
#include "nvxcore/connection/internal/SignedCookie.h"
#include "nvxcore/message/schema/client_properties.pb.h"
#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Semaphore.h"
#include "tests/support/FakeFacts.h"
#include "tests/support/InMemoryPreferences.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

using dash::CookieStore;
using dash::SignedCookie;

class ClientDescriptionTest : public NVXTest {
 protected:
  static Platform platform() {
    auto device = std::make_shared<FakeDeviceFacts>("Tablet");
    device->density = 9;
    device->scale = 2;
    Platform platform;
    platform.device = device;
    platform.application =
        applicationFactsWithDescription({"com.host.app", "/app", "app", {{"CFBundleVersion", "42"}}});
    return platform;
  }
  PlatformScope _scope{platform()};
};

TEST_F(ClientDescriptionTest, AnSDKNamesItsVersionsAndItsKey) {
  const auto description =
      NVXDASHClientDescription::initWithLanguages({"de", "en"}, 2, "retail", "3.1", "9.0", "key", true);
  ASSERT_TRUE(description);
  EXPECT_EQ(description->firstLanguage(), "de");
  EXPECT_EQ(description->enabledZLCTokens(), 2u);
  EXPECT_EQ(description->distributionChannel(), "retail");
  EXPECT_EQ(description->platformID(), "ios:Tablet");
  EXPECT_EQ(description->osVersion(), "1.2.3");
  EXPECT_EQ(description->bundleID(), "com.host.app");
  EXPECT_EQ(description->softwareVersion(), "3.1");
  EXPECT_EQ(description->basedOnZLCVersion(), "9.0");
  EXPECT_EQ(description->SDKAppVersion(), "42");
  EXPECT_EQ(description->APIKey(), "key");
  EXPECT_TRUE(description->enterpriseSDK());
  // What the display says is held to the numbers that the messages know.
  EXPECT_EQ(description->screenDensity(), 4);
  EXPECT_EQ(description->screenScale(), 2);
}

TEST_F(ClientDescriptionTest, AnApplicationWithoutAnSDKSpeaksForItself) {
  const auto description =
      NVXDASHClientDescription::initWithLanguages({"en"}, 0, "c", std::nullopt, "9.0", "dropped", true);
  ASSERT_TRUE(description);
  EXPECT_EQ(description->softwareVersion(), "42");
  EXPECT_FALSE(description->basedOnZLCVersion());
  EXPECT_FALSE(description->SDKAppVersion());
  EXPECT_FALSE(description->APIKey());
  EXPECT_FALSE(description->enterpriseSDK());
}

TEST_F(ClientDescriptionTest, WhatGivesNoDescription) {
  const auto with = [](std::vector<std::string> languages, uint64_t tokens, const char* channel) {
    return NVXDASHClientDescription::initWithLanguages(languages, tokens, channel) != nullptr;
  };
  EXPECT_FALSE(with({}, 0, "c"));
  EXPECT_FALSE(with({"", "en"}, 0, "c"));
  EXPECT_FALSE(with({"en"}, 0, ""));
  EXPECT_FALSE(with({"en"}, 3, "c"));
  EXPECT_FALSE(with({"en"}, 7, "c"));
  for (uint64_t tokens : {0, 1, 2, 4}) EXPECT_TRUE(with({"en", ""}, tokens, "c"));
}

class ClientStateTest : public NVXTest {
 protected:
  class Monitor final : public NVXDASHClientStateMelbaMonitor {
   public:
    std::function<void(NVXDASHClientState&, const std::optional<std::string>&)> onChange;
    void clientState(NVXDASHClientState& state, const std::optional<std::string>& cookie) override {
      onChange(state, cookie);
    }
  };

  NVXDASHClientStateRef state() { return NVXDASHClientState::initWithDefaults(_defaults); }
  static Ref<NVXx_ZLCClientPropertiesResponseProto> fullResponse() {
    auto response = NVXx_ZLCClientPropertiesResponseProto::message();
    response->setNewCohort("cohort");
    response->oatcakeToken().setNid("token");
    response->setNewLegalCountry("DE");
    response->setNewMelbaNidCookie("melba");
    return response;
  }

  std::shared_ptr<ManualTime> _time = std::make_shared<ManualTime>();
  PlatformScope _scope{{.threading = _time}};
  std::shared_ptr<InMemoryPreferences> _defaults = std::make_shared<InMemoryPreferences>();
};

TEST_F(ClientStateTest, TheRecordIsLaidOutByteForByte) {
  _time->advance(0.25);
  EXPECT_EQ(CookieStore(_defaults).SaveCookie(0x1122334455667788), 0x1122334455667788u);
  const std::string record = _defaults->dataForKey("NVXAtlasUserCookie").string();
  ASSERT_EQ(record.size(), 48u);
  EXPECT_EQ(record.substr(0, 8), std::string(8, '\0'));
  double time;
  std::memcpy(&time, &record[8], 8);
  EXPECT_EQ(time, 1577836800.25 - 978307200.0);
  uint64_t cookie;
  std::memcpy(&cookie, &record[16], 8);
  EXPECT_EQ(cookie, 0x1122334455667788u);
  EXPECT_EQ(record.substr(44), std::string(4, '\0'));
  EXPECT_EQ(CookieStore(_defaults).LoadCookie(), 0x1122334455667788u);
  CookieStore(_defaults).DeleteCookie();
  EXPECT_FALSE(_defaults->objectForKey("NVXAtlasUserCookie"));
}

TEST_F(ClientStateTest, AnAlteredRecordReadsAsNone) {
  CookieStore store(_defaults);
  store.SaveCookie(7);
  const std::string record = _defaults->dataForKey(dash::kUserCookieKey).string();
  const auto load = [&](const std::string& bytes) {
    _defaults->setObject(Data::copy(bytes), dash::kUserCookieKey);
    return store.LoadCookie();
  };
  for (size_t at = 0; at < record.size(); ++at) {
    const bool isPadding = (at >= 2 && at < 8) || at >= 44;
    for (int bit = 0; bit < 8; ++bit) {
      std::string altered = record;
      altered[at] ^= static_cast<char>(1 << bit);
      EXPECT_EQ(load(altered), isPadding ? 7u : 0u) << at;
    }
    EXPECT_EQ(load(record.substr(0, at)), 0u) << at;
  }
  EXPECT_EQ(load(record + "more"), 7u);
  _defaults->setObject(record, dash::kUserCookieKey);
  EXPECT_EQ(store.LoadCookie(), 0u) << "a string is no record";
}

TEST_F(ClientStateTest, ACookieIsSetOnceAndSurvivesARestart) {
  auto first = state();
  first->updateUserCookie(0);
  EXPECT_EQ(first->userCookie(), 0u);
  EXPECT_FALSE(_defaults->objectForKey(dash::kUserCookieKey));
  first->updateUserCookie(11);
  first->updateUserCookie(12);
  EXPECT_EQ(first->userCookie(), 11u);
  EXPECT_EQ(state()->userCookie(), 11u);
  state()->updateUserCookie(13);
  EXPECT_EQ(state()->userCookie(), 11u);
}

TEST_F(ClientStateTest, AResponseIsKeptForTheNextRun) {
  state()->updateFromZLCClientPropertiesResponseProto(*fullResponse(), false);
  const auto next = state();
  EXPECT_EQ(next->clientCohort(), "cohort");
  ASSERT_TRUE(next->oatcakeToken());
  EXPECT_EQ(next->oatcakeToken()->nid(), "token");
  EXPECT_EQ(next->legalCountry(), "DE");
  EXPECT_EQ(next->melbaCookie(), "melba");
  EXPECT_EQ(_defaults->stringForKey("NVXAtlasUserClientCohort"), "cohort");
  EXPECT_EQ(_defaults->dataForKey("NVXAtlasUserClientOatcakeToken"), next->oatcakeToken()->data());
  EXPECT_EQ(_defaults->stringForKey("kNVXAtlasUserClientLegalCountry"), "DE");
  EXPECT_EQ(_defaults->stringForKey("NVXAtlasUserClientMelbaCookie"), "melba");
  // An empty response takes nothing away.
  next->updateFromZLCClientPropertiesResponseProto(*NVXx_ZLCClientPropertiesResponseProto::message(), false);
  EXPECT_EQ(next->clientCohort(), "cohort");
  EXPECT_EQ(state()->melbaCookie(), "melba");
  // A token that is none reads as none.
  _defaults->setObject(Data::copy("\x0A\x7F"), "NVXAtlasUserClientOatcakeToken");
  EXPECT_FALSE(state()->oatcakeToken());
}

TEST_F(ClientStateTest, TheTokenIsACopyOfTheResponses) {
  const auto response = fullResponse();
  const auto state = this->state();
  state->updateFromZLCClientPropertiesResponseProto(*response, false);
  response->oatcakeToken().setNid("changed");
  EXPECT_EQ(state->oatcakeToken()->nid(), "token");
}

TEST_F(ClientStateTest, WithoutUserStateOnlyMelbaCookieAndCountryAreTaken) {
  const auto state = this->state();
  state->updateFromZLCClientPropertiesResponseProto(*fullResponse(), true);
  EXPECT_FALSE(state->clientCohort());
  EXPECT_FALSE(state->oatcakeToken());
  EXPECT_EQ(state->legalCountry(), "DE");
  EXPECT_EQ(state->melbaCookie(), "melba");
  EXPECT_EQ(_defaults->synchronizations(), 1u);
}

TEST_F(ClientStateTest, TokensGoByTheOptionsAndTheCohortStays) {
  const auto state = this->state();
  const auto reset = [&] {
    state->updateFromZLCClientPropertiesResponseProto(*fullResponse(), false);
    state->updateUserCookie(5);
  };
  reset();
  state->synchronizeToClientTokenOptions(1);
  EXPECT_TRUE(state->oatcakeToken());
  EXPECT_FALSE(state->melbaCookie());
  EXPECT_FALSE(this->state()->melbaCookie());
  reset();
  state->synchronizeToClientTokenOptions(2);
  EXPECT_FALSE(state->oatcakeToken());
  EXPECT_TRUE(state->melbaCookie());
  EXPECT_FALSE(this->state()->oatcakeToken());
  reset();
  state->clearZLCServerTokens();
  for (const auto& cleared : {state, this->state()}) {
    EXPECT_EQ(cleared->userCookie(), 0u);
    EXPECT_FALSE(cleared->legalCountry());
    EXPECT_FALSE(cleared->oatcakeToken());
    EXPECT_FALSE(cleared->melbaCookie());
    EXPECT_EQ(cleared->clientCohort(), "cohort");
  }
  // Only now can another cookie be taken.
  state->updateUserCookie(6);
  EXPECT_EQ(this->state()->userCookie(), 6u);
}

TEST_F(ClientStateTest, TheMonitorHearsOfTheMelbaCookieWithinAndOutsideTheLock) {
  const auto state = this->state();
  auto monitor = std::make_shared<Monitor>();
  state->setMelbaMonitor(monitor);
  EXPECT_EQ(state->melbaMonitor(), monitor);
  std::optional<std::string> heard;
  // Called under the lock, it may ask and change what it is told of.
  monitor->onChange = [&](NVXDASHClientState& changed, const std::optional<std::string>& cookie) {
    heard = changed.melbaCookie();
    EXPECT_EQ(heard, cookie);
    changed.updateUserCookie(9);
  };
  state->setMelbaCookie("set");
  EXPECT_EQ(heard, "set");
  EXPECT_EQ(this->state()->melbaCookie(), "set");
  EXPECT_EQ(this->state()->userCookie(), 9u);
  // Called outside it, it may wait for another thread that does.
  monitor->onChange = [&](NVXDASHClientState& changed, const std::optional<std::string>& cookie) {
    Semaphore asked(0);
    Queue::global()->post([&] {
      heard = changed.melbaCookie();
      asked.signal();
    });
    asked.wait();
    EXPECT_EQ(heard, cookie);
  };
  state->updateFromZLCClientPropertiesResponseProto(*fullResponse(), true);
  EXPECT_EQ(heard, "melba");
  heard.reset();
  state->synchronizeToClientTokenOptions(0);
  state->clearZLCServerTokens();
  EXPECT_FALSE(heard) << "nobody is told of a cookie that is dropped";
  monitor.reset();
  state->setMelbaCookie("unheard");
  EXPECT_FALSE(state->melbaMonitor());
}

TEST_F(ClientStateTest, WithoutPreferencesItStaysInMemory) {
  NVXDASHClientState state;
  state.updateUserCookie(3);
  state.setMelbaCookie("m");
  state.updateFromZLCClientPropertiesResponseProto(*fullResponse(), false);
  EXPECT_EQ(state.userCookie(), 3u);
  EXPECT_EQ(state.clientCohort(), "cohort");
  state.clearZLCServerTokens();
  EXPECT_EQ(state.userCookie(), 0u);
}

}  // namespace
}  // namespace nvxcore::testing
