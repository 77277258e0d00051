#include "nvxcore/foundation/device/NVXx_CRWAppGroupsHolder.h"

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Platform.h"

namespace nvxcore {

NVXx_CRWAppGroupsHolder& NVXx_CRWAppGroupsHolder::sharedInstance() {
  // Never destroyed: it may be asked while the process leaves.
  static auto& holder = *new NVXx_CRWAppGroupsHolder;
  return holder;
}

std::string NVXx_CRWAppGroupsHolder::guessApplicationGroup() {
  const std::string identifier = Platform::current().application->bundleIdentifier();
  for (const char* part : {".dogfood", ".enterprise", ".fishfood"}) {
    if (identifier.find(part) != std::string::npos) return kCRWAppGroupCommonEnterprise;
  }
  return kCRWAppGroupCommon;
}

NVXx_CRWAppGroupsHolder::NVXx_CRWAppGroupsHolder() : _sharedAppGroupName(guessApplicationGroup()) {}

std::string NVXx_CRWAppGroupsHolder::sharedAppGroupName() const {
  Lock lock(_lock);
  return _sharedAppGroupName;
}

void NVXx_CRWAppGroupsHolder::setSharedAppGroupName(std::string_view name) {
  if (name != kCRWAppGroupCommon && name != kCRWAppGroupCommonEnterprise) return;
  Lock lock(_lock);
  _sharedAppGroupName = name;
}

}  // namespace nvxcore
