#include "nvxcore/message/NVXx_PBCodedOutputStream.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/internal/PBArrayAccess.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

NVXx_PBCodedOutputStream::NVXx_PBCodedOutputStream(std::shared_ptr<OutputStream> output, size_t bufferSize)
    : _output(std::move(output)) {
  _own.setLength(bufferSize);
  _bytes = _own.bytes();
  _size = bufferSize;
  if (_output) _output->open();
}

NVXx_PBCodedOutputStream::NVXx_PBCodedOutputStream(MutableData& data)
    : _bytes(data.bytes()), _size(data.length()) {}

NVXx_PBCodedOutputStream::NVXx_PBCodedOutputStream(std::shared_ptr<OutputStream> output, MutableData& data)
    : _bytes(data.bytes()), _size(data.length()), _output(std::move(output)) {
  if (_output) _output->open();
}

NVXx_PBCodedOutputStream::~NVXx_PBCodedOutputStream() {
  try {
    flush();
  } catch (...) {
  }
  try {
    if (_output) _output->close();
  } catch (...) {
  }
}

void NVXx_PBCodedOutputStream::flush() {
  if (_output) refresh();
}

void NVXx_PBCodedOutputStream::refresh() {
  if (!_output) throw Exception(kPBOutOfSpaceException, "");
  if (!_position) return;
  const int64_t written = _output->write(_bytes, _position);
  if (written != static_cast<int64_t>(_position)) throw Exception(kPBWriteFailedException, "");
  _position = 0;
}

void NVXx_PBCodedOutputStream::writeRawPtr(const void* bytes, size_t offset, size_t length) {
  if (!bytes || !length) return;
  const uint8_t* from = static_cast<const uint8_t*>(bytes) + offset;
  const size_t space = _size - _position;
  if (length <= space) {
    std::memcpy(_bytes + _position, from, length);
    _position += length;
    return;
  }
  if (space) std::memcpy(_bytes + _position, from, space);
  _position = _size;
  refresh();
  from += space;
  length -= space;
  if (length <= _size) {
    std::memcpy(_bytes, from, length);
    _position = length;
  } else {
    // Straight on; what this write answers is not looked at.
    _output->write(from, length);
  }
}

void NVXx_PBCodedOutputStream::writeRawVarint32(uint32_t value) {
  while (value >= 0x80) {
    writeRawByte(static_cast<uint8_t>(value | 0x80));
    value >>= 7;
  }
  writeRawByte(static_cast<uint8_t>(value));
}

void NVXx_PBCodedOutputStream::writeRawVarint64(uint64_t value) {
  while (value >= 0x80) {
    writeRawByte(static_cast<uint8_t>(value | 0x80));
    value >>= 7;
  }
  writeRawByte(static_cast<uint8_t>(value));
}

void NVXx_PBCodedOutputStream::writeRawLittleEndian32(uint32_t value) {
  for (int i = 0; i < 4; ++i) writeRawByte(static_cast<uint8_t>(value >> (8 * i)));
}

void NVXx_PBCodedOutputStream::writeRawLittleEndian64(uint64_t value) {
  for (int i = 0; i < 8; ++i) writeRawByte(static_cast<uint8_t>(value >> (8 * i)));
}

// Values alone.

void NVXx_PBCodedOutputStream::writeDoubleNoTag(double value) {
  writeRawLittleEndian64(std::bit_cast<uint64_t>(value));
}
void NVXx_PBCodedOutputStream::writeFloatNoTag(float value) {
  writeRawLittleEndian32(std::bit_cast<uint32_t>(value));
}
void NVXx_PBCodedOutputStream::writeInt32NoTag(int32_t value) {
  if (value >= 0) {
    writeRawVarint32(static_cast<uint32_t>(value));
  } else {
    writeRawVarint64(static_cast<uint64_t>(int64_t{value}));
  }
}
void NVXx_PBCodedOutputStream::writeSInt32NoTag(int32_t value) {
  writeRawVarint32(NVXx_PBEncodeZigZag32(value));
}
void NVXx_PBCodedOutputStream::writeSInt64NoTag(int64_t value) {
  writeRawVarint64(NVXx_PBEncodeZigZag64(value));
}
void NVXx_PBCodedOutputStream::writeStringNoTag(std::string_view value) {
  writeRawVarintSizeTAs32(value.size());
  writeRawData(value);
}
void NVXx_PBCodedOutputStream::writeDataNoTag(std::string_view value) {
  writeRawVarintSizeTAs32(value.size());
  writeRawData(value);
}
void NVXx_PBCodedOutputStream::writeGroupNoTag(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value) {
  value.writeToCodedOutputStream(*this);
  writeTag(fieldNumber, PBWireTypeEndGroup);
}
void NVXx_PBCodedOutputStream::writeUnknownGroupNoTag(int32_t fieldNumber,
                                                      const NVXx_PBUnknownFieldSet& value) {
  value.writeToCodedOutputStream(*this);
  writeTag(fieldNumber, PBWireTypeEndGroup);
}

// Fields and arrays of scalars.

namespace {

void requireType(const NVXx_PBArray& values, PBArrayValueType type, const char* name) {
  if (values.valueType() == type) return;
  throw Exception(kPBArrayTypeMismatchException,
                  std::string("array value type mismatch (expected '") + name + "')");
}

}  // namespace

#define NVX_PB_WRITE(Name, type, format, stored, arrayType)                                      \
  void NVXx_PBCodedOutputStream::write##Name(int32_t fieldNumber, type value) {                  \
    writeTag(fieldNumber, format);                                                               \
    write##Name##NoTag(value);                                                                   \
  }                                                                                              \
  void NVXx_PBCodedOutputStream::write##Name##s(int32_t fieldNumber, const NVXx_PBArray& values, \
                                                uint32_t tag) {                                  \
    requireType(values, arrayType, #arrayType);                                                  \
    const stored* element = static_cast<const stored*>(values.data());                           \
    const stored* const end = element + values.count();                                          \
    if (!tag) {                                                                                  \
      for (; element < end; ++element) write##Name(fieldNumber, static_cast<type>(*element));    \
      return;                                                                                    \
    }                                                                                            \
    if (element == end) return;                                                                  \
    writeRawVarint32(tag);                                                                       \
    size_t size = 0;                                                                             \
    for (const stored* e = element; e < end; ++e) {                                              \
      size += NVXx_PBCompute##Name##SizeNoTag(static_cast<type>(*e));                            \
    }                                                                                            \
    writeRawVarintSizeTAs32(size);                                                               \
    for (; element < end; ++element) write##Name##NoTag(static_cast<type>(*element));            \
  }
NVX_PB_WRITE(Double, double, PBWireTypeFixed64, double, PBArrayValueTypeDouble)
NVX_PB_WRITE(Float, float, PBWireTypeFixed32, float, PBArrayValueTypeFloat)
NVX_PB_WRITE(UInt64, uint64_t, PBWireTypeVarint, uint64_t, PBArrayValueTypeUInt64)
NVX_PB_WRITE(Int64, int64_t, PBWireTypeVarint, int64_t, PBArrayValueTypeInt64)
NVX_PB_WRITE(Int32, int32_t, PBWireTypeVarint, int32_t, PBArrayValueTypeInt32)
NVX_PB_WRITE(UInt32, uint32_t, PBWireTypeVarint, uint32_t, PBArrayValueTypeUInt32)
NVX_PB_WRITE(Fixed64, uint64_t, PBWireTypeFixed64, uint64_t, PBArrayValueTypeUInt64)
NVX_PB_WRITE(Fixed32, uint32_t, PBWireTypeFixed32, uint32_t, PBArrayValueTypeUInt32)
NVX_PB_WRITE(SFixed32, int32_t, PBWireTypeFixed32, int32_t, PBArrayValueTypeInt32)
NVX_PB_WRITE(SFixed64, int64_t, PBWireTypeFixed64, int64_t, PBArrayValueTypeInt64)
NVX_PB_WRITE(Bool, bool, PBWireTypeVarint, uint8_t, PBArrayValueTypeBool)
NVX_PB_WRITE(Enum, int32_t, PBWireTypeVarint, int32_t, PBArrayValueTypeInt32)
NVX_PB_WRITE(SInt32, int32_t, PBWireTypeVarint, int32_t, PBArrayValueTypeInt32)
NVX_PB_WRITE(SInt64, int64_t, PBWireTypeVarint, int64_t, PBArrayValueTypeInt64)
#undef NVX_PB_WRITE

// Objects.

void NVXx_PBCodedOutputStream::writeString(int32_t fieldNumber, std::string_view value) {
  writeTag(fieldNumber, PBWireTypeLengthDelimited);
  writeStringNoTag(value);
}
void NVXx_PBCodedOutputStream::writeData(int32_t fieldNumber, std::string_view value) {
  writeTag(fieldNumber, PBWireTypeLengthDelimited);
  writeDataNoTag(value);
}
void NVXx_PBCodedOutputStream::writeMessage(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value) {
  writeTag(fieldNumber, PBWireTypeLengthDelimited);
  writeMessageNoTag(value);
}
void NVXx_PBCodedOutputStream::writeGroup(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value) {
  writeTag(fieldNumber, PBWireTypeStartGroup);
  writeGroupNoTag(fieldNumber, value);
}
void NVXx_PBCodedOutputStream::writeUnknownGroup(int32_t fieldNumber, const NVXx_PBUnknownFieldSet& value) {
  writeTag(fieldNumber, PBWireTypeStartGroup);
  writeUnknownGroupNoTag(fieldNumber, value);
}

namespace {

template <class Handler>
void forEachObject(const NVXx_PBArray& values, PBObjectKind kind, Handler handler) {
  requireType(values, PBArrayValueTypeObject, "PBArrayValueTypeObject");
  const size_t count = values.count();
  if (count && values.objectKind() != kind) {
    throw Exception(kPBArrayTypeMismatchException,
                    "array value type mismatch (expected 'PBArrayValueTypeObject')");
  }
  void* const* elements = PBArrayAccess::elements<void*>(values);
  for (size_t i = 0; i < count; ++i) handler(elements[i]);
}

}  // namespace

void NVXx_PBCodedOutputStream::writeStrings(int32_t fieldNumber, const NVXx_PBArray& values) {
  forEachObject(values, PBObjectKind::String,
                [&](void* element) { writeString(fieldNumber, pbView(static_cast<PBBlock*>(element))); });
}
void NVXx_PBCodedOutputStream::writeDatas(int32_t fieldNumber, const NVXx_PBArray& values) {
  forEachObject(values, PBObjectKind::Data, [&](void* element) {
    writeData(fieldNumber, element ? pbView(static_cast<PBBlock*>(element)) : std::string_view());
  });
}
void NVXx_PBCodedOutputStream::writeMessages(int32_t fieldNumber, const NVXx_PBArray& values) {
  forEachObject(values, PBObjectKind::Message, [&](void* element) {
    writeMessage(fieldNumber, *static_cast<NVXx_PBGeneratedMessage*>(element));
  });
}
void NVXx_PBCodedOutputStream::writeGroups(int32_t fieldNumber, const NVXx_PBArray& values) {
  forEachObject(values, PBObjectKind::Message, [&](void* element) {
    writeGroup(fieldNumber, *static_cast<NVXx_PBGeneratedMessage*>(element));
  });
}
void NVXx_PBCodedOutputStream::writeUnknownGroups(int32_t fieldNumber, const NVXx_PBArray& values) {
  forEachObject(values, PBObjectKind::UnknownFieldSet, [&](void* element) {
    writeUnknownGroup(fieldNumber, *static_cast<NVXx_PBUnknownFieldSet*>(element));
  });
}

void NVXx_PBCodedOutputStream::writeMessageSetExtension(int32_t fieldNumber,
                                                        const NVXx_PBGeneratedMessage& value) {
  writeRawByte(11);
  writeRawByte(16);
  writeRawVarint32(static_cast<uint32_t>(fieldNumber));
  writeMessage(3, value);
  writeRawByte(12);
}
void NVXx_PBCodedOutputStream::writeRawMessageSetExtension(int32_t fieldNumber, std::string_view value) {
  writeRawByte(11);
  writeRawByte(16);
  writeRawVarint32(static_cast<uint32_t>(fieldNumber));
  writeData(3, value);
  writeRawByte(12);
}

size_t NVXx_PBComputeMessageSizeNoTag(const NVXx_PBGeneratedMessage& value) {
  return NVXx_PBComputePrefixedSize(value.serializedSize());
}
size_t NVXx_PBComputeGroupSizeNoTag(const NVXx_PBGeneratedMessage& value) { return value.serializedSize(); }
size_t NVXx_PBComputeUnknownGroupSizeNoTag(const NVXx_PBUnknownFieldSet& value) {
  return value.serializedSize();
}
size_t NVXx_PBComputeMessageSize(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value) {
  return NVXx_PBComputeTagSize(fieldNumber) + NVXx_PBComputeMessageSizeNoTag(value);
}
size_t NVXx_PBComputeGroupSize(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value) {
  return NVXx_PBComputeTagSize(fieldNumber) * 2 + value.serializedSize();
}
size_t NVXx_PBComputeUnknownGroupSize(int32_t fieldNumber, const NVXx_PBUnknownFieldSet& value) {
  return NVXx_PBComputeTagSize(fieldNumber) * 2 + value.serializedSize();
}
size_t NVXx_PBComputeMessageSetExtensionSize(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value) {
  return 4 + NVXx_PBComputeRawVarint32SizeForInteger(fieldNumber) + NVXx_PBComputeMessageSizeNoTag(value);
}

}  // namespace nvxcore
