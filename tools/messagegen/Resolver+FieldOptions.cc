#include <array>
#include <set>
#include <utility>

#include "tools/messagegen/Resolver.h"
#include "tools/messagegen/Text.h"
#include "tools/messagegen/Wire.h"

namespace nvxcore::messagegen {

namespace {

constexpr std::string_view kFieldOptions = "nvxcore.options.FieldOptions";

struct StandardOption {
  std::string_view name;
  int64_t number;
  /// The values' names, which are numbered from 0; none for a bool.
  std::array<std::string_view, 3> values;
};

constexpr StandardOption kStandardOptions[] = {
    {"ctype", 1, {"STRING", "CORD", "STRING_PIECE"}},
    {"packed", 2, {}},
    {"deprecated", 3, {}},
    {"lazy", 5, {}},
    {"jstype", 6, {"JS_NORMAL", "JS_STRING", "JS_NUMBER"}},
    {"weak", 10, {}},
    {"unverified_lazy", 15, {}},
    {"debug_redact", 16, {}},
};

/// Of a number, bool or enum.
unsigned wireType(const Field& field) {
  switch (field.type) {
    case FieldType::Fixed32:
    case FieldType::SFixed32:
    case FieldType::Float:
      return 5;
    case FieldType::Fixed64:
    case FieldType::SFixed64:
    case FieldType::Double:
      return 1;
    default:
      return 0;
  }
}

void appendLengthDelimited(int64_t number, std::string_view content, std::string& bytes) {
  appendTag(number, 2, bytes);
  appendVarint(content.size(), bytes);
  bytes += content;
}

void appendMessage(const Field& option, std::string_view content, std::string& bytes) {
  if (option.type == FieldType::Group) {
    appendTag(option.number, 3, bytes);
    bytes += content;
    appendTag(option.number, 4, bytes);
  } else {
    appendLengthDelimited(option.number, content, bytes);
  }
}

bool isMessageType(const Field& field) {
  return field.type == FieldType::Message || field.type == FieldType::Group;
}

}  // namespace

bool Resolver::standardFieldOption(const Option& option, std::string& bytes) {
  const Name& name = option.name.front().name;
  std::string list = "accessor and has_index with (nvxcore.) around them, default";
  for (const StandardOption& one : kStandardOptions) {
    list.append(", ").append(one.name);
    if (one.name != name.text) continue;
    if (option.name.size() > 1) {
      error(option.name[1].name.at, "expected \"=\" after " + inQuotes(name.text) + ", which has no parts");
      return false;
    }
    uint64_t value = 0;
    if (one.values[0].empty()) {
      std::string expected;
      if (!scalarBits(FieldType::Bool, option.value, value, expected)) {
        error(option.value.at, "expected " + expected);
        return false;
      }
    } else {
      while (value < one.values.size() && one.values[value] != option.value.text) ++value;
      if (value == one.values.size() || option.value.kind != OptionValue::Kind::Identifier) {
        std::string values;
        for (std::string_view each : one.values) values.append(values.empty() ? "" : ", ").append(each);
        error(option.value.at, "expected one of " + values);
        return false;
      }
    }
    appendTag(one.number, 0, bytes);
    appendVarint(value, bytes);
    return true;
  }
  error(option.at(), "expected an option of a field (" + list + "), found " + inQuotes(name.text));
  return false;
}

/// The options that extensions of the field options define.
void Resolver::customFieldOptions(Field& field, const Symbol* scope) {
  std::set<const Field*> seen;
  for (const Option& option : field.options) {
    const Name& name = option.name.front().name;
    if (!option.name.front().isExtension || isBuiltInOption(option)) continue;
    const Symbol* found = _symbols.find(name, scope, *field.file, SymbolTable::Wanted::Extension);
    if (!found) continue;
    const Field& extension = *found->field;
    if (option.name.size() == 1 && !extension.isRepeated() && !seen.insert(&extension).second) {
      error(name.at, "expected the option " + inQuotes(name.text) + " once");
      continue;
    }
    customFieldOption(field, extension, option, scope);
  }
}

void Resolver::customFieldOption(Field& field, const Field& extension, const Option& option,
                                 const Symbol* scope) {
  const Name& name = option.name.front().name;
  const Symbol* extended =
      extension.extendee ? _symbols.scopeOf(*extension.file, extension.extendee) : nullptr;
  if (!extended) return;
  if (extended->fullName() != kFieldOptions) {
    return error(name.at, "expected an extension of " + std::string(kFieldOptions) + ", found one of " +
                              inQuotes(extended->fullName()));
  }
  encodePart(extension, option, 1, scope, *field.file, field.serialisedOptions);
}

/// `(one).two.three = value`: each part but the last is a message that holds the next.
void Resolver::encodePart(const Field& option, const Option& statement, size_t part, const Symbol* scope,
                          const File& file, std::string& bytes) {
  if (part == statement.name.size()) return encodeValue(option, statement.value, scope, file, bytes);
  const OptionNamePart& next = statement.name[part];
  if (!isMessageType(option) || !option.message || option.isRepeated()) {
    return error(next.name.at,
                 "expected \"=\" after " + inQuotes(option.name.text) + ", which is no single message");
  }
  const Field* member = optionMember(*option.message, next.name, next.isExtension, scope, file);
  if (!member) return;
  std::string content;
  encodePart(*member, statement, part + 1, scope, file, content);
  appendMessage(option, content, bytes);
}

const Field* Resolver::optionMember(const Message& message, const Name& name, bool isExtension,
                                    const Symbol* scope, const File& file) {
  if (isExtension) {
    const Symbol* found = _symbols.find(name, scope, file, SymbolTable::Wanted::Extension);
    if (!found) return nullptr;
    if (found->field->extendee == &message) return found->field;
    error(name.at,
          "expected an extension of " + inQuotes(message.name.text) + ", found " + inQuotes(name.text));
    return nullptr;
  }
  auto& members = _members[&message];
  if (members.empty()) {
    for (const auto& field : message.fields) {
      members.emplace(field->name.text, field.get());
      // In values in braces a group goes by its own name.
      if (field->type == FieldType::Group) members.emplace(field->typeName.text, field.get());
    }
  }
  const auto found = members.find(name.text);
  if (found != members.end()) return found->second;
  error(name.at, "expected a field of " + inQuotes(message.name.text) + ", found " + inQuotes(name.text));
  return nullptr;
}

void Resolver::encodeAggregate(const Message& message, const OptionValue& value, const Symbol* scope,
                               const File& file, std::string& bytes) {
  std::map<const Field*, bool> seen;
  for (const AggregateField& entry : value.fields) {
    const Field* member = optionMember(message, entry.name, entry.isExtension, scope, file);
    if (!member) continue;
    if (!member->isRepeated() && (entry.values.size() != 1 || std::exchange(seen[member], true))) {
      error(entry.name.at, "expected one value for " + inQuotes(entry.name.text));
      continue;
    }
    for (const OptionValue& one : entry.values) encodeValue(*member, one, scope, file, bytes);
  }
}

void Resolver::encodeValue(const Field& option, const OptionValue& value, const Symbol* scope,
                           const File& file, std::string& bytes) {
  if (isMessageType(option)) {
    if (value.kind != OptionValue::Kind::Aggregate) return error(value.at, "expected a value in braces");
    std::string content;
    if (option.message) encodeAggregate(*option.message, value, scope, file, content);
    return appendMessage(option, content, bytes);
  }
  if (option.type == FieldType::String || option.type == FieldType::Data) {
    if (value.kind != OptionValue::Kind::String) return error(value.at, "expected a string in quotes");
    if (option.type == FieldType::String && !isUTF8(value.text)) return error(value.at, "expected UTF-8");
    return appendLengthDelimited(option.number, value.text, bytes);
  }
  uint64_t bits = 0;
  std::string expected;
  if (option.type == FieldType::Enum && option.enumeration) {
    const EnumValue* named = enumValue(*option.enumeration, value.text);
    if (value.kind != OptionValue::Kind::Identifier || !named) {
      return error(value.at, "expected a value of enum " + inQuotes(option.enumeration->name.text));
    }
    // As the runtime writes enums: five bytes for a negative one.
    bits = static_cast<uint32_t>(named->number);
  } else if (!scalarBits(option.type, value, bits, expected)) {
    return error(value.at, "expected " + expected);
  }
  const unsigned wire = wireType(option);
  std::string content;
  if (wire == 5) {
    appendLittleEndian(bits, 4, content);
  } else if (wire == 1) {
    appendLittleEndian(bits, 8, content);
  } else if (option.type == FieldType::SInt32 || option.type == FieldType::SInt64) {
    appendVarint(zigZag(static_cast<int64_t>(bits)), content);
  } else {
    appendVarint(bits, content);
  }
  // One element of a packed field is a run of one.
  if (option.isPacked) return appendLengthDelimited(option.number, content, bytes);
  appendTag(option.number, wire, bytes);
  bytes += content;
}

}  // namespace nvxcore::messagegen
