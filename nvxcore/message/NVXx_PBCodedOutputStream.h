#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/message/NVXx_PBTypes.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/OutputStream.h"

namespace nvxcore {

class NVXx_PBGeneratedMessage;
class NVXx_PBUnknownFieldSet;

inline constexpr char kPBOutOfSpaceException[] = "OutOfSpace";
inline constexpr char kPBWriteFailedException[] = "WriteFailed";

/// Writes the wire encoding into a caller's buffer of fixed length, or through a work buffer into an output
/// stream. A full buffer without an output throws OutOfSpace, a short write WriteFailed. Nothing is out until
/// `flush` or destruction; the destructor flushes, closes the output, and swallows what either throws. One
/// thread at a time.
class NVXCORE_EXPORT NVXx_PBCodedOutputStream {
 public:
  static constexpr size_t kDefaultBufferSize = 4096;

  /// Opens the output.
  explicit NVXx_PBCodedOutputStream(std::shared_ptr<OutputStream> output,
                                    size_t bufferSize = kDefaultBufferSize);
  /// Writes into the buffer, at its present length; it must outlive the stream and not change its length.
  explicit NVXx_PBCodedOutputStream(MutableData& data);
  NVXx_PBCodedOutputStream(std::shared_ptr<OutputStream> output, MutableData& data);
  NVXx_PBCodedOutputStream(const NVXx_PBCodedOutputStream&) = delete;
  NVXx_PBCodedOutputStream& operator=(const NVXx_PBCodedOutputStream&) = delete;
  ~NVXx_PBCodedOutputStream();
  static NVXx_PBCodedOutputStream streamWithOutputStream(std::shared_ptr<OutputStream> output,
                                                         size_t bufferSize = kDefaultBufferSize) {
    return NVXx_PBCodedOutputStream(std::move(output), bufferSize);
  }
  static NVXx_PBCodedOutputStream streamWithData(MutableData& data) { return NVXx_PBCodedOutputStream(data); }
  /// Writes into bare memory.
  static NVXx_PBCodedOutputStream overMemory(uint8_t* bytes, size_t size) {
    return NVXx_PBCodedOutputStream(bytes, size);
  }

  void flush();
  /// Bytes in the work buffer that are not flushed.
  size_t position() const { return _position; }

  // Values alone.
  void writeDoubleNoTag(double value);
  void writeFloatNoTag(float value);
  void writeUInt64NoTag(uint64_t value) { writeRawVarint64(value); }
  void writeInt64NoTag(int64_t value) { writeRawVarint64(static_cast<uint64_t>(value)); }
  void writeInt32NoTag(int32_t value);
  void writeFixed64NoTag(uint64_t value) { writeRawLittleEndian64(value); }
  void writeFixed32NoTag(uint32_t value) { writeRawLittleEndian32(value); }
  void writeBoolNoTag(bool value) { writeRawByte(value ? 1 : 0); }
  void writeStringNoTag(std::string_view value);
  void writeGroupNoTag(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value);
  void writeUnknownGroupNoTag(int32_t fieldNumber, const NVXx_PBUnknownFieldSet& value);
  void writeMessageNoTag(const NVXx_PBGeneratedMessage& value);
  void writeDataNoTag(std::string_view value);
  void writeUInt32NoTag(uint32_t value) { writeRawVarint32(value); }
  void writeEnumNoTag(int32_t value) { writeRawVarint32(static_cast<uint32_t>(value)); }
  void writeSFixed32NoTag(int32_t value) { writeRawLittleEndian32(static_cast<uint32_t>(value)); }
  void writeSFixed64NoTag(int64_t value) { writeRawLittleEndian64(static_cast<uint64_t>(value)); }
  void writeSInt32NoTag(int32_t value);
  void writeSInt64NoTag(int64_t value);

  // Fields: the tag, then the value.
  void writeDouble(int32_t fieldNumber, double value);
  void writeFloat(int32_t fieldNumber, float value);
  void writeUInt64(int32_t fieldNumber, uint64_t value);
  void writeInt64(int32_t fieldNumber, int64_t value);
  void writeInt32(int32_t fieldNumber, int32_t value);
  void writeFixed64(int32_t fieldNumber, uint64_t value);
  void writeFixed32(int32_t fieldNumber, uint32_t value);
  void writeBool(int32_t fieldNumber, bool value);
  void writeString(int32_t fieldNumber, std::string_view value);
  void writeGroup(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value);
  void writeUnknownGroup(int32_t fieldNumber, const NVXx_PBUnknownFieldSet& value);
  void writeMessage(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value);
  void writeData(int32_t fieldNumber, std::string_view value);
  void writeUInt32(int32_t fieldNumber, uint32_t value);
  void writeEnum(int32_t fieldNumber, int32_t value);
  void writeSFixed32(int32_t fieldNumber, int32_t value);
  void writeSFixed64(int32_t fieldNumber, int64_t value);
  void writeSInt32(int32_t fieldNumber, int32_t value);
  void writeSInt64(int32_t fieldNumber, int64_t value);

  // Arrays of scalars. A tag of 0 writes each element as a field; any other is written as it is before a
  // packed run, of which an empty array writes nothing. An array of another value type throws the array's
  // mismatch.
  void writeDoubles(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeFloats(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeUInt64s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeInt64s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeInt32s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeUInt32s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeFixed64s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeFixed32s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeSFixed32s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeSFixed64s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeBools(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeEnums(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeSInt32s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  void writeSInt64s(int32_t fieldNumber, const NVXx_PBArray& values, uint32_t tag);
  // Arrays of objects: each as a field.
  void writeStrings(int32_t fieldNumber, const NVXx_PBArray& values);
  void writeMessages(int32_t fieldNumber, const NVXx_PBArray& values);
  /// An absent element is written as an empty one.
  void writeDatas(int32_t fieldNumber, const NVXx_PBArray& values);
  void writeGroups(int32_t fieldNumber, const NVXx_PBArray& values);
  void writeUnknownGroups(int32_t fieldNumber, const NVXx_PBArray& values);

  void writeMessageSetExtension(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value);
  void writeRawMessageSetExtension(int32_t fieldNumber, std::string_view value);

  // Raw.
  void writeRawByte(uint8_t value) {
    if (_position == _size) refresh();
    _bytes[_position++] = value;
  }
  void writeRawData(std::string_view data) {
    writeRawPtr(reinterpret_cast<const uint8_t*>(data.data()), 0, data.size());
  }
  void writeRawPtr(const void* bytes, size_t offset, size_t length);
  void writeTag(int32_t fieldNumber, PBWireType format) {
    writeRawVarint32(NVXx_PBWireFormatMakeTag(static_cast<uint32_t>(fieldNumber), format));
  }
  void writeRawVarint32(uint32_t value);
  void writeRawVarint64(uint64_t value);
  /// The size, cut to 32 bits.
  void writeRawVarintSizeTAs32(size_t size) { writeRawVarint32(static_cast<uint32_t>(size)); }
  void writeRawLittleEndian32(uint32_t value);
  void writeRawLittleEndian64(uint64_t value);

 private:
  NVXx_PBCodedOutputStream(uint8_t* bytes, size_t size) : _bytes(bytes), _size(size) {}
  void refresh();

  uint8_t* _bytes;
  size_t _size;
  size_t _position = 0;
  std::shared_ptr<OutputStream> _output;
  MutableData _own;
};

}  // namespace nvxcore
