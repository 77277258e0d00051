#pragma once

#include <cstdint>
#include <string>

/// Writing the few forms of the wire that stand in tables.
namespace nvxcore::messagegen {

inline void appendVarint(uint64_t value, std::string& to) {
  for (; value >= 0x80; value >>= 7) to += static_cast<char>(value | 0x80);
  to += static_cast<char>(value);
}

inline void appendTag(int64_t number, unsigned wireType, std::string& to) {
  appendVarint(static_cast<uint64_t>(number) << 3 | wireType, to);
}

inline void appendLittleEndian(uint64_t value, unsigned bytes, std::string& to) {
  for (unsigned i = 0; i < bytes; ++i) to += static_cast<char>(value >> (8 * i));
}

inline uint64_t zigZag(int64_t value) {
  return static_cast<uint64_t>(value) << 1 ^ static_cast<uint64_t>(value >> 63);
}

}  // namespace nvxcore::messagegen
