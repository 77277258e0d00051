#pragma once

#include <optional>
#include <string>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// What the device can do on a cellular network. Any thread.
class NVXCORE_EXPORT NVXDeviceCellularInfo {
 public:
  NVXDeviceCellularInfo() = delete;
  static bool supportsVoice();
  static bool supportsData();
  /// Always nothing, as the next: nobody tells.
  static std::optional<std::string> SIMCountryCode() { return std::nullopt; }
  static std::optional<std::string> mobileCountryCode() { return std::nullopt; }
};

}  // namespace nvxcore
