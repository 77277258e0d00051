#include <cstring>
#include <utility>

#include "nvxcore/message/NVXProtoFunctions.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBTextFormat.h"
#include "nvxcore/message/internal/PBMessageAccess.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"

// Copying, merging, comparing.

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

// A reference to what another message's slot of strings or data holds.
void* shareBytes(void* block) {
  if (block) static_cast<PBBlock*>(block)->references.fetch_add(1, std::memory_order_relaxed);
  return block;
}

size_t scalarWidth(const PBEntry& entry) { return pbElementSize(NVXx_PBArrayValueTypeForPBType(entry.type)); }

void* copyObject(const PBEntry& entry, void* object, bool isDeep) {
  if (entry.isRepeated()) {
    Ref<NVXx_PBMutableArray> array = static_cast<NVXx_PBMutableArray*>(object)->mutableCopy();
    if (isDeep && entry.isMessage()) {
      for (size_t i = 0; i < array->count(); ++i) {
        auto copied = Ref<NVXx_PBGeneratedMessage>::adopt(
            Access::deepCopy(array->messageAtIndex<NVXx_PBGeneratedMessage>(i)));
        array->replaceObjectAtIndex(i, copied);
      }
    }
    return array.take();
  }
  if (entry.isMessage()) {
    auto* message = static_cast<NVXx_PBGeneratedMessage*>(object);
    if (isDeep) return Access::deepCopy(*message);
    message->retain();
    return message;
  }
  return shareBytes(object);
}

NVXx_PBGeneratedMessage* copyMessage(const NVXx_PBGeneratedMessage& message, bool isDeep) {
  const PBClass& messageClass = Access::classOf(message);
  auto result = Ref<NVXx_PBGeneratedMessage>::adopt(Access::create(messageClass));
  for (uint32_t i = 0; i < messageClass.fieldCount; ++i) {
    const PBEntry& entry = messageClass.entries[i];
    if (!Access::has(message, entry.has)) continue;
    Access::setHas(*result, entry.has);
    if (!entry.isObject()) {
      std::memcpy(Access::storage(*result) + entry.offset, Access::storage(message) + entry.offset,
                  scalarWidth(entry));
    } else if (void* object = Access::slot<void>(message, entry.offset)) {
      Access::setSlot(*result, entry.offset, copyObject(entry, object, isDeep));
    }
  }
  if (const PBSide* link = Access::side(message)) {
    if (link->unknownFields || !link->extensions.empty()) {
      PBSide& own = Access::needSide(*result);
      if (link->unknownFields) {
        if (isDeep) {
          own.unknownFields = NVXx_PBUnknownFieldSet::set();
          own.unknownFields->mergeFromData(link->unknownFields->data());
        } else {
          own.unknownFields = link->unknownFields->mutableCopy();
        }
      }
      for (const PBExtensionValue& value : link->extensions) {
        PBValue copied;
        if (isDeep && value.field->isMessage()) {
          PBEntry entry{};
          entry.type = value.field->type();
          entry.flags = value.field->isRepeated() ? PBFieldRepeated : 0;
          copied.valueObject = copyObject(entry, value.value.valueObject, true);
        } else {
          copied = Access::copyExtensionValue(*value.field, value.value);
        }
        own.extensions.push_back({value.field, copied});
      }
    }
  }
  return result.take();
}

}  // namespace

NVXx_PBGeneratedMessage* PBMessageAccess::copy(const Message& message) { return copyMessage(message, false); }
NVXx_PBGeneratedMessage* PBMessageAccess::deepCopy(const Message& message) {
  return copyMessage(message, true);
}
NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_copy() const { return copyMessage(*this, false); }
NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_deepCopy() const { return copyMessage(*this, true); }

// Merging.

namespace {

void mergeFields(NVXx_PBGeneratedMessage& message, const NVXx_PBGeneratedMessage& other,
                 bool overwritesRepeated);

// A copy of the one with the other merged in.
NVXx_PBGeneratedMessage* mergedCopy(NVXx_PBGeneratedMessage* into, const NVXx_PBGeneratedMessage& from,
                                    bool overwritesRepeated = false) {
  if (!into) return Access::copy(from);
  auto result = Ref<NVXx_PBGeneratedMessage>::adopt(Access::copy(*into));
  if (overwritesRepeated) {
    mergeFields(*result, from, true);
  } else {
    result->mergeFrom(from);
  }
  return result.take();
}

// Both are of one class.
void mergeFields(NVXx_PBGeneratedMessage& message, const NVXx_PBGeneratedMessage& other,
                 bool overwritesRepeated) {
  const PBClass& messageClass = Access::classOf(message);
  for (uint32_t i = 0; i < messageClass.fieldCount; ++i) {
    const PBEntry& entry = messageClass.entries[i];
    if (entry.isRepeated()) {
      const auto* values = Access::slot<NVXx_PBMutableArray>(other, entry.offset);
      if (!values || !values->data()) continue;
      if (overwritesRepeated) {
        Access::setArray(message, i, values->mutableCopy().get());
      } else {
        Access::array(message, i).appendArray(values);
      }
      continue;
    }
    if (!Access::has(other, entry.has)) continue;
    if (!entry.isObject()) {
      std::memcpy(Access::storage(message) + entry.offset, Access::storage(other) + entry.offset,
                  scalarWidth(entry));
      Access::setHas(message, entry.has);
      Access::becomeVisible(message);
    } else if (entry.isMessage()) {
      auto* own = Access::has(message, entry.has)
                      ? Access::slot<NVXx_PBGeneratedMessage>(message, entry.offset)
                      : nullptr;
      Access::setObject(
          message, i,
          mergedCopy(own, *Access::slot<NVXx_PBGeneratedMessage>(other, entry.offset), overwritesRepeated));
    } else {
      Access::setObject(message, i, shareBytes(Access::slot<void>(other, entry.offset)));
    }
  }
}

void mergeExtensions(NVXx_PBGeneratedMessage& message, const PBSide& other) {
  PBSide& own = Access::needSide(message);
  if (own.extensions.empty()) {
    for (const PBExtensionValue& value : other.extensions) {
      own.extensions.push_back({value.field, Access::copyExtensionValue(*value.field, value.value)});
    }
    return;
  }
  const std::vector<PBExtensionValue> values = other.extensions;  // it may be this message's
  for (const PBExtensionValue& value : values) {
    PBExtensionValue* existing = Access::findExtension(message, *value.field);
    if (value.field->isRepeated()) {
      if (existing) {
        existing->value.valueArray->appendArray(value.value.valueArray);
      } else {
        own.extensions.push_back({value.field, Access::copyExtensionValue(*value.field, value.value)});
      }
      continue;
    }
    PBValue merged;
    if (existing && value.field->isMessage()) {
      merged.valueMessage = mergedCopy(existing->value.valueMessage, *value.value.valueMessage);
    } else {
      merged = Access::copyExtensionValue(*value.field, value.value);
    }
    if (existing) {
      Access::dropExtensionValue(*value.field, std::exchange(existing->value, merged));
    } else {
      own.extensions.push_back({value.field, merged});
    }
  }
}

}  // namespace

void NVXx_PBGeneratedMessage::mergeFrom(const NVXx_PBGeneratedMessage& other) {
  if (_class != other._class) {
    throw Exception(kInvalidArgumentException,
                    "Classes must match " + _class->name + " != " + other._class->name);
  }
  mergeFields(*this, other, false);
  const PBSide* link = Access::side(other);
  mergeUnknownFields(link ? link->unknownFields.get() : nullptr);
  if (link && !link->extensions.empty()) mergeExtensions(*this, *link);
}

void NVXMergeProtoIntoProto(const NVXx_PBGeneratedMessage& source, NVXx_PBGeneratedMessage& destination) {
  if (&source.classOfMessage() == &destination.classOfMessage()) mergeFields(destination, source, true);
}

// Equality.

namespace {

template <class T>
bool sameScalar(const NVXx_PBGeneratedMessage& a, const NVXx_PBGeneratedMessage& b, uint32_t offset) {
  return Access::load<T>(a, offset) == Access::load<T>(b, offset);
}

bool sameField(const NVXx_PBGeneratedMessage& a, const NVXx_PBGeneratedMessage& b, const PBEntry& entry) {
  if (entry.isRepeated()) {
    const auto* mine = Access::slot<NVXx_PBMutableArray>(a, entry.offset);
    const auto* others = Access::slot<NVXx_PBMutableArray>(b, entry.offset);
    const size_t count = NVXx_PBArrayCount(mine);
    if (count != NVXx_PBArrayCount(others)) return false;
    return count == 0 || mine->isEqual(others);
  }
  const bool isSet = Access::has(a, entry.has);
  if (isSet != Access::has(b, entry.has)) return false;
  if (!isSet) return true;
  switch (entry.type) {
    case NVXx_PBType::Bool:
      return (Access::load<uint8_t>(a, entry.offset) != 0) == (Access::load<uint8_t>(b, entry.offset) != 0);
    case NVXx_PBType::Float:
      return sameScalar<float>(a, b, entry.offset);
    case NVXx_PBType::Double:
      return sameScalar<double>(a, b, entry.offset);
    case NVXx_PBType::Fixed64:
    case NVXx_PBType::SFixed64:
    case NVXx_PBType::Int64:
    case NVXx_PBType::SInt64:
    case NVXx_PBType::UInt64:
      return sameScalar<uint64_t>(a, b, entry.offset);
    case NVXx_PBType::Message:
    case NVXx_PBType::Group:
      return Access::slot<NVXx_PBGeneratedMessage>(a, entry.offset)
          ->isEqual(Access::slot<NVXx_PBGeneratedMessage>(b, entry.offset));
    case NVXx_PBType::String:
    case NVXx_PBType::Data: {
      const auto* mine = Access::slot<PBBlock>(a, entry.offset);
      const auto* others = Access::slot<PBBlock>(b, entry.offset);
      return mine == others || pbView(mine) == pbView(others);
    }
    default:
      return sameScalar<uint32_t>(a, b, entry.offset);
  }
}

PBBoxedValue boxed(const PBExtensionValue& value) {
  if (value.field->isRepeated()) return Ref<NVXx_PBMutableArray>(value.value.valueArray);
  if (!NVXx_PBTypeIsObject(value.field->type())) return pbBoxedScalar(value.field->type(), value.value);
  return PBObjectAccess::share(pbObjectKind(value.field->type()), value.value.valueObject);
}

bool sameExtensions(const NVXx_PBGeneratedMessage& a, const NVXx_PBGeneratedMessage& b) {
  const PBSide* mine = Access::side(a);
  const PBSide* others = Access::side(b);
  const size_t count = mine ? mine->extensions.size() : 0;
  if (count != (others ? others->extensions.size() : 0)) return false;
  for (size_t i = 0; i < count; ++i) {
    const PBExtensionValue* other = Access::findExtension(b, *mine->extensions[i].field);
    if (!other || !boxed(mine->extensions[i]).isEqual(boxed(*other))) return false;
  }
  return true;
}

}  // namespace

bool NVXx_PBGeneratedMessage::isEqual(const NVXx_PBGeneratedMessage* other) const {
  if (this == other) return true;
  if (!other || _class != other->_class) return false;
  for (uint32_t i = 0; i < _class->fieldCount; ++i) {
    if (!sameField(*this, *other, _class->entries[i])) return false;
  }
  if (!sameExtensions(*this, *other)) return false;
  const PBSide* mine = Access::side(*this);
  const PBSide* others = Access::side(*other);
  const NVXx_PBUnknownFieldSet* unknown = mine ? mine->unknownFields.get() : nullptr;
  const NVXx_PBUnknownFieldSet* otherUnknown = others ? others->unknownFields.get() : nullptr;
  const bool isEmpty = !unknown || !unknown->countOfFields();
  const bool otherIsEmpty = !otherUnknown || !otherUnknown->countOfFields();
  if (isEmpty && otherIsEmpty) return true;
  return unknown && unknown->isEqual(otherUnknown);
}

size_t NVXx_PBGeneratedMessage::hash() const { return reinterpret_cast<size_t>(_class); }

std::string NVXx_PBGeneratedMessage::description() const {
  return "<" + _class->name + " " + pbAddress(this) + ">: {\n" +
         NVXx_PBTextFormatForMessage(this, "    ").value_or("") + "}";
}

// Completeness.

bool NVXx_PBGeneratedMessage::isInitialized() const {
  for (uint32_t i = 0; i < _class->fieldCount; ++i) {
    const PBEntry& entry = _class->entries[i];
    const bool isSet = Access::has(*this, entry.has);
    if ((entry.flags & PBFieldRequired) && !isSet) return false;
    if (!entry.isMessage()) continue;
    if (entry.isRepeated()) {
      const auto* values = Access::slot<NVXx_PBMutableArray>(*this, entry.offset);
      for (size_t k = 0; k < NVXx_PBArrayCount(values); ++k) {
        if (!values->messageAtIndex<NVXx_PBGeneratedMessage>(k).isInitialized()) return false;
      }
    } else if (isSet && !Access::slot<NVXx_PBGeneratedMessage>(*this, entry.offset)->isInitialized()) {
      return false;
    }
  }
  const PBSide* link = Access::side(*this);
  if (!link) return true;
  for (const PBExtensionValue& value : link->extensions) {
    if (!value.field->isMessage()) continue;
    if (!value.field->isRepeated()) {
      if (!value.value.valueMessage->isInitialized()) return false;
      continue;
    }
    for (size_t k = 0; k < value.value.valueArray->count(); ++k) {
      if (!value.value.valueArray->messageAtIndex<NVXx_PBGeneratedMessage>(k).isInitialized()) return false;
    }
  }
  return true;
}

}  // namespace nvxcore
