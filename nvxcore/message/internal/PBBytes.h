#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "nvxcore/platform/internal/DataBlock.h"
#include "nvxcore/platform/internal/UTF8.h"

namespace nvxcore {

using PBBlock = DataAccess::Block;

inline std::string_view pbView(const PBBlock* block) {
  return {reinterpret_cast<const char*>(block->bytes), block->length};
}

/// A block of the pools with a copy of the bytes.
PBBlock* pbCopyBytes(const void* bytes, size_t length);
/// A block of the pools for bytes of `whole`, of which it takes over one counted reference.
PBBlock* pbSliceBytes(PBBlock* whole, const uint8_t* bytes, size_t length);
/// The shared empty string, with one more reference counted.
PBBlock* pbEmptyString();

}  // namespace nvxcore
