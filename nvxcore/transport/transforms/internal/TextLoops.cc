#include "nvxcore/transport/transforms/internal/TextLoops.h"

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define NVX_HTK_WIDE __attribute__((target("avx2")))
#endif

namespace nvxcore {

#if defined(__x86_64__)

namespace {

bool isWide() {
  static const bool wide = __builtin_cpu_supports("avx2");
  return wide;
}

NVX_HTK_WIDE inline __m256i sixteen(const uint8_t* bytes) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
}

NVX_HTK_WIDE void encodeSixBitsWide(const uint8_t*& in, const uint8_t* end, const uint8_t* alphabet,
                                    char*& out) {
  // Bytes a, b, c become the number a << 16 | b << 8 | c.
  const __m256i gather =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1));
  const __m256i quarter0 = sixteen(alphabet), quarter1 = sixteen(alphabet + 16);
  const __m256i quarter2 = sixteen(alphabet + 32), quarter3 = sixteen(alphabet + 48);
  const __m256i mask0 = _mm256_set1_epi32(0x3F), mask1 = _mm256_set1_epi32(0x3F00);
  const __m256i mask2 = _mm256_set1_epi32(0x3F0000), mask3 = _mm256_set1_epi32(0x3F000000);
  const uint8_t* p = in;
  char* to = out;
  // 24 bytes a turn, of 28 that are read.
  for (; end - p >= 28; p += 24, to += 32) {
    const __m256i bytes =
        _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))),
                                _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12)), 1);
    const __m256i words = _mm256_shuffle_epi8(bytes, gather);
    const __m256i values =
        _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(words, 18), mask0),
                                        _mm256_and_si256(_mm256_srli_epi32(words, 4), mask1)),
                        _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(words, 10), mask2),
                                        _mm256_and_si256(_mm256_slli_epi32(words, 24), mask3)));
    // The highest bit of a byte chooses: it is given bit 4 of the value, then bit 5.
    const __m256i bit4 = _mm256_slli_epi32(values, 3), bit5 = _mm256_slli_epi32(values, 2);
    const __m256i low = _mm256_blendv_epi8(_mm256_shuffle_epi8(quarter0, values),
                                           _mm256_shuffle_epi8(quarter1, values), bit4);
    const __m256i high = _mm256_blendv_epi8(_mm256_shuffle_epi8(quarter2, values),
                                            _mm256_shuffle_epi8(quarter3, values), bit4);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_blendv_epi8(low, high, bit5));
  }
  in = p;
  out = to;
}

NVX_HTK_WIDE void encodeFourBitsWide(const uint8_t*& in, const uint8_t* end, const uint8_t* alphabet,
                                     char*& out) {
  const __m256i characters = sixteen(alphabet), mask = _mm256_set1_epi8(0x0F);
  const uint8_t* p = in;
  char* to = out;
  for (; end - p >= 16; p += 16, to += 32) {
    const __m256i words = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    const __m256i values =
        _mm256_and_si256(_mm256_or_si256(_mm256_srli_epi16(words, 4), _mm256_slli_epi16(words, 8)), mask);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_shuffle_epi8(characters, values));
  }
  in = p;
  out = to;
}

}  // namespace

#endif

void htkEncodeSixBits(const uint8_t*& in, const uint8_t* end, const uint8_t* alphabet, char*& out) {
#if defined(__x86_64__)
  if (end - in >= 28 && isWide()) encodeSixBitsWide(in, end, alphabet, out);
#endif
  const uint8_t* p = in;
  char* to = out;
  for (; end - p >= 3; p += 3, to += 4) {
    const uint32_t word = static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
    to[0] = static_cast<char>(alphabet[word >> 18]);
    to[1] = static_cast<char>(alphabet[word >> 12 & 0x3F]);
    to[2] = static_cast<char>(alphabet[word >> 6 & 0x3F]);
    to[3] = static_cast<char>(alphabet[word & 0x3F]);
  }
  in = p;
  out = to;
}

void htkEncodeFourBits(const uint8_t*& in, const uint8_t* end, const uint8_t* alphabet, char*& out) {
#if defined(__x86_64__)
  if (end - in >= 16 && isWide()) encodeFourBitsWide(in, end, alphabet, out);
#endif
  const uint8_t* p = in;
  char* to = out;
  for (; p != end; ++p, to += 2) {
    to[0] = static_cast<char>(alphabet[*p >> 4]);
    to[1] = static_cast<char>(alphabet[*p & 0xF]);
  }
  in = p;
  out = to;
}

void htkDecodeSixBits(const uint8_t*& in, const uint8_t* end, const int32_t* values, uint8_t*& out) {
  const uint8_t* p = in;
  uint8_t* to = out;
  for (; end - p >= 4; p += 4, to += 3) {
    const int32_t a = values[p[0]], b = values[p[1]], c = values[p[2]], d = values[p[3]];
    if ((a | b | c | d) < 0) break;
    const int32_t word = a << 18 | b << 12 | c << 6 | d;
    to[0] = static_cast<uint8_t>(word >> 16);
    to[1] = static_cast<uint8_t>(word >> 8);
    to[2] = static_cast<uint8_t>(word);
  }
  in = p;
  out = to;
}

void htkDecodeFourBits(const uint8_t*& in, const uint8_t* end, const int32_t* values, uint8_t*& out) {
  const uint8_t* p = in;
  uint8_t* to = out;
  const auto byteAt = [&](size_t i) { return values[p[i]] << 4 | values[p[i + 1]]; };
  for (; end - p >= 8; p += 8, to += 4) {
    const int32_t a = byteAt(0), b = byteAt(2), c = byteAt(4), d = byteAt(6);
    if ((a | b | c | d) < 0) break;
    to[0] = static_cast<uint8_t>(a);
    to[1] = static_cast<uint8_t>(b);
    to[2] = static_cast<uint8_t>(c);
    to[3] = static_cast<uint8_t>(d);
  }
  for (; end - p >= 2; p += 2, ++to) {
    const int32_t byte = byteAt(0);
    if (byte < 0) break;
    *to = static_cast<uint8_t>(byte);
  }
  in = p;
  out = to;
}

bool htkIsASCII(std::string_view text) {
  constexpr uint64_t kHighBits = 0x8080808080808080;
  uint64_t all = 0;
  size_t at = 0;
  for (uint64_t words[4]; text.size() - at >= sizeof words; at += sizeof words) {
    std::memcpy(words, text.data() + at, sizeof words);
    all |= (words[0] | words[1]) | (words[2] | words[3]);
  }
  for (; at < text.size(); ++at) all |= static_cast<uint8_t>(text[at]);
  return (all & kHighBits) == 0;
}

}  // namespace nvxcore
