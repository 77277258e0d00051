#include "nvxcore/message/internal/PBParser.h"

#include <algorithm>
#include <cstring>

#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/message/internal/PBVarints.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

// A varint of which ten bytes are there; null where it is longer.
inline const uint8_t* unrolledVarint(const uint8_t* p, uint64_t& value) {
  uint64_t byte = p[0];
  uint64_t result = byte & 0x7F;
#define NVX_PB_STEP(i)                  \
  byte = p[i];                          \
  result |= (byte & 0x7F) << (7 * (i)); \
  if (byte < 0x80) {                    \
    value = result;                     \
    return p + (i) + 1;                 \
  }
  NVX_PB_STEP(1)
  NVX_PB_STEP(2)
  NVX_PB_STEP(3)
  NVX_PB_STEP(4)
  NVX_PB_STEP(5)
  NVX_PB_STEP(6)
  NVX_PB_STEP(7)
  NVX_PB_STEP(8)
  NVX_PB_STEP(9)
#undef NVX_PB_STEP
  return nullptr;
}

inline bool isText(const uint8_t* bytes, size_t length, const uint8_t* end) {
  if (length <= 8 && end - bytes >= 8) {
    uint64_t word;
    std::memcpy(&word, bytes, 8);
    const uint64_t mask = length ? ~uint64_t{0} >> (64 - 8 * length) : 0;
    if (!(word & mask & 0x8080808080808080)) return true;
  }
  if (length > 8 && length <= 32) {
    uint64_t all = 0;
    size_t i = 0;
    for (; i + 8 <= length; i += 8) {
      uint64_t word;
      std::memcpy(&word, bytes + i, 8);
      all |= word;
    }
    uint64_t last;
    std::memcpy(&last, bytes + length - 8, 8);
    if (!((all | last) & 0x8080808080808080)) return true;
  }
  return pbIsUTF8(bytes, length);
}

}  // namespace

/// The span of a nested message or group: depth, limit, and the list of open ones.
class PBParser::Nested {
 public:
  Nested(PBParser& parser, Message& message)
      : _stream(parser._stream),
        _frame{static_cast<const Frame*>(_stream._frames), _stream._bufferPos, _stream._currentLimit,
               _stream._deepest, &message} {
    if (_stream._hasMovedBack) [[unlikely]]
      lookForItself();
    _stream._frames = &_frame;
    _stream._deepest = ++_stream._recursionDepth;
  }
  ~Nested() {
    --_stream._recursionDepth;
    _stream._deepest = std::max(_stream._deepest, _frame.deepestBefore);
    _stream._frames = _frame.parent;
  }
  Nested(const Nested&) = delete;
  Nested& operator=(const Nested&) = delete;

 private:
  // One that opens for the third time where it is still open itself will do so until the depth fails. (For
  // the second time it may yet find what the levels above prepared, and fail by that.) The rounds between are
  // left out: as many as end without the failure, given how deep the last one went.
  void lookForItself() const {
    constexpr uint64_t kLimit = NVXx_PBCodedInputStream::kRecursionLimit;
    uint64_t& depth = _stream._recursionDepth;
    uint64_t period = 0;
    uint64_t distance = 0;
    uint64_t deepest = _stream._deepest;
    for (const Frame* frame = _frame.parent; frame; frame = frame->parent) {
      ++distance;
      if (frame->start == _frame.start && frame->limit == _frame.limit &&
          &Access::classOf(*frame->message) == &Access::classOf(*_frame.message)) {
        if (period) {
          const uint64_t round = deepest - (depth - period);
          if (depth + round <= kLimit) depth += ((kLimit - round - depth) / period + 1) * period;
          return _stream.enter();
        }
        period = distance;
      }
      if (!period) deepest = std::max(deepest, frame->deepestBefore);
    }
  }

  NVXx_PBCodedInputStream& _stream;
  const Frame _frame;
};

PBParser::PBParser(NVXx_PBCodedInputStream& stream, const NVXx_PBExtensionRegistry* registry,
                   bool dropsOnFailure)
    : _stream(stream),
      _registry(registry),
      _input(stream._copiesBytes ? nullptr : DataAccess::block(stream._buffer)),
      _dropsOnFailure(dropsOnFailure) {}

PBParser::~PBParser() { flushPins(); }

void PBParser::flushPins() {
  if (_pins) _input->references.fetch_add(std::exchange(_pins, 0), std::memory_order_relaxed);
}

NVXx_PBGeneratedMessage* PBParser::create(const PBClass& messageClass) {
  if (!_input || !messageClass.sliceCount) return Access::create(messageClass);
  ++_pins;
  return Access::createParsed(messageClass, _input);
}

PBBlock* PBParser::sharedBytes(const uint8_t* bytes, size_t length) {
  if (!_input) return pbCopyBytes(bytes, length);
  PBBlock* slice = pbSliceBytes(_input, bytes, length);
  ++_pins;
  return slice;
}

void PBParser::merge(Message& message, bool isFresh) { loop(message, isFresh); }

void PBParser::readMessage(Message& message, bool isFresh) {
  const int32_t length = _stream.readInt32();
  _stream.enter();
  const uint64_t oldLimit = _stream.pushLimit(static_cast<uint64_t>(int64_t{length}));
  {
    const Nested nested(*this, message);
    loop(message, isFresh);
    _stream.checkLastTagWas(0);
  }
  _stream.popLimit(oldLimit);
}

void PBParser::readGroup(uint32_t number, Message& message, bool isFresh) {
  _stream.enter();
  const Nested nested(*this, message);
  loop(message, isFresh);
  _stream.checkLastTagWas(static_cast<int32_t>(number << 3 | PBWireTypeEndGroup));
}

const PBEntry* PBParser::find(const PBClass& messageClass, uint32_t tag) {
  const uint32_t number = tag >> 3;
  if (number < messageClass.directCount) {
    const uint32_t index = messageClass.direct[number];
    if (!index) return nullptr;
    const PBEntry* entry = messageClass.entries + index - 1;
    return entry->tag == tag ? entry : nullptr;
  }
  const PBEntry* last = messageClass.entries + messageClass.fieldCount;
  const PBEntry* entry = std::lower_bound(messageClass.entries, last, tag,
                                          [](const PBEntry& a, uint32_t b) { return a.tag < b; });
  return entry != last && entry->tag == tag ? entry : nullptr;
}

const uint8_t* PBParser::longVarint(const uint8_t* p, const uint8_t* end, uint64_t& value, bool is32) {
  if (end - p >= 10) {
    if (const uint8_t* after = unrolledVarint(p, value)) return after;
  }
  put(p);
  value = is32 ? _stream.readUInt32() : _stream.readUInt64();
  return get();
}

void PBParser::loop(Message& message, bool isFresh) {
  const PBClass& messageClass = Access::classOf(message);
  const PBEntry* next = messageClass.entries;
  uint8_t* const storage = Access::storage(message);
  PBBlock* slice = nullptr;
  const PBBlock* sliceEnd = nullptr;
  if (isFresh && Access::hasSlices(message)) {
    slice = Access::slices(message);
    sliceEnd = slice + messageClass.sliceCount;
  }
  const bool mayBeLatent = !isFresh && Access::side(message);
  const uint8_t* p = get();
  const uint8_t* const end = endOf();
  const uint8_t* highest = p - 1;
  Revisits revisits;
  for (;;) {
    const uint8_t* const tagStart = p;
    uint32_t tag;
    if (p < end && *p - 1U < 0x7F) [[likely]] {
      tag = *p++;
    } else if (end - p >= 2 && p[0] >= 0x80 && p[1] - 1U < 0x7F) {
      tag = (p[0] & 0x7FU) | uint32_t{p[1]} << 7;
      p += 2;
    } else {
      put(p);
      if (p == end) [[likely]] {
        _stream._lastTag = 0;
        return;
      }
      tag = static_cast<uint32_t>(_stream.readTag());
      p = get();
      if (!tag) return;
    }
    _stream._lastTag = static_cast<int32_t>(tag);
    if (tagStart > highest) [[likely]] {
      highest = tagStart;
    } else {
      put(p);
      revisits.look(tagStart, _stream);
    }

    const PBEntry* entry = next;
    if (entry->tag != tag) {
      entry = find(messageClass, tag);
      if (!entry) {
        put(p);
        if (!unknown(message, tag)) return;
        p = get();
        continue;
      }
    }
    next = entry + 1;
    const PBEntry& e = *entry;
    const auto setHas = [&] { Access::setHas(message, e.has); };

    switch (e.op) {
      case static_cast<int>(NVXx_PBType::Bool): {
        NVX_PB_VARINT(value, true)
        storage[e.offset] = static_cast<uint32_t>(value) != 0;
        setHas();
        break;
      }
      case static_cast<int>(NVXx_PBType::Int32):
      case static_cast<int>(NVXx_PBType::UInt32): {
        NVX_PB_VARINT(value, true)
        const auto word = static_cast<uint32_t>(value);
        std::memcpy(storage + e.offset, &word, 4);
        setHas();
        break;
      }
      case static_cast<int>(NVXx_PBType::Enum): {
        NVX_PB_VARINT(value, true)
        const auto number = static_cast<int32_t>(value);
        if (messageClass.infos[&e - messageClass.entries].enumDescriptor().isValidValue(number)) {
          std::memcpy(storage + e.offset, &number, 4);
          setHas();
        } else {
          message.mutableUnknownFields().mergeVarintField(static_cast<int32_t>(e.number()), number);
          continue;
        }
        break;
      }
      case static_cast<int>(NVXx_PBType::SInt32): {
        NVX_PB_VARINT(value, true)
        const int32_t word = NVXx_PBDecodeZigZag32(static_cast<uint32_t>(value));
        std::memcpy(storage + e.offset, &word, 4);
        setHas();
        break;
      }
      case static_cast<int>(NVXx_PBType::Int64):
      case static_cast<int>(NVXx_PBType::UInt64): {
        NVX_PB_VARINT(value, false)
        std::memcpy(storage + e.offset, &value, 8);
        setHas();
        break;
      }
      case static_cast<int>(NVXx_PBType::SInt64): {
        NVX_PB_VARINT(value, false)
        const int64_t word = NVXx_PBDecodeZigZag64(value);
        std::memcpy(storage + e.offset, &word, 8);
        setHas();
        break;
      }
      case static_cast<int>(NVXx_PBType::Fixed32):
      case static_cast<int>(NVXx_PBType::SFixed32):
      case static_cast<int>(NVXx_PBType::Float): {
        if (end - p < 4) [[unlikely]] {
          put(p);
          _stream.readFixed32();
        }
        std::memcpy(storage + e.offset, p, 4);
        p += 4;
        setHas();
        break;
      }
      case static_cast<int>(NVXx_PBType::Fixed64):
      case static_cast<int>(NVXx_PBType::SFixed64):
      case static_cast<int>(NVXx_PBType::Double): {
        if (end - p < 8) [[unlikely]] {
          put(p);
          _stream.readFixed64();
        }
        std::memcpy(storage + e.offset, p, 8);
        p += 8;
        setHas();
        break;
      }
      case static_cast<int>(NVXx_PBType::Data):
      case static_cast<int>(NVXx_PBType::String):
        p = setBytes(e, message, p, end, slice, sliceEnd, isFresh);
        break;
      case static_cast<int>(NVXx_PBType::Message):
      case static_cast<int>(NVXx_PBType::Group):
        put(p);
        child(e, message);
        p = get();
        continue;
      default: {
        put(p);
        if (e.isPacked()) {
          packed(e, message);
          p = get();
        } else {
          Run run{e, message, p, end, highest};
          scalarRun(run);
          p = run.p;
        }
        continue;
      }
    }
    if (mayBeLatent) [[unlikely]]
      Access::becomeVisible(message);
  }
}

// Strings and data.

const uint8_t* PBParser::setBytes(const PBEntry& entry, Message& message, const uint8_t* p,
                                  const uint8_t* end, PBBlock*& slice, const PBBlock* sliceEnd,
                                  bool isFresh) {
  NVX_PB_VARINT(told, true)
  const auto length = static_cast<int32_t>(told);
  const bool isString = entry.type == NVXx_PBType::String;
  const uint8_t* bytes = p;
  auto count = static_cast<size_t>(length);
  if (length >= 0 && length <= end - p) [[likely]] {
    p += length;
    if (isString && !isText(bytes, count, end)) count = 0;
  } else if (length == 0 && isString) {
    // Nothing is read, so nothing can be missing.
  } else if (length < 0 && !isString) {
    flushPins();
    Access::setObject(message, static_cast<uint32_t>(&entry - Access::classOf(message).entries), nullptr);
    return p;
  } else {
    put(p);
    _stream.requireBytes(static_cast<uint64_t>(int64_t{length}));
    // A negative length: the string is empty and the position moves back.
    p += length;
    bytes = p;
    count = 0;
    _stream.noteMoveBack(static_cast<uint64_t>(-int64_t{length}));
  }
  PBBlock* old = Access::slot<PBBlock>(message, entry.offset);
  if (!old && slice < sliceEnd) [[likely]] {
    Access::initSlice(message, slice, bytes, count);
    Access::setSlot(message, entry.offset, slice);
    ++slice;
    Access::setHas(message, entry.has);
  } else if (!old && isFresh) {
    Access::setSlot(message, entry.offset, sharedBytes(bytes, count));
    Access::setHas(message, entry.has);
  } else if (old && slice && Access::isOwnSlice(message, old)) {
    // Nobody has seen it yet.
    old->bytes = bytes;
    old->length = count;
  } else {
    PBBlock* block = sharedBytes(bytes, count);
    if (old) flushPins();
    Access::setObject(message, static_cast<uint32_t>(&entry - Access::classOf(message).entries), block);
  }
  return p;
}

// Null for data of a negative length.
PBBlock* PBParser::readBlock(bool isString) {
  const int32_t length = _stream.readInt32();
  if (length < 0 && !isString) return nullptr;
  if (length == 0 && isString) return pbEmptyString();
  _stream.requireBytes(static_cast<uint64_t>(int64_t{length}));
  const uint8_t* bytes = get();
  _stream._bufferPos += static_cast<uint64_t>(int64_t{length});
  if (length < 0) {
    _stream.noteMoveBack(static_cast<uint64_t>(-int64_t{length}));
    return pbEmptyString();
  }
  if (isString && !pbIsUTF8(bytes, static_cast<size_t>(length))) return pbEmptyString();
  return sharedBytes(bytes, static_cast<size_t>(length));
}

// Nested messages.

void PBParser::child(const PBEntry& entry, Message& message) {
  const auto field = static_cast<uint32_t>(&entry - Access::classOf(message).entries);
  const PBClass& childClass = Access::classOf(message).infos[field].messageClass();
  Message* existing =
      Access::has(message, entry.has) ? Access::slot<Message>(message, entry.offset) : nullptr;
  const auto read = [&](Message& into, bool isFresh) {
    if (entry.type == NVXx_PBType::Group) {
      readGroup(entry.number(), into, isFresh);
    } else {
      readMessage(into, isFresh);
    }
  };
  if (existing && _dropsOnFailure && Access::isAlone(*existing)) {
    const Ref<Message> held(existing);
    return read(*existing, false);
  }
  Guard made(*this, create(childClass));
  if (existing) (*made).mergeFrom(*existing);
  read(*made, !existing);
  if (Access::slot<Message>(message, entry.offset)) flushPins();
  Access::setObject(message, field, made.take());
}

}  // namespace nvxcore
