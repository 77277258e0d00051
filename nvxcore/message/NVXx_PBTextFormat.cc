#include "nvxcore/message/NVXx_PBTextFormat.h"

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/internal/PBMessageAccess.h"
#include "nvxcore/message/internal/PBReflection.h"

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

// The six that both kinds of text escape; null for the others.
const char* commonEscape(unsigned char c) {
  switch (c) {
    case '\t':
      return "\\t";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '"':
      return "\\\"";
    case '\'':
      return "\\'";
    case '\\':
      return "\\\\";
    default:
      return nullptr;
  }
}

void appendOctal(unsigned char c, std::string& output) {
  output += '\\';
  output += static_cast<char>('0' + (c >> 6));
  output += static_cast<char>('0' + (c >> 3 & 7));
  output += static_cast<char>('0' + (c & 7));
}

void AppendStringEscaped(std::string_view text, std::string& output) {
  output += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (const char* escape = commonEscape(byte)) {
      output += escape;
    } else if (byte < 32) {
      appendOctal(byte, output);
    } else {
      output += c;
    }
  }
  output += '"';
}

void AppendBufferAsString(std::string_view bytes, std::string& output) {
  output += '"';
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (const char* escape = commonEscape(byte)) {
      output += escape;
    } else if (byte >= 32 && byte < 127) {
      output += c;
    } else {
      appendOctal(byte, output);
    }
  }
  output += '"';
}

void AppendTextFormatForMessage(const NVXx_PBGeneratedMessage& message, std::string& output,
                                const std::string& indent);

// A value that is no enum, message or group.
void appendScalar(NVXx_PBType type, const PBValue& value, std::string& output) {
  switch (type) {
    case NVXx_PBType::Bool:
      output += value.valueBool ? "true" : "false";
      break;
    case NVXx_PBType::Fixed32:
    case NVXx_PBType::UInt32:
      output += std::to_string(value.valueUInt32);
      break;
    case NVXx_PBType::Float:
      output += pbGeneral(static_cast<double>(value.valueFloat), 6);
      break;
    case NVXx_PBType::Fixed64:
    case NVXx_PBType::UInt64:
      output += std::to_string(value.valueUInt64);
      break;
    case NVXx_PBType::SFixed64:
    case NVXx_PBType::Int64:
    case NVXx_PBType::SInt64:
      output += std::to_string(value.valueInt64);
      break;
    case NVXx_PBType::Double:
      output += pbGeneral(value.valueDouble, 15);
      break;
    case NVXx_PBType::Data:
      AppendBufferAsString(value.valueObject ? pbView(static_cast<const PBBlock*>(value.valueObject)) : "",
                           output);
      break;
    case NVXx_PBType::String:
      AppendStringEscaped(pbView(static_cast<const PBBlock*>(value.valueObject)), output);
      break;
    default:
      output += std::to_string(value.valueInt32);
  }
}

// What stands at the ends of a field's lines.
struct LineEnds {
  std::string comment;
  std::string note;  // stays for the field's further values
};

void appendMessage(const NVXx_PBGeneratedMessage& value, std::string& output, const std::string& indent,
                   std::string& comment) {
  output += "{" + comment + "\n";
  AppendTextFormatForMessage(value, output, indent + "  ");
  output += indent + "}";
  comment.clear();
}

void appendEnum(const NVXx_PBFieldDescriptor& field, int32_t value, std::string& output, LineEnds& ends) {
  const NVXx_PBEnumDescriptor* descriptor = field.enumDescriptor();
  const std::string name = descriptor ? descriptor->textFormatNameForEnumValue(value) : std::string();
  if (!name.empty()) {
    output += name;
  } else {
    output += std::to_string(value);
    ends.note = descriptor ? " EnumValueDescriptor names not generated" : " EnumDescriptors not generated";
  }
  if (!ends.note.empty() && ends.comment.empty()) ends.comment = "  #";
}

PBValue valueOf(const NVXx_PBGeneratedMessage& message, const PBEntry& entry) {
  PBValue value;
  std::memcpy(&value.valueUInt64, Access::storage(message) + entry.offset,
              pbElementSize(NVXx_PBArrayValueTypeForPBType(entry.type)));
  return value;
}

void appendField(const NVXx_PBGeneratedMessage& message, const NVXx_PBFieldDescriptor& field,
                 std::string& output, const std::string& indent) {
  const PBEntry& entry = Access::classOf(message).entries[field.index()];
  const NVXx_PBMutableArray* array =
      entry.isRepeated() ? Access::slot<NVXx_PBMutableArray>(message, entry.offset) : nullptr;
  const size_t count = entry.isRepeated() ? NVXx_PBArrayCount(array) : Access::has(message, entry.has);
  if (!count) return;
  LineEnds ends;
  std::string name = field.textFormatName();
  if (name.empty()) {
    name = std::to_string(field.number());
    if (count == 1) {
      ends.comment = "  # " + field.name();
    } else {
      output += indent + "# " + field.name() + "\n";
    }
  }
  for (size_t i = 0; i < count; ++i) {
    output += indent + name + (entry.isMessage() ? " " : ": ");
    const PBValue value = array ? array->valueAtIndex(i) : valueOf(message, entry);
    if (entry.isMessage()) {
      appendMessage(*value.valueMessage, output, indent, ends.comment);
    } else if (entry.type == NVXx_PBType::Enum) {
      appendEnum(field, value.valueInt32, output, ends);
    } else {
      appendScalar(entry.type, value, output);
    }
    output += ends.comment + ends.note + "\n";
  }
}

void AppendTextFormatForMessageExtensionRange(const NVXx_PBGeneratedMessage& message,
                                              const std::vector<NVXx_PBExtensionField*>& extensions,
                                              const PBRangeEntry& range, std::string& output,
                                              const std::string& indent) {
  for (const NVXx_PBExtensionField* field : extensions) {
    const auto number = static_cast<uint32_t>(field->fieldNumber());
    if (number < range.start) continue;
    if (number > range.end) break;  // the end itself is shown, unlike on the wire
    const PBExtensionValue& value = *Access::findExtension(message, *field);
    const size_t count = field->isRepeated() ? value.value.valueArray->count() : 1;
    std::string comment;
    if (count == 1) {
      comment = "  # [" + std::string(field->singletonName()) + "]";
    } else {
      output += indent + "# [" + field->singletonName() + "]\n";
    }
    for (size_t i = 0; i < count; ++i) {
      output += indent + std::to_string(number) + (field->isMessage() ? " " : ": ");
      const PBValue one = field->isRepeated() ? value.value.valueArray->valueAtIndex(i) : value.value;
      if (field->isMessage()) {
        appendMessage(*one.valueMessage, output, indent, comment);
      } else {
        appendScalar(field->type(), one, output);
      }
    }
    output += comment + "\n";  // once, behind all of the values
  }
}

void AppendTextFormatForMessage(const NVXx_PBGeneratedMessage& message, std::string& output,
                                const std::string& indent) {
  const NVXx_PBDescriptor& descriptor = message.descriptorOfMessage();
  const PBClass& messageClass = Access::classOf(message);
  const std::vector<NVXx_PBExtensionField*> extensions = message.sortedExtensionsInUse();
  uint32_t range = 0;
  const auto appendRange = [&] {
    AppendTextFormatForMessageExtensionRange(message, extensions, messageClass.ranges[range++], output,
                                             indent);
  };
  for (const auto& field : descriptor.fields()) {
    while (range < messageClass.rangeCount && field->number() >= messageClass.ranges[range].start)
      appendRange();
    appendField(message, *field, output, indent);
  }
  while (range < messageClass.rangeCount) appendRange();

  const PBSide* link = Access::side(message);
  if (!link || !link->unknownFields) return;
  const std::string unknown =
      NVXx_PBTextFormatForUnknownFieldSet(link->unknownFields.get(), indent).value_or("");
  if (!unknown.empty()) output += indent + "# --- Unknown fields ---\n" + unknown;
}

}  // namespace

std::optional<std::string> NVXx_PBTextFormatForMessage(const NVXx_PBGeneratedMessage* message,
                                                       std::string_view indent) {
  if (!message) return std::nullopt;
  std::string output;
  AppendTextFormatForMessage(*message, output, std::string(indent));
  return output;
}

std::optional<std::string> NVXx_PBTextFormatForUnknownFieldSet(const NVXx_PBUnknownFieldSet* set,
                                                               std::string_view indent) {
  if (!set) return std::nullopt;
  std::string output;
  for (const NVXx_PBField* field : set->sortedFields()) {
    const std::string start = std::string(indent) + std::to_string(field->number()) + ": ";
    for (size_t i = 0; i < NVXx_PBArrayCount(field->varintList()); ++i) {
      output += start + std::to_string(field->varintList()->uint64AtIndex(i)) + "\n";
    }
    for (size_t i = 0; i < NVXx_PBArrayCount(field->fixed32List()); ++i) {
      output += start + pbFormat("0x%X", field->fixed32List()->uint32AtIndex(i)) + "\n";
    }
    for (size_t i = 0; i < NVXx_PBArrayCount(field->fixed64List()); ++i) {
      output += start + pbFormat("0x%lX", field->fixed64List()->uint64AtIndex(i)) + "\n";
    }
    for (size_t i = 0; i < NVXx_PBArrayCount(field->lengthDelimitedList()); ++i) {
      output += start;
      if (field->lengthDelimitedList()->objectAtIndex(i)) {
        AppendBufferAsString(field->lengthDelimitedList()->dataAtIndex(i), output);
      } else {
        output += "(null)";
      }
      output += "\n";
    }
    for (size_t i = 0; i < NVXx_PBArrayCount(field->groupList()); ++i) {
      const PBObject group = field->groupList()->objectAtIndex(i);
      output += start + "{\n";
      output += NVXx_PBTextFormatForUnknownFieldSet(group.unknownFieldSet(), std::string(indent) + "  ")
                    .value_or("");
      output += std::string(indent) + "}\n";
    }
  }
  return output;
}

}  // namespace nvxcore
