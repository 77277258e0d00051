#pragma once

#include <cstdint>
#include <string_view>

#include "nvxcore/message/NVXx_PBEnumDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBMessageExtensions.h"

namespace nvxcore {

class NVXx_EXChild;
class NVXx_EXSingular;
class NVXx_EXSingular_Corner;
class NVXx_EXRepeated;
class NVXx_EXPacked;
class NVXx_EXDefaults;
class NVXx_EXExtendable;
class NVXx_EXMessageSet;
class NVXx_EXItem;
class NVXx_EXEmpty;
class NVXx_EXHolder;

enum EXColor : int32_t {
  EXColor_Red = 0,
  EXColor_Green = 1,
  EXColor_DarkBlue = -2,
  EXColor_StringPiece = 3,
  EXColor_AlsoGreen = 1,
};
enum EXCode : int32_t {};

class NVXx_EXExampleRoot : public NVXx_PBRootObject {
 public:
  static const PBFile& file();
  static NVXx_PBExtensionRegistry& extensionRegistry() { return file().extensionRegistry(); }
  static NVXx_PBExtensionField* extensionNamed(std::string_view name) { return file().extensionNamed(name); }
  static Extension<bool> extBool() { return Extension<bool>(NVXx_EXExampleRoot::file().extension(0)); }
  static Extension<uint32_t> extFixed32() {
    return Extension<uint32_t>(NVXx_EXExampleRoot::file().extension(1));
  }
  static Extension<int32_t> extSFixed32() {
    return Extension<int32_t>(NVXx_EXExampleRoot::file().extension(2));
  }
  static Extension<float> extFloat() { return Extension<float>(NVXx_EXExampleRoot::file().extension(3)); }
  static Extension<uint64_t> extFixed64() {
    return Extension<uint64_t>(NVXx_EXExampleRoot::file().extension(4));
  }
  static Extension<int64_t> extSFixed64() {
    return Extension<int64_t>(NVXx_EXExampleRoot::file().extension(5));
  }
  static Extension<double> extDouble() { return Extension<double>(NVXx_EXExampleRoot::file().extension(6)); }
  static Extension<int32_t> extInt32() { return Extension<int32_t>(NVXx_EXExampleRoot::file().extension(7)); }
  static Extension<int64_t> extInt64() { return Extension<int64_t>(NVXx_EXExampleRoot::file().extension(8)); }
  static Extension<int32_t> extSInt32() {
    return Extension<int32_t>(NVXx_EXExampleRoot::file().extension(9));
  }
  static Extension<int64_t> extSInt64() {
    return Extension<int64_t>(NVXx_EXExampleRoot::file().extension(10));
  }
  static Extension<uint32_t> extUInt32() {
    return Extension<uint32_t>(NVXx_EXExampleRoot::file().extension(11));
  }
  static Extension<uint64_t> extUInt64() {
    return Extension<uint64_t>(NVXx_EXExampleRoot::file().extension(12));
  }
  static Extension<Data> extData() { return Extension<Data>(NVXx_EXExampleRoot::file().extension(13)); }
  static Extension<NVXx_PBString> extString() {
    return Extension<NVXx_PBString>(NVXx_EXExampleRoot::file().extension(14));
  }
  static Extension<NVXx_EXChild> extMessage() {
    return Extension<NVXx_EXChild>(NVXx_EXExampleRoot::file().extension(15));
  }
  static Extension<NVXx_EXSingular_Corner> extGroup() {
    return Extension<NVXx_EXSingular_Corner>(NVXx_EXExampleRoot::file().extension(16));
  }
  static Extension<EXColor> extEnum() { return Extension<EXColor>(NVXx_EXExampleRoot::file().extension(17)); }
  static RepeatedExtension<bool> extBoolArray() {
    return RepeatedExtension<bool>(NVXx_EXExampleRoot::file().extension(18));
  }
  static RepeatedExtension<uint32_t> extFixed32Array() {
    return RepeatedExtension<uint32_t>(NVXx_EXExampleRoot::file().extension(19));
  }
  static RepeatedExtension<int32_t> extSFixed32Array() {
    return RepeatedExtension<int32_t>(NVXx_EXExampleRoot::file().extension(20));
  }
  static RepeatedExtension<float> extFloatArray() {
    return RepeatedExtension<float>(NVXx_EXExampleRoot::file().extension(21));
  }
  static RepeatedExtension<uint64_t> extFixed64Array() {
    return RepeatedExtension<uint64_t>(NVXx_EXExampleRoot::file().extension(22));
  }
  static RepeatedExtension<int64_t> extSFixed64Array() {
    return RepeatedExtension<int64_t>(NVXx_EXExampleRoot::file().extension(23));
  }
  static RepeatedExtension<double> extDoubleArray() {
    return RepeatedExtension<double>(NVXx_EXExampleRoot::file().extension(24));
  }
  static RepeatedExtension<int32_t> extInt32Array() {
    return RepeatedExtension<int32_t>(NVXx_EXExampleRoot::file().extension(25));
  }
  static RepeatedExtension<int64_t> extInt64Array() {
    return RepeatedExtension<int64_t>(NVXx_EXExampleRoot::file().extension(26));
  }
  static RepeatedExtension<int32_t> extSInt32Array() {
    return RepeatedExtension<int32_t>(NVXx_EXExampleRoot::file().extension(27));
  }
  static RepeatedExtension<int64_t> extSInt64Array() {
    return RepeatedExtension<int64_t>(NVXx_EXExampleRoot::file().extension(28));
  }
  static RepeatedExtension<uint32_t> extUInt32Array() {
    return RepeatedExtension<uint32_t>(NVXx_EXExampleRoot::file().extension(29));
  }
  static RepeatedExtension<uint64_t> extUInt64Array() {
    return RepeatedExtension<uint64_t>(NVXx_EXExampleRoot::file().extension(30));
  }
  static RepeatedExtension<Data> extDataArray() {
    return RepeatedExtension<Data>(NVXx_EXExampleRoot::file().extension(31));
  }
  static RepeatedExtension<NVXx_PBString> extStringArray() {
    return RepeatedExtension<NVXx_PBString>(NVXx_EXExampleRoot::file().extension(32));
  }
  static RepeatedExtension<NVXx_EXChild> extMessageArray() {
    return RepeatedExtension<NVXx_EXChild>(NVXx_EXExampleRoot::file().extension(33));
  }
  static RepeatedExtension<NVXx_EXSingular_Corner> extGroupArray() {
    return RepeatedExtension<NVXx_EXSingular_Corner>(NVXx_EXExampleRoot::file().extension(34));
  }
  static RepeatedExtension<EXColor> extEnumArray() {
    return RepeatedExtension<EXColor>(NVXx_EXExampleRoot::file().extension(35));
  }
  static RepeatedExtension<bool> extBoolPacked() {
    return RepeatedExtension<bool>(NVXx_EXExampleRoot::file().extension(36));
  }
  static RepeatedExtension<uint32_t> extFixed32Packed() {
    return RepeatedExtension<uint32_t>(NVXx_EXExampleRoot::file().extension(37));
  }
  static RepeatedExtension<int32_t> extSFixed32Packed() {
    return RepeatedExtension<int32_t>(NVXx_EXExampleRoot::file().extension(38));
  }
  static RepeatedExtension<float> extFloatPacked() {
    return RepeatedExtension<float>(NVXx_EXExampleRoot::file().extension(39));
  }
  static RepeatedExtension<uint64_t> extFixed64Packed() {
    return RepeatedExtension<uint64_t>(NVXx_EXExampleRoot::file().extension(40));
  }
  static RepeatedExtension<int64_t> extSFixed64Packed() {
    return RepeatedExtension<int64_t>(NVXx_EXExampleRoot::file().extension(41));
  }
  static RepeatedExtension<double> extDoublePacked() {
    return RepeatedExtension<double>(NVXx_EXExampleRoot::file().extension(42));
  }
  static RepeatedExtension<int32_t> extInt32Packed() {
    return RepeatedExtension<int32_t>(NVXx_EXExampleRoot::file().extension(43));
  }
  static RepeatedExtension<int64_t> extInt64Packed() {
    return RepeatedExtension<int64_t>(NVXx_EXExampleRoot::file().extension(44));
  }
  static RepeatedExtension<int32_t> extSInt32Packed() {
    return RepeatedExtension<int32_t>(NVXx_EXExampleRoot::file().extension(45));
  }
  static RepeatedExtension<int64_t> extSInt64Packed() {
    return RepeatedExtension<int64_t>(NVXx_EXExampleRoot::file().extension(46));
  }
  static RepeatedExtension<uint32_t> extUInt32Packed() {
    return RepeatedExtension<uint32_t>(NVXx_EXExampleRoot::file().extension(47));
  }
  static RepeatedExtension<uint64_t> extUInt64Packed() {
    return RepeatedExtension<uint64_t>(NVXx_EXExampleRoot::file().extension(48));
  }
  static RepeatedExtension<EXColor> extEnumPacked() {
    return RepeatedExtension<EXColor>(NVXx_EXExampleRoot::file().extension(49));
  }
  static Extension<NVXx_PBString> extName() {
    return Extension<NVXx_PBString>(NVXx_EXExampleRoot::file().extension(50));
  }
  static Extension<Data> extBlob() { return Extension<Data>(NVXx_EXExampleRoot::file().extension(51)); }
  static Extension<int64_t> extBig() { return Extension<int64_t>(NVXx_EXExampleRoot::file().extension(52)); }
  static Extension<EXColor> extTint() { return Extension<EXColor>(NVXx_EXExampleRoot::file().extension(53)); }
  static Extension<NVXx_EXChild> childInSet() {
    return Extension<NVXx_EXChild>(NVXx_EXExampleRoot::file().extension(56));
  }
  static Extension<NVXx_EXMessageSet> setInSet() {
    return Extension<NVXx_EXMessageSet>(NVXx_EXExampleRoot::file().extension(57));
  }
};

inline bool EXColorIsValidValue(int32_t value) { return NVXx_EXExampleRoot::file().enumIsValid(0, value); }
struct EXColorEnumDescriptor : NVXx_PBGeneratedEnumDescriptor {
  static const NVXx_PBEnumDescriptor& enumDescriptor() {
    return NVXx_EXExampleRoot::file().enumDescriptor(0);
  }
};
inline bool EXCodeIsValidValue(int32_t value) { return NVXx_EXExampleRoot::file().enumIsValid(1, value); }
struct EXCodeEnumDescriptor : NVXx_PBGeneratedEnumDescriptor {
  static const NVXx_PBEnumDescriptor& enumDescriptor() {
    return NVXx_EXExampleRoot::file().enumDescriptor(1);
  }
};

class NVXx_EXChild final : public PBMessageOf<NVXx_EXChild> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(0); }

  int32_t value() const { return pb_scalar<int32_t>(0, 4); }
  void setValue(int32_t value) { pb_setScalar<int32_t>(0, 4, value); }
  bool hasValue() const { return pb_has(0); }
  void setHasValue(bool has) { pb_setHas(0, has); }

  std::string_view label() const { return pb_bytes(1, 8); }
  NVXx_PBString label_handle() const { return pb_string(1); }
  void setLabel(const PBStringArgument& value) { pb_setString(1, value); }
  bool hasLabel() const { return pb_has(1); }
  void setHasLabel(bool has) { pb_setHas(1, has); }

  const NVXx_EXChild& child() const { return pb_child<NVXx_EXChild>(16, 2); }
  NVXx_EXChild& child() { return pb_child<NVXx_EXChild>(16, 2); }
  void setChild(Ref<NVXx_EXChild> value);
  bool hasChild() const { return pb_has(2); }
  void setHasChild(bool has) { pb_setHas(2, has); }

  const NVXx_PBMutableArray& stepArray() const { return pb_array(24, 3); }
  NVXx_PBMutableArray& stepArray() { return pb_array(24, 3); }
  void setStepArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(3, std::move(value)); }
  bool hasStepArray() const { return pb_has(3); }
  void setHasStepArray(bool has) { pb_setHas(3, has); }

  const NVXx_PBMutableArray& childArray() const { return pb_array(32, 4); }
  NVXx_PBMutableArray& childArray() { return pb_array(32, 4); }
  void setChildArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(4, std::move(value)); }
  bool hasChildArray() const { return pb_has(4); }
  void setHasChildArray(bool has) { pb_setHas(4, has); }
};

class NVXx_EXSingular final : public PBMessageOf<NVXx_EXSingular> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(1); }

  bool flag() const { return pb_bool(0, 4); }
  void setFlag(bool value) { pb_setBool(0, 4, value); }
  bool hasFlag() const { return pb_has(0); }
  void setHasFlag(bool has) { pb_setHas(0, has); }

  uint32_t fixed32() const { return pb_scalar<uint32_t>(1, 8); }
  void setFixed32(uint32_t value) { pb_setScalar<uint32_t>(1, 8, value); }
  bool hasFixed32() const { return pb_has(1); }
  void setHasFixed32(bool has) { pb_setHas(1, has); }

  int32_t sFixed32() const { return pb_scalar<int32_t>(2, 12); }
  void setSFixed32(int32_t value) { pb_setScalar<int32_t>(2, 12, value); }
  bool hasSFixed32() const { return pb_has(2); }
  void setHasSFixed32(bool has) { pb_setHas(2, has); }

  float ratio() const { return pb_scalar<float>(3, 16); }
  void setRatio(float value) { pb_setScalar<float>(3, 16, value); }
  bool hasRatio() const { return pb_has(3); }
  void setHasRatio(bool has) { pb_setHas(3, has); }

  uint64_t fixed64() const { return pb_scalar<uint64_t>(4, 40); }
  void setFixed64(uint64_t value) { pb_setScalar<uint64_t>(4, 40, value); }
  bool hasFixed64() const { return pb_has(4); }
  void setHasFixed64(bool has) { pb_setHas(4, has); }

  int64_t sFixed64() const { return pb_scalar<int64_t>(5, 48); }
  void setSFixed64(int64_t value) { pb_setScalar<int64_t>(5, 48, value); }
  bool hasSFixed64() const { return pb_has(5); }
  void setHasSFixed64(bool has) { pb_setHas(5, has); }

  double measure() const { return pb_scalar<double>(6, 56); }
  void setMeasure(double value) { pb_setScalar<double>(6, 56, value); }
  bool hasMeasure() const { return pb_has(6); }
  void setHasMeasure(bool has) { pb_setHas(6, has); }

  int32_t int32() const { return pb_scalar<int32_t>(7, 20); }
  void setInt32(int32_t value) { pb_setScalar<int32_t>(7, 20, value); }
  bool hasInt32() const { return pb_has(7); }
  void setHasInt32(bool has) { pb_setHas(7, has); }

  int64_t int64() const { return pb_scalar<int64_t>(8, 64); }
  void setInt64(int64_t value) { pb_setScalar<int64_t>(8, 64, value); }
  bool hasInt64() const { return pb_has(8); }
  void setHasInt64(bool has) { pb_setHas(8, has); }

  int32_t sInt32() const { return pb_scalar<int32_t>(9, 24); }
  void setSInt32(int32_t value) { pb_setScalar<int32_t>(9, 24, value); }
  bool hasSInt32() const { return pb_has(9); }
  void setHasSInt32(bool has) { pb_setHas(9, has); }

  int64_t sInt64() const { return pb_scalar<int64_t>(10, 72); }
  void setSInt64(int64_t value) { pb_setScalar<int64_t>(10, 72, value); }
  bool hasSInt64() const { return pb_has(10); }
  void setHasSInt64(bool has) { pb_setHas(10, has); }

  uint32_t uInt32() const { return pb_scalar<uint32_t>(11, 28); }
  void setUInt32(uint32_t value) { pb_setScalar<uint32_t>(11, 28, value); }
  bool hasUInt32() const { return pb_has(11); }
  void setHasUInt32(bool has) { pb_setHas(11, has); }

  uint64_t uInt64() const { return pb_scalar<uint64_t>(12, 80); }
  void setUInt64(uint64_t value) { pb_setScalar<uint64_t>(12, 80, value); }
  bool hasUInt64() const { return pb_has(12); }
  void setHasUInt64(bool has) { pb_setHas(12, has); }

  std::string_view bytes() const { return pb_bytes(13, 88); }
  Data bytes_handle() const { return pb_data(13); }
  void setBytes(const PBDataArgument& value) { pb_setData(13, value); }
  bool hasBytes() const { return pb_has(13); }
  void setHasBytes(bool has) { pb_setHas(13, has); }

  std::string_view text() const { return pb_bytes(14, 96); }
  NVXx_PBString text_handle() const { return pb_string(14); }
  void setText(const PBStringArgument& value) { pb_setString(14, value); }
  bool hasText() const { return pb_has(14); }
  void setHasText(bool has) { pb_setHas(14, has); }

  const NVXx_EXChild& child() const { return pb_child<NVXx_EXChild>(104, 15); }
  NVXx_EXChild& child() { return pb_child<NVXx_EXChild>(104, 15); }
  void setChild(Ref<NVXx_EXChild> value);
  bool hasChild() const { return pb_has(15); }
  void setHasChild(bool has) { pb_setHas(15, has); }

  const NVXx_EXSingular_Corner& corner() const { return pb_child<NVXx_EXSingular_Corner>(112, 16); }
  NVXx_EXSingular_Corner& corner() { return pb_child<NVXx_EXSingular_Corner>(112, 16); }
  void setCorner(Ref<NVXx_EXSingular_Corner> value);
  bool hasCorner() const { return pb_has(16); }
  void setHasCorner(bool has) { pb_setHas(16, has); }

  EXColor color() const { return pb_scalar<EXColor>(17, 32); }
  void setColor(EXColor value) { pb_setScalar<EXColor>(17, 32, value); }
  bool hasColor() const { return pb_has(17); }
  void setHasColor(bool has) { pb_setHas(17, has); }
};

class NVXx_EXSingular_Corner final : public PBMessageOf<NVXx_EXSingular_Corner> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(2); }

  int32_t x() const { return pb_scalar<int32_t>(0, 4); }
  void setX(int32_t value) { pb_setScalar<int32_t>(0, 4, value); }
  bool hasX() const { return pb_has(0); }
  void setHasX(bool has) { pb_setHas(0, has); }

  int32_t y() const { return pb_scalar<int32_t>(1, 8); }
  void setY(int32_t value) { pb_setScalar<int32_t>(1, 8, value); }
  bool hasY() const { return pb_has(1); }
  void setHasY(bool has) { pb_setHas(1, has); }

  const NVXx_EXSingular_Corner& corner() const { return pb_child<NVXx_EXSingular_Corner>(16, 2); }
  NVXx_EXSingular_Corner& corner() { return pb_child<NVXx_EXSingular_Corner>(16, 2); }
  void setCorner(Ref<NVXx_EXSingular_Corner> value);
  bool hasCorner() const { return pb_has(2); }
  void setHasCorner(bool has) { pb_setHas(2, has); }
};

inline void NVXx_EXChild::setChild(Ref<NVXx_EXChild> value) { pb_setChild(2, std::move(value)); }
inline void NVXx_EXSingular::setChild(Ref<NVXx_EXChild> value) { pb_setChild(15, std::move(value)); }
inline void NVXx_EXSingular::setCorner(Ref<NVXx_EXSingular_Corner> value) {
  pb_setChild(16, std::move(value));
}
inline void NVXx_EXSingular_Corner::setCorner(Ref<NVXx_EXSingular_Corner> value) {
  pb_setChild(2, std::move(value));
}

}  // namespace nvxcore
