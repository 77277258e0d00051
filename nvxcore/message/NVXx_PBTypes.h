#pragma once

#include <bit>
#include <cstdint>

namespace nvxcore {

/// The types of fields. The order is fixed: tables and handlers are indexed by it.
enum class NVXx_PBType : uint8_t {
  Bool,
  Fixed32,
  SFixed32,
  Float,
  Fixed64,
  SFixed64,
  Double,
  Int32,
  Int64,
  SInt32,
  SInt64,
  UInt32,
  UInt64,
  Data,
  String,
  Message,
  Group,
  Enum,
};
inline constexpr int kPBTypeCount = 18;

/// What an array holds.
enum PBArrayValueType : int32_t {
  PBArrayValueTypeObject,
  PBArrayValueTypeBool,
  PBArrayValueTypeInt32,
  PBArrayValueTypeUInt32,
  PBArrayValueTypeInt64,
  PBArrayValueTypeUInt64,
  PBArrayValueTypeFloat,
  PBArrayValueTypeDouble,
};

enum PBWireType : int32_t {
  PBWireTypeVarint = 0,
  PBWireTypeFixed64 = 1,
  PBWireTypeLengthDelimited = 2,
  PBWireTypeStartGroup = 3,
  PBWireTypeEndGroup = 4,
  PBWireTypeFixed32 = 5,
};

constexpr bool NVXx_PBTypeIsMessage(NVXx_PBType type) {
  return type == NVXx_PBType::Message || type == NVXx_PBType::Group;
}
constexpr bool NVXx_PBTypeIsObject(NVXx_PBType type) {
  return type >= NVXx_PBType::Data && type <= NVXx_PBType::Group;
}
constexpr bool NVXx_PBTypeIsEnum(NVXx_PBType type) { return type == NVXx_PBType::Enum; }

constexpr PBArrayValueType NVXx_PBArrayValueTypeForPBType(NVXx_PBType type) {
  constexpr PBArrayValueType kTypes[kPBTypeCount] = {
      PBArrayValueTypeBool,   PBArrayValueTypeUInt32, PBArrayValueTypeInt32,  PBArrayValueTypeFloat,
      PBArrayValueTypeUInt64, PBArrayValueTypeInt64,  PBArrayValueTypeDouble, PBArrayValueTypeInt32,
      PBArrayValueTypeInt64,  PBArrayValueTypeInt32,  PBArrayValueTypeInt64,  PBArrayValueTypeUInt32,
      PBArrayValueTypeUInt64, PBArrayValueTypeObject, PBArrayValueTypeObject, PBArrayValueTypeObject,
      PBArrayValueTypeObject, PBArrayValueTypeInt32};
  return kTypes[static_cast<int>(type)];
}

constexpr PBWireType NVXx_PBWireFormatForType(NVXx_PBType type, bool isPacked) {
  constexpr uint8_t kFormats[kPBTypeCount] = {0, 5, 5, 5, 1, 1, 1, 0, 0, 0, 0, 0, 0, 2, 2, 2, 3, 0};
  return isPacked ? PBWireTypeLengthDelimited : static_cast<PBWireType>(kFormats[static_cast<int>(type)]);
}

constexpr uint32_t NVXx_PBWireFormatMakeTag(uint32_t fieldNumber, PBWireType wireType) {
  return fieldNumber << 3 | static_cast<uint32_t>(wireType);
}
constexpr PBWireType NVXx_PBWireFormatGetTagWireType(uint32_t tag) {
  return static_cast<PBWireType>(tag & 7);
}
constexpr uint32_t NVXx_PBWireFormatGetTagFieldNumber(uint32_t tag) { return tag >> 3; }

constexpr double NVXx_PBConvertInt64ToDouble(int64_t bits) { return std::bit_cast<double>(bits); }
constexpr float NVXx_PBConvertInt32ToFloat(int32_t bits) { return std::bit_cast<float>(bits); }
constexpr int64_t NVXx_PBConvertDoubleToInt64(double value) { return std::bit_cast<int64_t>(value); }
constexpr int32_t NVXx_PBConvertFloatToInt32(float value) { return std::bit_cast<int32_t>(value); }

}  // namespace nvxcore
