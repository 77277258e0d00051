#include "nvxcore/message/NVXx_PBObject.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/NVXx_PBValue.h"
#include "nvxcore/message/internal/PBArrayAccess.h"
#include "nvxcore/message/internal/PBBytes.h"
#include "nvxcore/message/internal/PBClass.h"
#include "nvxcore/message/internal/PBReflection.h"

namespace nvxcore {

// Strings.

NVXx_PBString::NVXx_PBString(std::string_view text)
    : _bytes(DataAccess::adopt(isUTF8(reinterpret_cast<const uint8_t*>(text.data()), text.size())
                                   ? pbCopyBytes(text.data(), text.size())
                                   : pbEmptyString())) {}

// Objects.

PBObject PBObjectAccess::share(PBObjectKind kind, void* object) {
  PBArrayAccess::retainElement(kind, object);
  return adopt(kind, object);
}

bool PBObjectAccess::isEqual(PBObjectKind kind, void* a, void* b) {
  if (!a || !b) return false;  // an absent element equals nothing
  if (a == b) return true;
  switch (kind) {
    case PBObjectKind::Message:
      return static_cast<NVXx_PBGeneratedMessage*>(a)->isEqual(static_cast<NVXx_PBGeneratedMessage*>(b));
    case PBObjectKind::UnknownFieldSet:
      return static_cast<NVXx_PBUnknownFieldSet*>(a)->isEqual(static_cast<NVXx_PBUnknownFieldSet*>(b));
    case PBObjectKind::None:
      return true;
    default:
      return pbView(static_cast<PBBlock*>(a)) == pbView(static_cast<PBBlock*>(b));
  }
}

PBObject::PBObject(const NVXx_PBString& string)
    : PBObject(PBObjectAccess::adopt(PBObjectKind::String, DataAccess::take(Data(string.data())))) {}
PBObject::PBObject(const Data& data)
    : PBObject(PBObjectAccess::adopt(PBObjectKind::Data, DataAccess::take(Data(data)))) {}
PBObject::PBObject(NVXx_PBGeneratedMessage* message)
    : PBObject(PBObjectAccess::share(PBObjectKind::Message, message)) {}
PBObject::PBObject(NVXx_PBUnknownFieldSet* fields)
    : PBObject(PBObjectAccess::share(PBObjectKind::UnknownFieldSet, fields)) {}
PBObject::PBObject(const PBObject& other) : _kind(other._kind), _object(other._object) {
  PBArrayAccess::retainElement(_kind, _object);
}
PBObject::~PBObject() { PBArrayAccess::dropElement(_kind, _object); }

NVXx_PBString PBObject::string() const {
  if (_kind != PBObjectKind::String) return {};
  return NVXx_PBString::sharing(DataAccess::share(static_cast<PBBlock*>(_object)));
}
Data PBObject::data() const {
  return _kind == PBObjectKind::Data ? DataAccess::share(static_cast<PBBlock*>(_object)) : Data();
}
NVXx_PBGeneratedMessage* PBObject::message() const {
  return _kind == PBObjectKind::Message ? static_cast<NVXx_PBGeneratedMessage*>(_object) : nullptr;
}
NVXx_PBUnknownFieldSet* PBObject::unknownFieldSet() const {
  return _kind == PBObjectKind::UnknownFieldSet ? static_cast<NVXx_PBUnknownFieldSet*>(_object) : nullptr;
}

bool PBObject::isEqual(const PBObject& other) const {
  if (!_object || !other._object) return !_object && !other._object;
  return _kind == other._kind && PBObjectAccess::isEqual(_kind, _object, other._object);
}

std::string PBObject::description() const {
  switch (_kind) {
    case PBObjectKind::String:
      return std::string(pbView(static_cast<PBBlock*>(_object)));
    case PBObjectKind::Data: {
      std::string text = "<";
      for (const char c : pbView(static_cast<PBBlock*>(_object)))
        text += pbFormat("%02x", static_cast<uint8_t>(c));
      return text + ">";
    }
    case PBObjectKind::Message:
      return message()->description();
    case PBObjectKind::UnknownFieldSet:
      return unknownFieldSet()->description();
    case PBObjectKind::None:
      break;
  }
  return "(null)";
}

// Boxed values.

PBBoxedValue::PBBoxedValue(Ref<NVXx_PBMutableArray> array)
    : _kind(array ? Kind::Array : Kind::Nothing), _array(array.take()) {}

PBBoxedValue::PBBoxedValue(const PBBoxedValue& other)
    : _kind(other._kind),
      _type(other._type),
      _value(other._value),
      _object(other._object),
      _array(other._array) {
  if (_array) _array->retain();
}

PBBoxedValue::PBBoxedValue(PBBoxedValue&& other) noexcept
    : _kind(std::exchange(other._kind, Kind::Nothing)),
      _type(other._type),
      _value(other._value),
      _object(std::move(other._object)),
      _array(std::exchange(other._array, nullptr)) {}

PBBoxedValue& PBBoxedValue::operator=(PBBoxedValue other) noexcept {
  std::swap(_kind, other._kind);
  std::swap(_type, other._type);
  std::swap(_value, other._value);
  std::swap(_object, other._object);
  std::swap(_array, other._array);
  return *this;
}

PBBoxedValue::~PBBoxedValue() {
  if (_array) _array->release();
}

namespace {

// A number of a floating type as an integer, cut at the ends of the range: the plain conversion is undefined
// there.
template <class N>
N cut(double value) {
  if (value != value) return 0;
  if (value <= static_cast<double>(std::numeric_limits<N>::min())) return std::numeric_limits<N>::min();
  if (value >= static_cast<double>(std::numeric_limits<N>::max())) return std::numeric_limits<N>::max();
  return static_cast<N>(value);
}

template <class N, class From>
N convert(From value) {
  if constexpr (std::is_floating_point_v<From> && std::is_integral_v<N>) {
    return cut<N>(value);
  } else {
    return static_cast<N>(value);
  }
}

// Calls with the member of PBValue that a number of the type lies in; not at all for objects.
template <class Use>
void withMember(PBArrayValueType type, Use use) {
  switch (type) {
    case PBArrayValueTypeBool:
      return use(&PBValue::valueBool);
    case PBArrayValueTypeInt32:
      return use(&PBValue::valueInt32);
    case PBArrayValueTypeUInt32:
      return use(&PBValue::valueUInt32);
    case PBArrayValueTypeInt64:
      return use(&PBValue::valueInt64);
    case PBArrayValueTypeUInt64:
      return use(&PBValue::valueUInt64);
    case PBArrayValueTypeFloat:
      return use(&PBValue::valueFloat);
    case PBArrayValueTypeDouble:
      return use(&PBValue::valueDouble);
    case PBArrayValueTypeObject:
      break;
  }
}

void read(const PBBoxedValue& from, bool& to) { to = from.boolValue(); }
void read(const PBBoxedValue& from, int32_t& to) { to = from.int32Value(); }
void read(const PBBoxedValue& from, uint32_t& to) { to = from.uint32Value(); }
void read(const PBBoxedValue& from, int64_t& to) { to = from.int64Value(); }
void read(const PBBoxedValue& from, uint64_t& to) { to = from.uint64Value(); }
void read(const PBBoxedValue& from, float& to) { to = from.floatValue(); }
void read(const PBBoxedValue& from, double& to) { to = from.doubleValue(); }

PBBoxedValue boxed(PBArrayValueType type, const PBValue& value) {
  PBBoxedValue result;
  withMember(type, [&](auto member) { result = value.*member; });
  return result;
}

}  // namespace

template <class N>
N PBBoxedValue::number() const {
  N result = N();
  if (_kind == Kind::Number) withMember(_type, [&](auto member) { result = convert<N>(_value.*member); });
  return result;
}
template int64_t PBBoxedValue::number<int64_t>() const;
template uint64_t PBBoxedValue::number<uint64_t>() const;
template float PBBoxedValue::number<float>() const;
template double PBBoxedValue::number<double>() const;

bool PBBoxedValue::isEqual(const PBBoxedValue& other) const {
  if (_kind != other._kind) return false;
  switch (_kind) {
    case Kind::Nothing:
      return true;
    case Kind::Object:
      return _object.isEqual(other._object);
    case Kind::Array: {
      const size_t count = _array->count();
      if (count != other._array->count()) return false;
      if (_array->valueType() == PBArrayValueTypeObject) return _array->isEqual(other._array);
      for (size_t i = 0; i < count; ++i) {
        if (!pbBoxedElement(*_array, i).isEqual(pbBoxedElement(*other._array, i))) return false;
      }
      return true;
    }
    case Kind::Number:
      break;
  }
  const bool floating = _type >= PBArrayValueTypeFloat || other._type >= PBArrayValueTypeFloat;
  if (floating) {
    const double a = doubleValue();
    const double b = other.doubleValue();
    return a == b || (a != a && b != b);
  }
  const bool isNegative = _type != PBArrayValueTypeUInt64 && int64Value() < 0;
  const bool otherIsNegative = other._type != PBArrayValueTypeUInt64 && other.int64Value() < 0;
  return isNegative == otherIsNegative && uint64Value() == other.uint64Value();
}

std::string PBBoxedValue::printed() const {
  std::string result;
  withMember(_type, [&](auto member) {
    const auto value = _value.*member;
    using Number = std::remove_cvref_t<decltype(value)>;
    if constexpr (std::is_same_v<Number, bool>) {
      result = value ? "YES" : "NO";
    } else if constexpr (std::is_floating_point_v<Number>) {
      result = pbFixed(static_cast<double>(value));
    } else {
      result = std::to_string(value);
    }
  });
  return result;
}

std::string PBBoxedValue::description() const {
  switch (_kind) {
    case Kind::Nothing:
      return "(null)";
    case Kind::Object:
      return _object.description();
    case Kind::Array:
      return _array->description();
    case Kind::Number:
      break;
  }
  return printed();
}

std::string PBBoxedValue::className() const {
  switch (_kind) {
    case Kind::Nothing:
      return "(null)";
    case Kind::Number:
      return "NSNumber";
    case Kind::Array:
      return "NVXx_PBMutableArray";
    case Kind::Object:
      break;
  }
  switch (_object.kind()) {
    case PBObjectKind::String:
      return "NSString";
    case PBObjectKind::Data:
      return "NSData";
    case PBObjectKind::Message:
      return _object.message()->classOfMessage().name;
    default:
      return "NVXx_PBUnknownFieldSet";
  }
}

PBBoxedValue pbBoxedElement(const NVXx_PBArray& array, size_t index) {
  if (array.valueType() == PBArrayValueTypeObject) return array.objectAtIndex(index);
  return boxed(array.valueType(), array.valueAtIndex(index));
}

void pbAddBoxed(NVXx_PBMutableArray& array, const PBBoxedValue& value) {
  if (array.valueType() == PBArrayValueTypeObject) return array.addObject(value.object());
  // A bool is what the number's low byte is.
  if (array.valueType() == PBArrayValueTypeBool) {
    return array.addBool(static_cast<int8_t>(value.int64Value()) != 0);
  }
  withMember(array.valueType(), [&](auto member) {
    PBValue element;
    read(value, element.*member);
    PBArrayAccess::add(array, element.*member);
  });
}

PBBoxedValue pbBoxedScalar(NVXx_PBType type, PBValue value) {
  return boxed(NVXx_PBArrayValueTypeForPBType(type), value);
}

PBValue pbScalarOf(NVXx_PBType type, const PBBoxedValue& value) {
  PBValue result;
  withMember(NVXx_PBArrayValueTypeForPBType(type), [&](auto member) { read(value, result.*member); });
  return result;
}

namespace {

template <class... Format>
std::string printNumber(double value, Format... format) {
  char text[400];
  return std::string(text, std::to_chars(text, text + sizeof text, value, format...).ptr);
}

}  // namespace

std::string pbFixed(double value) { return printNumber(value, std::chars_format::fixed, 6); }
std::string pbGeneral(double value, int precision) {
  return printNumber(value, std::chars_format::general, precision);
}
std::string pbAddress(const void* object) { return pbFormat("%p", object); }

std::string pbFormat(const char* format, ...) {
  char text[400];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return std::string(text, length < 0 ? 0 : std::min<size_t>(static_cast<size_t>(length), sizeof text - 1));
}

}  // namespace nvxcore
