#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace nvxcore::fuzzing {

/// Ends the process with what did not hold, so that the fuzzer keeps the input.
#define NVX_MUST_HOLD(condition)                                                          \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (false)

/// The input as lines, which corpora show readably.
class Lines {
 public:
  Lines(const uint8_t* data, size_t size) : _rest(reinterpret_cast<const char*>(data), size) {}
  bool atEnd() const { return _rest.empty(); }
  /// Up to the next line feed, which goes; the rest when there is none.
  std::string_view next() {
    const size_t end = _rest.find('\n');
    const std::string_view line = _rest.substr(0, end);
    _rest.remove_prefix(end == std::string_view::npos ? _rest.size() : end + 1);
    return line;
  }

 private:
  std::string_view _rest;
};

}  // namespace nvxcore::fuzzing
