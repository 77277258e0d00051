#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "nvxcore/platform/internal/DataBlock.h"
#include "nvxcore/platform/internal/UTF8.h"

namespace nvxcore {

using PBBlock = DataAccess::Block;

inline std::string_view pbView(const PBBlock* block) {
  return {reinterpret_cast<const char*>(block->bytes), block->length};
}

/// As memcpy. Many bytes are copied from a boundary of the target on: the string instruction that libraries
/// take for them is two to four times slower elsewhere.
inline void pbCopy(uint8_t* to, const uint8_t* from, size_t length) {
  constexpr size_t kLine = 64;
  if (length >= 8 * kLine) {
    std::memcpy(to, from, kLine);
    const size_t skipped = kLine - (reinterpret_cast<uintptr_t>(to) & (kLine - 1));
    to += skipped;
    from += skipped;
    length -= skipped;
  }
  std::memcpy(to, from, length);
}

/// A block of the pools with a copy of the bytes.
PBBlock* pbCopyBytes(const void* bytes, size_t length);
/// A block of the pools for bytes of `whole`, of which it takes over one counted reference.
PBBlock* pbSliceBytes(PBBlock* whole, const uint8_t* bytes, size_t length);
/// The shared empty string, with one more reference counted.
PBBlock* pbEmptyString();

}  // namespace nvxcore
