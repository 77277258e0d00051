#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Runs of varints, without a branch for each width: which bytes end a varint is found for 64 of them at a
// time, and each value is then cut out of a word of eight bytes.

namespace nvxcore {

/// Bytes that may be read from where a window of 64 begins.
inline constexpr ptrdiff_t kPBWindow = 64;
inline constexpr ptrdiff_t kPBWindowReads = 72;

/// Bit n: byte n ends a varint.
inline uint64_t pbTerminators(const uint8_t* p) {
#if defined(__SSE2__)
  uint64_t continued = 0;
  for (int i = 0; i < 4; ++i) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * i));
    continued |= static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(bytes))) << (16 * i);
  }
  return ~continued;
#else
  uint64_t terminators = 0;
  for (int i = 0; i < 64; ++i) terminators |= static_cast<uint64_t>(p[i] < 0x80) << i;
  return terminators;
#endif
}

/// Bit n: byte n of 32 has its highest bit.
inline uint32_t pbContinued32(const uint8_t* p) {
#if defined(__SSE2__)
  const auto half = [](const uint8_t* from) {
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from))));
  };
  return half(p) | half(p + 16) << 16;
#else
  uint32_t continued = 0;
  for (int i = 0; i < 32; ++i) continued |= static_cast<uint32_t>(p[i] >= 0x80) << i;
  return continued;
#endif
}

/// Bytes that end a varint.
inline uint64_t pbCountVarints(const uint8_t* p, const uint8_t* end) {
  uint64_t count = 0;
#if defined(__SSE2__)
  __m128i sums = _mm_setzero_si128();
  const __m128i ones = _mm_set1_epi8(-1);
  for (; end - p >= 16; p += 16) {
    // -1 in each byte that ends one.
    const __m128i ending = _mm_cmpgt_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), ones);
    sums = _mm_add_epi64(sums, _mm_sad_epu8(_mm_sub_epi8(_mm_setzero_si128(), ending), _mm_setzero_si128()));
  }
  uint64_t halves[2];
  std::memcpy(halves, &sums, sizeof halves);
  count = halves[0] + halves[1];
#endif
  for (; p < end; ++p) count += *p < 0x80;
  return count;
}

/// The value of a word that has seven bits of it in each byte.
inline uint64_t pbSqueezed(uint64_t word) {
  word = (word & 0x007F007F007F007F) | (word & 0x7F007F007F007F00) >> 1;
  word = (word & 0x00003FFF00003FFF) | (word & 0x3FFF00003FFF0000) >> 2;
  return (word & 0x0FFFFFFF) | (word & 0x0FFFFFFF00000000) >> 4;
}

/// The value of `length` bytes, 1 to 8, of which eight may be read.
inline uint64_t pbCutVarint(const uint8_t* p, uint32_t length) {
  uint64_t word;
  std::memcpy(&word, p, 8);
  return pbSqueezed(word & 0x7F7F7F7F7F7F7F7FU >> (64 - 8 * length));
}

/// The value of 1 to 10 bytes; false for a longer one.
inline bool pbVarintOf(const uint8_t* p, uint32_t length, uint64_t& value) {
  if (length <= 8) [[likely]] {
    value = pbCutVarint(p, length);
    return true;
  }
  if (length > 10) return false;
  value = pbCutVarint(p, 8) | (p[8] & uint64_t{0x7F}) << 56;
  if (length == 10) value |= static_cast<uint64_t>(p[9]) << 63;
  return true;
}

/// A varint of more than one byte, of which ten may be read; false when it is longer.
inline bool pbWideVarint(const uint8_t*& p, uint64_t& value) {
  uint64_t word;
  std::memcpy(&word, p, 8);
  const uint64_t stops = ~word & 0x8080808080808080;
  if (stops) [[likely]] {
    value = pbSqueezed(word & (stops ^ (stops - 1)) & 0x7F7F7F7F7F7F7F7F);
    p += (static_cast<uint32_t>(std::countr_zero(stops)) + 1) >> 3;
    return true;
  }
  value = pbSqueezed(word & 0x7F7F7F7F7F7F7F7F) | uint64_t{p[8] & 0x7FU} << 56;
  if (p[8] < 0x80) {
    p += 9;
    return true;
  }
  value |= uint64_t{p[9]} << 63;
  p += 10;
  return p[-1] < 0x80;
}

/// Writes a varint of up to 56 bits where eight bytes may be written; answers the end.
inline uint8_t* pbPutVarint(uint8_t* p, uint64_t value) {
  const auto bits = static_cast<uint32_t>(std::bit_width(value | 1));
  const uint32_t length = (bits * 9 + 64) / 64;
  uint64_t word = value;
  word = (word & 0x0FFFFFFF) | (word & 0x00FFFFFFF0000000) << 4;
  word = (word & 0x00003FFF00003FFF) | (word & 0x0FFFC0000FFFC000) << 2;
  word = (word & 0x007F007F007F007F) | (word & 0x3F803F803F803F80) << 1;
  word |= 0x8080808080808080U & ((uint64_t{1} << (8 * (length - 1))) - 1);
  std::memcpy(p, &word, 8);
  return p + length;
}

/// Bytes that 32-bit values take as varints; a negative one counts as `negative`, 5 or 10.
inline uint64_t pbVarintsSize(const uint32_t* values, size_t count, uint32_t negative) {
  typedef int32_t Four __attribute__((vector_size(16)));
  uint64_t total = count;
  size_t i = 0;
  // Partial sums of 32 bits can't overflow within a stretch of this length.
  while (i + 4 <= count) {
    const size_t stretch = std::min<size_t>((count - i) / 4, size_t{1} << 24);
    Four sums = {0, 0, 0, 0};
    const auto beyond = static_cast<int32_t>(negative - 1);
    for (size_t k = 0; k < stretch; ++k, i += 4) {
      Four v;
      std::memcpy(&v, values + i, sizeof v);
      // A comparison is -1 where it holds.
      sums -= (v > 0x7F) + (v > 0x3FFF) + (v > 0x1FFFFF) + (v > 0xFFFFFFF);
      sums += (v < 0) & beyond;
    }
    for (int k = 0; k < 4; ++k) total += static_cast<uint32_t>(sums[k]);
  }
  for (; i < count; ++i) {
    const auto v = static_cast<int32_t>(values[i]);
    total += v < 0 ? negative - 1
                   : static_cast<uint32_t>((v > 0x7F) + (v > 0x3FFF) + (v > 0x1FFFFF) + (v > 0xFFFFFFF));
  }
  return total;
}

}  // namespace nvxcore
