#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace nvxcore {

/// True for well-formed UTF-8 (RFC 3629): no overlong forms, surrogates or values past U+10FFFF.
bool isUTF8(const uint8_t* bytes, size_t length);
inline bool isUTF8(std::string_view text) {
  return isUTF8(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

}  // namespace nvxcore
