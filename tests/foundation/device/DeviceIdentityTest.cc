#include <memory>
#include <optional>
#include <string>

#include "nvxcore/foundation/device/NVXx_CRWAppGroups.h"
#include "nvxcore/foundation/device/NVXx_CRWAppGroupsHolder.h"
#include "nvxcore/foundation/device/NVXx_CRWPseudonymousIDStore.h"
#include "nvxcore/foundation/device/NVXx_WKRTDeviceToken.h"
#include "nvxcore/platform/ApplicationFacts.h"
#include "tests/support/InMemoryPreferences.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

constexpr char kKey[] = "com.ovrasoft.common.pseudonymous";

URLResponse reply(const HTTPHeaders& headers) {
  return URLResponse::http(URL::withString("https://www.geo.test/"), 200, "HTTP/1.1", headers);
}

class PseudonymousIDTest : public NVXTest {
 protected:
  // It can't be switched off again, so what holds while it is off is looked at before all tests.
  static void SetUpTestSuite() {
    auto preferences = std::make_shared<InMemoryPreferences>();
    preferences->setObject("stored", kKey);
    NVXx_CRWPseudonymousIDStore store(preferences);
    URLRequest request;
    store.updateRequestWithPseudonymousID(request);
    EXPECT_TRUE(request.headers.empty());
    EXPECT_FALSE(store.pseudonymousID());
    EXPECT_FALSE(store.setPseudonymousIDFromResponse(reply({{"Set-Cookie", "NID=x"}})));
    store.setPseudonymousID(std::nullopt);
    EXPECT_EQ(preferences->stringForKey(kKey), "stored");
    NVXx_CRWPseudonymousIDStore::enable();
    EXPECT_EQ(store.pseudonymousID(), "stored");
  }

  PlatformScope _scope;
  std::shared_ptr<InMemoryPreferences> preferences = std::make_shared<InMemoryPreferences>();
  NVXx_CRWPseudonymousIDStore store{preferences};
};

TEST_F(PseudonymousIDTest, ARequestCarriesItAsItsOnlyCookie) {
  URLRequest request;
  request.headers.add("cookie", "other=1");
  request.headers.add("Cookie", "NID=old");
  store.updateRequestWithPseudonymousID(request);
  EXPECT_EQ(request.headers.size(), 1u);
  EXPECT_EQ(request.headers.value("Cookie"), "NID=");
  store.setPseudonymousID("42=x");
  store.updateRequestWithPseudonymousID(request);
  EXPECT_EQ(request.headers.value("Cookie"), "NID=42=x");
}

TEST_F(PseudonymousIDTest, TheLastOneOfAResponseIsStored) {
  EXPECT_FALSE(store.setPseudonymousIDFromResponse(reply({})));
  EXPECT_EQ(store.setPseudonymousIDFromResponse(reply({{"Set-Cookie", "NID=1; Path=/"},
                                                       {"Set-Cookie", "OTHER=2"},
                                                       {"Set-Cookie", "NID=3; Domain=geo.test"},
                                                       {"Set-Cookie", "nid=4"}})),
            "3");
  EXPECT_EQ(preferences->stringForKey(kKey), "3");
  EXPECT_EQ(store.setPseudonymousIDFromResponse(reply({{"Set-Cookie", "OTHER=5"}})), "3");
  const size_t flushes = preferences->synchronizations();
  store.setPseudonymousID(std::nullopt);
  EXPECT_FALSE(preferences->objectForKey(kKey));
  EXPECT_EQ(preferences->synchronizations(), flushes + 1);
}

class AppGroupsTest : public NVXTest {};

TEST_F(AppGroupsTest, TheIdentifierSuggestsAGroup) {
  const struct {
    const char* identifier;
    const char* group;
  } cases[] = {{"", "group.com.ovrasoft.common"},
               {"com.x.maps", "group.com.ovrasoft.common"},
               {"fishfood.x", "group.com.ovrasoft.common"},
               {"com.x.fishfood", "group.com.ovrasoft.common.enterprise"},
               {"com.x.dogfood.y", "group.com.ovrasoft.common.enterprise"},
               {"com.enterprises", "group.com.ovrasoft.common.enterprise"}};
  for (const auto& c : cases) {
    PlatformScope scope({.application = applicationFactsWithDescription({c.identifier, "/", "p", {}})});
    EXPECT_EQ(NVXx_CRWAppGroupsHolder::guessApplicationGroup(), c.group) << c.identifier;
  }
}

TEST_F(AppGroupsTest, OnlyTheTwoNamesAreTaken) {
  PlatformScope scope;
  EXPECT_EQ(NVXx_CRWAppGroups::sharedAppGroupName(), kCRWAppGroupCommon);
  NVXx_CRWAppGroups::setSharedAppGroupName("group.com.ovrasoft.other");
  EXPECT_EQ(NVXx_CRWAppGroups::sharedAppGroupName(), kCRWAppGroupCommon);
  NVXx_ovrasoftCommonDefaults()->setObject("common", "key");
  NVXx_CRWAppGroups::setSharedAppGroupName(kCRWAppGroupCommonEnterprise);
  EXPECT_EQ(NVXx_CRWAppGroups::sharedAppGroupName(), "group.com.ovrasoft.common.enterprise");
  EXPECT_TRUE(NVXx_ovrasoftSharedAppGroupContainer().fileSystemPath().ends_with(
      "/group.com.ovrasoft.common.enterprise"));
  EXPECT_FALSE(NVXx_ovrasoftCommonDefaults()->stringForKey("key"));
  NVXx_CRWAppGroups::setSharedAppGroupName(kCRWAppGroupCommon);
  EXPECT_EQ(NVXx_ovrasoftCommonDefaults()->stringForKey("key"), "common");
}

TEST(DeviceTokenTest, IsTheDigestOfBothTextsAndAFixedOne) {
  // By sha256sum.
  EXPECT_EQ(NVXx_WKRTComputeClientInstanceId("com.example.device", "user-7"),
            "2392bac1445d2f74c8715a4c19eb7e3a953f19b84e9d61c20893193a3c6631d4");
  EXPECT_EQ(NVXx_WKRTComputeClientInstanceId("a", "b"),
            "c5ea9f7624221000e61c315b9c26977c0f9f29f5755732f1db9d3c7681862719");
  EXPECT_EQ(NVXx_WKRTComputeUserDeviceToken("a", "b"), NVXx_WKRTComputeUserDeviceToken("ab", ""));
  EXPECT_EQ(NVXx_WKRTComputeUserDeviceToken("a", "b").length(), 32u);
  EXPECT_EQ(NVXx_WKRTComputeUserDeviceToken("a", "b").bytes()[0], 0xc5);
}

}  // namespace
}  // namespace nvxcore::testing
