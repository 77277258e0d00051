#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Bits of `enabledZLCTokens`, of which at most one may be set.
inline constexpr uint64_t kNVXZLCTokenOatcake = 1;
inline constexpr uint64_t kNVXZLCTokenMelbaCookie = 2;

/// The fixed part of what the connection tells the server about the client. Immutable. Any thread.
class NVXCORE_EXPORT NVXDASHClientDescription {
 public:
  NVXDASHClientDescription() = delete;
  /// For an SDK of a version within an application. Device, display and application are described by the
  /// platform in force. Without an SDK version the application speaks for itself, and what follows the
  /// version is dropped. Nothing when the first language or the channel is empty, or when both tokens are
  /// enabled.
  static std::shared_ptr<const NVXDASHClientDescription> initWithLanguages(
      const std::vector<std::string>& languages, uint64_t enabledZLCTokens,
      const std::string& distributionChannel, const std::optional<std::string>& SDKVersion,
      const std::optional<std::string>& coreVersion = {}, const std::optional<std::string>& APIKey = {},
      bool enterpriseSDK = false);
  /// For an application that speaks for itself.
  static std::shared_ptr<const NVXDASHClientDescription> initWithLanguages(
      const std::vector<std::string>& languages, uint64_t enabledZLCTokens,
      const std::string& distributionChannel);

  bool enterpriseSDK() const { return _enterpriseSDK; }
  int32_t screenDensity() const { return _screenDensity; }
  int32_t screenScale() const { return _screenScale; }
  /// Language tag, "en", for one.
  const std::string& firstLanguage() const { return _firstLanguage; }
  uint64_t enabledZLCTokens() const { return _enabledZLCTokens; }
  /// "ios:" and the model of the device.
  const std::string& platformID() const { return _platformID; }
  const std::string& osVersion() const { return _osVersion; }
  /// The SDK's version, or without one the application's, which may be empty.
  const std::string& softwareVersion() const { return _softwareVersion; }
  /// The application's version, when there is an SDK version.
  const std::optional<std::string>& SDKAppVersion() const { return _SDKAppVersion; }
  const std::optional<std::string>& basedOnZLCVersion() const { return _basedOnZLCVersion; }
  const std::optional<std::string>& APIKey() const { return _APIKey; }
  const std::string& distributionChannel() const { return _distributionChannel; }
  const std::string& bundleID() const { return _bundleID; }

 private:
  NVXDASHClientDescription(const std::string& firstLanguage, uint64_t enabledZLCTokens,
                           const std::string& distributionChannel);

  bool _enterpriseSDK = false;
  int32_t _screenDensity;
  int32_t _screenScale;
  std::string _firstLanguage;
  uint64_t _enabledZLCTokens;
  std::string _platformID;
  std::string _osVersion;
  std::string _softwareVersion;
  std::optional<std::string> _SDKAppVersion;
  std::optional<std::string> _basedOnZLCVersion;
  std::optional<std::string> _APIKey;
  std::string _distributionChannel;
  std::string _bundleID;
};
using NVXDASHClientDescriptionRef = std::shared_ptr<const NVXDASHClientDescription>;

}  // namespace nvxcore
