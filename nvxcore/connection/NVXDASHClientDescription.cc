#include "nvxcore/connection/NVXDASHClientDescription.h"

#include "nvxcore/foundation/device/DisplayInfo.h"
#include "nvxcore/foundation/device/NVXSystemInfo.h"
#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/DeviceFacts.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Value.h"

namespace nvxcore {

namespace {

constexpr char kBundleVersionKey[] = "CFBundleVersion";
constexpr uint64_t kBothTokens = kNVXZLCTokenOatcake | kNVXZLCTokenMelbaCookie;

}  // namespace

NVXDASHClientDescriptionRef NVXDASHClientDescription::initWithLanguages(
    const std::vector<std::string>& languages, uint64_t enabledZLCTokens,
    const std::string& distributionChannel, const std::optional<std::string>& SDKVersion,
    const std::optional<std::string>& coreVersion, const std::optional<std::string>& APIKey,
    bool enterpriseSDK) {
  if ((enabledZLCTokens & kBothTokens) == kBothTokens || languages.empty() || languages.front().empty() ||
      distributionChannel.empty()) {
    return nullptr;
  }
  std::shared_ptr<NVXDASHClientDescription> description(
      new NVXDASHClientDescription(languages.front(), enabledZLCTokens, distributionChannel));
  const Dictionary info = Platform::current().application->infoDictionary();
  const std::string* bundleVersion = info.get(kBundleVersionKey).string();
  if (SDKVersion) {
    description->_softwareVersion = *SDKVersion;
    description->_basedOnZLCVersion = coreVersion;
    if (bundleVersion) description->_SDKAppVersion = *bundleVersion;
    description->_APIKey = APIKey;
    description->_enterpriseSDK = enterpriseSDK;
  } else if (bundleVersion) {
    description->_softwareVersion = *bundleVersion;
  }
  return description;
}

NVXDASHClientDescriptionRef NVXDASHClientDescription::initWithLanguages(
    const std::vector<std::string>& languages, uint64_t enabledZLCTokens,
    const std::string& distributionChannel) {
  return initWithLanguages(languages, enabledZLCTokens, distributionChannel, std::nullopt);
}

NVXDASHClientDescription::NVXDASHClientDescription(const std::string& firstLanguage,
                                                   uint64_t enabledZLCTokens,
                                                   const std::string& distributionChannel)
    : _screenDensity(DisplayInfo::ClientPropertiesScreenPixelDensity()),
      _screenScale(DisplayInfo::ClientInformationIosScreenScale()),
      _firstLanguage(firstLanguage),
      _enabledZLCTokens(enabledZLCTokens),
      _platformID("ios:" + NVXSystemInfo::deviceModel()),
      _osVersion(Platform::current().device->systemVersion()),
      _distributionChannel(distributionChannel),
      _bundleID(Platform::current().application->bundleIdentifier()) {}

}  // namespace nvxcore
