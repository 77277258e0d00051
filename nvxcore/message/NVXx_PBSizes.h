#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "nvxcore/message/NVXx_PBTypes.h"
#include "nvxcore/platform/Export.h"

// Bytes that values take in the wire encoding. They agree with the writers of NVXx_PBCodedOutputStream, odd
// ones included: lengths are cut to 32 bits for their prefix, a negative enum takes 5 bytes where an Int32
// takes 10.

namespace nvxcore {

class NVXx_PBGeneratedMessage;
class NVXx_PBUnknownFieldSet;

constexpr uint32_t NVXx_PBEncodeZigZag32(int32_t value) {
  return static_cast<uint32_t>(value) << 1 ^ static_cast<uint32_t>(value >> 31);
}
constexpr uint64_t NVXx_PBEncodeZigZag64(int64_t value) {
  return static_cast<uint64_t>(value) << 1 ^ static_cast<uint64_t>(value >> 63);
}

constexpr size_t NVXx_PBComputeRawVarint32Size(uint32_t value) {
  return static_cast<size_t>((std::bit_width(value | 1) * 9 + 64) / 64);
}
constexpr size_t NVXx_PBComputeRawVarint32SizeForInteger(int32_t value) {
  return NVXx_PBComputeRawVarint32Size(static_cast<uint32_t>(value));
}
constexpr size_t NVXx_PBComputeRawVarint64Size(uint64_t value) {
  return static_cast<size_t>((std::bit_width(value | 1) * 9 + 64) / 64);
}
constexpr size_t NVXx_PBComputeInt32SizeNoTag(int32_t value) {
  return value < 0 ? 10 : NVXx_PBComputeRawVarint32Size(static_cast<uint32_t>(value));
}
constexpr size_t NVXx_PBComputeSizeTSizeAsInt32NoTag(size_t size) {
  return NVXx_PBComputeInt32SizeNoTag(static_cast<int32_t>(size));
}
constexpr size_t NVXx_PBComputeTagSize(int32_t fieldNumber) {
  return NVXx_PBComputeRawVarint32Size(static_cast<uint32_t>(fieldNumber) << 3);
}
constexpr size_t NVXx_PBComputeWireFormatTagSize(int32_t fieldNumber, NVXx_PBType type) {
  return NVXx_PBComputeTagSize(fieldNumber) * (type == NVXx_PBType::Group ? 2 : 1);
}

constexpr size_t NVXx_PBComputeDoubleSizeNoTag(double) { return 8; }
constexpr size_t NVXx_PBComputeFloatSizeNoTag(float) { return 4; }
constexpr size_t NVXx_PBComputeUInt64SizeNoTag(uint64_t value) {
  return NVXx_PBComputeRawVarint64Size(value);
}
constexpr size_t NVXx_PBComputeInt64SizeNoTag(int64_t value) {
  return NVXx_PBComputeRawVarint64Size(static_cast<uint64_t>(value));
}
constexpr size_t NVXx_PBComputeFixed64SizeNoTag(uint64_t) { return 8; }
constexpr size_t NVXx_PBComputeSFixed64SizeNoTag(int64_t) { return 8; }
constexpr size_t NVXx_PBComputeFixed32SizeNoTag(uint32_t) { return 4; }
constexpr size_t NVXx_PBComputeSFixed32SizeNoTag(int32_t) { return 4; }
constexpr size_t NVXx_PBComputeBoolSizeNoTag(bool) { return 1; }
constexpr size_t NVXx_PBComputeUInt32SizeNoTag(uint32_t value) {
  return NVXx_PBComputeRawVarint32Size(value);
}
constexpr size_t NVXx_PBComputeEnumSizeNoTag(int32_t value) {
  return NVXx_PBComputeRawVarint32Size(static_cast<uint32_t>(value));
}
constexpr size_t NVXx_PBComputeSInt32SizeNoTag(int32_t value) {
  return NVXx_PBComputeRawVarint32Size(NVXx_PBEncodeZigZag32(value));
}
constexpr size_t NVXx_PBComputeSInt64SizeNoTag(int64_t value) {
  return NVXx_PBComputeRawVarint64Size(NVXx_PBEncodeZigZag64(value));
}
/// A length and as many bytes: strings, data and messages.
constexpr size_t NVXx_PBComputePrefixedSize(size_t length) {
  return NVXx_PBComputeRawVarint32Size(static_cast<uint32_t>(length)) + length;
}
constexpr size_t NVXx_PBComputeStringSizeNoTag(std::string_view value) {
  return NVXx_PBComputePrefixedSize(value.size());
}
constexpr size_t NVXx_PBComputeDataSizeNoTag(std::string_view value) {
  return NVXx_PBComputePrefixedSize(value.size());
}
NVXCORE_EXPORT size_t NVXx_PBComputeMessageSizeNoTag(const NVXx_PBGeneratedMessage& value);
NVXCORE_EXPORT size_t NVXx_PBComputeGroupSizeNoTag(const NVXx_PBGeneratedMessage& value);
NVXCORE_EXPORT size_t NVXx_PBComputeUnknownGroupSizeNoTag(const NVXx_PBUnknownFieldSet& value);

#define NVX_PB_SIZE(Name, type)                                                         \
  constexpr size_t NVXx_PBCompute##Name##Size(int32_t fieldNumber, type value) {        \
    return NVXx_PBComputeTagSize(fieldNumber) + NVXx_PBCompute##Name##SizeNoTag(value); \
  }
NVX_PB_SIZE(Double, double)
NVX_PB_SIZE(Float, float)
NVX_PB_SIZE(UInt64, uint64_t)
NVX_PB_SIZE(Int64, int64_t)
NVX_PB_SIZE(Int32, int32_t)
NVX_PB_SIZE(Fixed64, uint64_t)
NVX_PB_SIZE(SFixed64, int64_t)
NVX_PB_SIZE(Fixed32, uint32_t)
NVX_PB_SIZE(SFixed32, int32_t)
NVX_PB_SIZE(Bool, bool)
NVX_PB_SIZE(UInt32, uint32_t)
NVX_PB_SIZE(Enum, int32_t)
NVX_PB_SIZE(SInt32, int32_t)
NVX_PB_SIZE(SInt64, int64_t)
NVX_PB_SIZE(String, std::string_view)
NVX_PB_SIZE(Data, std::string_view)
#undef NVX_PB_SIZE
NVXCORE_EXPORT size_t NVXx_PBComputeMessageSize(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value);
/// The tag counts twice.
NVXCORE_EXPORT size_t NVXx_PBComputeGroupSize(int32_t fieldNumber, const NVXx_PBGeneratedMessage& value);
NVXCORE_EXPORT size_t NVXx_PBComputeUnknownGroupSize(int32_t fieldNumber,
                                                     const NVXx_PBUnknownFieldSet& value);
NVXCORE_EXPORT size_t NVXx_PBComputeMessageSetExtensionSize(int32_t fieldNumber,
                                                            const NVXx_PBGeneratedMessage& value);
constexpr size_t NVXx_PBComputeRawMessageSetExtensionSize(int32_t fieldNumber, std::string_view value) {
  return 4 + NVXx_PBComputeRawVarint32SizeForInteger(fieldNumber) + NVXx_PBComputePrefixedSize(value.size());
}

}  // namespace nvxcore
