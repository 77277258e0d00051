#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "nvxcore/message/NVXx_PBString.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBExtensionRegistry;
class NVXx_PBGeneratedMessage;
class NVXx_PBUnknownFieldSet;

inline constexpr char kParseErrorException[] = "NSParseErrorException";

/// Reads the wire encoding from one buffer in memory. Each failure is an Exception, after which the stream is
/// not to be used again; no read returns an error. One thread at a time; the buffer may be shared.
class NVXCORE_EXPORT NVXx_PBCodedInputStream {
 public:
  static constexpr uint64_t kNoLimit = UINT64_MAX;
  static constexpr uint64_t kRecursionLimit = 64;

  explicit NVXx_PBCodedInputStream(const Data& data);
  static NVXx_PBCodedInputStream streamWithData(const Data& data) { return NVXx_PBCodedInputStream(data); }
  NVXx_PBCodedInputStream(NVXx_PBCodedInputStream&&) noexcept;
  NVXx_PBCodedInputStream(const NVXx_PBCodedInputStream&) = delete;
  NVXx_PBCodedInputStream& operator=(const NVXx_PBCodedInputStream&) = delete;
  ~NVXx_PBCodedInputStream();

  /// Strings and data of messages share the buffer, and keep it alive, unless this says that they are copied.
  void setCopiesBytes(bool copies) { _copiesBytes = copies; }
  bool copiesBytes() const { return _copiesBytes; }

  /// The next tag; 0 at the end of the buffer or at the limit.
  int32_t readTag();
  void checkLastTagWas(int32_t expected) const;
  int32_t lastTag() const { return _lastTag; }
  /// Passes over the field of a tag that was just read; false for an end-group tag.
  bool skipField(int32_t tag);
  /// Passes over fields to the end or to an end-group tag.
  void skipMessage();

  double readDouble();
  float readFloat();
  uint64_t readFixed64();
  int64_t readSFixed64() { return static_cast<int64_t>(readFixed64()); }
  uint32_t readFixed32();
  int32_t readSFixed32() { return static_cast<int32_t>(readFixed32()); }
  uint64_t readUInt64();
  int64_t readInt64() { return static_cast<int64_t>(readUInt64()); }
  int64_t readSInt64();
  int32_t readInt32() { return static_cast<int32_t>(readUInt32()); }
  uint32_t readUInt32();
  int32_t readEnum() { return readInt32(); }
  int32_t readSInt32();
  bool readBool() { return readUInt32() != 0; }
  /// The empty string where the bytes are no UTF-8.
  NVXx_PBString readString();
  /// Nothing for a negative length.
  Data readData();
  /// The same, sharing the buffer unless bytes are to be copied.
  Data readSharedData();

  void readMessage(NVXx_PBGeneratedMessage& message, const NVXx_PBExtensionRegistry* registry);
  void readGroup(int32_t fieldNumber, NVXx_PBGeneratedMessage& builder,
                 const NVXx_PBExtensionRegistry* registry);
  void readUnknownGroup(int32_t fieldNumber, NVXx_PBUnknownFieldSet& builder);

  /// The old limit, for popLimit. The length is taken as 64 bits without a sign, and may so wrap.
  uint64_t pushLimit(uint64_t byteLimit);
  void popLimit(uint64_t oldLimit) { _currentLimit = oldLimit; }
  uint64_t bytesUntilLimit() const {
    return _currentLimit == kNoLimit ? kNoLimit : _currentLimit - _bufferPos;
  }
  uint64_t position() const { return _bufferPos; }
  bool isAtEnd() const { return _bufferPos == _bufferSize || _bufferPos == _currentLimit; }

 private:
  friend class PBParser;
  struct Skipping;
  /// Of a message-set item within `outer`; its positions count from 0 again.
  NVXx_PBCodedInputStream(const NVXx_PBCodedInputStream& outer, const uint8_t* bytes, uint64_t size);
  [[noreturn]] void throwTruncated();
  void requireBytes(uint64_t count);
  void enter() const;
  void noteMoveBack(uint64_t distance);
  bool skipGroups(int32_t tag);

  Data _buffer;
  const uint8_t* _bytes;
  uint64_t _bufferSize;
  uint64_t _bufferPos = 0;
  uint64_t _currentLimit = kNoLimit;
  int32_t _lastTag = 0;
  bool _copiesBytes = false;
  bool _hasMovedBack = false;  // so that a position can come again
  uint64_t _recursionDepth = 0;
  uint64_t _deepest = 0;  // the greatest depth within the message or group that is being read
  uint64_t _rereads;      // bytes that may still be gone back over
  uint32_t _chain = 0;    // message-set items, messages and groups that this stream lies in
  std::unique_ptr<Skipping> _skipping;
  const void* _frames = nullptr;  // the parser's open messages and groups
};

inline int32_t NVXx_PBReadTag(NVXx_PBCodedInputStream& stream) { return stream.readTag(); }
inline bool NVXx_PBIsAtEnd(const NVXx_PBCodedInputStream& stream) { return stream.isAtEnd(); }
inline NVXx_PBString NVXx_PBReadRetainedString(NVXx_PBCodedInputStream& stream) {
  return stream.readString();
}
inline Data NVXx_PBReadRetainedData(NVXx_PBCodedInputStream& stream) { return stream.readData(); }
inline uint64_t NVXx_PBPushLimit(NVXx_PBCodedInputStream& stream, uint64_t byteLimit) {
  return stream.pushLimit(byteLimit);
}
inline void NVXx_PBPopLimit(NVXx_PBCodedInputStream& stream, uint64_t oldLimit) { stream.popLimit(oldLimit); }

constexpr int32_t NVXx_PBDecodeZigZag32(uint32_t value) {
  return static_cast<int32_t>((value >> 1) ^ (~(value & 1) + 1));
}
constexpr int64_t NVXx_PBDecodeZigZag64(uint64_t value) {
  return static_cast<int64_t>((value >> 1) ^ (~(value & 1) + 1));
}

}  // namespace nvxcore
