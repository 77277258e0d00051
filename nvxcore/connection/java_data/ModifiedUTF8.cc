#include "nvxcore/connection/java_data/ModifiedUTF8.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nvxcore::utils {

namespace {

bool isContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

/// Copies bytes from the start while they are below 0x80, in blocks; may stop early, never late. Text is
/// mostly ASCII.
size_t copyASCIIBlocks(const uint8_t* from, size_t count, uint8_t* to) {
  size_t done = 0;
#if defined(__SSE2__)
  for (; count - done >= 16; done += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + done));
    if (_mm_movemask_epi8(block)) return done;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + done), block);
  }
#endif
  for (; count - done >= 8; done += 8) {
    uint64_t block;
    std::memcpy(&block, from + done, 8);
    if (block & 0x8080808080808080u) return done;
    std::memcpy(to + done, &block, 8);
  }
  return done;
}

/// As `copyASCIIBlocks`, and stops at zero bytes too.
size_t copyNonZeroASCIIBlocks(const uint8_t* from, size_t count, uint8_t* to) {
  size_t done = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (; count - done >= 16; done += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + done));
    // Signed: exactly the bytes 0x01 to 0x7F are above zero.
    if (_mm_movemask_epi8(_mm_cmpgt_epi8(block, zero)) != 0xFFFF) return done;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + done), block);
  }
#endif
  for (; count - done >= 8; done += 8) {
    uint64_t block;
    std::memcpy(&block, from + done, 8);
    if (((block - 0x0101010101010101u) | block) & 0x8080808080808080u) return done;
    std::memcpy(to + done, &block, 8);
  }
  return done;
}

/// Length of the well-formed UTF-8 sequence at the start of `bytes` (RFC 3629, 4), or 0 when there is none.
size_t sequenceLength(const uint8_t* bytes, size_t left) {
  const uint8_t lead = bytes[0];
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  if (lead < 0xE0) return left >= 2 && isContinuation(bytes[1]) ? 2 : 0;
  if (left < 3 || !isContinuation(bytes[1]) || !isContinuation(bytes[2])) return 0;
  if (lead < 0xF0) {
    if (lead == 0xE0 && bytes[1] < 0xA0) return 0;
    if (lead == 0xED && bytes[1] > 0x9F) return 0;
    return 3;
  }
  if (left < 4 || !isContinuation(bytes[3])) return 0;
  if (lead == 0xF0 && bytes[1] < 0x90) return 0;
  if (lead == 0xF4 && bytes[1] > 0x8F) return 0;
  return 4;
}

uint8_t* write3(uint32_t unit, uint8_t* to) {
  to[0] = static_cast<uint8_t>(0xE0 | (unit >> 12));
  to[1] = static_cast<uint8_t>(0x80 | ((unit >> 6) & 0x3F));
  to[2] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
  return to + 3;
}

uint32_t unit3(const uint8_t* bytes) {
  return (static_cast<uint32_t>(bytes[0] & 0x0F) << 12) | (static_cast<uint32_t>(bytes[1] & 0x3F) << 6) |
         (bytes[2] & 0x3Fu);
}

}  // namespace

size_t convertModifiedUTF8(const uint8_t* bytes, size_t byteCount, char* destination) {
  const uint8_t* from = bytes;
  const uint8_t* const end = bytes + byteCount;
  auto* const start = reinterpret_cast<uint8_t*>(destination);
  uint8_t* to = start;
  while (from < end) {
    const uint8_t lead = *from;
    if (lead < 0xC0) {
      if (lead < 0x80) {
        const size_t copied = copyASCIIBlocks(from, static_cast<size_t>(end - from), to);
        from += copied;
        to += copied;
        // The rest of a block that is not all ASCII.
        while (from < end && *from < 0x80) *to++ = *from++;
      } else {
        *to++ = *from++;
      }
      continue;
    }
    const size_t left = static_cast<size_t>(end - from);
    if (lead < 0xE0) {
      if (left < 2 || !isContinuation(from[1])) return kBadModifiedUTF8;
      if (lead == 0xC0 && from[1] == 0x80) {
        *to++ = 0;
      } else {
        to[0] = lead;
        to[1] = from[1];
        to += 2;
      }
      from += 2;
      continue;
    }
    if (lead >= 0xF0 || left < 3 || !isContinuation(from[2]) || !isContinuation(from[1]))
      return kBadModifiedUTF8;
    const uint32_t unit = unit3(from);
    if (unit < 0xD800 || unit > 0xDFFF) {
      to[0] = from[0];
      to[1] = from[1];
      to[2] = from[2];
      to += 3;
      from += 3;
      continue;
    }
    if (unit > 0xDBFF) return kBadModifiedUTF8;
    if (left < 6 || !isContinuation(from[5]) || !isContinuation(from[4]) || (from[3] & 0xF0) != 0xE0) {
      return kBadModifiedUTF8;
    }
    const uint32_t low = unit3(from + 3);
    if (low < 0xDC00 || low > 0xDFFF) return kBadModifiedUTF8;
    const uint32_t codePoint = ((unit << 10) + low) - 56613888u;
    to[0] = static_cast<uint8_t>(0xF0 | ((codePoint >> 18) & 7));
    to[1] = static_cast<uint8_t>(0x80 | ((codePoint >> 12) & 0x3F));
    to[2] = static_cast<uint8_t>(0x80 | ((codePoint >> 6) & 0x3F));
    to[3] = static_cast<uint8_t>(0x80 | (codePoint & 0x3F));
    to += 4;
    from += 6;
  }
  return static_cast<size_t>(to - start);
}

size_t modifiedUTF8Length(const uint8_t* bytes, size_t byteCount) {
  size_t length = 0;
  for (size_t at = 0; at < byteCount;) {
    const size_t sequence = sequenceLength(bytes + at, byteCount - at);
    if (sequence == 1) {
      length += bytes[at] ? 1 : 2;
    } else if (sequence == 0) {
      length += 3;
    } else {
      length += sequence == 4 ? 6 : sequence;
    }
    at += sequence ? sequence : 1;
  }
  return length;
}

uint8_t* writeModifiedUTF8(const uint8_t* bytes, size_t byteCount, uint8_t* destination) {
  const uint8_t* from = bytes;
  const uint8_t* const end = bytes + byteCount;
  uint8_t* to = destination;
  while (from < end) {
    if (*from < 0x80) {
      const size_t copied = copyNonZeroASCIIBlocks(from, static_cast<size_t>(end - from), to);
      from += copied;
      to += copied;
      while (from < end && *from < 0x80) {
        if (*from) {
          *to++ = *from++;
        } else {
          *to++ = 0xC0;
          *to++ = 0x80;
          ++from;
        }
      }
      continue;
    }
    const size_t sequence = sequenceLength(from, static_cast<size_t>(end - from));
    switch (sequence) {
      case 2:
        to[0] = from[0];
        to[1] = from[1];
        to += 2;
        break;
      case 3:
        to[0] = from[0];
        to[1] = from[1];
        to[2] = from[2];
        to += 3;
        break;
      case 4: {
        const uint32_t codePoint = (static_cast<uint32_t>(from[0] & 7) << 18) |
                                   (static_cast<uint32_t>(from[1] & 0x3F) << 12) |
                                   (static_cast<uint32_t>(from[2] & 0x3F) << 6) | (from[3] & 0x3Fu);
        to = write3(0xD800 + ((codePoint - 0x10000) >> 10), to);
        to = write3(0xDC00 + ((codePoint - 0x10000) & 0x3FF), to);
        break;
      }
      default:
        to = write3(0xFFFD, to);
    }
    from += sequence ? sequence : 1;
  }
  return to;
}

}  // namespace nvxcore::utils
