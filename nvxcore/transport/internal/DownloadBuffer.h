#pragma once

#include <utility>

#include "nvxcore/platform/Data.h"

namespace nvxcore {

/// The body of a reply as it comes in: nothing at first, no bytes once it has begun. One piece is kept as it
/// came; more are put together.
class DownloadBuffer {
 public:
  /// Has no bytes from now on, instead of nothing.
  void begin() { assign(Data::copy("", 0)); }
  void append(const Data& piece) {
    if (empty()) return assign(piece);
    if (_whole) {
      _bytes.append(_whole.view());
      _whole = Data();
    }
    _bytes.append(piece.view());
  }
  void assign(Data data) {
    _whole = std::move(data);
    _bytes = MutableData();
  }
  bool empty() const { return length() == 0; }
  size_t length() const { return _whole ? _whole.length() : _bytes.length(); }
  /// All bytes so far.
  Data data() {
    if (!_whole && !_bytes.empty()) _whole = Data::take(std::move(_bytes));
    return _whole;
  }

 private:
  Data _whole;
  MutableData _bytes;
};

}  // namespace nvxcore
