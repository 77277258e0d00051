#include "nvxcore/message/NVXx_PBGeneratedMessage.h"

#include <new>
#include <utility>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/internal/PBMessageAccess.h"
#include "nvxcore/message/internal/PBRelease.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

using Access = PBMessageAccess;

void NVXx_PBGeneratedMessage::retain() const { _references.fetch_add(1, std::memory_order_relaxed); }

void NVXx_PBGeneratedMessage::release() const {
  if (_references.load(std::memory_order_acquire) == 1 ||
      _references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    PBReleaseWalk walk;
    walk.end(const_cast<NVXx_PBGeneratedMessage&>(*this));
  }
}

const NVXx_PBDescriptor& NVXx_PBGeneratedMessage::descriptorOfMessage() const {
  return _class->descriptorOfClass();
}

// Creation.

NVXx_PBGeneratedMessage* PBMessageAccess::create(const PBClass& messageClass) {
  void* memory = BlockPool::allocate(messageClass.plainSize);
  auto* message = ::new (memory) NVXx_PBGeneratedMessage(messageClass);
  std::memset(message->pb_storage(), 0, messageClass.storageSize);
  return message;
}

NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_new(const PBClass& messageClass) {
  return Access::create(messageClass);
}

const NVXx_PBDescriptor& NVXx_PBGeneratedMessage::pb_descriptor(const PBClass& messageClass) {
  return messageClass.descriptorOfClass();
}

PBSide& PBMessageAccess::needSide(const Message& message) {
  PBSide* found = side(message);
  if (found) return *found;
  auto* made = new PBSide;
  if (message._side.compare_exchange_strong(found, made, std::memory_order_acq_rel)) return *made;
  delete made;
  return *found;
}

// Autocreation: readers may race, the first to store wins.

NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_autocreate(uint32_t field) const {
  const PBEntry& entry = _class->entries[field];
  NVXx_PBGeneratedMessage* child = Access::create(_class->infos[field].messageClass());
  PBSide& link = Access::needSide(*child);
  link.autocreator = const_cast<NVXx_PBGeneratedMessage*>(this);
  link.autocreatorField = field;
  void* found = nullptr;
  if (__atomic_compare_exchange_n(reinterpret_cast<void**>(const_cast<uint8_t*>(pb_storage()) + entry.offset),
                                  &found, static_cast<void*>(child), false, __ATOMIC_ACQ_REL,
                                  __ATOMIC_ACQUIRE)) {
    return child;
  }
  child->clearAutocreator();
  child->release();
  return static_cast<NVXx_PBGeneratedMessage*>(found);
}

NVXx_PBMutableArray* NVXx_PBGeneratedMessage::pb_autocreateArray(uint32_t field) const {
  const PBEntry& entry = _class->entries[field];
  NVXx_PBMutableArray* array = PBArrayAccess::createFor(entry.type, 0);
  PBArrayAccess::setMessageDelegate(*array, const_cast<NVXx_PBGeneratedMessage*>(this));
  void* found = nullptr;
  if (__atomic_compare_exchange_n(reinterpret_cast<void**>(const_cast<uint8_t*>(pb_storage()) + entry.offset),
                                  &found, static_cast<void*>(array), false, __ATOMIC_ACQ_REL,
                                  __ATOMIC_ACQUIRE)) {
    return array;
  }
  PBArrayAccess::setMessageDelegate(*array, nullptr);
  array->release();
  return static_cast<NVXx_PBMutableArray*>(found);
}

bool NVXx_PBGeneratedMessage::wasAutocreatedBy(const NVXx_PBGeneratedMessage& parent) const {
  return Access::wasAutocreatedBy(*this, parent);
}

void NVXx_PBGeneratedMessage::clearAutocreator() {
  if (PBSide* link = Access::side(*this)) {
    link->autocreator = nullptr;
    link->autocreatorExtension = nullptr;
  }
}

void NVXx_PBGeneratedMessage::pb_becomeVisible() {
  PBSide* link = Access::side(*this);
  NVXx_PBGeneratedMessage* parent = link->autocreator;
  if (!parent) return;
  retain();
  if (link->autocreatorExtension) {
    PBValue value;
    value.valueMessage = this;
    Access::setExtensionValue(*parent, const_cast<NVXx_PBExtensionField&>(*link->autocreatorExtension),
                              value);
  } else {
    Access::setObject(*parent, link->autocreatorField, this);
  }
}

// Writes.

void PBMessageAccess::setObject(Message& message, uint32_t field, void* object) {
  const PBEntry& entry = message._class->entries[field];
  if (object) {
    setHas(message, entry.has);
  } else {
    clearHas(message, entry.has);
  }
  void* old = slot<void>(message, entry.offset);
  setSlot(message, entry.offset, object);
  if (old) {
    if (entry.isRepeated()) {
      auto* array = static_cast<NVXx_PBMutableArray*>(old);
      if (PBArrayAccess::messageDelegate(*array) == &message)
        PBArrayAccess::setMessageDelegate(*array, nullptr);
      array->release();
    } else if (entry.isMessage()) {
      auto* child = static_cast<Message*>(old);
      if (wasAutocreatedBy(*child, message)) child->clearAutocreator();
      child->release();
    } else {
      dropBytes(message, static_cast<PBBlock*>(old));
    }
  }
  becomeVisible(message);
}

void NVXx_PBGeneratedMessage::pb_setHas(uint32_t field, bool has) {
  if (has) throw Exception(kInvalidArgumentException, "has fields can only be set to NO");
  const PBEntry& entry = _class->entries[field];
  if (!entry.isObject()) {
    const PBValue& value = _class->infos[field].defaultValue;
    switch (NVXx_PBArrayValueTypeForPBType(entry.type)) {
      case PBArrayValueTypeBool:
        Access::store<uint8_t>(*this, entry.offset, value.valueBool);
        break;
      case PBArrayValueTypeInt64:
      case PBArrayValueTypeUInt64:
      case PBArrayValueTypeDouble:
        Access::store<uint64_t>(*this, entry.offset, value.valueUInt64);
        break;
      default:
        Access::store<uint32_t>(*this, entry.offset, value.valueUInt32);
    }
    Access::clearHas(*this, entry.has);
    return;
  }
  void* object = pb_slot(entry.offset);
  if (object) {
    if (entry.isRepeated()) {
      auto* array = static_cast<NVXx_PBMutableArray*>(object);
      if (PBArrayAccess::messageDelegate(*array) == this) PBArrayAccess::setMessageDelegate(*array, nullptr);
      Access::setSlot(*this, entry.offset, nullptr);
      array->release();
    } else if (entry.isMessage()) {
      auto* child = static_cast<NVXx_PBGeneratedMessage*>(object);
      if (Access::wasAutocreatedBy(*child, *this)) return;  // a latent child stays
      Access::setSlot(*this, entry.offset, nullptr);
      child->release();
    } else {
      Access::setSlot(*this, entry.offset, nullptr);
      Access::dropBytes(*this, static_cast<PBBlock*>(object));
    }
  }
  Access::clearHas(*this, entry.has);
}

void PBMessageAccess::arrayBecameReal(Message& message, NVXx_PBMutableArray& array) {
  const PBClass& messageClass = classOf(message);
  for (uint32_t i = 0; i < messageClass.objectCount; ++i) {
    const PBEntry& entry = messageClass.entries[messageClass.objects[i]];
    if (!entry.isRepeated() || slot<NVXx_PBMutableArray>(message, entry.offset) != &array) continue;
    PBArrayAccess::setMessageDelegate(array, nullptr);
    setHas(message, entry.has);
    becomeVisible(message);
    return;
  }
}

// Strings, data, children, arrays.

std::string_view NVXx_PBGeneratedMessage::pb_bytes(uint32_t has, uint32_t offset) const {
  return pb_has(has) ? pbView(static_cast<const PBBlock*>(pb_slot(offset))) : std::string_view();
}

std::string_view NVXx_PBGeneratedMessage::pb_bytesOrDefault(uint32_t has, uint32_t offset,
                                                            uint32_t field) const {
  if (pb_has(has)) return pbView(static_cast<const PBBlock*>(pb_slot(offset)));
  return _class->infos[field].defaultBytes.view();
}

Data NVXx_PBGeneratedMessage::pb_data(uint32_t field) const {
  const PBEntry& entry = _class->entries[field];
  if (pb_has(entry.has)) return DataAccess::share(static_cast<PBBlock*>(pb_slot(entry.offset)));
  const Data& told = _class->infos[field].defaultBytes;
  return told ? told : DataAccess::adopt(pbEmptyString());
}

NVXx_PBString NVXx_PBGeneratedMessage::pb_string(uint32_t field) const {
  return NVXx_PBString::sharing(pb_data(field));
}

void NVXx_PBGeneratedMessage::pb_setString(uint32_t field, const PBStringArgument& value) {
  PBBlock* block = nullptr;
  if (value.some()) {
    if (value.handle()) {
      block = DataAccess::take(Data(value.handle()->data()));
    } else {
      const std::string_view text = value.view();
      block = isUTF8(reinterpret_cast<const uint8_t*>(text.data()), text.size())
                  ? pbCopyBytes(text.data(), text.size())
                  : pbEmptyString();
    }
  }
  Access::setObject(*this, field, block);
}

void NVXx_PBGeneratedMessage::pb_setData(uint32_t field, const PBDataArgument& value) {
  PBBlock* block = nullptr;
  if (value.some()) {
    block = value.handle() ? DataAccess::take(Data(*value.handle()))
                           : pbCopyBytes(value.view().data(), value.view().size());
  }
  Access::setObject(*this, field, block);
}

void NVXx_PBGeneratedMessage::pb_setChild(uint32_t field, Ref<NVXx_PBGeneratedMessage> value) {
  Access::setObject(*this, field, value.take());
}

void NVXx_PBGeneratedMessage::pb_setArray(uint32_t field, Ref<NVXx_PBMutableArray> value) {
  if (value && !PBArrayAccess::fits(*value, _class->entries[field].type)) {
    const char* const kNames[] = {"Object", "Bool", "Int32", "UInt32", "Int64", "UInt64", "Float", "Double"};
    const auto type = NVXx_PBArrayValueTypeForPBType(_class->entries[field].type);
    throw Exception(kPBArrayTypeMismatchException, std::string("array value type mismatch (expected '") +
                                                       "PBArrayValueType" + kNames[type] + "')");
  }
  Access::setObject(*this, field, value.take());
}

void NVXx_PBGeneratedMessage::clear() {
  PBReleaseWalk walk;
  if (PBSide* link = Access::side(*this)) {
    std::vector<PBExtensionValue> autocreated = std::move(link->autocreatedExtensions);
    std::vector<PBExtensionValue> extensions = std::move(link->extensions);
    link->autocreatedExtensions.clear();
    link->extensions.clear();
    link->unknownFields = nullptr;
    for (const PBExtensionValue& value : autocreated) {
      value.value.valueMessage->clearAutocreator();
      walk.drop(value.value.valueMessage);
    }
    for (const PBExtensionValue& value : extensions) Access::dropExtensionValue(*value.field, value.value);
  }
  walk.letGo(*this);
  std::memset(pb_storage(), 0, _class->storageSize);
}

// Unknown fields.

Ref<NVXx_PBUnknownFieldSet> NVXx_PBGeneratedMessage::unknownFields() const {
  const PBSide* link = Access::side(*this);
  return link ? link->unknownFields : nullptr;
}

NVXx_PBUnknownFieldSet& NVXx_PBGeneratedMessage::mutableUnknownFields() {
  PBSide& link = Access::needSide(*this);
  if (!link.unknownFields) {
    link.unknownFields = NVXx_PBUnknownFieldSet::set();
    pb_becomeVisible();
  }
  return *link.unknownFields;
}

void NVXx_PBGeneratedMessage::setUnknownFields(const NVXx_PBUnknownFieldSet* fields) {
  PBSide* link = Access::side(*this);
  if (!fields) {
    if (link) link->unknownFields = nullptr;
  } else if (!link || link->unknownFields.get() != fields) {
    Access::needSide(*this).unknownFields = fields->mutableCopy();
  }
  Access::becomeVisible(*this);
}

void NVXx_PBGeneratedMessage::mergeUnknownFields(const NVXx_PBUnknownFieldSet* fields) {
  if (fields) {
    PBSide& link = Access::needSide(*this);
    if (link.unknownFields) {
      link.unknownFields->mergeUnknownFields(*fields);
    } else {
      link.unknownFields = fields->mutableCopy();
    }
  }
  Access::becomeVisible(*this);
}

}  // namespace nvxcore
