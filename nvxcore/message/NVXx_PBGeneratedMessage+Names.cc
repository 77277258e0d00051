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
    const PBObject& object = value.object();
    if (object.kind() != pbObjectKind(entry.type) ||
        (entry.isMessage() &&
         &object.message()->classOfMessage() != &messageClass.infos[index].messageClass())) {
      throwWrongValue(messageClass, index, value);
    }
    return Access::setObject(message, index, PBObjectAccess::take(PBObject(object)));
  }
  if (!value.isNumber()) throwWrongValue(messageClass, index, value);
  const PBValue scalar = pbScalarOf(entry.type, value);
  std::memcpy(Access::storage(message) + entry.offset, &scalar,
              pbElementSize(NVXx_PBArrayValueTypeForPBType(entry.type)));
  Access::setHas(message, entry.has);
  Access::becomeVisible(message);
}

#define NVX_PB_IVAR(Name, Scalar)                                                                         \
  Scalar NVXx_PBGet##Name##IvarWithField(const NVXx_PBGeneratedMessage& message,                          \
                                         const NVXx_PBFieldDescriptor& field) {                           \
    const uint32_t index = requireField(message, field);                                                  \
    const PBClass& messageClass = Access::classOf(message);                                               \
    const PBEntry& entry = messageClass.entries[index];                                                   \
    if (entry.isObject() || NVXx_PBArrayValueTypeForPBType(entry.type) != PBArrayValueType##Name) {       \
      throw Exception(kInvalidArgumentException, "Field " + field.name() + " is not of the type " #Name); \
    }                                                                                                     \
    if (!Access::has(message, entry.has)) return messageClass.infos[index].defaultValue.value##Name;      \
    PBValue value;                                                                                        \
    std::memcpy(&value.valueUInt64, Access::storage(message) + entry.offset, sizeof(Scalar));             \
    return static_cast<Scalar>(value.value##Name);                                                        \
  }                                                                                                       \
  void NVXx_PBSet##Name##IvarWithField(NVXx_PBGeneratedMessage& message,                                  \
                                       const NVXx_PBFieldDescriptor& field, Scalar value) {               \
    const uint32_t index = requireField(message, field);                                                  \
    const PBEntry& entry = Access::classOf(message).entries[index];                                       \
    if (entry.isObject() || NVXx_PBArrayValueTypeForPBType(entry.type) != PBArrayValueType##Name) {       \
      throw Exception(kInvalidArgumentException, "Field " + field.name() + " is not of the type " #Name); \
    }                                                                                                     \
    Access::store<Scalar>(message, entry.offset, value);                                                  \
    Access::setHas(message, entry.has);                                                                   \
    Access::becomeVisible(message);                                                                       \
  }
NVX_PB_IVAR(Bool, bool)
NVX_PB_IVAR(Int32, int32_t)
NVX_PB_IVAR(UInt32, uint32_t)
NVX_PB_IVAR(Int64, int64_t)
NVX_PB_IVAR(UInt64, uint64_t)
NVX_PB_IVAR(Float, float)
NVX_PB_IVAR(Double, double)
#undef NVX_PB_IVAR

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
  const PBEntry& entry = Access::classOf(message).entries[requireField(message, field)];
  if (!entry.isObject() || entry.isRepeated()) return {};
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
