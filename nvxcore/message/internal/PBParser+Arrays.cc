#include <algorithm>
#include <cstring>
#include <type_traits>
#include <vector>

#include "nvxcore/message/internal/PBParser.h"
#include "nvxcore/message/internal/PBRuns.h"
#include "nvxcore/message/internal/PBVarints.h"

// Repeated fields: a run of one field at a time.

namespace nvxcore {

using Access = PBMessageAccess;

PBParser::Array& PBParser::arrayOf(const PBEntry& entry, Message& message, uint32_t room) {
  if (auto* found = Access::slot<Array>(message, entry.offset)) return *found;
  Array* made = PBArrayAccess::createFor(entry.type, room);
  PBArrayAccess::setMessageDelegate(*made, &message);
  Access::setSlot(message, entry.offset, made);
  return *made;
}

// What the delegate would do, without its search.
inline void PBParser::ready(const PBEntry& entry, Message& message, Array& array) {
  if (PBArrayAccess::messageDelegate(array) != &message) return;
  PBArrayAccess::setMessageDelegate(array, nullptr);
  Access::setHas(message, entry.has);
  Access::becomeVisible(message);
}

/// True, with the position behind the tag, when the field's tag comes again in its shortest form.
inline bool PBParser::Run::goesOn() {
  if (p <= tagStart) [[unlikely]] {  // moved back
    highest = std::max(highest, tagStart);
    return false;
  }
  if (p <= highest || end - p < entry.tagSize) return false;
  if (entry.tagSize == 1) {
    if (*p != entry.encodedTag) return false;
  } else if (entry.tagSize > 4 || std::memcmp(p, &entry.encodedTag, entry.tagSize) != 0) {
    return false;
  }
  tagStart = p;
  p += entry.tagSize;
  return true;
}

void PBParser::childrenRun(Run& run) {
  const PBEntry& entry = run.entry;
  const PBClass& childClass =
      Access::classOf(run.message).infos[&entry - Access::classOf(run.message).entries].messageClass();
  do {
    put(run.p);
    const bool isGroup = entry.type == NVXx_PBType::Group;
    Guard made(*this, create(childClass, _input || isGroup ? 0 : comingSpan()));
    if (isGroup) {
      readGroup(entry.number(), *made, true);
    } else {
      readMessage(*made, true);
    }
    run.p = get();
    Array& array = arrayOf(entry, run.message, 4);
    ready(entry, run.message, array);
    *PBArrayAccess::room<void*>(array, 1) = &*made;
    made.take();
    PBArrayAccess::added(array, 1);
  } while (run.goesOn());
}

// Repeated scalars.

namespace {

// Elements that are not in their array yet: it is made, or grown, once for many.
constexpr uint32_t kFew = 256;

}  // namespace

template <class T>
void PBParser::addAll(const Run& run, const T* few, uint32_t count) {
  if (!count) return;
  Array& array = arrayOf(run.entry, run.message, count);
  ready(run.entry, run.message, array);
  if (array.delegate()) {  // one that is told of each element
    for (uint32_t i = 0; i < count; ++i) PBArrayAccess::add<T>(array, few[i]);
    return;
  }
  std::memcpy(PBArrayAccess::reserve(array, count), few, count * sizeof(T));
  PBArrayAccess::addedOneByOne(array, count);
}

// Values come as words of 32 or 64 bits, and are decoded when their array gets them.
template <class Raw, class Decode>
void PBParser::varintRun(Run& run, Decode decode) {
  using T = decltype(decode(Raw()));
  Raw few[kFew];
  uint32_t count = 0;
  const auto hand = [&] {
    if constexpr (std::is_same_v<T, Raw>) {
      addAll(run, few, count);
    } else {
      T decoded[kFew];
      std::transform(few, few + count, decoded, decode);
      addAll(run, decoded, count);
    }
    count = 0;
  };
  const uint8_t* const roomy =
      _stream._bytes + _stream._bufferSize - std::min<uint64_t>(10, _stream._bufferSize);
  do {
    if (count == kFew) hand();
    uint64_t value;
    const uint8_t* p = run.p;
    if (run.end - p >= 2 && p[0] < 0x80) {
      value = p[0];
      run.p = p + 1;
    } else if (p < roomy && pbWideVarint(p, value) && p <= run.end) {
      run.p = p;
    } else {
      // This may fail; what came before is there then.
      hand();
      put(run.p);
      value = sizeof(Raw) < 8 ? _stream.readUInt32() : _stream.readUInt64();
      run.p = get();
    }
    few[count++] = static_cast<Raw>(value);
    if (run.entry.tagSize == 1 && run.p > run.highest && kFew - count >= kPBWindow) {
      uint32_t room = kFew - count;
      run.p = pbReadTagged(run.p, run.end, static_cast<uint8_t>(run.entry.encodedTag), few + count, room);
      count = kFew - room;
    }
  } while (run.goesOn());
  hand();
}

template <class T>
void PBParser::fixedRun(Run& run) {
  Array& array = arrayOf(run.entry, run.message, 4);
  do {
    if (run.end - run.p < static_cast<ptrdiff_t>(sizeof(T))) {
      put(run.p);
      _stream.requireBytes(sizeof(T));
    }
    T value;
    std::memcpy(&value, run.p, sizeof(T));
    run.p += sizeof(T);
    ready(run.entry, run.message, array);
    PBArrayAccess::add<T>(array, value);
  } while (run.goesOn());
}

void PBParser::enumRun(Run& run) {
  Array& array = arrayOf(run.entry, run.message, 0);
  do {
    put(run.p);
    plainElement(run.entry, run.message, array);
    run.p = get();
  } while (run.goesOn());
}

void PBParser::bytesRun(Run& run) {
  const bool isString = run.entry.type == NVXx_PBType::String;
  Array& array = arrayOf(run.entry, run.message, 4);
  do {
    put(run.p);
    PBBlock* block = readBlock(isString);
    run.p = get();
    if (!block) continue;  // data of a negative length: no element
    ready(run.entry, run.message, array);
    try {
      *PBArrayAccess::room<void*>(array, 1) = block;
    } catch (...) {
      flushPins();
      DataAccess::drop(block);
      throw;
    }
    PBArrayAccess::added(array, 1);
  } while (run.goesOn());
}

void PBParser::scalarRun(Run& run) {
  switch (run.entry.type) {
    case NVXx_PBType::Bool:
      return varintRun<uint32_t>(run, [](uint32_t v) { return static_cast<uint8_t>(v != 0); });
    case NVXx_PBType::Int32:
    case NVXx_PBType::UInt32:
      return varintRun<uint32_t>(run, [](uint32_t v) { return v; });
    case NVXx_PBType::SInt32:
      return varintRun<uint32_t>(run, &NVXx_PBDecodeZigZag32);
    case NVXx_PBType::Int64:
    case NVXx_PBType::UInt64:
      return varintRun<uint64_t>(run, [](uint64_t v) { return v; });
    case NVXx_PBType::SInt64:
      return varintRun<uint64_t>(run, &NVXx_PBDecodeZigZag64);
    case NVXx_PBType::Enum:
      return enumRun(run);
    case NVXx_PBType::Fixed32:
    case NVXx_PBType::SFixed32:
    case NVXx_PBType::Float:
      return fixedRun<uint32_t>(run);
    case NVXx_PBType::Fixed64:
    case NVXx_PBType::SFixed64:
    case NVXx_PBType::Double:
      return fixedRun<uint64_t>(run);
    case NVXx_PBType::Data:
    case NVXx_PBType::String:
      return bytesRun(run);
    case NVXx_PBType::Message:
    case NVXx_PBType::Group:
      return childrenRun(run);
  }
}

PBValue PBParser::plainScalar(NVXx_PBType type) {
  PBValue value;
  switch (type) {
    case NVXx_PBType::Bool:
      value.valueBool = _stream.readBool();
      break;
    case NVXx_PBType::Fixed32:
    case NVXx_PBType::SFixed32:
    case NVXx_PBType::Float:
      value.valueUInt32 = _stream.readFixed32();
      break;
    case NVXx_PBType::Fixed64:
    case NVXx_PBType::SFixed64:
    case NVXx_PBType::Double:
      value.valueUInt64 = _stream.readFixed64();
      break;
    case NVXx_PBType::Int64:
    case NVXx_PBType::UInt64:
      value.valueUInt64 = _stream.readUInt64();
      break;
    case NVXx_PBType::SInt32:
      value.valueInt32 = _stream.readSInt32();
      break;
    case NVXx_PBType::SInt64:
      value.valueInt64 = _stream.readSInt64();
      break;
    default:
      value.valueUInt32 = _stream.readUInt32();
  }
  return value;
}

namespace {

void addScalar(NVXx_PBMutableArray& array, PBValue value) {
  switch (pbElementSize(array.valueType())) {
    case 1:
      PBArrayAccess::add<uint8_t>(array, value.valueBool);
      break;
    case 4:
      PBArrayAccess::add<uint32_t>(array, value.valueUInt32);
      break;
    default:
      PBArrayAccess::add<uint64_t>(array, value.valueUInt64);
  }
}

}  // namespace

void PBParser::plainElement(const PBEntry& entry, Message& message, Array& array) {
  const PBValue value = plainScalar(entry.type);
  if (entry.type == NVXx_PBType::Enum) {
    const PBClass& messageClass = Access::classOf(message);
    if (!messageClass.infos[&entry - messageClass.entries].enumDescriptor().isValidValue(value.valueInt32)) {
      message.mutableUnknownFields().mergeVarintField(static_cast<int32_t>(entry.number()), value.valueInt32);
      return;
    }
  }
  ready(entry, message, array);
  addScalar(array, value);
}

bool PBParser::packedAtOnce(const PBEntry& entry, Message& message, const uint8_t* p, const uint8_t* end) {
  const PBArrayValueType valueType = NVXx_PBArrayValueTypeForPBType(entry.type);
  const uint32_t size = pbElementSize(valueType);
  const auto length = static_cast<uint32_t>(end - p);
  const PBWireType wireType = NVXx_PBWireFormatForType(entry.type, false);
  if (wireType != PBWireTypeVarint) {
    if (length % size) return false;
    Array& array = arrayOf(entry, message, length / size);
    if (array.delegate()) return false;  // one that is told of each element
    std::memcpy(PBArrayAccess::reserve(array, length / size), p, length);
    ready(entry, message, array);
    PBArrayAccess::addedOneByOne(array, length / size);
    return true;
  }
  if (entry.type == NVXx_PBType::Enum || end[-1] >= 0x80) return false;
  const auto count = static_cast<uint32_t>(pbCountVarints(p, end));
  Array& array = arrayOf(entry, message, count);
  if (array.delegate()) return false;
  void* out = PBArrayAccess::reserve(array, count);
  const uint8_t* const readable = _stream._bytes + _stream._bufferSize;
  bool isRegular;
  if (entry.type == NVXx_PBType::Bool) {
    std::vector<uint32_t> words(count);
    isRegular = pbReadPacked(p, end, readable, words.data(), count);
    std::transform(words.begin(), words.end(), static_cast<uint8_t*>(out), [](uint32_t v) { return v != 0; });
  } else if (size == 4) {
    auto* words = static_cast<uint32_t*>(out);
    isRegular = pbReadPacked(p, end, readable, words, count);
    if (entry.type == NVXx_PBType::SInt32)
      std::transform(words, words + count, words, &NVXx_PBDecodeZigZag32);
  } else {
    auto* words = static_cast<uint64_t*>(out);
    isRegular = pbReadPacked(p, end, readable, words, count);
    if (entry.type == NVXx_PBType::SInt64)
      std::transform(words, words + count, words, &NVXx_PBDecodeZigZag64);
  }
  if (!isRegular) return false;
  ready(entry, message, array);
  PBArrayAccess::addedOneByOne(array, count);
  return true;
}

void PBParser::packed(const PBEntry& entry, Message& message) {
  const uint64_t before = _stream._bufferPos;
  const int32_t length = readLength();
  const uint8_t* p = get();
  const uint8_t* const end = endOf();
  if (length > 0 && length <= end - p && packedAtOnce(entry, message, p, p + length)) {
    _stream._bufferPos += static_cast<uint64_t>(length);
    return;
  }
  _stream._bufferPos = before;
  Array& array = arrayOf(entry, message, 0);
  const uint64_t oldLimit = _stream.pushLimit(static_cast<uint64_t>(int64_t{_stream.readInt32()}));
  while (_stream.bytesUntilLimit() != 0) plainElement(entry, message, array);
  _stream.popLimit(oldLimit);
}

}  // namespace nvxcore
