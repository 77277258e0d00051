#pragma once

#include <cstdint>
#include <string_view>

#include "nvxcore/message/NVXx_PBEnumDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBMessageExtensions.h"

namespace nvxcore {

class NVXx_BMEvent;
class NVXx_BMReply;
class NVXx_BMElement;
class NVXx_BMNode;

enum BMKind : int32_t {
  BMKind_A = 0,
  BMKind_B = 1,
  BMKind_C = 2,
  BMKind_D = 3,
};

class NVXx_BMShapesRoot : public NVXx_PBRootObject {
 public:
  static const PBFile& file();
  static NVXx_PBExtensionRegistry& extensionRegistry() { return file().extensionRegistry(); }
  static NVXx_PBExtensionField* extensionNamed(std::string_view name) { return file().extensionNamed(name); }
};

inline bool BMKindIsValidValue(int32_t value) { return NVXx_BMShapesRoot::file().enumIsValid(0, value); }
struct BMKindEnumDescriptor : NVXx_PBGeneratedEnumDescriptor {
  static const NVXx_PBEnumDescriptor& enumDescriptor() { return NVXx_BMShapesRoot::file().enumDescriptor(0); }
};

class NVXx_BMEvent final : public PBMessageOf<NVXx_BMEvent> {
 public:
  static const PBClass& messageClass() { return NVXx_BMShapesRoot::file().messageClass(0); }

  int32_t value1() const { return pb_scalar<int32_t>(0, 8); }
  void setValue1(int32_t value) { pb_setScalar<int32_t>(0, 8, value); }
  bool hasValue1() const { return pb_has(0); }
  void setHasValue1(bool has) { pb_setHas(0, has); }

  int32_t value2() const { return pb_scalar<int32_t>(1, 12); }
  void setValue2(int32_t value) { pb_setScalar<int32_t>(1, 12, value); }
  bool hasValue2() const { return pb_has(1); }
  void setHasValue2(bool has) { pb_setHas(1, has); }

  uint32_t value3() const { return pb_scalar<uint32_t>(2, 16); }
  void setValue3(uint32_t value) { pb_setScalar<uint32_t>(2, 16, value); }
  bool hasValue3() const { return pb_has(2); }
  void setHasValue3(bool has) { pb_setHas(2, has); }

  int64_t value4() const { return pb_scalar<int64_t>(3, 40); }
  void setValue4(int64_t value) { pb_setScalar<int64_t>(3, 40, value); }
  bool hasValue4() const { return pb_has(3); }
  void setHasValue4(bool has) { pb_setHas(3, has); }

  int64_t value5() const { return pb_scalar<int64_t>(4, 48); }
  void setValue5(int64_t value) { pb_setScalar<int64_t>(4, 48, value); }
  bool hasValue5() const { return pb_has(4); }
  void setHasValue5(bool has) { pb_setHas(4, has); }

  uint64_t value6() const { return pb_scalar<uint64_t>(5, 56); }
  void setValue6(uint64_t value) { pb_setScalar<uint64_t>(5, 56, value); }
  bool hasValue6() const { return pb_has(5); }
  void setHasValue6(bool has) { pb_setHas(5, has); }

  int32_t value7() const { return pb_scalar<int32_t>(6, 20); }
  void setValue7(int32_t value) { pb_setScalar<int32_t>(6, 20, value); }
  bool hasValue7() const { return pb_has(6); }
  void setHasValue7(bool has) { pb_setHas(6, has); }

  int64_t value8() const { return pb_scalar<int64_t>(7, 64); }
  void setValue8(int64_t value) { pb_setScalar<int64_t>(7, 64, value); }
  bool hasValue8() const { return pb_has(7); }
  void setHasValue8(bool has) { pb_setHas(7, has); }

  bool value9() const { return pb_bool(8, 4); }
  void setValue9(bool value) { pb_setBool(8, 4, value); }
  bool hasValue9() const { return pb_has(8); }
  void setHasValue9(bool has) { pb_setHas(8, has); }

  bool value10() const { return pb_bool(9, 5); }
  void setValue10(bool value) { pb_setBool(9, 5, value); }
  bool hasValue10() const { return pb_has(9); }
  void setHasValue10(bool has) { pb_setHas(9, has); }

  BMKind value11() const { return pb_scalar<BMKind>(10, 24); }
  void setValue11(BMKind value) { pb_setScalar<BMKind>(10, 24, value); }
  bool hasValue11() const { return pb_has(10); }
  void setHasValue11(bool has) { pb_setHas(10, has); }

  uint32_t value12() const { return pb_scalar<uint32_t>(11, 28); }
  void setValue12(uint32_t value) { pb_setScalar<uint32_t>(11, 28, value); }
  bool hasValue12() const { return pb_has(11); }
  void setHasValue12(bool has) { pb_setHas(11, has); }

  uint64_t value13() const { return pb_scalar<uint64_t>(12, 72); }
  void setValue13(uint64_t value) { pb_setScalar<uint64_t>(12, 72, value); }
  bool hasValue13() const { return pb_has(12); }
  void setHasValue13(bool has) { pb_setHas(12, has); }

  float value14() const { return pb_scalar<float>(13, 32); }
  void setValue14(float value) { pb_setScalar<float>(13, 32, value); }
  bool hasValue14() const { return pb_has(13); }
  void setHasValue14(bool has) { pb_setHas(13, has); }

  double value15() const { return pb_scalar<double>(14, 80); }
  void setValue15(double value) { pb_setScalar<double>(14, 80, value); }
  bool hasValue15() const { return pb_has(14); }
  void setHasValue15(bool has) { pb_setHas(14, has); }

  std::string_view text1() const { return pb_bytes(15, 88); }
  NVXx_PBString text1_handle() const { return pb_string(15); }
  void setText1(const PBStringArgument& value) { pb_setString(15, value); }
  bool hasText1() const { return pb_has(15); }
  void setHasText1(bool has) { pb_setHas(15, has); }

  std::string_view text2() const { return pb_bytes(16, 96); }
  NVXx_PBString text2_handle() const { return pb_string(16); }
  void setText2(const PBStringArgument& value) { pb_setString(16, value); }
  bool hasText2() const { return pb_has(16); }
  void setHasText2(bool has) { pb_setHas(16, has); }

  std::string_view text3() const { return pb_bytes(17, 104); }
  NVXx_PBString text3_handle() const { return pb_string(17); }
  void setText3(const PBStringArgument& value) { pb_setString(17, value); }
  bool hasText3() const { return pb_has(17); }
  void setHasText3(bool has) { pb_setHas(17, has); }

  std::string_view text4() const { return pb_bytes(18, 112); }
  NVXx_PBString text4_handle() const { return pb_string(18); }
  void setText4(const PBStringArgument& value) { pb_setString(18, value); }
  bool hasText4() const { return pb_has(18); }
  void setHasText4(bool has) { pb_setHas(18, has); }

  std::string_view payload() const { return pb_bytes(19, 120); }
  Data payload_handle() const { return pb_data(19); }
  void setPayload(const PBDataArgument& value) { pb_setData(19, value); }
  bool hasPayload() const { return pb_has(19); }
  void setHasPayload(bool has) { pb_setHas(19, has); }
};

class NVXx_BMReply final : public PBMessageOf<NVXx_BMReply> {
 public:
  static const PBClass& messageClass() { return NVXx_BMShapesRoot::file().messageClass(1); }

  const NVXx_PBMutableArray& elementArray() const { return pb_array(8, 0); }
  NVXx_PBMutableArray& elementArray() { return pb_array(8, 0); }
  void setElementArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(0, std::move(value)); }
  bool hasElementArray() const { return pb_has(0); }
  void setHasElementArray(bool has) { pb_setHas(0, has); }

  int32_t status() const { return pb_scalar<int32_t>(1, 4); }
  void setStatus(int32_t value) { pb_setScalar<int32_t>(1, 4, value); }
  bool hasStatus() const { return pb_has(1); }
  void setHasStatus(bool has) { pb_setHas(1, has); }
};

class NVXx_BMElement final : public PBMessageOf<NVXx_BMElement> {
 public:
  static const PBClass& messageClass() { return NVXx_BMShapesRoot::file().messageClass(2); }

  std::string_view url() const { return pb_bytes(0, 8); }
  NVXx_PBString url_handle() const { return pb_string(0); }
  void setUrl(const PBStringArgument& value) { pb_setString(0, value); }
  bool hasUrl() const { return pb_has(0); }
  void setHasUrl(bool has) { pb_setHas(0, has); }

  int32_t code() const { return pb_scalar<int32_t>(1, 4); }
  void setCode(int32_t value) { pb_setScalar<int32_t>(1, 4, value); }
  bool hasCode() const { return pb_has(1); }
  void setHasCode(bool has) { pb_setHas(1, has); }

  uint64_t stamp() const { return pb_scalar<uint64_t>(2, 16); }
  void setStamp(uint64_t value) { pb_setScalar<uint64_t>(2, 16, value); }
  bool hasStamp() const { return pb_has(2); }
  void setHasStamp(bool has) { pb_setHas(2, has); }

  std::string_view contentType() const { return pb_bytes(3, 24); }
  NVXx_PBString contentType_handle() const { return pb_string(3); }
  void setContentType(const PBStringArgument& value) { pb_setString(3, value); }
  bool hasContentType() const { return pb_has(3); }
  void setHasContentType(bool has) { pb_setHas(3, has); }

  std::string_view body() const { return pb_bytes(4, 32); }
  Data body_handle() const { return pb_data(4); }
  void setBody(const PBDataArgument& value) { pb_setData(4, value); }
  bool hasBody() const { return pb_has(4); }
  void setHasBody(bool has) { pb_setHas(4, has); }
};

class NVXx_BMNode final : public PBMessageOf<NVXx_BMNode> {
 public:
  static const PBClass& messageClass() { return NVXx_BMShapesRoot::file().messageClass(3); }

  std::string_view name() const { return pb_bytes(0, 8); }
  NVXx_PBString name_handle() const { return pb_string(0); }
  void setName(const PBStringArgument& value) { pb_setString(0, value); }
  bool hasName() const { return pb_has(0); }
  void setHasName(bool has) { pb_setHas(0, has); }

  int64_t id() const { return pb_scalar<int64_t>(1, 16); }
  void setId(int64_t value) { pb_setScalar<int64_t>(1, 16, value); }
  bool hasId() const { return pb_has(1); }
  void setHasId(bool has) { pb_setHas(1, has); }

  const NVXx_PBMutableArray& packedArray() const { return pb_array(24, 2); }
  NVXx_PBMutableArray& packedArray() { return pb_array(24, 2); }
  void setPackedArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(2, std::move(value)); }
  bool hasPackedArray() const { return pb_has(2); }
  void setHasPackedArray(bool has) { pb_setHas(2, has); }

  const NVXx_PBMutableArray& plainArray() const { return pb_array(32, 3); }
  NVXx_PBMutableArray& plainArray() { return pb_array(32, 3); }
  void setPlainArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(3, std::move(value)); }
  bool hasPlainArray() const { return pb_has(3); }
  void setHasPlainArray(bool has) { pb_setHas(3, has); }

  const NVXx_PBMutableArray& childArray() const { return pb_array(40, 4); }
  NVXx_PBMutableArray& childArray() { return pb_array(40, 4); }
  void setChildArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(4, std::move(value)); }
  bool hasChildArray() const { return pb_has(4); }
  void setHasChildArray(bool has) { pb_setHas(4, has); }

  std::string_view title() const { return pb_bytes(5, 48); }
  NVXx_PBString title_handle() const { return pb_string(5); }
  void setTitle(const PBStringArgument& value) { pb_setString(5, value); }
  bool hasTitle() const { return pb_has(5); }
  void setHasTitle(bool has) { pb_setHas(5, has); }
};

}  // namespace nvxcore
