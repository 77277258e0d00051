#include "nvxcore/platform/Data.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "nvxcore/platform/internal/BlockPool.h"
#include "nvxcore/platform/internal/DataBlock.h"

namespace nvxcore {

namespace {

const uint8_t kNoBytes[1] = {0};

template <class B>
B* makeBlock() {
  return ::new (BlockPool::allocate(sizeof(B))) B;
}

template <class B>
void endBlock(B* block) {
  std::destroy_at(block);
  BlockPool::free(block, sizeof(B));
}

}  // namespace

struct Data::Slice : Data::Block {
  static void end(Block* dead) { endBlock(static_cast<Slice*>(dead)); }
  Data whole;
};

Data::Data(const Data& other) : _block(other._block) {
  if (_block) _block->references.fetch_add(1, std::memory_order_relaxed);
}

Data& Data::operator=(const Data& other) {
  Data copy(other);
  std::swap(_block, copy._block);
  return *this;
}

Data& Data::operator=(Data&& other) noexcept {
  std::swap(_block, other._block);
  return *this;
}

Data::~Data() {
  if (_block) drop(_block);
}

void Data::drop(Block* block) noexcept {
  // Whoever holds the only reference is alone with it, and needs no atomic subtraction.
  if (block->references.load(std::memory_order_acquire) == 1 ||
      block->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    block->destroy(block);
  }
}

Data Data::copy(const void* bytes, size_t length) {
  if (length > SIZE_MAX - sizeof(Block)) throw std::bad_alloc();
  void* memory = BlockPool::allocate(sizeof(Block) + length);
  auto* block = ::new (memory) Block;
  auto* contents = static_cast<uint8_t*>(memory) + sizeof(Block);
  if (length) std::memcpy(contents, bytes, length);
  block->bytes = contents;
  block->length = length;
  block->destroy = [](Block* dead) {
    const size_t size = sizeof(Block) + dead->length;
    dead->~Block();
    BlockPool::free(dead, size);
  };
  return Data(block);
}

Data Data::take(MutableData&& bytes) {
  Block* block = makeBlock<Block>();
  block->length = std::exchange(bytes._length, 0);
  bytes._capacity = 0;
  block->bytes = std::exchange(bytes._bytes, nullptr);
  if (!block->bytes) block->bytes = kNoBytes;
  block->destroy = [](Block* dead) {
    if (dead->bytes != kNoBytes) std::free(const_cast<uint8_t*>(dead->bytes));
    endBlock(dead);
  };
  return Data(block);
}

Data Data::wrap(const void* bytes, size_t length, std::function<void()> release) {
  struct Wrapper : Block {
    std::function<void()> release;
  };
  auto block = std::make_unique<Wrapper>();
  block->bytes = static_cast<const uint8_t*>(bytes);
  block->length = length;
  block->release = std::move(release);
  block->destroy = [](Block* dead) {
    std::unique_ptr<Wrapper> wrapper(static_cast<Wrapper*>(dead));
    if (wrapper->release) wrapper->release();
  };
  return Data(block.release());
}

const uint8_t* Data::bytes() const { return _block ? _block->bytes : kNoBytes; }

size_t Data::length() const { return _block ? _block->length : 0; }

Data Data::slice(size_t offset, size_t count) const {
  if (!_block) return {};
  offset = std::min(offset, _block->length);
  count = std::min(count, _block->length - offset);
  if (count == _block->length) return *this;
  Slice* block = makeBlock<Slice>();
  block->bytes = _block->bytes + offset;
  block->length = count;
  // A slice of a slice holds the buffer itself, or their chain would be destroyed link within link.
  block->whole = _block->destroy == &Slice::end ? static_cast<Slice*>(_block)->whole : *this;
  block->destroy = &Slice::end;
  return Data(block);
}

Data Data::compacted() const { return _block ? copy(bytes(), length()) : Data(); }

bool operator==(const Data& a, const Data& b) {
  if (a._block == b._block) return true;
  return a._block && b._block && a.view() == b.view();
}

MutableData::MutableData(const MutableData& other) { append(other._bytes, other._length); }

MutableData& MutableData::operator=(MutableData other) noexcept {
  std::swap(_bytes, other._bytes);
  std::swap(_length, other._length);
  std::swap(_capacity, other._capacity);
  return *this;
}

MutableData::~MutableData() { std::free(_bytes); }

void MutableData::reserve(size_t capacity) {
  if (capacity <= _capacity) return;
  void* memory = std::realloc(_bytes, capacity);
  if (!memory) throw std::bad_alloc();
  _bytes = static_cast<uint8_t*>(memory);
  _capacity = capacity;
}

void MutableData::shrinkToFit() noexcept {
  if (_length == _capacity || _length == 0) return;
  void* memory = std::realloc(_bytes, _length);
  if (!memory) return;
  _bytes = static_cast<uint8_t*>(memory);
  _capacity = _length;
}

void MutableData::grow(size_t needed) {
  if (needed < _length) throw std::bad_alloc();  // The sum has wrapped.
  const size_t doubled = _capacity > SIZE_MAX / 2 ? SIZE_MAX : _capacity * 2;
  reserve(std::max({needed, doubled, size_t{64}}));
}

void MutableData::append(const void* bytes, size_t length) {
  if (!length) return;
  const auto* source = static_cast<const uint8_t*>(bytes);
  const std::less<const uint8_t*> before;
  if (_capacity - _length < length && !before(source, _bytes) && before(source, _bytes + _length)) {
    // Its own bytes, which move as it grows.
    const auto offset = static_cast<size_t>(source - _bytes);
    grow(_length + length);
    source = _bytes + offset;
  }
  std::memcpy(extend(length), source, length);
}

uint8_t* MutableData::extend(size_t length) {
  if (_capacity - _length < length) grow(_length + length);
  uint8_t* end = _bytes + _length;
  _length += length;
  return end;
}

void MutableData::setLength(size_t length) {
  if (length > _length) {
    extend(length - _length);
  } else {
    _length = length;
  }
}

}  // namespace nvxcore
