#include "nvxcore/foundation/device/NVXDeviceCellularInfo.h"

#include <algorithm>

#include "nvxcore/platform/DeviceFacts.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

bool NVXDeviceCellularInfo::supportsVoice() { return Platform::current().device->model() == "iPhone"; }

bool NVXDeviceCellularInfo::supportsData() {
  const auto names = Platform::current().device->networkInterfaceNames();
  return std::any_of(names.begin(), names.end(),
                     [](const std::string& name) { return name.starts_with("pdp_ip"); });
}

}  // namespace nvxcore
