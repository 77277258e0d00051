// The stream's readers by themselves, in any order and under any limits; unknown fields as a set of their
// own; and extensions by their fields. Each ends, well or in one of the published failures.

#include <vector>

#include "fuzz/message/Classes.h"
#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionField.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/platform/Data.h"

namespace nvxcore {
namespace {

using fuzzing::check;

NVXx_PBExtensionField& extensionAt(size_t index) {
  static const std::vector<int32_t> numbers = [] {
    std::vector<int32_t> result;
    for (const auto& [number, field] : NVXx_EXExampleRoot::extensionRegistry().extensionMapForContainingType(
             NVXx_EXExtendable::descriptor())) {
      result.push_back(number);
    }
    return result;
  }();
  return *NVXx_EXExampleRoot::extensionRegistry().getExtension(NVXx_EXExtendable::descriptor(),
                                                               numbers[index % numbers.size()]);
}

// What an extension writes is as long as it says, and reads back as what it was.
void lookAtExtensions(NVXx_EXExtendable& message) {
  size_t total = 0;
  for (NVXx_PBExtensionField* field : message.sortedExtensionsInUse()) {
    const PBBoxedValue value = message.getExistingExtension(*field);
    const size_t size = field->computeSerializedSizeIncludingTag(value);
    MutableData buffer;
    buffer.setLength(size);
    {
      NVXx_PBCodedOutputStream output(buffer);
      field->writeValueIncludingTag(value, output);
      check(output.position() == size);
    }
    total += size;
    if (!field->isRepeated() && !field->isMessage()) {
      auto other = NVXx_EXExtendable::message();
      other->setExtensionValue(*field, value);
      check(other->getExtensionValue(*field).isEqual(value));
      other->clearExtensionField(*field);
      check(!other->hasExtensionField(*field));
    } else if (field->isRepeated() && value.array()->count()) {
      const PBBoxedValue first = value.array()->array()[0];
      message.addExtensionValue(*field, first);
      message.setExtensionValue(*field, 0, first);
      total += field->computeSerializedSizeIncludingTag(value) - size;
    }
  }
  check(total == message.extensionsSerializedSize());
}

template <class Call>
bool throws(Call call) {
  try {
    call();
  } catch (const Exception&) {
    return true;
  }
  return false;
}

// One extension, whether the message has it or not: its parts as long as they say, its default or latent
// message there, what isn't its own refused.
void lookAtExtension(NVXx_EXExtendable& message, NVXx_PBExtensionField& field) {
  const NVXx_PBExtensionDescriptor& told = field.descriptor();
  check(told.fieldNumber() == field.fieldNumber() && told.type() == field.type() &&
        told.singletonName() == field.singletonName() && told.isRepeated() == field.isRepeated() &&
        told.isPackable() == field.isPackable() && told.isMessage() == field.isMessage());
  check(!told.msgClass() == !told.isMessage() && (!told.enumDescriptor() || !told.isMessage()));
  check(&field.containingType() == &NVXx_EXExtendable::descriptor() && !field.description().empty());
  auto other = NVXx_EXChild::message();
  const PBBoxedValue wrong = PBObject(NVXx_PBUnknownFieldSet::set());
  check(throws([&] { other->getExtensionValue(field); }));
  check(throws([&] { message.setExtensionValue(field, wrong); }) &&
        throws([&] { message.addExtensionValue(field, wrong); }));
  check(throws([&] { message.setExtensionValue(field, SIZE_MAX, wrong); }));
  const PBBoxedValue value = message.getExtensionValue(field);
  if (!field.isRepeated()) {
    check(throws([&] { field.defaultValue(); }) == field.isMessage());
    if (!field.isMessage()) return check(static_cast<bool>(value));
    value.object().message()->mutableUnknownFields();  // real from here on
    return check(message.hasExtensionField(field));
  }
  auto copy = message.copy();
  check(copy->getExtensionValue(field).isEqual(value));
  for (size_t i = 0; value && i < value.array()->count(); ++i) {
    const PBValue element = value.array()->valueAtIndex(i);
    const size_t whole = field.computePBSerializedSizeIncludingTag(element);
    const size_t bare = field.computePBSerializedSizeNoTag(element);
    MutableData buffer;
    buffer.setLength(whole + bare);
    NVXx_PBCodedOutputStream output(buffer);
    field.writePBValueIncludingTag(element, output);
    check(output.position() == whole);
    if (field.type() == NVXx_PBType::Group) continue;
    field.writePBValueNoTag(element, output);
    check(output.position() == whole + bare);
  }
  if (!value) return;
  MutableData buffer;
  buffer.setLength(field.computePBSerializedSizesIncludingTags(*value.array()));
  NVXx_PBCodedOutputStream output(buffer);
  field.writePBValuesIncludingTags(*value.array(), output);
  check(output.position() == buffer.length());
}

void read(NVXx_PBCodedInputStream& stream, const uint8_t* operations, size_t count) {
  const NVXx_PBExtensionRegistry* registry = &NVXx_EXExampleRoot::extensionRegistry();
  auto message = NVXx_EXExtendable::message();
  auto unknown = NVXx_PBUnknownFieldSet::set();
  std::vector<uint64_t> limits;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t argument = operations[i] >> 5;
    switch (operations[i] % 27) {
      case 0:
        stream.readDouble();
        break;
      case 1:
        stream.readFloat();
        break;
      case 2:
        stream.readSFixed64();
        break;
      case 3:
        stream.readSFixed32();
        break;
      case 4:
        stream.readInt64();
        break;
      case 5:
        stream.readSInt64();
        break;
      case 6:
        stream.readInt32();
        break;
      case 7:
        stream.readSInt32();
        break;
      case 8:
        stream.readBool();
        break;
      case 9:
        stream.readString();
        break;
      case 10:
        stream.readData();
        break;
      case 11:
        stream.setCopiesBytes(argument & 1);
        stream.readSharedData();
        break;
      case 12:
        stream.skipField(stream.readTag());
        break;
      case 13:
        stream.skipMessage();
        break;
      case 14:
        limits.push_back(stream.pushLimit(argument * argument));
        break;
      case 15:
        if (!limits.empty()) {
          stream.popLimit(limits.back());
          limits.pop_back();
        }
        break;
      case 16:
        unknown->mergeFieldFrom(static_cast<uint32_t>(stream.readTag()), stream);
        break;
      case 17:
        stream.readUnknownGroup(argument, *unknown);
        break;
      case 18:
        stream.readMessage(*message, registry);
        break;
      case 19:
        stream.readGroup(argument, *message, registry);
        break;
      case 20:
        extensionAt(i + 1 < count ? operations[++i] : 0)
            .mergeFromCodedInputStream(stream, registry, *message);
        break;
      case 21: {
        const NVXx_PBExtensionField& field = extensionAt(i + 1 < count ? operations[++i] : 0);
        field.readSingleValueFromCodedInputStream(stream, registry, message->getExistingExtension(field));
        break;
      }
      case 22: {
        auto copy = unknown->copy();
        check(copy->isEqual(unknown.get()) || unknown->countOfFields() == 0);
        std::vector<int32_t> tags(copy->countOfFields());
        copy->getTags(tags.data());
        check(copy->hash() == unknown->hash() && !copy->description().empty());
        for (NVXx_PBField* field : copy->sortedFields()) {
          check(field->isEqual(copy->getField(field->number())) && !field->description().empty());
          field->hash();
        }
        const Data written = unknown->data();
        check(written.length() == unknown->serializedSize());
        auto again = NVXx_PBUnknownFieldSet::set();
        again->mergeFromData(written);
        check(again->data() == written);
        again->mergeUnknownFields(*unknown);
        for (const int32_t tag : tags) {
          check(copy->hasField(tag));
          again->addField(NVXx_PBMutableField::fieldWithNumber(tag));
        }
        check(again->serializedSize() == 0 && again->countOfFields() == tags.size());
        break;
      }
      case 23: {
        MutableData buffer;
        buffer.setLength(unknown->serializedSizeAsMessageSet());
        NVXx_PBCodedOutputStream output(buffer);
        unknown->writeAsMessageSetTo(output);
        check(output.position() == buffer.length());
        break;
      }
      case 24:
        lookAtExtensions(*message);
        break;
      case 25:
        lookAtExtension(*message, extensionAt(i + 1 < count ? operations[++i] : 0));
        break;
      default:
        if (stream.isAtEnd()) return;
        check(stream.readEnum() || stream.bytesUntilLimit() <= NVXx_PBCodedInputStream::kNoLimit);
    }
    check(stream.position() <= 65536);
  }
}

}  // namespace
}  // namespace nvxcore

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace nvxcore;
  // First how many operations, then the operations, then what they read.
  if (!size || data[0] >= size) return 0;
  const size_t count = data[0];
  NVXx_PBCodedInputStream stream(Data::copy(data + 1 + count, size - 1 - count));
  try {
    read(stream, data + 1, count);
  } catch (const Exception& e) {
    fuzzing::check(e.name() == "NSParseErrorException" || e.name() == "NSInvalidArgumentException");
  }
  return 0;
}
