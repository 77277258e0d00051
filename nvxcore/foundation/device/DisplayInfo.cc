#include "nvxcore/foundation/device/DisplayInfo.h"

#include <algorithm>

#include "nvxcore/platform/DeviceFacts.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

int32_t DisplayInfo::ClientPropertiesScreenPixelDensity() {
  return std::clamp(Platform::current().device->screenPixelDensity(), 1, 4);
}

int32_t DisplayInfo::ClientInformationIosScreenScale() {
  return std::clamp(Platform::current().device->screenScale(), 0, 3);
}

}  // namespace nvxcore
