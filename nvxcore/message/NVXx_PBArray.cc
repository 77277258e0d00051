#include "nvxcore/message/NVXx_PBArray.h"

#include <algorithm>
#include <new>
#include <utility>

#include "nvxcore/message/internal/PBArrayAccess.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/message/internal/PBRelease.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

namespace {

[[noreturn]] void throwBeyond(size_t index, size_t count) {
  throw Exception(kRangeException,
                  "idx (" + std::to_string(index) + ") beyond bounds (" + std::to_string(count) + ")");
}

[[noreturn]] void throwMismatch(const char* expected) {
  throw Exception(kPBArrayTypeMismatchException,
                  std::string("array value type mismatch (expected '") + expected + "')");
}

const char* typeName(PBArrayValueType type) {
  const char* const kNames[] = {"PBArrayValueTypeObject", "PBArrayValueTypeBool",  "PBArrayValueTypeInt32",
                                "PBArrayValueTypeUInt32", "PBArrayValueTypeInt64", "PBArrayValueTypeUInt64",
                                "PBArrayValueTypeFloat",  "PBArrayValueTypeDouble"};
  return kNames[type];
}

void requireType(const NVXx_PBArray& array, PBArrayValueType type) {
  if (array.valueType() != type) throwMismatch(typeName(type));
}

}  // namespace

// The inside.

PBArrayAccess::MutableArray* PBArrayAccess::create(PBArrayValueType type, PBObjectKind kind, uint32_t count,
                                                   bool isMutable) {
  const uint64_t room = uint64_t{count} * pbElementSize(type);
  // A large run gets a block of its own, so that letting go of the elements gives it back.
  const uint32_t within = room <= 4096 ? static_cast<uint32_t>((room + 15) & ~uint64_t{15}) : 0;
  void* memory = BlockPool::allocate(sizeof(MutableArray) + within);
  auto* array = ::new (memory) MutableArray(type, kind, isMutable, within);
  if (within) {
    array->_data = array + 1;
    array->_space = within / pbElementSize(type);
  } else if (count) {
    array->_data = BlockPool::allocate(room);
    array->_isOwnBlock = true;
    array->_space = count;
  }
  return array;
}

void PBArrayAccess::destroy(Array* array) {
  freeBlock(*array);
  BlockPool::free(array, sizeof(MutableArray) + array->_room);
}

void* PBArrayAccess::grow(MutableArray& array, size_t count) {
  const uint64_t needed = array._count + static_cast<uint64_t>(count);
  if (NVXx_PBGeneratedMessage* message = messageDelegate(array)) {
    PBMessageAccess::arrayBecameReal(*message, array);
  } else if (array._delegate) {
    reinterpret_cast<PBMutableArrayDelegate*>(array._delegate)->pbMutableArrayWillAddElements(array, count);
  }
  const uint32_t size = pbElementSize(array.valueType());
  const uint64_t told = needed <= array._capacity ? array._capacity
                        : array._capacity == 0    ? needed
                                                  : (needed + 32) / 32 * 32;
  if (needed < count || told > UINT32_MAX) {
    throw Exception(kPBArrayAllocationFailureException,
                    "failed to allocate " + std::to_string(told * size) + " bytes");
  }
  if (needed > array._space) makeSpace(array, needed);
  array._capacity = static_cast<uint32_t>(told);
  return static_cast<char*>(array._data) + size_t{array._count} * size;
}

void PBArrayAccess::makeSpace(MutableArray& array, uint64_t needed) {
  // Twice as much each time: what is told grows by 32, which would be quadratic underneath.
  const uint64_t size = pbElementSize(array.valueType());
  const uint64_t space =
      std::max<uint64_t>(needed, std::min<uint64_t>(uint64_t{array._space} * 2, UINT32_MAX));
  void* block = nullptr;
  try {
    if (space <= UINT32_MAX) block = BlockPool::allocate(space * size);
  } catch (const std::bad_alloc&) {
  }
  if (!block) {
    throw Exception(kPBArrayAllocationFailureException,
                    "failed to allocate " + std::to_string(space * size) + " bytes");
  }
  if (array._count) std::memcpy(block, array._data, array._count * size);
  freeBlock(array);
  array._data = block;
  array._isOwnBlock = true;
  array._space = static_cast<uint32_t>(space);
}

bool PBArrayAccess::fits(Array& array, NVXx_PBType type) {
  if (array.valueType() != NVXx_PBArrayValueTypeForPBType(type)) return false;
  if (array.valueType() != PBArrayValueTypeObject) return true;
  if (array._objectKind == PBObjectKind::None) array._objectKind = pbObjectKind(type);
  return array._objectKind == pbObjectKind(type);
}

void PBArrayAccess::retainElement(PBObjectKind kind, void* object) {
  if (!object) return;
  switch (kind) {
    case PBObjectKind::Message:
      static_cast<NVXx_PBGeneratedMessage*>(object)->retain();
      break;
    case PBObjectKind::UnknownFieldSet:
      static_cast<NVXx_PBUnknownFieldSet*>(object)->retain();
      break;
    case PBObjectKind::None:
      break;
    default:
      static_cast<PBBlock*>(object)->references.fetch_add(1, std::memory_order_relaxed);
  }
}

void PBArrayAccess::dropElement(PBObjectKind kind, void* object) {
  if (!object) return;
  switch (kind) {
    case PBObjectKind::Message:
      static_cast<NVXx_PBGeneratedMessage*>(object)->release();
      break;
    case PBObjectKind::UnknownFieldSet:
      static_cast<NVXx_PBUnknownFieldSet*>(object)->release();
      break;
    case PBObjectKind::None:
      break;
    default:
      DataAccess::drop(static_cast<PBBlock*>(object));
  }
}

// Creation.

void NVXx_PBArray::release() const {
  PBReleaseWalk walk;
  walk.dropArray(static_cast<NVXx_PBMutableArray*>(const_cast<NVXx_PBArray*>(this)));
}

Ref<NVXx_PBArray> NVXx_PBArray::arrayWithValueType(PBArrayValueType type) {
  return Ref<NVXx_PBArray>::adopt(PBArrayAccess::create(type, PBObjectKind::None, 0, false));
}

Ref<NVXx_PBArray> NVXx_PBArray::arrayWithValues(const void* values, size_t count, PBArrayValueType type) {
  if (count > UINT32_MAX) return nullptr;
  auto array = Ref<NVXx_PBMutableArray>::adopt(
      PBArrayAccess::create(type, PBObjectKind::None, static_cast<uint32_t>(count), false));
  array->fill(values, count);
  return array;
}

void NVXx_PBArray::fill(const void* values, size_t count) {
  if (!count) return;
  if (_valueType == PBArrayValueTypeObject) {
    const auto* objects = static_cast<const PBObject*>(values);
    for (size_t i = 0; i < count; ++i) static_cast<NVXx_PBMutableArray*>(this)->addObject(objects[i]);
  } else {
    std::memcpy(_data, values, count * pbElementSize(valueType()));
    _count = static_cast<uint32_t>(count);
  }
  _capacity = static_cast<uint32_t>(count);
}

Ref<NVXx_PBArray> NVXx_PBArray::arrayWithArray(const std::vector<PBBoxedValue>& values,
                                               PBArrayValueType type) {
  auto array = Ref<NVXx_PBMutableArray>::adopt(
      PBArrayAccess::create(type, PBObjectKind::None, static_cast<uint32_t>(values.size()), false));
  for (const PBBoxedValue& value : values) {
    if (type != PBArrayValueTypeObject && !value.isNumber()) {
      throw Exception(kPBArrayNumberExpectedException, "NSNumber expected (got '" + value.className() + "')");
    }
    pbAddBoxed(*array, value);
  }
  array->_capacity = static_cast<uint32_t>(values.size());
  return array;
}

Ref<NVXx_PBArray> NVXx_PBArray::arrayWithObject(const PBObject& object) {
  return arrayWithValues(&object, 1, PBArrayValueTypeObject);
}

Ref<NVXx_PBMutableArray> NVXx_PBArray::arrayWithObjects(std::initializer_list<PBObject> objects) {
  auto array = NVXx_PBMutableArray::arrayWithValueType(PBArrayValueTypeObject);
  for (const PBObject& object : objects) {
    if (!object) break;
    array->addObject(object);
  }
  return array;
}

Ref<NVXx_PBArray> NVXx_PBArray::arrayWithInt32(int32_t value) {
  return arrayWithValues(&value, 1, PBArrayValueTypeInt32);
}

Ref<NVXx_PBMutableArray> NVXx_PBArray::arrayWithInt32s(std::initializer_list<int32_t> values) {
  auto array = NVXx_PBMutableArray::arrayWithValueType(PBArrayValueTypeInt32);
  for (const int32_t value : values) {
    if (value == INT32_MAX) break;
    array->addInt32(value);
  }
  return array;
}

// Reads.

PBObject NVXx_PBArray::objectAtIndex(size_t index) const {
  if (index >= _count) throwBeyond(index, _count);
  requireType(*this, PBArrayValueTypeObject);
  return PBObjectAccess::share(_objectKind, PBArrayAccess::elements<void*>(*this)[index]);
}

PBObject NVXx_PBArray::firstObject() const {
  requireType(*this, PBArrayValueTypeObject);
  return _count ? objectAtIndex(0) : PBObject();
}

PBObject NVXx_PBArray::lastObject() const {
  requireType(*this, PBArrayValueTypeObject);
  return _count ? objectAtIndex(_count - 1) : PBObject();
}

void* NVXx_PBArray::borrowAtIndex(size_t index, PBObjectKind kind) const {
  if (index >= _count) throwBeyond(index, _count);
  if (_valueType != PBArrayValueTypeObject || _objectKind != kind)
    throwMismatch(typeName(PBArrayValueTypeObject));
  return PBArrayAccess::elements<void*>(*this)[index];
}

std::string_view NVXx_PBArray::stringAtIndex(size_t index) const {
  return pbView(static_cast<PBBlock*>(borrowAtIndex(index, PBObjectKind::String)));
}

std::string_view NVXx_PBArray::dataAtIndex(size_t index) const {
  const auto* block = static_cast<PBBlock*>(borrowAtIndex(index, PBObjectKind::Data));
  return block ? pbView(block) : std::string_view();
}

#define NVX_PB_READ(Name, type)                    \
  if (index >= _count) throwBeyond(index, _count); \
  requireType(*this, PBArrayValueType##Name);      \
  return PBArrayAccess::elements<type>(*this)[index]

bool NVXx_PBArray::boolAtIndex(size_t index) const {
  if (index >= _count) throwBeyond(index, _count);
  requireType(*this, PBArrayValueTypeBool);
  return PBArrayAccess::elements<uint8_t>(*this)[index] != 0;
}
int32_t NVXx_PBArray::int32AtIndex(size_t index) const { NVX_PB_READ(Int32, int32_t); }
uint32_t NVXx_PBArray::uint32AtIndex(size_t index) const { NVX_PB_READ(UInt32, uint32_t); }
int64_t NVXx_PBArray::int64AtIndex(size_t index) const { NVX_PB_READ(Int64, int64_t); }
uint64_t NVXx_PBArray::uint64AtIndex(size_t index) const { NVX_PB_READ(UInt64, uint64_t); }
float NVXx_PBArray::floatAtIndex(size_t index) const { NVX_PB_READ(Float, float); }
double NVXx_PBArray::doubleAtIndex(size_t index) const { NVX_PB_READ(Double, double); }
#undef NVX_PB_READ

PBValue NVXx_PBArray::valueAtIndex(size_t index) const {
  if (index >= _count) throwBeyond(index, _count);
  PBValue value;
  const uint32_t size = pbElementSize(valueType());
  std::memcpy(&value.valueUInt64, static_cast<const char*>(_data) + index * size, size);
  return value;
}

// Whole arrays.

std::vector<PBBoxedValue> NVXx_PBArray::array() const {
  std::vector<PBBoxedValue> result;
  result.reserve(_count);
  for (size_t i = 0; i < _count; ++i) result.push_back(pbBoxedElement(*this, i));
  return result;
}

std::vector<PBBoxedValue> NVXx_PBArray::arrayWithConversion(
    const std::function<PBBoxedValue(const PBBoxedValue& element)>& conversion) const {
  std::vector<PBBoxedValue> result;
  for (size_t i = 0; i < _count; ++i) {
    PBBoxedValue converted = conversion(pbBoxedElement(*this, i));
    if (converted) result.push_back(std::move(converted));
  }
  return result;
}

Ref<NVXx_PBArray> NVXx_PBArray::arrayByAppendingArray(const NVXx_PBArray& other) const {
  if (_valueType != other._valueType) throwMismatch("array->_valueType");
  auto result = Ref<NVXx_PBMutableArray>::adopt(
      PBArrayAccess::create(valueType(), _objectKind, _count + other._count, _isMutable));
  result->_capacity = _count + other._count;
  result->appendArray(this);
  result->appendArray(&other);
  return result;
}

void NVXx_PBArray::enumerateObjectsUsingBlock(
    const std::function<void(const PBObject& object, size_t index, bool& stop)>& handler) const {
  const uint64_t mutations = _mutationCount;
  bool stop = false;
  for (size_t i = 0; i < _count && !stop; ++i) {
    handler(objectAtIndex(i), i, stop);
    requireUnchanged(mutations);
  }
}

void NVXx_PBArray::enumerateInt32sUsingBlock(
    const std::function<void(int32_t value, size_t index, bool& stop)>& handler) const {
  requireType(*this, PBArrayValueTypeInt32);
  const uint64_t mutations = _mutationCount;
  bool stop = false;
  for (size_t i = 0; i < _count && !stop; ++i) {
    handler(int32AtIndex(i), i, stop);
    requireUnchanged(mutations);
  }
}

void NVXx_PBArray::requireUnchanged(uint64_t mutations) const {
  if (mutations == _mutationCount) return;
  throw Exception(kGenericException, "*** Collection <" + std::string(className()) + ": " + pbAddress(this) +
                                         "> was mutated while being enumerated.");
}

const char* NVXx_PBArray::className() const { return _isMutable ? "NVXx_PBMutableArray" : "NVXx_PBArray"; }

std::vector<PBBoxedValue> NVXx_PBArray::valueForKey(std::string_view key) const {
  requireType(*this, PBArrayValueTypeObject);
  std::vector<PBBoxedValue> result;
  for (size_t i = 0; i < _count; ++i) {
    const NVXx_PBGeneratedMessage* message = objectAtIndex(i).message();
    result.push_back(message ? message->valueForName(key) : PBBoxedValue());
  }
  return result;
}

void NVXx_PBArray::setValueForKey(const PBBoxedValue& value, std::string_view key) const {
  requireType(*this, PBArrayValueTypeObject);
  for (size_t i = 0; i < _count; ++i) {
    if (NVXx_PBGeneratedMessage* message = objectAtIndex(i).message()) message->setValueForName(key, value);
  }
}

bool NVXx_PBArray::isEqual(const NVXx_PBArray* other) const {
  if (this == other) return true;
  if (!other || _valueType != other->_valueType || _count != other->_count) return false;
  if (!_count) return true;
  if (_valueType != PBArrayValueTypeObject) {
    return std::memcmp(_data, other->_data, size_t{_count} * pbElementSize(valueType())) == 0;
  }
  if (_objectKind != other->_objectKind) return false;
  void* const* mine = PBArrayAccess::elements<void*>(*this);
  void* const* others = PBArrayAccess::elements<void*>(*other);
  for (size_t i = 0; i < _count; ++i) {
    if (!PBObjectAccess::isEqual(_objectKind, mine[i], others[i])) return false;
  }
  return true;
}

size_t NVXx_PBArray::hash() const { return static_cast<size_t>(_valueType) * 100000 + _count; }

std::string NVXx_PBArray::description() const {
  std::string text = "<" + std::string(className()) + " " + pbAddress(this) + "> { ";
  for (size_t i = 0; i < _count; ++i) {
    if (_valueType == PBArrayValueTypeObject) {
      text += i ? "\t" : "\n\t";
      const std::string element = objectAtIndex(i).description();
      for (const char c : element) {
        text += c;
        if (c == '\n') text += '\t';
      }
      text += i + 1 < _count ? ",\n" : "\n";
    } else {
      if (i) text += ", ";
      text += pbBoxedElement(*this, i).printed();
    }
  }
  return text + " }";
}

Ref<NVXx_PBArray> NVXx_PBArray::copy() const {
  if (!_isMutable) return const_cast<NVXx_PBArray*>(this);
  return Ref<NVXx_PBArray>::adopt(copied(false));
}

Ref<NVXx_PBMutableArray> NVXx_PBArray::mutableCopy() const {
  return Ref<NVXx_PBMutableArray>::adopt(copied(true));
}

NVXx_PBMutableArray* NVXx_PBArray::copied(bool isMutable) const {
  NVXx_PBMutableArray* result = PBArrayAccess::create(valueType(), _objectKind, _count, isMutable);
  result->_capacity = _count;
  if (_count) {
    std::memcpy(result->_data, _data, size_t{_count} * pbElementSize(valueType()));
    result->_count = _count;
    if (_valueType == PBArrayValueTypeObject) {
      void* const* elements = PBArrayAccess::elements<void*>(*this);
      for (size_t i = 0; i < _count; ++i) PBArrayAccess::retainElement(_objectKind, elements[i]);
    }
  }
  return result;
}

}  // namespace nvxcore
