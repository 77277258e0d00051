#include "nvxcore/foundation/base/NVXUserDefaults.h"

#include "nvxcore/platform/Platform.h"

namespace nvxcore {

std::shared_ptr<Preferences> NVXUserDefaults::sharedUserDefaults() {
  return Platform::current().preferences->standardPreferences();
}

}  // namespace nvxcore
