#pragma once

#include <cstdint>
#include <memory>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Preferences.h"

namespace nvxcore::dash {

inline constexpr char kUserCookieKey[] = "NVXAtlasUserCookie";

/// Keeps the user cookie in a signed record, so that one that was altered, or copied from elsewhere, reads as
/// none. Any thread, while no other saves.
class NVXCORE_EXPORT CookieStore {
 public:
  /// Without preferences nothing is kept.
  explicit CookieStore(std::shared_ptr<Preferences> preferences);

  /// 0 when there is none.
  uint64_t LoadCookie() const;
  /// Blocks until it is on disk, where that can be done. Answers the cookie.
  uint64_t SaveCookie(uint64_t cookie);
  void DeleteCookie();

 private:
  const std::shared_ptr<Preferences> _preferences;
};

}  // namespace nvxcore::dash
