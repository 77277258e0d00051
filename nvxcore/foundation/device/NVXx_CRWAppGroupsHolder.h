#pragma once

#include <string>
#include <string_view>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

inline constexpr char kCRWAppGroupCommon[] = "group.com.ovrasoft.common";
inline constexpr char kCRWAppGroupCommonEnterprise[] = "group.com.ovrasoft.common.enterprise";

/// Keeps the name of the application group that sibling applications share. Any thread.
class NVXCORE_EXPORT NVXx_CRWAppGroupsHolder {
 public:
  /// Made by the first call, with the group that the application's identifier suggests.
  static NVXx_CRWAppGroupsHolder& sharedInstance();
  /// The enterprise group when the application's bundle identifier has ".dogfood", ".enterprise" or
  /// ".fishfood" in it, else the common one.
  static std::string guessApplicationGroup();

  NVXx_CRWAppGroupsHolder(const NVXx_CRWAppGroupsHolder&) = delete;
  NVXx_CRWAppGroupsHolder& operator=(const NVXx_CRWAppGroupsHolder&) = delete;

  std::string sharedAppGroupName() const;
  /// Takes the names of the two groups; ignores any other.
  void setSharedAppGroupName(std::string_view name);

 private:
  NVXx_CRWAppGroupsHolder();

  mutable Mutex _lock;
  std::string _sharedAppGroupName NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore
