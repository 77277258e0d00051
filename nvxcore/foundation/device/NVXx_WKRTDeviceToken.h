#pragma once

#include <string>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

/// Stable tokens made of two texts, which end with their NUL. Any thread.
namespace nvxcore {

/// 32 bytes: the SHA-256 of both texts and a fixed one, one behind the other, with nothing between them.
NVXCORE_EXPORT Data NVXx_WKRTComputeUserDeviceToken(const char* first, const char* second);
/// The same as 64 lower-case hexadecimal digits.
NVXCORE_EXPORT std::string NVXx_WKRTComputeClientInstanceId(const char* first, const char* second);

}  // namespace nvxcore
