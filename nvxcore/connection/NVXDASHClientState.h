#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// The part of the client's identity that the server gave. Shared by connections. Any thread.
class NVXCORE_EXPORT NVXDASHClientState {
 public:
  explicit NVXDASHClientState(uint64_t userCookie = 0) : _userCookie(userCookie) {}
  /// 0 is none.
  uint64_t userCookie() const { return _userCookie; }

 private:
  std::atomic<uint64_t> _userCookie;
};
using NVXDASHClientStateRef = std::shared_ptr<NVXDASHClientState>;

}  // namespace nvxcore
