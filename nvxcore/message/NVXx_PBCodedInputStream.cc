#include "nvxcore/message/NVXx_PBCodedInputStream.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <vector>

#include "nvxcore/message/internal/PBBytes.h"
#include "nvxcore/message/internal/PBParser.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

/// Which loop of skipping each position belongs to that was passed after the stream first moved back, and how
/// that loop ended. Every position is so looked at a bounded number of times, whatever jumps.
struct NVXx_PBCodedInputStream::Skipping {
  struct Loop {
    uint64_t end;
    int32_t tag;
    bool hasEnded;
  };
  Skipping(uint64_t size, uint64_t currentLimit) : limit(currentLimit), pages(size / kPageSize + 1) {}

  /// What was learned under one limit doesn't hold under another.
  void beginAnew(uint64_t currentLimit) {
    limit = currentLimit;
    loops.clear();
    for (const uint64_t page : usedPages) pages[page].reset();
    usedPages.clear();
  }
  /// The loop of a position, an index into `loops` from 1; 0 where none is known. Room is made for the
  /// positions that come, not for all of the buffer: items lie in each other by the hundred, each with a
  /// stream.
  uint32_t& loopOf(uint64_t position) {
    auto& page = pages[position / kPageSize];
    if (!page) {
      usedPages.push_back(position / kPageSize);
      page = std::make_unique<uint32_t[]>(kPageSize);
    }
    return page[position % kPageSize];
  }

  static constexpr uint64_t kPageSize = 256;
  uint64_t limit;
  std::vector<Loop> loops;

 private:
  std::vector<std::unique_ptr<uint32_t[]>> pages;
  std::vector<uint64_t> usedPages;
};

namespace {

// A position that moved back may lead to what was read before, now as a part of another message, and that
// again back: so a few bytes can ask for time without measure. How many bytes are gone back over in all is
// limited, as a multiple of the input.
uint64_t mostRereads(uint64_t size) { return 4 * size + 65536; }

}  // namespace

NVXx_PBCodedInputStream::NVXx_PBCodedInputStream(const Data& data)
    : _buffer(data), _bytes(data.bytes()), _bufferSize(data.length()), _rereads(mostRereads(_bufferSize)) {}
NVXx_PBCodedInputStream::NVXx_PBCodedInputStream(const NVXx_PBCodedInputStream& outer, const uint8_t* bytes,
                                                 uint64_t size)
    : _buffer(outer._buffer),
      _bytes(bytes),
      _bufferSize(size),
      _copiesBytes(outer._copiesBytes),
      _rereads(outer._rereads),
      _chain(outer._chain + static_cast<uint32_t>(outer._recursionDepth)) {}
NVXx_PBCodedInputStream::NVXx_PBCodedInputStream(NVXx_PBCodedInputStream&&) noexcept = default;
NVXx_PBCodedInputStream::~NVXx_PBCodedInputStream() = default;

void NVXx_PBCodedInputStream::throwTruncated() { throw Exception(kParseErrorException, ""); }

// The order of the two tests, and where the position is left, are told.
void NVXx_PBCodedInputStream::requireBytes(uint64_t count) {
  const uint64_t position = _bufferPos + count;
  if (position > _bufferSize) throwTruncated();
  if (position > _currentLimit) {
    _bufferPos = _currentLimit;
    throwTruncated();
  }
}

void NVXx_PBCodedInputStream::noteMoveBack(uint64_t distance) {
  _hasMovedBack = true;
  if (distance > _rereads) throwTruncated();
  _rereads -= distance;
}

int32_t NVXx_PBCodedInputStream::readTag() {
  if (isAtEnd()) {
    _lastTag = 0;
    return 0;
  }
  _lastTag = readInt32();
  if (_lastTag == 0) throw Exception(kParseErrorException, pbFormat("Invalid last tag %d", 0));
  return _lastTag;
}

void NVXx_PBCodedInputStream::checkLastTagWas(int32_t expected) const {
  if (_lastTag == expected) return;
  throw Exception(kParseErrorException, pbFormat("Last tag: %d should be %d", _lastTag, expected));
}

uint32_t NVXx_PBCodedInputStream::readUInt32() {
  uint32_t result = 0;
  for (int i = 0; i < 10; ++i) {
    requireBytes(1);
    const uint32_t byte = _bytes[_bufferPos++];
    if (i < 5)
      result |=
          (byte & 0x7F) << (7 * i);  // the upper bits of the fifth fall off, later bytes count for nothing
    if (byte < 0x80) return result;
  }
  throw Exception(kParseErrorException, "Unable to read varint32");
}

uint64_t NVXx_PBCodedInputStream::readUInt64() {
  uint64_t result = 0;
  for (int shift = 0; shift < 64; shift += 7) {
    requireBytes(1);
    const uint64_t byte = _bytes[_bufferPos++];
    result |= (byte & 0x7F) << shift;
    if (byte < 0x80) return result;
  }
  throw Exception(kParseErrorException, "Unable to read varint64");
}

uint32_t NVXx_PBCodedInputStream::readFixed32() {
  requireBytes(4);
  uint32_t value;
  std::memcpy(&value, _bytes + _bufferPos, 4);
  _bufferPos += 4;
  return value;
}

uint64_t NVXx_PBCodedInputStream::readFixed64() {
  requireBytes(8);
  uint64_t value;
  std::memcpy(&value, _bytes + _bufferPos, 8);
  _bufferPos += 8;
  return value;
}

double NVXx_PBCodedInputStream::readDouble() { return std::bit_cast<double>(readFixed64()); }
float NVXx_PBCodedInputStream::readFloat() { return std::bit_cast<float>(readFixed32()); }
int32_t NVXx_PBCodedInputStream::readSInt32() { return NVXx_PBDecodeZigZag32(readUInt32()); }
int64_t NVXx_PBCodedInputStream::readSInt64() { return NVXx_PBDecodeZigZag64(readUInt64()); }

NVXx_PBString NVXx_PBCodedInputStream::readString() {
  const int32_t length = readInt32();
  if (length == 0) return NVXx_PBString::sharing(DataAccess::adopt(pbEmptyString()));
  requireBytes(static_cast<uint64_t>(int64_t{length}));
  const uint8_t* bytes = _bytes + _bufferPos;
  _bufferPos += static_cast<uint64_t>(int64_t{length});
  if (length < 0) {
    noteMoveBack(static_cast<uint64_t>(-int64_t{length}));
    return NVXx_PBString::sharing(DataAccess::adopt(pbEmptyString()));
  }
  return NVXx_PBString(std::string_view(reinterpret_cast<const char*>(bytes), static_cast<size_t>(length)));
}

Data NVXx_PBCodedInputStream::readData() {
  const int32_t length = readInt32();
  if (length < 0) return {};
  requireBytes(static_cast<uint64_t>(length));
  const uint8_t* bytes = _bytes + _bufferPos;
  _bufferPos += static_cast<uint64_t>(length);
  return DataAccess::adopt(pbCopyBytes(bytes, static_cast<size_t>(length)));
}

Data NVXx_PBCodedInputStream::readSharedData() {
  if (_copiesBytes || !_buffer) return readData();
  const int32_t length = readInt32();
  if (length < 0) return {};
  requireBytes(static_cast<uint64_t>(length));
  const uint8_t* bytes = _bytes + _bufferPos;
  _bufferPos += static_cast<uint64_t>(length);
  PBBlock* whole = DataAccess::take(Data(_buffer));
  return DataAccess::adopt(pbSliceBytes(whole, bytes, static_cast<size_t>(length)));
}

uint64_t NVXx_PBCodedInputStream::pushLimit(uint64_t byteLimit) {
  const uint64_t limit = byteLimit + _bufferPos;
  const uint64_t old = _currentLimit;
  if (limit > old) {
    throw Exception(kInvalidArgumentException, pbFormat("byteLimit > oldLimit: %ld > %ld",
                                                        static_cast<long>(limit), static_cast<long>(old)));
  }
  _currentLimit = limit;
  return old;
}

void NVXx_PBCodedInputStream::enter() const {
  if (_recursionDepth < kRecursionLimit) return;
  throw Exception(kParseErrorException,
                  pbFormat("recursionDepth(%ld) >= %ld", static_cast<long>(_recursionDepth),
                           static_cast<long>(kRecursionLimit)));
}

// Skipping: without recursion, since groups may lie in each other by the million here.

bool NVXx_PBCodedInputStream::skipField(int32_t tag) {
  switch (tag & 7) {
    case PBWireTypeVarint:
      readInt32();
      return true;
    case PBWireTypeFixed64:
      requireBytes(8);
      _bufferPos += 8;
      return true;
    case PBWireTypeLengthDelimited: {
      const auto length = static_cast<uint64_t>(int64_t{readInt32()});
      requireBytes(length);
      _bufferPos += length;
      if (static_cast<int64_t>(length) < 0) noteMoveBack(0 - length);
      return true;
    }
    case PBWireTypeStartGroup:
      return skipGroups(tag);
    case PBWireTypeEndGroup:
      return false;
    case PBWireTypeFixed32:
      requireBytes(4);
      _bufferPos += 4;
      return true;
    default:
      throw Exception(kParseErrorException, pbFormat("Invalid tag %d", tag));
  }
}

void NVXx_PBCodedInputStream::skipMessage() { skipGroups(0); }

// Passes over the group of a start tag, or over fields to an end when the tag is 0.
bool NVXx_PBCodedInputStream::skipGroups(int32_t startTag) {
  struct Level {
    int32_t startTag;
    uint32_t loop;  // 0 until the stream has moved back
  };
  std::vector<Level> levels{{startTag, 0}};
  if (_skipping && _skipping->limit != _currentLimit) _skipping->beginAnew(_currentLimit);
  for (;;) {
    bool ended = false;
    if (_hasMovedBack) {
      if (!_skipping) _skipping = std::make_unique<Skipping>(_bufferSize, _currentLimit);
      std::vector<Skipping::Loop>& loops = _skipping->loops;
      uint32_t& loop = _skipping->loopOf(_bufferPos);
      if (loop) {
        const Skipping::Loop& former = loops[loop - 1];
        if (!former.hasEnded) throwTruncated();  // it leads back to itself: no end will come
        _bufferPos = former.end;
        _lastTag = former.tag;
        ended = true;
      } else {
        if (!levels.back().loop) {
          loops.push_back({0, 0, false});
          levels.back().loop = static_cast<uint32_t>(loops.size());
        }
        loop = levels.back().loop;
      }
    }
    if (!ended) {
      const int32_t tag = readTag();
      if (tag == 0 || (tag & 7) == PBWireTypeEndGroup) {
        ended = true;
      } else if ((tag & 7) == PBWireTypeStartGroup) {
        levels.push_back({tag, 0});
      } else {
        skipField(tag);
      }
    }
    if (!ended) continue;
    const Level level = levels.back();
    if (level.loop) _skipping->loops[level.loop - 1] = {_bufferPos, _lastTag, true};
    levels.pop_back();
    if (level.startTag) checkLastTagWas((level.startTag & ~7) | PBWireTypeEndGroup);
    if (levels.empty()) return true;
  }
}

// Nested messages.

void NVXx_PBCodedInputStream::readMessage(NVXx_PBGeneratedMessage& message,
                                          const NVXx_PBExtensionRegistry* registry) {
  PBParser(*this, registry).readMessage(message);
}

void NVXx_PBCodedInputStream::readGroup(int32_t fieldNumber, NVXx_PBGeneratedMessage& builder,
                                        const NVXx_PBExtensionRegistry* registry) {
  PBParser(*this, registry).readGroup(static_cast<uint32_t>(fieldNumber), builder);
}

void NVXx_PBCodedInputStream::readUnknownGroup(int32_t fieldNumber, NVXx_PBUnknownFieldSet& builder) {
  enter();
  _deepest = std::max(_deepest, ++_recursionDepth);
  builder.mergeFromCodedInputStream(*this);
  checkLastTagWas(static_cast<int32_t>(static_cast<uint32_t>(fieldNumber) << 3 | PBWireTypeEndGroup));
  --_recursionDepth;
}

}  // namespace nvxcore
