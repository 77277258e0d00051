#include "nvxcore/message/NVXx_PBExtensionField.h"

#include <utility>

#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/internal/PBParser.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/message/internal/PBWriter.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

// The descriptor.

std::string NVXx_PBExtensionDescriptor::singletonName() const { return _field.singletonName(); }
const char* NVXx_PBExtensionDescriptor::singletonNameC() const { return _field.singletonName(); }
int32_t NVXx_PBExtensionDescriptor::fieldNumber() const { return _field.fieldNumber(); }
NVXx_PBType NVXx_PBExtensionDescriptor::type() const { return _field.type(); }
bool NVXx_PBExtensionDescriptor::isRepeated() const { return _field.isRepeated(); }
bool NVXx_PBExtensionDescriptor::isPackable() const { return _field.isPackable(); }
bool NVXx_PBExtensionDescriptor::isMessage() const { return _field.isMessage(); }
const PBClass* NVXx_PBExtensionDescriptor::msgClass() const { return _field.record().messageClass; }
const NVXx_PBEnumDescriptor* NVXx_PBExtensionDescriptor::enumDescriptor() const {
  return _field.record().enumDescriptor;
}

// The field.

NVXx_PBExtensionField::NVXx_PBExtensionField(Description description)
    : _description(std::move(description)), _descriptor(*this) {}

const NVXx_PBDescriptor& NVXx_PBExtensionField::containingType() const {
  return containingMessageClass().descriptorOfClass();
}

std::string NVXx_PBExtensionField::description() const {
  return "<NVXx_PBExtensionField " + pbAddress(this) + "> FieldNumber:" + std::to_string(fieldNumber()) +
         " ContainingType:" + containingMessageClass().name;
}

PBBoxedValue NVXx_PBExtensionField::defaultValue() const {
  if (isRepeated()) return {};
  switch (type()) {
    case NVXx_PBType::Message:
    case NVXx_PBType::Group:
      throw Exception("NSInternalInconsistencyException", "-defaultValue called for a message extension");
    case NVXx_PBType::String:
    case NVXx_PBType::Data: {
      const Data bytes = _description.defaultBytes ? _description.defaultBytes : NVXx_PBEmptyNSData();
      if (type() == NVXx_PBType::Data) return PBObject(bytes);
      return PBObject(NVXx_PBString::sharing(bytes));
    }
    default:
      return pbBoxedScalar(type(), _description.defaultValue);
  }
}

int NVXx_PBExtensionField::compareByFieldNumber(const NVXx_PBExtensionField& other) const {
  return fieldNumber() < other.fieldNumber() ? -1 : fieldNumber() > other.fieldNumber() ? 1 : 0;
}

PBBoxedValue NVXx_PBExtensionField::readSingleValueFromCodedInputStream(
    NVXx_PBCodedInputStream& stream, const NVXx_PBExtensionRegistry* registry,
    const PBBoxedValue& existingValue) const {
  switch (type()) {
    case NVXx_PBType::Data:
      return PBObject(stream.readData());
    case NVXx_PBType::String:
      return PBObject(stream.readString());
    case NVXx_PBType::Message:
    case NVXx_PBType::Group:
      break;
    default:
      return pbBoxedScalar(type(), PBParser(stream, registry).plainScalar(type()));
  }
  const NVXx_PBGeneratedMessage* existing = existingValue.object().message();
  const auto message = Ref<NVXx_PBGeneratedMessage>::adopt(
      existing ? PBMessageAccess::copy(*existing) : PBMessageAccess::create(*_description.messageClass));
  if (type() == NVXx_PBType::Group) {
    stream.readGroup(fieldNumber(), *message, registry);
  } else if (isMessageSetExtension()) {
    message->mergeFromCodedInputStream(stream, registry);
  } else {
    stream.readMessage(*message, registry);
  }
  return PBObject(message);
}

void NVXx_PBExtensionField::mergeFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                                      const NVXx_PBExtensionRegistry* registry,
                                                      NVXx_PBGeneratedMessage& builder) {
  PBMessageAccess::requireExtension(builder, *this);
  PBParser(stream, registry).extension(builder, *this);
}

namespace {

// The boxed forms in terms of what messages hold.
struct Unboxed {
  Unboxed(const NVXx_PBExtensionField& field, const PBBoxedValue& boxed) {
    value.field = const_cast<NVXx_PBExtensionField*>(&field);
    if (field.isRepeated()) {
      value.value.valueArray = boxed.array();
    } else if (NVXx_PBTypeIsObject(field.type())) {
      value.value.valueObject = PBObjectAccess::borrow(boxed.object());
    } else {
      value.value = pbScalarOf(field.type(), boxed);
    }
  }
  PBExtensionValue value;
};

}  // namespace

void NVXx_PBExtensionField::writePBValueIncludingTag(PBValue value, NVXx_PBCodedOutputStream& output) const {
  Description single = _description;
  single.options &= ~uint32_t{PBExtensionRepeated | PBExtensionPacked};
  NVXx_PBExtensionField field(std::move(single));
  pbWriteExtension({&field, value}, output);
}

void NVXx_PBExtensionField::writePBValueNoTag(PBValue value, NVXx_PBCodedOutputStream& output) const {
  switch (type()) {
    case NVXx_PBType::Bool:
      return output.writeBoolNoTag(value.valueBool);
    case NVXx_PBType::Fixed32:
      return output.writeFixed32NoTag(value.valueFixed32);
    case NVXx_PBType::SFixed32:
      return output.writeSFixed32NoTag(value.valueSFixed32);
    case NVXx_PBType::Float:
      return output.writeFloatNoTag(value.valueFloat);
    case NVXx_PBType::Fixed64:
      return output.writeFixed64NoTag(value.valueFixed64);
    case NVXx_PBType::SFixed64:
      return output.writeSFixed64NoTag(value.valueSFixed64);
    case NVXx_PBType::Double:
      return output.writeDoubleNoTag(value.valueDouble);
    case NVXx_PBType::Int32:
      return output.writeInt32NoTag(value.valueInt32);
    case NVXx_PBType::Int64:
      return output.writeInt64NoTag(value.valueInt64);
    case NVXx_PBType::SInt32:
      return output.writeSInt32NoTag(value.valueSInt32);
    case NVXx_PBType::SInt64:
      return output.writeSInt64NoTag(value.valueSInt64);
    case NVXx_PBType::UInt32:
      return output.writeUInt32NoTag(value.valueUInt32);
    case NVXx_PBType::UInt64:
      return output.writeUInt64NoTag(value.valueUInt64);
    case NVXx_PBType::Data:
    case NVXx_PBType::String:
      return output.writeDataNoTag(pbView(static_cast<const PBBlock*>(value.valueObject)));
    case NVXx_PBType::Message:
      return output.writeMessageNoTag(*value.valueMessage);
    case NVXx_PBType::Group:
      return output.writeGroupNoTag(fieldNumber(), *value.valueGroup);
    case NVXx_PBType::Enum:
      return output.writeEnumNoTag(value.valueEnum);
  }
}

void NVXx_PBExtensionField::writePBValuesIncludingTags(const NVXx_PBArray& values,
                                                       NVXx_PBCodedOutputStream& output) const {
  PBValue value;
  value.valueArray = static_cast<NVXx_PBMutableArray*>(const_cast<NVXx_PBArray*>(&values));
  pbWriteExtension({const_cast<NVXx_PBExtensionField*>(this), value}, output);
}

void NVXx_PBExtensionField::writeValueIncludingTag(const PBBoxedValue& value,
                                                   NVXx_PBCodedOutputStream& output) const {
  pbWriteExtension(Unboxed(*this, value).value, output);
}

size_t NVXx_PBExtensionField::computePBSerializedSizeNoTag(PBValue value) const {
  Description single = _description;
  single.options = 0;
  single.fieldNumber = 1;  // whose tag takes one byte
  NVXx_PBExtensionField field(std::move(single));
  return PBSizes().measureExtension({&field, value}) - (type() == NVXx_PBType::Group ? 2 : 1);
}

size_t NVXx_PBExtensionField::computePBSerializedSizeIncludingTag(PBValue value) const {
  Description single = _description;
  single.options &= ~uint32_t{PBExtensionRepeated | PBExtensionPacked};
  NVXx_PBExtensionField field(std::move(single));
  return PBSizes().measureExtension({&field, value});
}

size_t NVXx_PBExtensionField::computePBSerializedSizesIncludingTags(const NVXx_PBArray& values) const {
  PBValue value;
  value.valueArray = static_cast<NVXx_PBMutableArray*>(const_cast<NVXx_PBArray*>(&values));
  return PBSizes().measureExtension({const_cast<NVXx_PBExtensionField*>(this), value});
}

size_t NVXx_PBExtensionField::computeSerializedSizeIncludingTag(const PBBoxedValue& value) const {
  return PBSizes().measureExtension(Unboxed(*this, value).value);
}

// The registry.

NVXx_PBExtensionRegistry::ExtensionMap& NVXx_PBExtensionRegistry::extensionMapForContainingType(
    const NVXx_PBDescriptor& containingType) {
  return _classMap[&containingType.messageClass()];
}

void NVXx_PBExtensionRegistry::addExtension(NVXx_PBExtensionField* extension) {
  if (extension) _classMap[&extension->containingMessageClass()][extension->fieldNumber()] = extension;
}

void NVXx_PBExtensionRegistry::addExtensions(const NVXx_PBExtensionRegistry* other) {
  if (!other || other == this) return;
  for (const auto& [containingClass, extensions] : other->_classMap) {
    ExtensionMap& own = _classMap[containingClass];
    for (const auto& [number, extension] : extensions) own[number] = extension;
  }
}

NVXx_PBExtensionField* NVXx_PBExtensionRegistry::getExtension(const NVXx_PBDescriptor& containingType,
                                                              int32_t fieldNumber) const {
  return getExtension(containingType.messageClass(), fieldNumber);
}

}  // namespace nvxcore
