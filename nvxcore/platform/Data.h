#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

class MutableData;

/// An immutable, shared byte buffer: a handle of 8 bytes that is cheap to copy and to slice. A handle can
/// hold nothing, which is not the same as holding no bytes. Handles to one buffer may be used on several
/// threads.
class NVXCORE_EXPORT Data {
 public:
  /// Nothing.
  Data() = default;
  Data(const Data& other);
  Data(Data&& other) noexcept : _block(std::exchange(other._block, nullptr)) {}
  Data& operator=(const Data& other);
  Data& operator=(Data&& other) noexcept;
  ~Data();

  static Data copy(const void* bytes, size_t length);
  static Data copy(std::string_view bytes) { return copy(bytes.data(), bytes.size()); }
  /// Takes the buffer over without copying it.
  static Data take(MutableData&& bytes);
  /// Refers to `bytes`, which stay as they are until `release` is called, on whichever thread drops the last
  /// handle.
  static Data wrap(const void* bytes, size_t length, std::function<void()> release);

  /// True when the handle holds a buffer, also an empty one.
  explicit operator bool() const { return _block != nullptr; }
  const uint8_t* bytes() const;
  size_t length() const;
  bool empty() const { return length() == 0; }
  std::string_view view() const { return {reinterpret_cast<const char*>(bytes()), length()}; }
  std::string string() const { return std::string(view()); }

  /// A part that shares the bytes and keeps the whole buffer alive; cut to what is there. Nothing of nothing.
  Data slice(size_t offset, size_t count) const;
  /// The same bytes in a buffer of their own size: for what is kept long.
  Data compacted() const;

  /// Equal bytes. Nothing equals nothing only.
  friend NVXCORE_EXPORT bool operator==(const Data& a, const Data& b);

 private:
  friend struct DataAccess;
  struct Block;
  struct Slice;
  explicit Data(Block* block) : _block(block) {}
  static void drop(Block* block) noexcept;
  Block* _block = nullptr;
};

/// A growable byte buffer. Its new bytes are not cleared. One thread at a time.
class NVXCORE_EXPORT MutableData {
 public:
  MutableData() = default;
  /// Room for `capacity` bytes, of which none is in use.
  explicit MutableData(size_t capacity) { reserve(capacity); }
  MutableData(const MutableData& other);
  MutableData(MutableData&& other) noexcept
      : _bytes(std::exchange(other._bytes, nullptr)),
        _length(std::exchange(other._length, 0)),
        _capacity(std::exchange(other._capacity, 0)) {}
  MutableData& operator=(MutableData other) noexcept;
  ~MutableData();

  uint8_t* bytes() { return _bytes; }
  const uint8_t* bytes() const { return _bytes; }
  size_t length() const { return _length; }
  size_t capacity() const { return _capacity; }
  bool empty() const { return _length == 0; }
  std::string_view view() const { return {reinterpret_cast<const char*>(_bytes), _length}; }

  /// Throws std::bad_alloc where there is no room, with nothing changed.
  void reserve(size_t capacity);
  /// The bytes may be its own.
  void append(const void* bytes, size_t length);
  void append(std::string_view bytes) { append(bytes.data(), bytes.size()); }
  /// Adds `length` bytes that are not set, and answers where they begin.
  uint8_t* extend(size_t length);
  void setLength(size_t length);
  /// Gives room that is not in use back, where that can be done.
  void shrinkToFit() noexcept;
  void clear() { _length = 0; }

 private:
  friend class Data;
  void grow(size_t needed);
  uint8_t* _bytes = nullptr;
  size_t _length = 0;
  size_t _capacity = 0;
};

}  // namespace nvxcore
