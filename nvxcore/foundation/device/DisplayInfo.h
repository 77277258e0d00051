#pragma once

#include <cstdint>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Facts of the display, as the messages to the server have them. Any thread.
class NVXCORE_EXPORT DisplayInfo {
 public:
  DisplayInfo() = delete;
  /// A number of NVXx_ZLCClientPropertiesRequestProto's ScreenPixelDensity, 1 to 4.
  static int32_t ClientPropertiesScreenPixelDensity();
  /// A number of NVXx_ZLCClientInformation_PixelDensity's IosScreenScale, 0 to 3.
  static int32_t ClientInformationIosScreenScale();
};

}  // namespace nvxcore
