#include "nvxcore/message/internal/PBRuns.h"

#include <atomic>
#include <cstring>

#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/internal/PBVarints.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace nvxcore {

namespace {

// Ten bytes.
inline uint8_t* putNegative(uint8_t* p, uint32_t value) {
  std::memset(p, 0xFF, 9);
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(value >> (7 * i) | 0x80);
  p[4] = static_cast<uint8_t>(value >> 28 | 0xF0);
  p[9] = 1;
  return p + 10;
}

inline uint64_t gatherPlain(uint64_t word, uint32_t length) {
  return pbSqueezed(word & 0x7F7F7F7F7F7F7F7FU >> (64 - 8 * length));
}

namespace plain {
#define NVX_PB_TARGET
#define NVX_PB_GATHER gatherPlain
#define NVX_PB_PUT pbPutVarint
#include "nvxcore/message/internal/PBRunLoops.h"
#undef NVX_PB_TARGET
#undef NVX_PB_GATHER
#undef NVX_PB_PUT
}  // namespace plain

#if defined(__x86_64__)

namespace bits {
#define NVX_PB_TARGET __attribute__((target("bmi,bmi2,lzcnt")))

NVX_PB_TARGET inline uint64_t gather(uint64_t word, uint32_t length) {
  return _pext_u64(word, 0x7F7F7F7F7F7F7F7FU >> (64 - 8 * length));
}
NVX_PB_TARGET inline uint8_t* putOne(uint8_t* p, uint32_t value) {
  const uint32_t length = ((32 - static_cast<uint32_t>(_lzcnt_u32(value | 1))) * 9 + 64) / 64;
  const uint64_t word =
      _pdep_u64(value, 0x7F7F7F7F7F7F7F7FU) | _bzhi_u64(0x8080808080808080U, 8 * (length - 1));
  std::memcpy(p, &word, 8);
  return p + length;
}

#define NVX_PB_GATHER gather
#define NVX_PB_PUT putOne
#include "nvxcore/message/internal/PBRunLoops.h"
#undef NVX_PB_TARGET
#undef NVX_PB_GATHER
#undef NVX_PB_PUT
}  // namespace bits

bool findBits() {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  constexpr unsigned kBoth = 1U << 3 | 1U << 8;  // bmi, bmi2
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d) || (b & kBoth) != kBoth) return false;
  if (!__get_cpuid(0x80000001, &a, &b, &c, &d) || !(c & 1U << 5)) return false;  // lzcnt
  // Processors that gather bit by bit, in microcode, are faster without: those of "AuthenticAMD" before
  // family 25.
  if (!__get_cpuid(0, &a, &b, &c, &d)) return false;
  if (b != 0x68747541) return true;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  return (a >> 8 & 0xF) + (a >> 20 & 0xFF) >= 25;
}

bool hasBits() {
  static constinit std::atomic<int8_t> known{-1};
  int8_t found = known.load(std::memory_order_relaxed);
  if (found < 0) {
    found = findBits();
    known.store(found, std::memory_order_relaxed);
  }
  return found != 0;
}

#define NVX_PB_FORM(...) return hasBits() ? bits::__VA_ARGS__ : plain::__VA_ARGS__
#else
#define NVX_PB_FORM(...) return plain::__VA_ARGS__
#endif

}  // namespace

template <class T>
bool pbReadPacked(const uint8_t* p, const uint8_t* end, const uint8_t* readable, T* out, uint32_t count) {
  NVX_PB_FORM(readPacked<T>(p, end, readable, out, count));
}
template bool pbReadPacked(const uint8_t*, const uint8_t*, const uint8_t*, uint32_t*, uint32_t);
template bool pbReadPacked(const uint8_t*, const uint8_t*, const uint8_t*, uint64_t*, uint32_t);

template <class T>
const uint8_t* pbReadTagged(const uint8_t* p, const uint8_t* end, uint8_t tag, T* out, uint32_t& room) {
  NVX_PB_FORM(readTagged<T>(p, end, tag, out, room));
}
template const uint8_t* pbReadTagged(const uint8_t*, const uint8_t*, uint8_t, uint32_t*, uint32_t&);
template const uint8_t* pbReadTagged(const uint8_t*, const uint8_t*, uint8_t, uint64_t*, uint32_t&);

uint8_t* pbPutWords(uint8_t* p, NVXx_PBType type, const void* values, size_t count, uint8_t tag) {
  const auto* first = static_cast<const uint32_t*>(values);
  if (tag) NVX_PB_FORM(put<true>(p, type, first, first + count, tag));
  NVX_PB_FORM(put<false>(p, type, first, first + count, tag));
}

}  // namespace nvxcore
