#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Preferences.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

/// The application group that sibling applications on one device share. Any thread.
class NVXCORE_EXPORT NVXx_CRWAppGroups {
 public:
  NVXx_CRWAppGroups() = delete;
  static std::string sharedAppGroupName();
  /// Takes kCRWAppGroupCommon and kCRWAppGroupCommonEnterprise; ignores any other.
  static void setSharedAppGroupName(std::string_view name);
};

/// The folder of the group, which need not be there yet. Nothing when the platform has none.
NVXCORE_EXPORT URL NVXx_ovrasoftSharedAppGroupContainer();
/// The preferences of the group.
NVXCORE_EXPORT std::shared_ptr<Preferences> NVXx_ovrasoftCommonDefaults();

}  // namespace nvxcore
