#pragma once

#include <memory>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Preferences.h"

namespace nvxcore {

/// The preferences that the library keeps its own things in. Any thread.
class NVXCORE_EXPORT NVXUserDefaults {
 public:
  NVXUserDefaults() = delete;
  /// The application's standard preferences.
  static std::shared_ptr<Preferences> sharedUserDefaults();
};

}  // namespace nvxcore
