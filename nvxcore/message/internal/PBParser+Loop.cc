#include <algorithm>
#include <bit>
#include <cstring>

#include "nvxcore/message/internal/PBParser.h"
#include "nvxcore/message/internal/PBVarints.h"

// The merge loop: regular scalars, strings and data are read here, without looking for the end of the input
// at each byte; what is irregular, or near the end, is left to the plain readers.

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

// Bytes that may be read from a tag without looking: of a tag of two bytes and a varint.
constexpr ptrdiff_t kReach = 12;

inline bool isText(const uint8_t* bytes, uint32_t length, const uint8_t* readable) {
  if (length <= 32 && readable - bytes >= 32) {
    if (!(pbContinued32(bytes) & ((uint64_t{1} << length) - 1))) return true;
  } else if (length < kPBWindow && readable - bytes >= kPBWindow &&
             !(~pbTerminators(bytes) & ((uint64_t{1} << length) - 1))) {
    return true;
  }
  return isUTF8(bytes, length);
}

inline void addHas(NVXx_PBGeneratedMessage& message, uint64_t& has) {
  Access::addHas(message, has);
  has = 0;
}

}  // namespace

void PBParser::loop(Message& message, bool isFresh) {
  Loop at(message, isFresh, !_input);
  const PBEntry* const before = at.messageClass.entries - 1;
  const uint8_t* const byTag = at.messageClass.byTag;
  uint8_t* const storage = Access::storage(message);
  const uint8_t* const end = endOf();
  const uint8_t* const readable = _stream._bytes + _stream._bufferSize;
  const uint8_t* const roomy =
      std::min(end, readable - std::min<ptrdiff_t>(kReach, readable - _stream._bytes));
  // A message that its parent made for a reader becomes the parent's with its first field.
  const bool mayBeLatent = !isFresh && Access::side(message);
  const uint8_t* quick = mayBeLatent ? nullptr : roomy;  // up to where fields are read here
  uint64_t has = 0;                                      // presence that the message isn't told of yet
  const uint8_t* p = get();
  for (;;) {
    const uint8_t* const start = p;
    if (p < quick) [[likely]] {
      const PBEntry* entry;
      uint32_t tag = *p++;
      if (tag < 0x80) [[likely]] {
        entry = before + byTag[tag];
      } else {
        tag = (tag & 0x7F) | uint32_t{*p++} << 7;
        const uint32_t number = tag >> 3;
        entry = before;
        if (tag < 0x4000 && p <= end) [[likely]] {
          if (number < at.messageClass.directCount) [[likely]] {
            entry = before + at.messageClass.direct[number];
          } else if (const PBEntry* found = find(at.messageClass, tag)) {
            entry = found;
          }
          if (entry->tag != tag) entry = before;
        }
      }
      uint64_t value;
      switch (entry->op) {
#define NVX_PB_VALUE                    \
  value = *p;                           \
  if (value < 0x80) [[likely]] {        \
    ++p;                                \
  } else if (!pbWideVarint(p, value)) { \
    break;                              \
  }                                     \
  if (p > end) [[unlikely]]             \
    break;
#define NVX_PB_STORE(T, stored)                               \
  {                                                           \
    const T word = static_cast<T>(stored);                    \
    std::memcpy(storage + entry->offset, &word, sizeof word); \
    has |= uint64_t{1} << (entry->has & 63);                  \
    continue;                                                 \
  }
        case static_cast<int>(NVXx_PBType::Bool):
          NVX_PB_VALUE
          NVX_PB_STORE(uint8_t, static_cast<uint32_t>(value) != 0)
        case static_cast<int>(NVXx_PBType::Int32):
        case static_cast<int>(NVXx_PBType::UInt32):
          NVX_PB_VALUE
          NVX_PB_STORE(uint32_t, value)
        case static_cast<int>(NVXx_PBType::Enum):
          NVX_PB_VALUE
          addHas(message, has);
          if (!isValid(message, *entry, static_cast<int32_t>(value))) continue;
          NVX_PB_STORE(uint32_t, value)
        case static_cast<int>(NVXx_PBType::SInt32):
          NVX_PB_VALUE
          NVX_PB_STORE(int32_t, NVXx_PBDecodeZigZag32(static_cast<uint32_t>(value)))
        case static_cast<int>(NVXx_PBType::Int64):
        case static_cast<int>(NVXx_PBType::UInt64):
          NVX_PB_VALUE
          NVX_PB_STORE(uint64_t, value)
        case static_cast<int>(NVXx_PBType::SInt64):
          NVX_PB_VALUE
          NVX_PB_STORE(int64_t, NVXx_PBDecodeZigZag64(value))
        case static_cast<int>(NVXx_PBType::Fixed32):
        case static_cast<int>(NVXx_PBType::SFixed32):
        case static_cast<int>(NVXx_PBType::Float): {
          uint32_t fixed;
          std::memcpy(&fixed, p, 4);
          p += 4;
          if (p > end) [[unlikely]]
            break;
          NVX_PB_STORE(uint32_t, fixed)
        }
        case static_cast<int>(NVXx_PBType::Fixed64):
        case static_cast<int>(NVXx_PBType::SFixed64):
        case static_cast<int>(NVXx_PBType::Double): {
          std::memcpy(&value, p, 8);
          p += 8;
          if (p > end) [[unlikely]]
            break;
          NVX_PB_STORE(uint64_t, value)
        }
        case static_cast<int>(NVXx_PBType::String):
        case static_cast<int>(NVXx_PBType::Data): {
          uint32_t length = *p++;
          if (length >= 0x80) {
            length = (length & 0x7F) | uint32_t{*p++} << 7;
            if (length >= 0x4000) break;
          }
          if (static_cast<ptrdiff_t>(length) > end - p) [[unlikely]]
            break;
          if (at.slice == at.sliceEnd || Access::slot<void>(message, entry->offset)) [[unlikely]]
            break;
          if (entry->type == NVXx_PBType::String && !isText(p, length, readable)) [[unlikely]]
            break;
          const uint8_t* bytes = p;
          if (!at.place(bytes, length)) [[unlikely]]
            break;
          Access::initSlice(message, at.slice, bytes, length);
          Access::setSlot(message, entry->offset, at.slice++);
          has |= uint64_t{1} << (entry->has & 63);
          p += length;
          continue;
        }
#undef NVX_PB_STORE
#undef NVX_PB_VALUE
        case kPBOpSlow:
          if (has) addHas(message, has);
          put(p);
          _stream._lastTag = static_cast<int32_t>(entry->tag);
          field(at, *entry);
          p = get();
          at.noticeMove(start, p);
          if (p <= at.highest) [[unlikely]]
            quick = nullptr;
          continue;
        case kPBOpUnknown:
          if (tag == 0 || tag >= 0x4000 || p > end) break;
          if (has) addHas(message, has);
          put(p);
          _stream._lastTag = static_cast<int32_t>(tag);
          if (!unknown(message, tag)) return;
          p = get();
          at.noticeMove(start, p);
          if (p <= at.highest) [[unlikely]]
            quick = nullptr;
          continue;
        default:
          break;
      }
    }
    if (has) addHas(message, has);
    put(start);
    if (start == end) {
      _stream._lastTag = 0;
      return;
    }
    if (!anyField(at)) return;
    p = get();
    quick = p <= at.highest || mayBeLatent ? nullptr : roomy;
  }
}

}  // namespace nvxcore
