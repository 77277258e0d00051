#include "nvxcore/message/internal/PBBytes.h"

#include <cstring>
#include <new>

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

}  // namespace nvxcore
