#pragma once

#include <utility>

#include "nvxcore/platform/Data.h"

namespace nvxcore {

/// The body of a reply as it comes in. One piece is kept as it came; more are put together.
class DownloadBuffer {
 public:
  void append(const Data& piece) {
    if (empty()) {
      _whole = piece;
      return;
    }
    if (_whole) {
      _bytes.append(_whole.view());
      _whole = Data();
    }
    _bytes.append(piece.view());
  }
  void assign(Data data) {
    clear();
    _whole = std::move(data);
  }
  void clear() {
    _whole = Data();
    _bytes = MutableData();
  }
  bool empty() const { return length() == 0; }
  size_t length() const { return _whole ? _whole.length() : _bytes.length(); }
  /// All bytes so far; nothing when there are none.
  Data data() {
    if (!_whole && !_bytes.empty()) _whole = Data::take(std::move(_bytes));
    return empty() ? Data() : _whole;
  }

 private:
  Data _whole;
  MutableData _bytes;
};

}  // namespace nvxcore
