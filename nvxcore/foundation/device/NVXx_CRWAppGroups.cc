#include "nvxcore/foundation/device/NVXx_CRWAppGroups.h"

#include "nvxcore/foundation/device/NVXx_CRWAppGroupsHolder.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

std::string NVXx_CRWAppGroups::sharedAppGroupName() {
  return NVXx_CRWAppGroupsHolder::sharedInstance().sharedAppGroupName();
}

void NVXx_CRWAppGroups::setSharedAppGroupName(std::string_view name) {
  NVXx_CRWAppGroupsHolder::sharedInstance().setSharedAppGroupName(name);
}

URL NVXx_ovrasoftSharedAppGroupContainer() {
  return Platform::current().preferences->containerForApplicationGroup(
      NVXx_CRWAppGroups::sharedAppGroupName());
}

std::shared_ptr<Preferences> NVXx_ovrasoftCommonDefaults() {
  return Platform::current().preferences->preferencesForApplicationGroup(
      NVXx_CRWAppGroups::sharedAppGroupName());
}

}  // namespace nvxcore
