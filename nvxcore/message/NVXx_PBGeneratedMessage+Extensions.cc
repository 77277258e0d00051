#include <algorithm>
#include <mutex>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBMessageExtensions.h"
#include "nvxcore/message/internal/PBMessageAccess.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

// Readers that autocreate an extension's message are rare and short: one lock for all messages.
std::mutex& autocreationLock() {
  static auto* lock = new std::mutex;
  return *lock;
}

PBExtensionValue* findIn(std::vector<PBExtensionValue>& values, const NVXx_PBExtensionField& field) {
  for (PBExtensionValue& value : values) {
    if (value.field == &field) return &value;
  }
  return nullptr;
}

}  // namespace

void PBMessageAccess::requireExtension(const Message& message, const NVXx_PBExtensionField& field) {
  if (field.record().extendedClass == message._class) return;
  throw Exception(kInvalidArgumentException, "Extension " + std::string(field.singletonName()) +
                                                 " used on wrong class (" + message._class->name +
                                                 " instead of " + field.record().extendedClass->name + ")");
}

PBExtensionValue* PBMessageAccess::findExtension(const Message& message, const NVXx_PBExtensionField& field) {
  PBSide* link = side(message);
  return link ? findIn(link->extensions, field) : nullptr;
}

void PBMessageAccess::dropExtensionValue(const NVXx_PBExtensionField& field, PBValue value) {
  if (field.isRepeated()) {
    value.valueArray->release();
  } else if (field.isMessage()) {
    value.valueMessage->release();
  } else if (NVXx_PBTypeIsObject(field.type())) {
    DataAccess::drop(static_cast<PBBlock*>(value.valueObject));
  }
}

PBValue PBMessageAccess::copyExtensionValue(const NVXx_PBExtensionField& field, PBValue value) {
  if (field.isRepeated()) {
    value.valueArray = value.valueArray->mutableCopy().take();
  } else if (field.isMessage()) {
    value.valueMessage->retain();
  } else if (NVXx_PBTypeIsObject(field.type())) {
    PBArrayAccess::retainElement(pbObjectKind(field.type()), value.valueObject);
  }
  return value;
}

void PBMessageAccess::setExtensionValue(Message& message, NVXx_PBExtensionField& field, PBValue value) {
  PBSide& link = needSide(message);
  if (PBExtensionValue* found = findIn(link.extensions, field)) {
    const PBValue old = std::exchange(found->value, value);
    dropExtensionValue(field, old);
  } else {
    link.extensions.push_back({&field, value});
  }
  if (PBExtensionValue* latent = findIn(link.autocreatedExtensions, field)) {
    Message* child = latent->value.valueMessage;
    link.autocreatedExtensions.erase(link.autocreatedExtensions.begin() +
                                     (latent - link.autocreatedExtensions.data()));
    child->clearAutocreator();
    child->release();
  }
  becomeVisible(message);
}

NVXx_PBMutableArray& PBMessageAccess::extensionArray(Message& message, NVXx_PBExtensionField& field) {
  PBSide& link = needSide(message);
  if (PBExtensionValue* found = findIn(link.extensions, field)) return *found->value.valueArray;
  PBValue value;
  value.valueArray = PBArrayAccess::createFor(field.type(), 4);
  link.extensions.push_back({&field, value});
  return *value.valueArray;
}

NVXx_PBGeneratedMessage& PBMessageAccess::extensionMessage(const Message& message,
                                                           NVXx_PBExtensionField& field) {
  if (const PBExtensionValue* found = findExtension(message, field)) return *found->value.valueMessage;
  PBSide& link = needSide(message);
  const std::lock_guard<std::mutex> hold(autocreationLock());
  if (const PBExtensionValue* found = findIn(link.autocreatedExtensions, field))
    return *found->value.valueMessage;
  PBValue value;
  value.valueMessage = create(*field.record().messageClass);
  PBSide& childLink = needSide(*value.valueMessage);
  childLink.autocreator = const_cast<Message*>(&message);
  childLink.autocreatorExtension = &field;
  link.autocreatedExtensions.push_back({&field, value});
  return *value.valueMessage;
}

bool NVXx_PBGeneratedMessage::hasExtensionField(const NVXx_PBExtensionField& field) const {
  return Access::findExtension(*this, field) != nullptr;
}

void NVXx_PBGeneratedMessage::clearExtensionField(const NVXx_PBExtensionField& field) {
  Access::requireExtension(*this, field);
  const PBExtensionValue* found = Access::findExtension(*this, field);
  if (!found) return;
  const PBValue old = found->value;
  std::vector<PBExtensionValue>& values = Access::side(*this)->extensions;
  values.erase(values.begin() + (found - values.data()));
  Access::dropExtensionValue(field, old);
  Access::becomeVisible(*this);
}

// The boxed form, by which the typed one goes as well.

PBBoxedValue NVXx_PBGeneratedMessage::getExistingExtension(const NVXx_PBExtensionField& field) const {
  const PBExtensionValue* found = Access::findExtension(*this, field);
  if (!found) return {};
  if (field.isRepeated()) return Ref<NVXx_PBMutableArray>(found->value.valueArray);
  if (!NVXx_PBTypeIsObject(field.type())) return pbBoxedScalar(field.type(), found->value);
  return PBObjectAccess::share(pbObjectKind(field.type()), found->value.valueObject);
}

PBBoxedValue NVXx_PBGeneratedMessage::getExtensionValue(NVXx_PBExtensionField& field) const {
  Access::requireExtension(*this, field);
  PBBoxedValue existing = getExistingExtension(field);
  if (existing) return existing;
  if (field.isMessage() && !field.isRepeated()) return PBObject(&Access::extensionMessage(*this, field));
  return field.defaultValue();
}

namespace {

[[noreturn]] void throwWrongValue(const NVXx_PBExtensionField& field, const PBBoxedValue& value) {
  throw Exception(kInvalidArgumentException, "Extension " + std::string(field.singletonName()) +
                                                 " doesn't take a value of " + value.className());
}

// A counted value of one element.
PBValue elementOf(const NVXx_PBExtensionField& field, const PBBoxedValue& value) {
  if (!NVXx_PBTypeIsObject(field.type())) {
    if (!value.isNumber()) throwWrongValue(field, value);
    return pbScalarOf(field.type(), value);
  }
  const PBObject& object = value.object();
  if (object.kind() != pbObjectKind(field.type())) throwWrongValue(field, value);
  if (field.isMessage() && &object.message()->classOfMessage() != field.record().messageClass) {
    throwWrongValue(field, value);
  }
  PBValue result;
  result.valueObject = PBObjectAccess::take(PBObject(object));
  return result;
}

}  // namespace

void NVXx_PBGeneratedMessage::setExtensionValue(NVXx_PBExtensionField& field, const PBBoxedValue& value) {
  if (!value) return clearExtensionField(field);
  Access::requireExtension(*this, field);
  if (field.isRepeated()) {
    throw Exception(kInvalidArgumentException, "Must call addExtension() for repeated types.");
  }
  Access::setExtensionValue(*this, field, elementOf(field, value));
}

void NVXx_PBGeneratedMessage::addExtensionValue(NVXx_PBExtensionField& field, const PBBoxedValue& value) {
  Access::requireExtension(*this, field);
  if (!field.isRepeated()) {
    throw Exception(kInvalidArgumentException, "Must call setExtension() for singular types.");
  }
  if (!NVXx_PBTypeIsObject(field.type())) {
    if (!value.isNumber()) throwWrongValue(field, value);
    pbAddBoxed(Access::extensionArray(*this, field),
               pbBoxedScalar(field.type(), pbScalarOf(field.type(), value)));
  } else {
    PBObject element = PBObjectAccess::adopt(pbObjectKind(field.type()), elementOf(field, value).valueObject);
    Access::extensionArray(*this, field).addObject(element);
  }
  Access::becomeVisible(*this);
}

void NVXx_PBGeneratedMessage::setExtensionValue(NVXx_PBExtensionField& field, size_t index,
                                                const PBBoxedValue& value) {
  Access::requireExtension(*this, field);
  if (!field.isRepeated()) {
    throw Exception(kInvalidArgumentException, "Must call setExtension() for singular types.");
  }
  const PBExtensionValue* found = Access::findExtension(*this, field);
  const size_t count = found ? found->value.valueArray->count() : 0;
  if (index >= count) {
    throw Exception(kRangeException,
                    "idx (" + std::to_string(index) + ") beyond bounds (" + std::to_string(count) + ")");
  }
  NVXx_PBMutableArray& array = *found->value.valueArray;
  if (NVXx_PBTypeIsObject(field.type())) {
    array.replaceObjectAtIndex(
        index, PBObjectAccess::adopt(pbObjectKind(field.type()), elementOf(field, value).valueObject));
  } else {
    const PBValue scalar = elementOf(field, value);
    const uint32_t size = pbElementSize(array.valueType());
    std::memcpy(PBArrayAccess::elements<uint8_t>(array) + index * size, &scalar, size);
  }
  Access::becomeVisible(*this);
}

// Listings.

std::vector<NVXx_PBExtensionField*> NVXx_PBGeneratedMessage::extensionsCurrentlySet() const {
  std::vector<NVXx_PBExtensionField*> result;
  if (const PBSide* link = Access::side(*this)) {
    for (const PBExtensionValue& value : link->extensions) result.push_back(value.field);
  }
  return result;
}

std::vector<NVXx_PBExtensionField*> NVXx_PBGeneratedMessage::sortedExtensionsInUse() const {
  std::vector<NVXx_PBExtensionField*> result = extensionsCurrentlySet();
  std::stable_sort(result.begin(), result.end(),
                   [](const auto* a, const auto* b) { return a->compareByFieldNumber(*b) < 0; });
  return result;
}

void NVXx_PBGeneratedMessage::writeExtensionsToCodedOutputStream(NVXx_PBCodedOutputStream& stream,
                                                                 const NVXx_PBExtensionRange& range) const {
  for (const NVXx_PBExtensionField* field : sortedExtensionsInUse()) {
    const auto number = static_cast<uint32_t>(field->fieldNumber());
    if (number < range.start() || number >= range.end()) continue;
    field->writeValueIncludingTag(getExistingExtension(*field), stream);
  }
}

}  // namespace nvxcore
