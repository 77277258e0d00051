#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "nvxcore/platform/Data.h"

namespace nvxcore {

/// What a Data handle points to. The bytes lie behind it, in a buffer that was taken over, in another block,
/// or elsewhere. `destroy` is called with the last reference still counted or just gone.
struct Data::Block {
  std::atomic<uint32_t> references{1};
  uint32_t extra = 0;  // whoever made the block may keep something here
  const uint8_t* bytes = nullptr;
  size_t length = 0;
  void (*destroy)(Block*) = nullptr;
};

/// Handles from blocks and back, for those who lay blocks out themselves.
struct DataAccess {
  using Block = Data::Block;
  static Block* block(const Data& data) { return data._block; }
  static Block* take(Data&& data) { return std::exchange(data._block, nullptr); }
  /// Takes over a counted reference.
  static Data adopt(Block* block) { return Data(block); }
  static Data share(Block* block) {
    if (block) block->references.fetch_add(1, std::memory_order_relaxed);
    return Data(block);
  }
  static void drop(Block* block) noexcept { Data::drop(block); }
};

}  // namespace nvxcore
