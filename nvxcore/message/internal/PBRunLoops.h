// No header of its own: PBRuns.cc includes it once for each form of the processor's instructions, with
//
//   NVX_PB_TARGET            what a function says to be compiled for them
//   NVX_PB_GATHER(word, n)   the value of a varint of n bytes, 1 to 8, that begin the word
//   NVX_PB_PUT(p, value)     writes a varint of up to 32 bits where eight bytes may be written; the end

template <class T>
NVX_PB_TARGET bool readPacked(const uint8_t* p, const uint8_t* end, const uint8_t* readable, T* out,
                              uint32_t count) {
  T* const outEnd = out + count;
  while (end - p >= kPBWindow && readable - p >= kPBWindowReads) {
    uint64_t mask = pbTerminators(p);
    if (!mask) return false;
    uint32_t start = 0;
    do {
      const auto next = static_cast<uint32_t>(__builtin_ctzll(mask)) + 1;
      const uint32_t length = next - start;
      uint64_t value;
      if (length <= 8) [[likely]] {
        std::memcpy(&value, p + start, 8);
        value = NVX_PB_GATHER(value, length);
      } else if (!pbVarintOf(p + start, length, value)) {
        return false;
      }
      *out++ = static_cast<T>(value);
      start = next;
      mask &= mask - 1;
    } while (mask);
    p += start;
  }
  while (out < outEnd) {
    uint64_t value = *p;
    if (value < 0x80) {
      ++p;
    } else if (readable - p >= 10) {
      if (!pbWideVarint(p, value)) return false;
    } else {
      value &= 0x7F;
      int shift = 7;
      while (*++p >= 0x80) {
        value |= (*p & uint64_t{0x7F}) << shift;
        shift += 7;
        if (shift > 63) return false;
      }
      value |= uint64_t{*p++} << shift;
    }
    *out++ = static_cast<T>(value);
  }
  return p == end;
}

template <class T>
NVX_PB_TARGET const uint8_t* readTagged(const uint8_t* p, const uint8_t* end, uint8_t tag, T* out,
                                        uint32_t& room) {
  T* const begin = out;
  T* const last = out + room - kPBWindow / 2;
  while (end - p >= kPBWindowReads && out <= last && *p == tag) {
    // Without the ends of the tags, which a varint's end follows each.
    uint64_t mask = pbTerminators(p);
    T* const first = out;
    uint32_t start = 0;
    while (start < kPBWindow && p[start] == tag) {
      mask &= mask - 1;
      if (!mask) break;
      const auto next = static_cast<uint32_t>(__builtin_ctzll(mask)) + 1;
      const uint32_t length = next - start - 1;
      uint64_t value;
      if (length <= 8) [[likely]] {
        std::memcpy(&value, p + start + 1, 8);
        value = NVX_PB_GATHER(value, length);
      } else if (!pbVarintOf(p + start + 1, length, value)) {
        break;
      }
      mask &= mask - 1;
      *out++ = static_cast<T>(value);
      start = next;
    }
    p += start;
    // Nothing that fits a window, or the end of the run.
    if (out == first) break;
  }
  room -= static_cast<uint32_t>(out - begin);
  return p;
}

template <bool kTagged>
NVX_PB_TARGET uint8_t* putPlain(uint8_t* p, const uint32_t* value, const uint32_t* end, uint8_t tag) {
  for (; value < end; ++value) {
    if constexpr (kTagged) *p++ = tag;
    p = NVX_PB_PUT(p, *value);
  }
  return p;
}

template <bool kTagged>
NVX_PB_TARGET uint8_t* putZigZag(uint8_t* p, const uint32_t* value, const uint32_t* end, uint8_t tag) {
  for (; value < end; ++value) {
    if constexpr (kTagged) *p++ = tag;
    p = NVX_PB_PUT(p, NVXx_PBEncodeZigZag32(static_cast<int32_t>(*value)));
  }
  return p;
}

// Negative values as 64 bits.
template <bool kTagged>
NVX_PB_TARGET uint8_t* putSigned(uint8_t* p, const uint32_t* value, const uint32_t* end, uint8_t tag) {
  for (; value < end; ++value) {
    if constexpr (kTagged) *p++ = tag;
    p = static_cast<int32_t>(*value) >= 0 ? NVX_PB_PUT(p, *value) : putNegative(p, *value);
  }
  return p;
}

template <bool kTagged>
inline uint8_t* put(uint8_t* p, NVXx_PBType type, const uint32_t* value, const uint32_t* end, uint8_t tag) {
  switch (type) {
    case NVXx_PBType::Int32:
      return putSigned<kTagged>(p, value, end, tag);
    case NVXx_PBType::UInt32:
    case NVXx_PBType::Enum:
      return putPlain<kTagged>(p, value, end, tag);
    case NVXx_PBType::SInt32:
      return putZigZag<kTagged>(p, value, end, tag);
    default:
      return nullptr;
  }
}
