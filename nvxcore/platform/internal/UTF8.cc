#include "nvxcore/platform/internal/UTF8.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nvxcore {

namespace {

inline bool isASCII32(const uint8_t* p) {
#if defined(__SSE2__)
  const auto half = [](const uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  };
  return _mm_movemask_epi8(_mm_or_si128(half(p), half(p + 16))) == 0;
#else
  uint64_t words[4];
  std::memcpy(words, p, sizeof words);
  return ((words[0] | words[1] | words[2] | words[3]) & 0x8080808080808080) == 0;
#endif
}

}  // namespace

bool isUTF8(const uint8_t* bytes, size_t length) {
  const uint8_t* p = bytes;
  const uint8_t* end = bytes + length;
  // ASCII, which is most: 32 bytes at a time, the last ones once more with some before them.
  while (end - p >= 32 && isASCII32(p)) p += 32;
  if (end - p < 32 && length >= 32 && isASCII32(end - 32)) return true;
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
