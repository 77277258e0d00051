#include <utility>

#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/message/internal/PBArrayAccess.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/message/internal/PBRelease.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

namespace {

[[noreturn]] void throwMismatch(const char* expected) {
  throw Exception(kPBArrayTypeMismatchException,
                  std::string("array value type mismatch (expected '") + expected + "')");
}

[[noreturn]] void throwBeyond(size_t index, size_t count) {
  throw Exception(kRangeException,
                  "idx (" + std::to_string(index) + ") beyond bounds (" + std::to_string(count) + ")");
}

}  // namespace

Ref<NVXx_PBMutableArray> NVXx_PBMutableArray::arrayWithValueType(PBArrayValueType type, size_t capacity) {
  auto array = Ref<NVXx_PBMutableArray>::adopt(PBArrayAccess::create(type, PBObjectKind::None, 0));
  if (capacity) array->ensureAdditionalCapacity(capacity);
  return array;
}

void NVXx_PBMutableArray::ensureAdditionalCapacity(size_t count) { PBArrayAccess::grow(*this, count); }

void NVXx_PBMutableArray::takeKind(PBObjectKind kind) {
  if (_valueType != PBArrayValueTypeObject) throwMismatch("PBArrayValueTypeObject");
  if (_objectKind == PBObjectKind::None || (_count == 0 && !_delegate)) _objectKind = kind;
  if (_objectKind != kind) throwMismatch("PBArrayValueTypeObject");
}

void NVXx_PBMutableArray::addObject(const PBObject& object) {
  if (_valueType != PBArrayValueTypeObject) throwMismatch("PBArrayValueTypeObject");
  if (!object) throw Exception(kInvalidArgumentException, "Attempting to add nil to a PBArray");
  PBObject counted(object);
  NVXx_PBArrayAddRetainedObject(*this, std::move(counted));
}

void NVXx_PBArrayAddRetainedObject(NVXx_PBMutableArray& array, PBObject&& object) {
  if (object) array.takeKind(object.kind());
  void** place = PBArrayAccess::room<void*>(array, 1);
  *place = PBObjectAccess::take(std::move(object));
  PBArrayAccess::added(array, 1);
}

#define NVX_PB_TYPED(Name, type, stored)                                               \
  void NVXx_PBMutableArray::add##Name(type value) {                                    \
    if (_valueType != PBArrayValueType##Name) throwMismatch("PBArrayValueType" #Name); \
    PBArrayAccess::add<stored>(*this, value);                                          \
  }                                                                                    \
  void NVXx_PBMutableArray::replace##Name##AtIndex(size_t index, type value) {         \
    if (_valueType != PBArrayValueType##Name) throwMismatch("PBArrayValueType" #Name); \
    if (index >= _count) throwBeyond(index, _count);                                   \
    PBArrayAccess::elements<stored>(*this)[index] = value;                             \
    ++_mutationCount;                                                                  \
  }
NVX_PB_TYPED(Bool, bool, uint8_t)
NVX_PB_TYPED(Int32, int32_t, int32_t)
NVX_PB_TYPED(UInt32, uint32_t, uint32_t)
NVX_PB_TYPED(Int64, int64_t, int64_t)
NVX_PB_TYPED(UInt64, uint64_t, uint64_t)
NVX_PB_TYPED(Float, float, float)
NVX_PB_TYPED(Double, double, double)
#undef NVX_PB_TYPED

void NVXx_PBMutableArray::replaceObjectAtIndex(size_t index, const PBObject& object) {
  if (_valueType != PBArrayValueTypeObject) throwMismatch("PBArrayValueTypeObject");
  if (index >= _count) throwBeyond(index, _count);
  if (object && object.kind() != _objectKind) throwMismatch("PBArrayValueTypeObject");
  void*& element = PBArrayAccess::elements<void*>(*this)[index];
  void* old = element;
  element = PBObjectAccess::take(PBObject(object));
  PBArrayAccess::dropElement(_objectKind, old);
  ++_mutationCount;
}

void NVXx_PBMutableArray::setObjectAtIndexedSubscript(const PBObject& object, size_t index) {
  if (index == _count) {
    addObject(object);
  } else {
    replaceObjectAtIndex(index, object);
  }
}

void NVXx_PBMutableArray::setArray(const NVXx_PBArray* other) {
  if (other == this) return;
  removeAllValues();
  appendArray(other);
}

void NVXx_PBMutableArray::appendArray(const NVXx_PBArray* other) {
  if (!other || !other->data()) return;
  if (_valueType != other->valueType()) throwMismatch("array->_valueType");
  const uint32_t count = PBArrayAccess::count(*other);
  if (_valueType == PBArrayValueTypeObject && count) takeKind(other->objectKind());
  PBArrayAccess::grow(*this, count);
  const size_t size = pbElementSize(valueType());
  std::memcpy(static_cast<char*>(_data) + _count * size, other->data(), count * size);
  if (_valueType == PBArrayValueTypeObject) {
    void* const* elements = PBArrayAccess::elements<void*>(*this) + _count;
    for (uint32_t i = 0; i < count; ++i) PBArrayAccess::retainElement(_objectKind, elements[i]);
  }
  PBArrayAccess::added(*this, count);
}

void NVXx_PBMutableArray::appendValues(const void* values, PBArrayValueType type, size_t count) {
  if (_valueType != type) throwMismatch("valueType");
  if (type == PBArrayValueTypeObject) {
    const auto* objects = static_cast<const PBObject*>(values);
    PBArrayAccess::grow(*this, count);
    for (size_t i = 0; i < count; ++i) addObject(objects[i]);
    return;
  }
  PBArrayAccess::grow(*this, count);
  if (count)
    std::memcpy(static_cast<char*>(_data) + _count * pbElementSize(type), values,
                count * pbElementSize(type));
  PBArrayAccess::added(*this, static_cast<uint32_t>(count));
}

void NVXx_PBMutableArray::removeAllValues() {
  if (_valueType == PBArrayValueTypeObject) {
    PBReleaseWalk walk;
    walk.dropElements(*this);
    _count = 0;
  }
  PBArrayAccess::freeBlock(*this);
  _isOwnBlock = false;
  _data = nullptr;
  _space = 0;
  _count = 0;
  _capacity = 0;
  ++_mutationCount;
}

PBMutableArrayDelegate* NVXx_PBMutableArray::delegate() const {
  return _delegate & 1 ? nullptr : reinterpret_cast<PBMutableArrayDelegate*>(_delegate);
}

void NVXx_PBMutableArray::setDelegate(PBMutableArrayDelegate* delegate) {
  _delegate = reinterpret_cast<uintptr_t>(delegate);
}

}  // namespace nvxcore
