#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "nvxcore/foundation/device/DisplayInfo.h"
#include "nvxcore/foundation/device/NVXDeviceCellularInfo.h"
#include "nvxcore/foundation/device/NVXSystemInfo.h"
#include "nvxcore/platform/Platform.h"
#include "tests/support/FakeFacts.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

class DeviceTest : public NVXTest {};

TEST_F(DeviceTest, FactsComeFromThePlatform) {
  auto device = std::make_shared<FakeDeviceFacts>("iPhone");
  PlatformScope scope({.device = device});
  EXPECT_EQ(NVXSystemInfo::deviceModel(), "iPhone");
  EXPECT_TRUE(NVXDeviceCellularInfo::supportsVoice());
  for (const char* other : {"iPhone Simulator", "iphone", ""}) {
    device->modelText = other;
    EXPECT_FALSE(NVXDeviceCellularInfo::supportsVoice()) << other;
  }
  EXPECT_FALSE(NVXDeviceCellularInfo::supportsData());
  device->interfaces = {"lo", "xpdp_ip0", "pdp_i"};
  EXPECT_FALSE(NVXDeviceCellularInfo::supportsData());
  device->interfaces.push_back("pdp_ip0");
  EXPECT_TRUE(NVXDeviceCellularInfo::supportsData());
  EXPECT_FALSE(NVXDeviceCellularInfo::SIMCountryCode());
  EXPECT_FALSE(NVXDeviceCellularInfo::mobileCountryCode());
}

TEST_F(DeviceTest, DisplayFactsAreHeldToWhatMessagesKnow) {
  auto device = std::make_shared<FakeDeviceFacts>();
  PlatformScope scope({.device = device});
  const struct {
    int32_t density, scale, expectedDensity, expectedScale;
  } cases[] = {{1, 1, 1, 1}, {4, 3, 4, 3}, {0, -1, 1, 0}, {5, 4, 4, 3}};
  for (const auto& c : cases) {
    device->density = c.density;
    device->scale = c.scale;
    EXPECT_EQ(DisplayInfo::ClientPropertiesScreenPixelDensity(), c.expectedDensity);
    EXPECT_EQ(DisplayInfo::ClientInformationIosScreenScale(), c.expectedScale);
  }
}

TEST_F(DeviceTest, TheSystemTellsItsInterfaces) {
  PlatformScope scope;
  const auto names = Platform::current().device->networkInterfaceNames();
  EXPECT_NE(std::find(names.begin(), names.end(), "lo"), names.end());
  EXPECT_EQ(DisplayInfo::ClientPropertiesScreenPixelDensity(), 1);
}

}  // namespace
}  // namespace nvxcore::testing
