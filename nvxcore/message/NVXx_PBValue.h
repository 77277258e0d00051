#pragma once

#include <cstdint>
#include <string>

#include "nvxcore/message/NVXx_PBObject.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/message/NVXx_PBTypes.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBArray;
class NVXx_PBMutableArray;

/// One value of any field type, 8 bytes; which member counts is told elsewhere. References are borrowed.
union PBValue {
  bool valueBool;
  uint32_t valueFixed32;
  int32_t valueSFixed32;
  float valueFloat;
  uint64_t valueFixed64;
  int64_t valueSFixed64;
  double valueDouble;
  int32_t valueInt32;
  int64_t valueInt64;
  int32_t valueSInt32;
  int64_t valueSInt64;
  uint32_t valueUInt32;
  uint64_t valueUInt64 = 0;
  const void* valueData;    // the block of a Data
  const void* valueString;  // the block of a string's Data
  NVXx_PBGeneratedMessage* valueMessage;
  NVXx_PBGeneratedMessage* valueGroup;
  int32_t valueEnum;
  NVXx_PBMutableArray* valueArray;
  void* valueObject;
};
static_assert(sizeof(PBValue) == 8);

/// A value that knows what it is: nothing, a number of one of the value types, an object, or an array.
class NVXCORE_EXPORT PBBoxedValue {
 public:
  PBBoxedValue() = default;
  PBBoxedValue(bool value) : _kind(Kind::Number), _type(PBArrayValueTypeBool) {
    _value.valueBool = value;
  }  // NOLINT
  PBBoxedValue(int32_t value) : _kind(Kind::Number), _type(PBArrayValueTypeInt32) {
    _value.valueInt32 = value;
  }  // NOLINT
  PBBoxedValue(uint32_t value) : _kind(Kind::Number), _type(PBArrayValueTypeUInt32) {
    _value.valueUInt32 = value;
  }  // NOLINT
  PBBoxedValue(int64_t value) : _kind(Kind::Number), _type(PBArrayValueTypeInt64) {
    _value.valueInt64 = value;
  }  // NOLINT
  PBBoxedValue(uint64_t value) : _kind(Kind::Number), _type(PBArrayValueTypeUInt64) {
    _value.valueUInt64 = value;
  }  // NOLINT
  PBBoxedValue(float value) : _kind(Kind::Number), _type(PBArrayValueTypeFloat) {
    _value.valueFloat = value;
  }  // NOLINT
  PBBoxedValue(double value) : _kind(Kind::Number), _type(PBArrayValueTypeDouble) {
    _value.valueDouble = value;
  }                              // NOLINT
  PBBoxedValue(PBObject object)  // NOLINT
      : _kind(object ? Kind::Object : Kind::Nothing), _object(std::move(object)) {}
  PBBoxedValue(Ref<NVXx_PBMutableArray> array);  // NOLINT
  PBBoxedValue(const PBBoxedValue&);
  PBBoxedValue(PBBoxedValue&&) noexcept;
  PBBoxedValue& operator=(PBBoxedValue) noexcept;
  ~PBBoxedValue();

  enum class Kind : uint8_t { Nothing, Number, Object, Array };
  Kind kind() const { return _kind; }
  explicit operator bool() const { return _kind != Kind::Nothing; }
  bool isNumber() const { return _kind == Kind::Number; }
  /// Of a number.
  PBArrayValueType numberType() const { return _type; }

  /// A number as the type asked for, converted as C does; 0 of anything else.
  bool boolValue() const { return number<double>() != 0 || number<uint64_t>() != 0; }
  int32_t int32Value() const { return static_cast<int32_t>(number<int64_t>()); }
  uint32_t uint32Value() const { return static_cast<uint32_t>(number<uint64_t>()); }
  int64_t int64Value() const { return number<int64_t>(); }
  uint64_t uint64Value() const { return number<uint64_t>(); }
  float floatValue() const { return number<float>(); }
  double doubleValue() const { return number<double>(); }
  const PBObject& object() const { return _object; }
  NVXx_PBMutableArray* array() const { return _array; }

  /// As dictionary values compare: numbers by value whatever their types, and a NaN equals itself.
  bool isEqual(const PBBoxedValue& other) const;
  std::string description() const;
  /// A number as arrays print theirs: YES and NO, six places for float and double.
  std::string printed() const;
  /// For messages about a wrong value.
  std::string className() const;

 private:
  template <class N>
  N number() const;

  Kind _kind = Kind::Nothing;
  PBArrayValueType _type = PBArrayValueTypeObject;
  PBValue _value;
  PBObject _object;
  NVXx_PBMutableArray* _array = nullptr;
};

}  // namespace nvxcore
