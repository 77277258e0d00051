#pragma once

#include <string>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Facts of the device. Any thread.
class NVXCORE_EXPORT NVXSystemInfo {
 public:
  NVXSystemInfo() = delete;
  static std::string deviceModel();
};

}  // namespace nvxcore
