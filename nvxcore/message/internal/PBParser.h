#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/internal/PBMessageAccess.h"

namespace nvxcore {

/// Reads messages from a stream: one merge loop for all classes.
///
/// Regular input is read with the position in a register; whatever is irregular is left to the stream's plain
/// readers, so that failures and the positions they leave are theirs.
class PBParser {
 public:
  /// `dropsOnFailure`: nobody sees the message when the parse fails, so that what it alone owns can be merged
  /// into where it lies.
  PBParser(NVXx_PBCodedInputStream& stream, const NVXx_PBExtensionRegistry* registry,
           bool dropsOnFailure = false);
  PBParser(const PBParser&) = delete;
  PBParser& operator=(const PBParser&) = delete;
  ~PBParser();

  /// The merge loop: to tag 0 or an end-group tag. `isFresh`: the message was just made by `create`.
  void merge(NVXx_PBGeneratedMessage& message, bool isFresh = false);
  void readMessage(NVXx_PBGeneratedMessage& message, bool isFresh = false);
  void readGroup(uint32_t number, NVXx_PBGeneratedMessage& message, bool isFresh = false);
  /// For the end of a parse whose stream nobody reads from again: its own count of the buffer becomes one of
  /// the pins.
  void handOverBuffer() {
    if (!_pins) return;
    if (--_pins) flushPins();
    DataAccess::take(std::move(_stream._buffer));
  }
  /// A new message that shares the input, if that is to be shared; it will be read from `span` bytes, where
  /// that is known and not 0.
  NVXx_PBGeneratedMessage* create(const PBClass& messageClass, uint64_t span);
  /// Bytes that are left to read.
  uint64_t left() const { return static_cast<uint64_t>(endOf() - get()); }
  /// What follows the tag of an extension.
  void extension(NVXx_PBGeneratedMessage& message, NVXx_PBExtensionField& field);
  PBValue plainScalar(NVXx_PBType type);

 private:
  using Message = NVXx_PBGeneratedMessage;
  using Array = NVXx_PBMutableArray;
  /// A message or group that is being read.
  struct Frame {
    const Frame* parent;
    uint64_t start;
    uint64_t limit;
    uint64_t deepestBefore;  // how deep the parent had gone before
    Message* message;
  };
  class Nested;
  class Guard;
  class Revisits;
  class Chain;
  struct Loop;
  /// What a run of one field reads with.
  struct Run {
    const PBEntry& entry;
    Message& message;
    const uint8_t* p;
    const uint8_t* const end;
    const uint8_t*& highest;  // as the loop has it
    const uint8_t* tagStart;  // of the last element
    bool goesOn();
  };

  void loop(Message& message, bool isFresh);
  bool anyField(Loop& at);
  void field(Loop& at, const PBEntry& entry);
  static bool isValid(Message& message, const PBEntry& entry, int32_t number);
  NVXx_PBGeneratedMessage* createForCopies(const PBClass& messageClass, uint64_t span);
  uint64_t comingSpan() const;
  void child(const PBEntry& entry, Message& message);
  void childrenRun(Run& run);
  void packed(const PBEntry& entry, Message& message);
  bool packedAtOnce(const PBEntry& entry, Message& message, const uint8_t* p, const uint8_t* end);
  template <class Raw, class Decode>
  void varintRun(Run& run, Decode decode);
  template <class T>
  void addAll(const Run& run, const T* few, uint32_t count);
  template <class T>
  void fixedRun(Run& run);
  void enumRun(Run& run);
  void bytesRun(Run& run);
  void scalarRun(Run& run);
  void setBytes(Loop& at, const PBEntry& entry);
  bool unknown(Message& message, uint32_t tag);
  void messageSetItem(Message& message);
  void addExtensionElement(Message& message, NVXx_PBExtensionField& field);
  void extensionMessage(Message& message, NVXx_PBExtensionField& field);
  void readExtensionMessage(NVXx_PBExtensionField& field, Message& into, bool isFresh);
  Array& arrayOf(const PBEntry& entry, Message& message, uint32_t room);
  void ready(const PBEntry& entry, Message& message, Array& array);
  void plainElement(const PBEntry& entry, Message& message, Array& array);
  PBBlock* sharedBytes(const uint8_t* bytes, size_t length);
  PBBlock* readBlock(bool isString);
  void flushPins();
  static const PBEntry* find(const PBClass& messageClass, uint32_t tag);

  void put(const uint8_t* p) { _stream._bufferPos = static_cast<uint64_t>(p - _stream._bytes); }
  const uint8_t* get() const { return _stream._bytes + _stream._bufferPos; }
  /// Where reading has to stop: the limit or the end of the buffer.
  const uint8_t* endOf() const {
    return _stream._bytes +
           (_stream._currentLimit < _stream._bufferSize ? _stream._currentLimit : _stream._bufferSize);
  }

  /// A length: one and two bytes here.
  int32_t readLength() {
    const uint8_t* p = get();
    if (endOf() - p >= 2) {
      if (p[0] < 0x80) {
        ++_stream._bufferPos;
        return p[0];
      }
      if (p[1] < 0x80) {
        _stream._bufferPos += 2;
        return static_cast<int32_t>((p[0] & 0x7FU) | uint32_t{p[1]} << 7);
      }
    }
    return _stream.readInt32();
  }

  NVXx_PBCodedInputStream& _stream;
  const NVXx_PBExtensionRegistry* const _registry;
  PBBlock* const _input;  // null when bytes are copied
  uint32_t _pins = 0;     // of the input, not yet counted
  const bool _dropsOnFailure;
};

/// Notices that a loop goes in a circle: that a position comes for the third time. (A second pass can still
/// end, by a failure that the first one prepared.) Only positions not above the highest one are looked at,
/// and one of them is kept, at growing distances.
class PBParser::Revisits {
 public:
  void look(const uint8_t* position, NVXx_PBCodedInputStream& stream) {
    if (position == _kept) {
      if (++_visits == 2) stream.throwTruncated();
    } else if (--_left == 0) {
      _kept = position;
      _visits = 0;
      _span *= 2;
      _left = _span;
    }
  }

 private:
  const uint8_t* _kept = nullptr;
  uint64_t _span = 1;
  uint64_t _left = 1;
  int _visits = 0;
};

/// What the loop of one message knows besides its position.
struct PBParser::Loop {
  Loop(Message& into, bool isFresh, bool copies)
      : message(into), messageClass(PBMessageAccess::classOf(into)) {
    if (!isFresh || !PBMessageAccess::hasSlices(into)) return;
    slices = slice = PBMessageAccess::slices(into);
    sliceEnd = slice + messageClass.sliceCount;
    if (!copies) return;
    room = reinterpret_cast<uint8_t*>(&into) + messageClass.parsedSize;
    roomEnd = room + PBMessageAccess::roomBehind(into);
  }
  /// Where the message's slices point to: into the input, or to a copy behind the message. False when there
  /// is no more room.
  bool place(const uint8_t*& bytes, size_t length) {
    if (!roomEnd) return true;
    if (static_cast<size_t>(roomEnd - room) < length) return false;
    pbCopy(room, bytes, length);
    bytes = room;
    room += length;
    return true;
  }
  void noticeMove(const uint8_t* tagStart, const uint8_t* position) {
    if (position <= tagStart && tagStart > highest) highest = tagStart;
  }

  Message& message;
  const PBClass& messageClass;
  PBBlock* slices = nullptr;  // of a message that nobody has seen yet
  PBBlock* slice = nullptr;   // the next one
  const PBBlock* sliceEnd = nullptr;
  uint8_t* room = nullptr;
  const uint8_t* roomEnd = nullptr;
  const uint8_t* highest = nullptr;  // the highest tag that the position moved back from
  Revisits revisits;
};

/// Owns a message until it has a place. The pins must be counted before one of them is given back.
class PBParser::Guard {
 public:
  Guard(PBParser& parser, Message* message) : _parser(parser), _message(message) {}
  ~Guard() {
    if (!_message) return;
    _parser.flushPins();
    _message->release();
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  Message& operator*() const { return *_message; }
  Message* take() { return std::exchange(_message, nullptr); }

 private:
  PBParser& _parser;
  Message* _message;
};

}  // namespace nvxcore
