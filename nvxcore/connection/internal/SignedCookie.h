#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace nvxcore::dash {

/// The record of the user cookie as it is kept, in the processor's byte order. The layout is the same
/// everywhere; what was written with another one reads as no cookie. The padding is written as zeros.
struct SignedCookie {
  uint16_t version = 0;
  std::array<uint8_t, 6> padding{};
  double time = 0;  ///< Of saving, in seconds since 2001-01-01 UTC.
  uint64_t cookie = 0;
  std::array<uint8_t, 20> digest{};
  std::array<uint8_t, 4> paddingAtEnd{};
};
static_assert(sizeof(SignedCookie) == 48 && offsetof(SignedCookie, time) == 8 &&
              offsetof(SignedCookie, cookie) == 16 && offsetof(SignedCookie, digest) == 24);

/// Sets the digest, which vouches for version, time and cookie.
void SignCookie(SignedCookie& record);

}  // namespace nvxcore::dash
