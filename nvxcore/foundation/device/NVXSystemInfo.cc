#include "nvxcore/foundation/device/NVXSystemInfo.h"

#include "nvxcore/platform/DeviceFacts.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

std::string NVXSystemInfo::deviceModel() { return Platform::current().device->model(); }

}  // namespace nvxcore
