#pragma once

#include "tests/message/handwritten/ExampleSingular.h"

namespace nvxcore {

class NVXx_EXRepeated final : public PBMessageOf<NVXx_EXRepeated> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(3); }

  const NVXx_PBMutableArray& flagArray() const { return pb_array(8, 0); }
  NVXx_PBMutableArray& flagArray() { return pb_array(8, 0); }
  void setFlagArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(0, std::move(value)); }
  bool hasFlagArray() const { return pb_has(0); }
  void setHasFlagArray(bool has) { pb_setHas(0, has); }

  const NVXx_PBMutableArray& fixed32Array() const { return pb_array(16, 1); }
  NVXx_PBMutableArray& fixed32Array() { return pb_array(16, 1); }
  void setFixed32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(1, std::move(value)); }
  bool hasFixed32Array() const { return pb_has(1); }
  void setHasFixed32Array(bool has) { pb_setHas(1, has); }

  const NVXx_PBMutableArray& sFixed32Array() const { return pb_array(24, 2); }
  NVXx_PBMutableArray& sFixed32Array() { return pb_array(24, 2); }
  void setSFixed32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(2, std::move(value)); }
  bool hasSFixed32Array() const { return pb_has(2); }
  void setHasSFixed32Array(bool has) { pb_setHas(2, has); }

  const NVXx_PBMutableArray& ratioArray() const { return pb_array(32, 3); }
  NVXx_PBMutableArray& ratioArray() { return pb_array(32, 3); }
  void setRatioArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(3, std::move(value)); }
  bool hasRatioArray() const { return pb_has(3); }
  void setHasRatioArray(bool has) { pb_setHas(3, has); }

  const NVXx_PBMutableArray& fixed64Array() const { return pb_array(40, 4); }
  NVXx_PBMutableArray& fixed64Array() { return pb_array(40, 4); }
  void setFixed64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(4, std::move(value)); }
  bool hasFixed64Array() const { return pb_has(4); }
  void setHasFixed64Array(bool has) { pb_setHas(4, has); }

  const NVXx_PBMutableArray& sFixed64Array() const { return pb_array(48, 5); }
  NVXx_PBMutableArray& sFixed64Array() { return pb_array(48, 5); }
  void setSFixed64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(5, std::move(value)); }
  bool hasSFixed64Array() const { return pb_has(5); }
  void setHasSFixed64Array(bool has) { pb_setHas(5, has); }

  const NVXx_PBMutableArray& measureArray() const { return pb_array(56, 6); }
  NVXx_PBMutableArray& measureArray() { return pb_array(56, 6); }
  void setMeasureArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(6, std::move(value)); }
  bool hasMeasureArray() const { return pb_has(6); }
  void setHasMeasureArray(bool has) { pb_setHas(6, has); }

  const NVXx_PBMutableArray& int32Array() const { return pb_array(64, 7); }
  NVXx_PBMutableArray& int32Array() { return pb_array(64, 7); }
  void setInt32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(7, std::move(value)); }
  bool hasInt32Array() const { return pb_has(7); }
  void setHasInt32Array(bool has) { pb_setHas(7, has); }

  const NVXx_PBMutableArray& int64Array() const { return pb_array(72, 8); }
  NVXx_PBMutableArray& int64Array() { return pb_array(72, 8); }
  void setInt64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(8, std::move(value)); }
  bool hasInt64Array() const { return pb_has(8); }
  void setHasInt64Array(bool has) { pb_setHas(8, has); }

  const NVXx_PBMutableArray& sInt32Array() const { return pb_array(80, 9); }
  NVXx_PBMutableArray& sInt32Array() { return pb_array(80, 9); }
  void setSInt32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(9, std::move(value)); }
  bool hasSInt32Array() const { return pb_has(9); }
  void setHasSInt32Array(bool has) { pb_setHas(9, has); }

  const NVXx_PBMutableArray& sInt64Array() const { return pb_array(88, 10); }
  NVXx_PBMutableArray& sInt64Array() { return pb_array(88, 10); }
  void setSInt64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(10, std::move(value)); }
  bool hasSInt64Array() const { return pb_has(10); }
  void setHasSInt64Array(bool has) { pb_setHas(10, has); }

  const NVXx_PBMutableArray& uInt32Array() const { return pb_array(96, 11); }
  NVXx_PBMutableArray& uInt32Array() { return pb_array(96, 11); }
  void setUInt32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(11, std::move(value)); }
  bool hasUInt32Array() const { return pb_has(11); }
  void setHasUInt32Array(bool has) { pb_setHas(11, has); }

  const NVXx_PBMutableArray& uInt64Array() const { return pb_array(104, 12); }
  NVXx_PBMutableArray& uInt64Array() { return pb_array(104, 12); }
  void setUInt64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(12, std::move(value)); }
  bool hasUInt64Array() const { return pb_has(12); }
  void setHasUInt64Array(bool has) { pb_setHas(12, has); }

  const NVXx_PBMutableArray& bytesArray() const { return pb_array(112, 13); }
  NVXx_PBMutableArray& bytesArray() { return pb_array(112, 13); }
  void setBytesArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(13, std::move(value)); }
  bool hasBytesArray() const { return pb_has(13); }
  void setHasBytesArray(bool has) { pb_setHas(13, has); }

  const NVXx_PBMutableArray& textArray() const { return pb_array(120, 14); }
  NVXx_PBMutableArray& textArray() { return pb_array(120, 14); }
  void setTextArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(14, std::move(value)); }
  bool hasTextArray() const { return pb_has(14); }
  void setHasTextArray(bool has) { pb_setHas(14, has); }

  const NVXx_PBMutableArray& childArray() const { return pb_array(128, 15); }
  NVXx_PBMutableArray& childArray() { return pb_array(128, 15); }
  void setChildArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(15, std::move(value)); }
  bool hasChildArray() const { return pb_has(15); }
  void setHasChildArray(bool has) { pb_setHas(15, has); }

  const NVXx_PBMutableArray& cornerArray() const { return pb_array(136, 16); }
  NVXx_PBMutableArray& cornerArray() { return pb_array(136, 16); }
  void setCornerArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(16, std::move(value)); }
  bool hasCornerArray() const { return pb_has(16); }
  void setHasCornerArray(bool has) { pb_setHas(16, has); }

  const NVXx_PBMutableArray& colorArray() const { return pb_array(144, 17); }
  NVXx_PBMutableArray& colorArray() { return pb_array(144, 17); }
  void setColorArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(17, std::move(value)); }
  bool hasColorArray() const { return pb_has(17); }
  void setHasColorArray(bool has) { pb_setHas(17, has); }
};

class NVXx_EXPacked final : public PBMessageOf<NVXx_EXPacked> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(4); }

  const NVXx_PBMutableArray& flagArray() const { return pb_array(8, 0); }
  NVXx_PBMutableArray& flagArray() { return pb_array(8, 0); }
  void setFlagArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(0, std::move(value)); }
  bool hasFlagArray() const { return pb_has(0); }
  void setHasFlagArray(bool has) { pb_setHas(0, has); }

  const NVXx_PBMutableArray& fixed32Array() const { return pb_array(16, 1); }
  NVXx_PBMutableArray& fixed32Array() { return pb_array(16, 1); }
  void setFixed32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(1, std::move(value)); }
  bool hasFixed32Array() const { return pb_has(1); }
  void setHasFixed32Array(bool has) { pb_setHas(1, has); }

  const NVXx_PBMutableArray& sFixed32Array() const { return pb_array(24, 2); }
  NVXx_PBMutableArray& sFixed32Array() { return pb_array(24, 2); }
  void setSFixed32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(2, std::move(value)); }
  bool hasSFixed32Array() const { return pb_has(2); }
  void setHasSFixed32Array(bool has) { pb_setHas(2, has); }

  const NVXx_PBMutableArray& ratioArray() const { return pb_array(32, 3); }
  NVXx_PBMutableArray& ratioArray() { return pb_array(32, 3); }
  void setRatioArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(3, std::move(value)); }
  bool hasRatioArray() const { return pb_has(3); }
  void setHasRatioArray(bool has) { pb_setHas(3, has); }

  const NVXx_PBMutableArray& fixed64Array() const { return pb_array(40, 4); }
  NVXx_PBMutableArray& fixed64Array() { return pb_array(40, 4); }
  void setFixed64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(4, std::move(value)); }
  bool hasFixed64Array() const { return pb_has(4); }
  void setHasFixed64Array(bool has) { pb_setHas(4, has); }

  const NVXx_PBMutableArray& sFixed64Array() const { return pb_array(48, 5); }
  NVXx_PBMutableArray& sFixed64Array() { return pb_array(48, 5); }
  void setSFixed64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(5, std::move(value)); }
  bool hasSFixed64Array() const { return pb_has(5); }
  void setHasSFixed64Array(bool has) { pb_setHas(5, has); }

  const NVXx_PBMutableArray& measureArray() const { return pb_array(56, 6); }
  NVXx_PBMutableArray& measureArray() { return pb_array(56, 6); }
  void setMeasureArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(6, std::move(value)); }
  bool hasMeasureArray() const { return pb_has(6); }
  void setHasMeasureArray(bool has) { pb_setHas(6, has); }

  const NVXx_PBMutableArray& int32Array() const { return pb_array(64, 7); }
  NVXx_PBMutableArray& int32Array() { return pb_array(64, 7); }
  void setInt32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(7, std::move(value)); }
  bool hasInt32Array() const { return pb_has(7); }
  void setHasInt32Array(bool has) { pb_setHas(7, has); }

  const NVXx_PBMutableArray& int64Array() const { return pb_array(72, 8); }
  NVXx_PBMutableArray& int64Array() { return pb_array(72, 8); }
  void setInt64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(8, std::move(value)); }
  bool hasInt64Array() const { return pb_has(8); }
  void setHasInt64Array(bool has) { pb_setHas(8, has); }

  const NVXx_PBMutableArray& sInt32Array() const { return pb_array(80, 9); }
  NVXx_PBMutableArray& sInt32Array() { return pb_array(80, 9); }
  void setSInt32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(9, std::move(value)); }
  bool hasSInt32Array() const { return pb_has(9); }
  void setHasSInt32Array(bool has) { pb_setHas(9, has); }

  const NVXx_PBMutableArray& sInt64Array() const { return pb_array(88, 10); }
  NVXx_PBMutableArray& sInt64Array() { return pb_array(88, 10); }
  void setSInt64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(10, std::move(value)); }
  bool hasSInt64Array() const { return pb_has(10); }
  void setHasSInt64Array(bool has) { pb_setHas(10, has); }

  const NVXx_PBMutableArray& uInt32Array() const { return pb_array(96, 11); }
  NVXx_PBMutableArray& uInt32Array() { return pb_array(96, 11); }
  void setUInt32Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(11, std::move(value)); }
  bool hasUInt32Array() const { return pb_has(11); }
  void setHasUInt32Array(bool has) { pb_setHas(11, has); }

  const NVXx_PBMutableArray& uInt64Array() const { return pb_array(104, 12); }
  NVXx_PBMutableArray& uInt64Array() { return pb_array(104, 12); }
  void setUInt64Array(Ref<NVXx_PBMutableArray> value) { pb_setArray(12, std::move(value)); }
  bool hasUInt64Array() const { return pb_has(12); }
  void setHasUInt64Array(bool has) { pb_setHas(12, has); }

  const NVXx_PBMutableArray& colorArray() const { return pb_array(112, 13); }
  NVXx_PBMutableArray& colorArray() { return pb_array(112, 13); }
  void setColorArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(13, std::move(value)); }
  bool hasColorArray() const { return pb_has(13); }
  void setHasColorArray(bool has) { pb_setHas(13, has); }
};

class NVXx_EXDefaults final : public PBMessageOf<NVXx_EXDefaults> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(5); }

  bool flag() const { return pb_bool(0, 8, true); }
  void setFlag(bool value) { pb_setBool(0, 8, value); }
  bool hasFlag() const { return pb_has(0); }
  void setHasFlag(bool has) { pb_setHas(0, has); }

  int32_t small() const { return pb_scalar<int32_t>(1, 12, -7); }
  void setSmall(int32_t value) { pb_setScalar<int32_t>(1, 12, value); }
  bool hasSmall() const { return pb_has(1); }
  void setHasSmall(bool has) { pb_setHas(1, has); }

  int64_t big() const { return pb_scalar<int64_t>(2, 48, INT64_MIN); }
  void setBig(int64_t value) { pb_setScalar<int64_t>(2, 48, value); }
  bool hasBig() const { return pb_has(2); }
  void setHasBig(bool has) { pb_setHas(2, has); }

  uint64_t huge() const { return pb_scalar<uint64_t>(4, 56, UINT64_C(18446744073709551615)); }
  void setHuge(uint64_t value) { pb_setScalar<uint64_t>(4, 56, value); }
  bool hasHuge() const { return pb_has(4); }
  void setHasHuge(bool has) { pb_setHas(3, has); }

  float ratio() const { return pb_scalar<float>(5, 16, __builtin_inff()); }
  void setRatio(float value) { pb_setScalar<float>(5, 16, value); }
  bool hasRatio() const { return pb_has(5); }
  void setHasRatio(bool has) { pb_setHas(4, has); }

  double openglEs1XSupported() const { return pb_scalar<double>(6, 64, 1.5); }
  void setOpenglEs1XSupported(double value) { pb_setScalar<double>(6, 64, value); }
  bool hasOpenglEs1XSupported() const { return pb_has(6); }
  void setHasOpenglEs1XSupported(bool has) { pb_setHas(5, has); }

  std::string_view name() const { return pb_bytesOrDefault(7, 72, 6); }
  NVXx_PBString name_handle() const { return pb_string(6); }
  void setName(const PBStringArgument& value) { pb_setString(6, value); }
  bool hasName() const { return pb_has(7); }
  void setHasName(bool has) { pb_setHas(6, has); }

  std::string_view blob() const { return pb_bytesOrDefault(8, 80, 7); }
  Data blob_handle() const { return pb_data(7); }
  void setBlob(const PBDataArgument& value) { pb_setData(7, value); }
  bool hasBlob() const { return pb_has(8); }
  void setHasBlob(bool has) { pb_setHas(7, has); }

  uint32_t oddName() const { return pb_scalar<uint32_t>(9, 20, 4000000000U); }
  void setOddName(uint32_t value) { pb_setScalar<uint32_t>(9, 20, value); }
  bool hasOddName() const { return pb_has(9); }
  void setHasOddName(bool has) { pb_setHas(8, has); }

  EXColor color() const { return pb_scalar<EXColor>(10, 24, static_cast<EXColor>(-2)); }
  void setColor(EXColor value) { pb_setScalar<EXColor>(10, 24, value); }
  bool hasColor() const { return pb_has(10); }
  void setHasColor(bool has) { pb_setHas(9, has); }

  int32_t hash_p() const { return pb_scalar<int32_t>(11, 28); }
  void setHash_p(int32_t value) { pb_setScalar<int32_t>(11, 28, value); }
  bool hasHash_p() const { return pb_has(11); }
  void setHasHash_p(bool has) { pb_setHas(10, has); }

  int32_t zero() const { return pb_scalar<int32_t>(12, 32); }
  void setZero(int32_t value) { pb_setScalar<int32_t>(12, 32, value); }
  bool hasZero() const { return pb_has(12); }
  void setHasZero(bool has) { pb_setHas(11, has); }

  std::string_view emptyName() const { return pb_bytesOrDefault(13, 88, 12); }
  NVXx_PBString emptyName_handle() const { return pb_string(12); }
  void setEmptyName(const PBStringArgument& value) { pb_setString(12, value); }
  bool hasEmptyName() const { return pb_has(13); }
  void setHasEmptyName(bool has) { pb_setHas(12, has); }

  int32_t id_p() const { return pb_scalar<int32_t>(14, 36); }
  void setId_p(int32_t value) { pb_setScalar<int32_t>(14, 36, value); }
  bool hasId_p() const { return pb_has(14); }
  void setHasId_p(bool has) { pb_setHas(13, has); }

  const NVXx_PBMutableArray& codeArray() const { return pb_array(96, 14); }
  NVXx_PBMutableArray& codeArray() { return pb_array(96, 14); }
  void setCodeArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(14, std::move(value)); }
  bool hasCodeArray() const { return pb_has(15); }
  void setHasCodeArray(bool has) { pb_setHas(14, has); }

  EXCode code() const { return pb_scalar<EXCode>(16, 40, static_cast<EXCode>(1)); }
  void setCode(EXCode value) { pb_setScalar<EXCode>(16, 40, value); }
  bool hasCode() const { return pb_has(16); }
  void setHasCode(bool has) { pb_setHas(15, has); }

  const NVXx_PBMutableArray& pieceArray() const { return pb_array(104, 16); }
  NVXx_PBMutableArray& pieceArray() { return pb_array(104, 16); }
  void setPieceArray(Ref<NVXx_PBMutableArray> value) { pb_setArray(16, std::move(value)); }
  bool hasPieceArray() const { return pb_has(17); }
  void setHasPieceArray(bool has) { pb_setHas(16, has); }

  int64_t mid() const { return pb_scalar<int64_t>(40, 112, INT64_C(-3)); }
  void setMid(int64_t value) { pb_setScalar<int64_t>(40, 112, value); }
  bool hasMid() const { return pb_has(40); }
  void setHasMid(bool has) { pb_setHas(17, has); }

  int32_t far() const { return pb_scalar<int32_t>(20, 44); }
  void setFar(int32_t value) { pb_setScalar<int32_t>(20, 44, value); }
  bool hasFar() const { return pb_has(20); }
  void setHasFar(bool has) { pb_setHas(18, has); }
};

class NVXx_EXExtendable final : public PBMessageOf<NVXx_EXExtendable> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(6); }

  int32_t first() const { return pb_scalar<int32_t>(0, 4); }
  void setFirst(int32_t value) { pb_setScalar<int32_t>(0, 4, value); }
  bool hasFirst() const { return pb_has(0); }
  void setHasFirst(bool has) { pb_setHas(0, has); }

  int32_t last() const { return pb_scalar<int32_t>(1, 8); }
  void setLast(int32_t value) { pb_setScalar<int32_t>(1, 8, value); }
  bool hasLast() const { return pb_has(1); }
  void setHasLast(bool has) { pb_setHas(1, has); }
};

class NVXx_EXMessageSet final : public PBMessageOf<NVXx_EXMessageSet> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(7); }
};

class NVXx_EXItem final : public PBMessageOf<NVXx_EXItem> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(8); }
  static Extension<NVXx_EXItem> item() {
    return Extension<NVXx_EXItem>(NVXx_EXExampleRoot::file().extension(54));
  }
  static Extension<NVXx_EXItem> messageSetExtension() {
    return Extension<NVXx_EXItem>(NVXx_EXExampleRoot::file().extension(55));
  }

  std::string_view note() const { return pb_bytes(0, 8); }
  NVXx_PBString note_handle() const { return pb_string(0); }
  void setNote(const PBStringArgument& value) { pb_setString(0, value); }
  bool hasNote() const { return pb_has(0); }
  void setHasNote(bool has) { pb_setHas(0, has); }

  const NVXx_EXMessageSet& set() const { return pb_child<NVXx_EXMessageSet>(16, 1); }
  NVXx_EXMessageSet& set() { return pb_child<NVXx_EXMessageSet>(16, 1); }
  void setSet(Ref<NVXx_EXMessageSet> value);
  bool hasSet() const { return pb_has(1); }
  void setHasSet(bool has) { pb_setHas(1, has); }
};

class NVXx_EXEmpty final : public PBMessageOf<NVXx_EXEmpty> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(9); }
};

class NVXx_EXHolder final : public PBMessageOf<NVXx_EXHolder> {
 public:
  static const PBClass& messageClass() { return NVXx_EXExampleRoot::file().messageClass(10); }

  const NVXx_EXExtendable& extendable() const { return pb_child<NVXx_EXExtendable>(8, 0); }
  NVXx_EXExtendable& extendable() { return pb_child<NVXx_EXExtendable>(8, 0); }
  void setExtendable(Ref<NVXx_EXExtendable> value);
  bool hasExtendable() const { return pb_has(0); }
  void setHasExtendable(bool has) { pb_setHas(0, has); }

  const NVXx_EXMessageSet& set() const { return pb_child<NVXx_EXMessageSet>(16, 1); }
  NVXx_EXMessageSet& set() { return pb_child<NVXx_EXMessageSet>(16, 1); }
  void setSet(Ref<NVXx_EXMessageSet> value);
  bool hasSet() const { return pb_has(1); }
  void setHasSet(bool has) { pb_setHas(1, has); }

  const NVXx_EXDefaults& defaults() const { return pb_child<NVXx_EXDefaults>(24, 2); }
  NVXx_EXDefaults& defaults() { return pb_child<NVXx_EXDefaults>(24, 2); }
  void setDefaults(Ref<NVXx_EXDefaults> value);
  bool hasDefaults() const { return pb_has(2); }
  void setHasDefaults(bool has) { pb_setHas(2, has); }
};

inline void NVXx_EXItem::setSet(Ref<NVXx_EXMessageSet> value) { pb_setChild(1, std::move(value)); }
inline void NVXx_EXHolder::setExtendable(Ref<NVXx_EXExtendable> value) { pb_setChild(0, std::move(value)); }
inline void NVXx_EXHolder::setSet(Ref<NVXx_EXMessageSet> value) { pb_setChild(1, std::move(value)); }
inline void NVXx_EXHolder::setDefaults(Ref<NVXx_EXDefaults> value) { pb_setChild(2, std::move(value)); }

}  // namespace nvxcore
