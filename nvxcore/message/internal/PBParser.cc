#include "nvxcore/message/internal/PBParser.h"

#include <algorithm>
#include <cstring>

#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

using Access = PBMessageAccess;

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

NVXx_PBGeneratedMessage* PBParser::create(const PBClass& messageClass, uint64_t span) {
  if (!messageClass.sliceCount) return Access::create(messageClass);
  if (!_input) return createForCopies(messageClass, span);
  ++_pins;
  return Access::createParsed(messageClass, _input, 0);
}

// What a message without messages in it is read from is mostly its strings and data: their copies get a place
// behind it, where that makes no block that is too large for the pools.
NVXx_PBGeneratedMessage* PBParser::createForCopies(const PBClass& messageClass, uint64_t span) {
  constexpr uint64_t kLargest = 8192;
  if (messageClass.hasChildren || !span || span > kLargest || messageClass.parsedSize + span > kLargest) {
    return Access::create(messageClass);
  }
  return Access::createParsed(messageClass, nullptr, static_cast<uint32_t>(span));
}

// The length that comes next, where it is a plain one; only whether there is room for copies hangs on it.
uint64_t PBParser::comingSpan() const {
  const uint8_t* p = get();
  const auto left = static_cast<uint64_t>(endOf() - p);
  if (left < 2 || left > _stream._bufferSize) return 0;
  const uint64_t length = p[0] < 0x80 ? p[0] : p[1] < 0x80 ? (p[0] & 0x7FU) | uint64_t{p[1]} << 7 : 0;
  return length <= left ? length : 0;
}

PBBlock* PBParser::sharedBytes(const uint8_t* bytes, size_t length) {
  if (!_input) return pbCopyBytes(bytes, length);
  PBBlock* slice = pbSliceBytes(_input, bytes, length);
  ++_pins;
  return slice;
}

void PBParser::merge(Message& message, bool isFresh) { loop(message, isFresh); }

void PBParser::readMessage(Message& message, bool isFresh) {
  const int32_t length = readLength();
  if (_stream._recursionDepth >= NVXx_PBCodedInputStream::kRecursionLimit) [[unlikely]]
    _stream.enter();
  const uint64_t oldLimit = _stream._currentLimit;
  const uint64_t limit = _stream._bufferPos + static_cast<uint64_t>(int64_t{length});
  if (limit > oldLimit) [[unlikely]]
    _stream.pushLimit(static_cast<uint64_t>(int64_t{length}));
  _stream._currentLimit = limit;
  {
    const Nested nested(*this, message);
    loop(message, isFresh);
    if (_stream._lastTag) [[unlikely]]
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

// What the loop doesn't read itself, with the plain readers. False ends the loop.
bool PBParser::anyField(Loop& at) {
  const uint8_t* const start = get();
  const auto tag = static_cast<uint32_t>(_stream.readTag());
  if (!tag) return false;
  if (start <= at.highest) at.revisits.look(start, _stream);
  if (const PBEntry* entry = find(at.messageClass, tag)) {
    field(at, *entry);
  } else if (!unknown(at.message, tag)) {
    return false;
  }
  at.noticeMove(start, get());
  return true;
}

// What follows a field's tag.
void PBParser::field(Loop& at, const PBEntry& entry) {
  Message& message = at.message;
  if (entry.isPacked()) return packed(entry, message);
  if (entry.isRepeated()) {
    Run run{entry, message, get(), endOf(), at.highest, get()};
    scalarRun(run);
    return put(run.p);
  }
  if (entry.isMessage()) return child(entry, message);
  if (NVXx_PBTypeIsObject(entry.type)) return setBytes(at, entry);
  const PBValue value = plainScalar(entry.type);
  if (entry.type == NVXx_PBType::Enum && !isValid(message, entry, value.valueInt32)) return;
  switch (pbElementSize(NVXx_PBArrayValueTypeForPBType(entry.type))) {
    case 1:
      Access::store<uint8_t>(message, entry.offset, value.valueBool);
      break;
    case 4:
      Access::store<uint32_t>(message, entry.offset, value.valueUInt32);
      break;
    default:
      Access::store<uint64_t>(message, entry.offset, value.valueUInt64);
  }
  Access::setHas(message, entry.has);
  Access::becomeVisible(message);
}

// False for a number that the enum doesn't have, which goes to the unknown fields.
bool PBParser::isValid(Message& message, const PBEntry& entry, int32_t number) {
  const PBClass& messageClass = Access::classOf(message);
  if (messageClass.infos[&entry - messageClass.entries].enumDescriptor().isValidValue(number)) return true;
  message.mutableUnknownFields().mergeVarintField(static_cast<int32_t>(entry.number()), number);
  return false;
}

// Strings and data.

void PBParser::setBytes(Loop& at, const PBEntry& entry) {
  Message& message = at.message;
  const bool isString = entry.type == NVXx_PBType::String;
  const int32_t length = _stream.readInt32();
  const auto index = static_cast<uint32_t>(&entry - at.messageClass.entries);
  if (length < 0 && !isString) {
    flushPins();
    return Access::setObject(message, index, nullptr);
  }
  const uint8_t* bytes = get();
  auto count = static_cast<size_t>(length);
  // Of an empty string nothing is read, so nothing can be missing.
  if (length != 0 || !isString) _stream.requireBytes(static_cast<uint64_t>(int64_t{length}));
  _stream._bufferPos += static_cast<uint64_t>(int64_t{length});
  if (length < 0) {
    // The string is empty and the position moves back.
    bytes = get();
    count = 0;
    _stream.noteMoveBack(static_cast<uint64_t>(-int64_t{length}));
  } else if (isString && !isUTF8(bytes, count)) {
    count = 0;
  }
  PBBlock* old = Access::slot<PBBlock>(message, entry.offset);
  const bool isOwn = old && at.slices && Access::isOwnSlice(message, old);
  if (at.slices && (isOwn || (!old && at.slice < at.sliceEnd)) && at.place(bytes, count)) {
    if (isOwn) {
      // Nobody has seen it yet.
      old->bytes = bytes;
      old->length = count;
      return;
    }
    Access::initSlice(message, at.slice, bytes, count);
    Access::setSlot(message, entry.offset, at.slice++);
    return Access::setHas(message, entry.has);
  }
  PBBlock* block = sharedBytes(bytes, count);
  if (old) flushPins();
  Access::setObject(message, index, block);
}

// Null for data of a negative length.
PBBlock* PBParser::readBlock(bool isString) {
  const int32_t length = readLength();
  if (length < 0 && !isString) return nullptr;
  if (length == 0 && isString) return pbEmptyString();
  _stream.requireBytes(static_cast<uint64_t>(int64_t{length}));
  const uint8_t* bytes = get();
  _stream._bufferPos += static_cast<uint64_t>(int64_t{length});
  if (length < 0) {
    _stream.noteMoveBack(static_cast<uint64_t>(-int64_t{length}));
    return pbEmptyString();
  }
  if (isString && !isUTF8(bytes, static_cast<size_t>(length))) return pbEmptyString();
  return sharedBytes(bytes, static_cast<size_t>(length));
}

// Nested messages.

void PBParser::child(const PBEntry& entry, Message& message) {
  const auto field = static_cast<uint32_t>(&entry - Access::classOf(message).entries);
  const PBClass& childClass = Access::classOf(message).infos[field].messageClass();
  Message* existing =
      Access::has(message, entry.has) ? Access::slot<Message>(message, entry.offset) : nullptr;
  const bool isGroup = entry.type == NVXx_PBType::Group;
  const auto read = [&](Message& into, bool isFresh) {
    if (isGroup) {
      readGroup(entry.number(), into, isFresh);
    } else {
      readMessage(into, isFresh);
    }
  };
  if (existing && _dropsOnFailure && Access::isAlone(*existing)) {
    const Ref<Message> held(existing);
    return read(*existing, false);
  }
  Guard made(*this, create(childClass, _input || isGroup || existing ? 0 : comingSpan()));
  if (existing) (*made).mergeFrom(*existing);
  read(*made, !existing);
  if (Access::slot<Message>(message, entry.offset)) flushPins();
  Access::setObject(message, field, made.take());
}

}  // namespace nvxcore
