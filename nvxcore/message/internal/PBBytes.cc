#include "nvxcore/message/internal/PBBytes.h"

#include <cstring>
#include <new>

#include "nvxcore/message/internal/PBVarints.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

namespace {

struct Slice : PBBlock {
  PBBlock* whole;
};

void endCopy(PBBlock* block) {
  const size_t size = sizeof(PBBlock) + block->length;
  block->~Block();
  BlockPool::free(block, size);
}

void endSlice(PBBlock* block) {
  auto* slice = static_cast<Slice*>(block);
  PBBlock* whole = slice->whole;
  slice->~Slice();
  BlockPool::free(slice, sizeof(Slice));
  DataAccess::drop(whole);
}

}  // namespace

PBBlock* pbCopyBytes(const void* bytes, size_t length) {
  auto* block = ::new (BlockPool::allocate(sizeof(PBBlock) + length)) PBBlock;
  auto* contents = reinterpret_cast<uint8_t*>(block + 1);
  if (length) pbCopy(contents, static_cast<const uint8_t*>(bytes), length);
  block->bytes = contents;
  block->length = length;
  block->destroy = &endCopy;
  return block;
}

PBBlock* pbSliceBytes(PBBlock* whole, const uint8_t* bytes, size_t length) {
  auto* slice = ::new (BlockPool::allocate(sizeof(Slice))) Slice;
  slice->bytes = bytes;
  slice->length = length;
  slice->destroy = &endSlice;
  slice->whole = whole;
  return slice;
}

PBBlock* pbEmptyString() {
  static const uint8_t kNoBytes[1] = {0};
  // Its first reference is never given back.
  static constinit PBBlock empty{.bytes = kNoBytes, .length = 0, .destroy = nullptr};
  empty.references.fetch_add(1, std::memory_order_relaxed);
  return &empty;
}

bool pbIsUTF8(const uint8_t* bytes, size_t length) {
  const uint8_t* p = bytes;
  const uint8_t* end = bytes + length;
  // ASCII, which is most: 32 bytes at a time, the last ones once more with some before them.
  while (end - p >= 32 && !pbContinued32(p)) p += 32;
  if (end - p < 32 && length >= 32 && !pbContinued32(end - 32)) return true;
  while (end - p >= 8) {
    uint64_t word;
    std::memcpy(&word, p, 8);
    if (word & 0x8080808080808080) break;
    p += 8;
  }
  while (p < end) {
    const uint8_t first = *p;
    if (first < 0x80) {
      ++p;
      continue;
    }
    const auto left = static_cast<size_t>(end - p);
    const auto follows = [&](size_t i) { return (p[i] & 0xC0) == 0x80; };
    if (first >= 0xC2 && first <= 0xDF) {
      if (left < 2 || !follows(1)) return false;
      p += 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
      if (left < 3 || !follows(1) || !follows(2)) return false;
      if (first == 0xE0 && p[1] < 0xA0) return false;
      if (first == 0xED && p[1] >= 0xA0) return false;
      p += 3;
    } else if (first >= 0xF0 && first <= 0xF4) {
      if (left < 4 || !follows(1) || !follows(2) || !follows(3)) return false;
      if (first == 0xF0 && p[1] < 0x90) return false;
      if (first == 0xF4 && p[1] >= 0x90) return false;
      p += 4;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace nvxcore
