#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>

#include "nvxcore/platform/Data.h"

namespace nvxcore {

/// Bytes on their way from a transfer to whoever takes them, in pieces that are taken without a copy. One
/// thread at a time.
class BodyBuffer {
 public:
  /// What may wait here, and what may before it is known whether the body is wanted at all.
  static constexpr size_t kLimit = 1 << 20;
  static constexpr size_t kUnansweredLimit = 64 << 10;

  /// Bytes that were added and not yet returned to `taken`.
  size_t waiting() const { return _waiting; }
  bool empty() const { return _pieces.empty(); }

  /// False, with nothing added, when more than `limit` bytes would wait.
  bool add(const char* bytes, size_t length, size_t limit) {
    if (_waiting && _waiting + length > limit) return false;
    if (_pieces.empty() || _pieces.back().capacity() - _pieces.back().length() < length) {
      // The first piece is often the only one; what piles up is put together.
      _pieces.emplace_back(_pieces.empty() ? length : std::max(length, kPiece));
    }
    _pieces.back().append(bytes, length);
    _waiting += length;
    return true;
  }

  /// The first piece. Its bytes count as waiting until `taken` is told of them.
  Data take() {
    Data piece = Data::take(std::move(_pieces.front()));
    _pieces.pop_front();
    return piece;
  }
  void taken(size_t length) { _waiting -= length; }

  void clear() {
    for (const MutableData& piece : _pieces) _waiting -= piece.length();
    _pieces.clear();
  }

 private:
  static constexpr size_t kPiece = 64 << 10;

  std::deque<MutableData> _pieces;
  size_t _waiting = 0;
};

}  // namespace nvxcore
