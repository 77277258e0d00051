#include <utility>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBIvars.h"
#include "nvxcore/message/internal/PBMessageAccess.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"

// Fields by name and by descriptor.

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

uint32_t indexOfName(const NVXx_PBGeneratedMessage& message, std::string_view name) {
  const PBClass& messageClass = Access::classOf(message);
  for (uint32_t i = 0; i < messageClass.fieldCount; ++i) {
    if (name == messageClass.infos[i].name) return i;
  }
  throw Exception(kInvalidArgumentException, messageClass.name + " has no field " + std::string(name));
}

uint32_t requireField(const NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field) {
  if (&field.classOfField() != &Access::classOf(message)) {
    throw Exception(kInvalidArgumentException,
                    "Field " + field.name() + " is not one of " + Access::classOf(message).name);
  }
  return field.index();
}

[[noreturn]] void throwWrongValue(const PBClass& messageClass, uint32_t field, const PBBoxedValue& value) {
  throw Exception(kInvalidArgumentException, messageClass.name + "'s field " +
                                                 messageClass.infos[field].name +
                                                 " doesn't take a value of " + value.className());
}

void requireKind(const NVXx_PBGeneratedMessage& message, uint32_t field, const PBObject& object) {
  const PBClass& messageClass = Access::classOf(message);
  const PBEntry& entry = messageClass.entries[field];
  if (object.kind() != pbObjectKind(entry.type) ||
      (entry.isMessage() &&
       &object.message()->classOfMessage() != &messageClass.infos[field].messageClass())) {
    throwWrongValue(messageClass, field, object);
  }
}

}  // namespace

PBBoxedValue NVXx_PBGeneratedMessage::valueForName(std::string_view name) const {
  return NVXx_PBGetValueWithField(*this, *descriptorOfMessage().fields()[indexOfName(*this, name)]);
}

bool NVXx_PBGeneratedMessage::hasValueForName(std::string_view name) const {
  return pb_has(_class->entries[indexOfName(*this, name)].has);
}

void NVXx_PBGeneratedMessage::setValueForName(std::string_view name, const PBBoxedValue& value) {
  NVXx_PBSetValueWithField(*this, *descriptorOfMessage().fields()[indexOfName(*this, name)], value);
}

PBBoxedValue NVXx_PBGetValueWithField(const NVXx_PBGeneratedMessage& message,
                                      const NVXx_PBFieldDescriptor& field) {
  const uint32_t index = requireField(message, field);
  const PBEntry& entry = Access::classOf(message).entries[index];
  if (entry.isRepeated()) return Ref<NVXx_PBMutableArray>(Access::array(message, index));
  if (entry.isMessage()) return PBObject(&Access::child(message, index));
  if (!Access::has(message, entry.has)) return field.defaultValue();
  if (NVXx_PBTypeIsObject(entry.type)) {
    return PBObjectAccess::share(pbObjectKind(entry.type), Access::slot<void>(message, entry.offset));
  }
  PBValue value;
  std::memcpy(&value.valueUInt64, Access::storage(message) + entry.offset,
              pbElementSize(NVXx_PBArrayValueTypeForPBType(entry.type)));
  return pbBoxedScalar(entry.type, value);
}

void NVXx_PBSetValueWithField(NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field,
                              const PBBoxedValue& value) {
  const uint32_t index = requireField(message, field);
  const PBClass& messageClass = Access::classOf(message);
  const PBEntry& entry = messageClass.entries[index];
  if (entry.isRepeated()) {
    if (value && value.kind() != PBBoxedValue::Kind::Array) {
      throw Exception(kInvalidArgumentException,
                      "Trying to set array " + field.setSel() + " to non mutable array");
    }
    return Access::setArray(message, index, value.array());
  }
  if (!value) return Access::clearField(message, index);
  if (NVXx_PBTypeIsObject(entry.type)) {
    if (!value.object()) throwWrongValue(messageClass, index, value);
    return NVXx_PBSetObjectIvarWithField(message, field, value.object());
  }
  if (!value.isNumber()) throwWrongValue(messageClass, index, value);
  const PBValue scalar = pbScalarOf(entry.type, value);
  std::memcpy(Access::storage(message) + entry.offset, &scalar,
              pbElementSize(NVXx_PBArrayValueTypeForPBType(entry.type)));
  Access::setHas(message, entry.has);
  Access::becomeVisible(message);
}

namespace {

[[noreturn]] void throwWrongType(const NVXx_PBFieldDescriptor& field, const char* type) {
  throw Exception(kInvalidArgumentException, "Field " + field.name() + " is not of the type " + type);
}

const PBEntry& requireScalar(const NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field,
                             PBArrayValueType type, const char* name) {
  const PBEntry& entry = Access::classOf(message).entries[requireField(message, field)];
  if (entry.isObject() || NVXx_PBArrayValueTypeForPBType(entry.type) != type) throwWrongType(field, name);
  return entry;
}

const PBEntry& requireObject(const NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field) {
  const PBEntry& entry = Access::classOf(message).entries[requireField(message, field)];
  if (!entry.isObject() || entry.isRepeated()) throwWrongType(field, "Object");
  return entry;
}

}  // namespace

#define NVX_PB_IVAR(Name, Scalar)                                                             \
  Scalar NVXx_PBGet##Name##IvarWithField(const NVXx_PBGeneratedMessage& message,              \
                                         const NVXx_PBFieldDescriptor& field) {               \
    const PBEntry& entry = requireScalar(message, field, PBArrayValueType##Name, #Name);      \
    if (!Access::has(message, entry.has)) {                                                   \
      return Access::classOf(message).infos[field.index()].defaultValue.value##Name;          \
    }                                                                                         \
    PBValue value;                                                                            \
    std::memcpy(&value.valueUInt64, Access::storage(message) + entry.offset, sizeof(Scalar)); \
    return value.value##Name;                                                                 \
  }                                                                                           \
  void NVXx_PBSet##Name##IvarWithField(NVXx_PBGeneratedMessage& message,                      \
                                       const NVXx_PBFieldDescriptor& field, Scalar value) {   \
    const PBEntry& entry = requireScalar(message, field, PBArrayValueType##Name, #Name);      \
    Access::store<Scalar>(message, entry.offset, value);                                      \
    Access::setHas(message, entry.has);                                                       \
    Access::becomeVisible(message);                                                           \
  }                                                                                           \
  void NVXx_PBSetHas##Name##IvarWithField(NVXx_PBGeneratedMessage& message,                   \
                                          const NVXx_PBFieldDescriptor& field) {              \
    requireScalar(message, field, PBArrayValueType##Name, #Name);                             \
    Access::clearField(message, field.index());                                               \
  }
NVX_PB_IVAR(Bool, bool)
NVX_PB_IVAR(Int32, int32_t)
NVX_PB_IVAR(UInt32, uint32_t)
NVX_PB_IVAR(Int64, int64_t)
NVX_PB_IVAR(UInt64, uint64_t)
NVX_PB_IVAR(Float, float)
NVX_PB_IVAR(Double, double)
#undef NVX_PB_IVAR

PBObject NVXx_PBGetObjectIvarWithField(const NVXx_PBGeneratedMessage& message,
                                       const NVXx_PBFieldDescriptor& field) {
  requireObject(message, field);
  return NVXx_PBGetValueWithField(message, field).object();
}

NVXx_PBGeneratedMessage& NVXx_PBGetMessageIvarWithField(const NVXx_PBGeneratedMessage& message,
                                                        const NVXx_PBFieldDescriptor& field) {
  if (!requireObject(message, field).isMessage()) throwWrongType(field, "Message");
  return Access::child(message, field.index());
}

void NVXx_PBSetObjectIvarWithField(NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field,
                                   const PBObject& value) {
  NVXx_PBSetRetainedObjectIvarWithField(message, field, PBObject(value));
}

void NVXx_PBSetRetainedObjectIvarWithField(NVXx_PBGeneratedMessage& message,
                                           const NVXx_PBFieldDescriptor& field, PBObject&& value) {
  requireObject(message, field);
  if (value) requireKind(message, field.index(), value);
  Access::setObject(message, field.index(), PBObjectAccess::take(std::move(value)));
}

void NVXx_PBSetHasObjectIvarWithField(NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field) {
  const uint32_t index = requireField(message, field);
  if (!Access::classOf(message).entries[index].isObject()) throwWrongType(field, "Object");
  Access::clearField(message, index);
}

NVXx_PBMutableArray& NVXx_PBGetArrayIvarWithField(const NVXx_PBGeneratedMessage& message,
                                                  const NVXx_PBFieldDescriptor& field) {
  const uint32_t index = requireField(message, field);
  if (!field.isRepeated()) throwWrongType(field, "Array");
  return Access::array(message, index);
}

void NVXx_PBSetArrayIvarWithField(NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field,
                                  Ref<NVXx_PBMutableArray> value) {
  const uint32_t index = requireField(message, field);
  if (!field.isRepeated()) throwWrongType(field, "Array");
  Access::setArray(message, index, value.get());
}

void NVXx_PBSetHasIvarWithField(NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field) {
  Access::clearField(message, requireField(message, field));
}

bool NVXx_PBGetHasIvar(const NVXx_PBGeneratedMessage& message, uint32_t hasIndex) {
  return Access::has(message, hasIndex);
}

void NVXx_PBSetHasIvar(NVXx_PBGeneratedMessage& message, uint32_t hasIndex, bool value) {
  if (value) {
    Access::setHas(message, hasIndex);
  } else {
    Access::clearHas(message, hasIndex);
  }
}

void NVXx_PBBecomeVisibleToAutocreator(NVXx_PBGeneratedMessage& message) { Access::becomeVisible(message); }

PBObject NVXx_PBGetObjectIvarWithFieldNoAutocreate(const NVXx_PBGeneratedMessage& message,
                                                   const NVXx_PBFieldDescriptor& field) {
  const PBEntry& entry = requireObject(message, field);
  return PBObjectAccess::share(pbObjectKind(entry.type), Access::slot<void>(message, entry.offset));
}

void NVXx_PBClearAutocreatedMessageIvarWithField(NVXx_PBGeneratedMessage& message,
                                                 const NVXx_PBFieldDescriptor& field) {
  const PBEntry& entry = Access::classOf(message).entries[requireField(message, field)];
  if (!entry.isMessage() || entry.isRepeated() || Access::has(message, entry.has)) return;
  auto* child = Access::slot<NVXx_PBGeneratedMessage>(message, entry.offset);
  if (!child) return;
  Access::setSlot(message, entry.offset, nullptr);
  child->clearAutocreator();
  child->release();
}

}  // namespace nvxcore
