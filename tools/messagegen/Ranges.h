#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <vector>

#include "tools/messagegen/Model.h"

namespace nvxcore::messagegen {

/// Finds a number in ranges that do not overlap.
class Ranges {
 public:
  explicit Ranges(const std::vector<Range>& ranges) {
    for (const Range& range : ranges) {
      int64_t& last = _lastByFirst.emplace(range.first, range.last).first->second;
      last = std::max(last, range.last);
    }
  }
  bool holds(int64_t number) const {
    // Only the last that starts at or below the number can hold it.
    const auto above = _lastByFirst.upper_bound(number);
    return above != _lastByFirst.begin() && std::prev(above)->second >= number;
  }

 private:
  std::map<int64_t, int64_t> _lastByFirst;
};

}  // namespace nvxcore::messagegen
