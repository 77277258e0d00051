#include "nvxcore/message/NVXx_PBField.h"

#include <new>

#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/internal/PBArrayAccess.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

NVXx_PBField::~NVXx_PBField() = default;

void NVXx_PBField::release() const {
  if (_references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    auto* field = static_cast<NVXx_PBMutableField*>(const_cast<NVXx_PBField*>(this));
    field->~NVXx_PBMutableField();
    BlockPool::free(field, sizeof *field);
  }
}

Ref<NVXx_PBMutableField> NVXx_PBMutableField::fieldWithNumber(int32_t number) {
  return Ref<NVXx_PBMutableField>::adopt(::new (BlockPool::allocate(sizeof(NVXx_PBMutableField)))
                                             NVXx_PBMutableField(number));
}

namespace {

// The list, made for exactly one element on the first value.
NVXx_PBMutableArray& need(Ref<NVXx_PBMutableArray>& list, PBArrayValueType type, PBObjectKind kind) {
  if (!list) list = Ref<NVXx_PBMutableArray>::adopt(PBArrayAccess::create(type, kind, 1));
  return *list;
}

void mergeList(Ref<NVXx_PBMutableArray>& list, const Ref<NVXx_PBMutableArray>& other) {
  if (!NVXx_PBArrayCount(other.get())) return;
  if (list) {
    list->appendArray(other.get());
  } else {
    list = other->mutableCopy();
  }
}

bool areEqual(const NVXx_PBArray* a, const NVXx_PBArray* b) {
  if (!NVXx_PBArrayCount(a) && !NVXx_PBArrayCount(b)) return true;
  return a && a->isEqual(b);
}

size_t hashOf(const NVXx_PBArray* list) { return list ? list->hash() : 0; }

}  // namespace

void NVXx_PBMutableField::mergeFromField(const NVXx_PBField& other) {
  mergeList(_varintList, other._varintList);
  mergeList(_fixed32List, other._fixed32List);
  mergeList(_fixed64List, other._fixed64List);
  mergeList(_lengthDelimitedList, other._lengthDelimitedList);
  mergeList(_groupList, other._groupList);
}

void NVXx_PBMutableField::addVarint(uint64_t value) {
  PBArrayAccess::add<uint64_t>(need(_varintList, PBArrayValueTypeUInt64, PBObjectKind::None), value);
}
void NVXx_PBMutableField::addFixed32(uint32_t value) {
  PBArrayAccess::add<uint32_t>(need(_fixed32List, PBArrayValueTypeUInt32, PBObjectKind::None), value);
}
void NVXx_PBMutableField::addFixed64(uint64_t value) {
  PBArrayAccess::add<uint64_t>(need(_fixed64List, PBArrayValueTypeUInt64, PBObjectKind::None), value);
}
void NVXx_PBMutableField::addLengthDelimited(const Data& value) {
  if (_lengthDelimitedList) {
    _lengthDelimitedList->addObject(value);
  } else {
    NVXx_PBArrayAddRetainedObject(need(_lengthDelimitedList, PBArrayValueTypeObject, PBObjectKind::Data),
                                  value);
  }
}
void NVXx_PBMutableField::addGroup(const Ref<NVXx_PBUnknownFieldSet>& value) {
  need(_groupList, PBArrayValueTypeObject, PBObjectKind::UnknownFieldSet).addObject(value);
}

void NVXx_PBField::writeToOutput(NVXx_PBCodedOutputStream& output) const {
  if (_varintList) output.writeUInt64s(_number, *_varintList, 0);
  if (_fixed32List) output.writeFixed32s(_number, *_fixed32List, 0);
  if (_fixed64List) output.writeFixed64s(_number, *_fixed64List, 0);
  if (_lengthDelimitedList) output.writeDatas(_number, *_lengthDelimitedList);
  if (_groupList) output.writeUnknownGroups(_number, *_groupList);
}

namespace {

std::string_view dataAt(const NVXx_PBArray& list, size_t index) { return list.dataAtIndex(index); }

}  // namespace

size_t NVXx_PBField::serializedSize() const {
  size_t size = 0;
  const size_t tag = NVXx_PBComputeTagSize(_number);
  for (size_t i = 0; i < NVXx_PBArrayCount(_varintList.get()); ++i) {
    size += NVXx_PBComputeUInt64Size(_number, _varintList->uint64AtIndex(i));
  }
  size += NVXx_PBArrayCount(_fixed32List.get()) * (tag + 4);
  size += NVXx_PBArrayCount(_fixed64List.get()) * (tag + 8);
  for (size_t i = 0; i < NVXx_PBArrayCount(_lengthDelimitedList.get()); ++i) {
    size += NVXx_PBComputeDataSize(_number, dataAt(*_lengthDelimitedList, i));
  }
  for (size_t i = 0; i < NVXx_PBArrayCount(_groupList.get()); ++i) {
    size += 2 * tag + PBArrayAccess::elements<NVXx_PBUnknownFieldSet*>(*_groupList)[i]->serializedSize();
  }
  return size;
}

void NVXx_PBField::writeAsMessageSetExtensionToOutput(NVXx_PBCodedOutputStream& output) const {
  for (size_t i = 0; i < NVXx_PBArrayCount(_lengthDelimitedList.get()); ++i) {
    output.writeRawMessageSetExtension(_number, dataAt(*_lengthDelimitedList, i));
  }
}

size_t NVXx_PBField::serializedSizeAsMessageSetExtension() const {
  size_t size = 0;
  for (size_t i = 0; i < NVXx_PBArrayCount(_lengthDelimitedList.get()); ++i) {
    size += NVXx_PBComputeRawMessageSetExtensionSize(_number, dataAt(*_lengthDelimitedList, i));
  }
  return size;
}

bool NVXx_PBField::isEqual(const NVXx_PBField* other) const {
  if (this == other) return true;
  return other && areEqual(_varintList.get(), other->_varintList.get()) &&
         areEqual(_fixed32List.get(), other->_fixed32List.get()) &&
         areEqual(_fixed64List.get(), other->_fixed64List.get()) &&
         areEqual(_lengthDelimitedList.get(), other->_lengthDelimitedList.get()) &&
         areEqual(_groupList.get(), other->_groupList.get());
}

size_t NVXx_PBField::hash() const {
  size_t hash = hashOf(_varintList.get());
  for (const NVXx_PBArray* list :
       {_fixed32List.get(), _fixed64List.get(), _lengthDelimitedList.get(), _groupList.get()}) {
    hash = hash * 31 + hashOf(list);
  }
  return hash;
}

std::string NVXx_PBField::description() const {
  std::string text =
      "<NVXx_PBMutableField " + pbAddress(this) + ">: Field: " + std::to_string(_number) + " {\n";
  for (const NVXx_PBArray* list : {_varintList.get(), _fixed32List.get(), _fixed64List.get(),
                                   _lengthDelimitedList.get(), _groupList.get()}) {
    for (size_t i = 0; i < NVXx_PBArrayCount(list); ++i)
      text += "\t" + pbBoxedElement(*list, i).description() + "\n";
  }
  return text + "}";
}

}  // namespace nvxcore
