#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "nvxcore/platform/Export.h"

/// Digests. Any thread.
namespace nvxcore {

using SHA1Digest = std::array<uint8_t, 20>;
using SHA256Digest = std::array<uint8_t, 32>;

/// HMAC-SHA1 (RFC 2104) of the parts, one behind the other.
NVXCORE_EXPORT SHA1Digest hmacSHA1(std::string_view key, std::initializer_list<std::string_view> parts);
/// SHA-256 (FIPS 180-4) of the parts, one behind the other.
NVXCORE_EXPORT SHA256Digest sha256(std::initializer_list<std::string_view> parts);

}  // namespace nvxcore
