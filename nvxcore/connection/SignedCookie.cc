#include "nvxcore/connection/internal/SignedCookie.h"

#include <string_view>

#include "nvxcore/platform/Digest.h"

namespace nvxcore::dash {

namespace {

constexpr size_t kKeyLength = 64;
// Changing these makes every stored cookie void.
constexpr std::array<uint8_t, kKeyLength> kKeyTable = {
    0x67, 0x31, 0x7d, 0x7a, 0x46, 0xe1, 0xb5, 0x72, 0x34, 0x8f, 0xb9, 0xa2, 0x51, 0x42, 0xbc, 0x26,
    0x46, 0xad, 0x8d, 0x43, 0xb0, 0x6a, 0x1d, 0x56, 0xe4, 0x78, 0x9d, 0x52, 0xe0, 0xce, 0xb6, 0x8d,
    0x4f, 0x61, 0x36, 0xaa, 0xfe, 0x03, 0x8a, 0xd8, 0xe8, 0xb7, 0xc7, 0xa8, 0x8c, 0x6d, 0x93, 0xba,
    0xbb, 0x6c, 0x21, 0xd8, 0x3e, 0xef, 0x1e, 0x33, 0x5b, 0x1e, 0x09, 0x69, 0x00, 0xf8, 0x37, 0xea};
constexpr uint8_t kKeyConstant = 0xe6;

/// The key stands whole nowhere in the program.
std::array<uint8_t, kKeyLength> signingKey() {
  std::array<uint8_t, kKeyLength> key = kKeyTable;
  key[0] = key[1] ^ kKeyConstant;
  for (size_t i = 1; i <= kKeyLength; ++i) key[i % kKeyLength] ^= key[(i + 1) % kKeyLength];
  return key;
}

template <class T>
std::string_view bytesOf(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

}  // namespace

void SignCookie(SignedCookie& record) {
  record.digest = hmacSHA1(bytesOf(signingKey()),
                           {bytesOf(record.version), bytesOf(record.time), bytesOf(record.cookie)});
}

}  // namespace nvxcore::dash
