#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <set>
#include <utility>

#include "tools/messagegen/Ranges.h"
#include "tools/messagegen/Resolver.h"
#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

namespace {

bool isPackableType(FieldType type) {
  return type != FieldType::Data && type != FieldType::String && type != FieldType::Message &&
         type != FieldType::Group;
}

bool floatBits(FieldType type, const OptionValue& value, uint64_t& bits, std::string& expected) {
  double number = value.number;
  if (value.kind == OptionValue::Kind::Identifier) {
    if (value.text == "inf") {
      number = std::numeric_limits<double>::infinity();
    } else if (value.text == "nan") {
      number = std::numeric_limits<double>::quiet_NaN();
    } else {
      expected = "a number, \"inf\" or \"nan\"";
      return false;
    }
  } else if (value.kind != OptionValue::Kind::Integer && value.kind != OptionValue::Kind::Float) {
    expected = "a number, \"inf\" or \"nan\"";
    return false;
  }
  const bool isWord = value.kind == OptionValue::Kind::Identifier;
  if (type == FieldType::Float) {
    // From the digits: by way of a double it would be rounded twice.
    float single = isWord ? static_cast<float>(number) : std::strtof(value.text.c_str(), nullptr);
    if (!isWord && std::isinf(single)) {
      expected = "a number that a float holds";
      return false;
    }
    if (value.negative) single = -single;
    uint32_t single32 = 0;
    std::memcpy(&single32, &single, sizeof single32);
    bits = single32;
    return true;
  }
  if (!isWord && std::isinf(number)) {
    expected = "a number that a double holds";
    return false;
  }
  if (value.negative) number = -number;
  std::memcpy(&bits, &number, sizeof bits);
  return true;
}

}  // namespace

bool scalarBits(FieldType type, const OptionValue& value, uint64_t& bits, std::string& expected) {
  int64_t least = 0;
  uint64_t most = 0;
  switch (type) {
    case FieldType::Bool:
      expected = "\"true\" or \"false\"";
      if (value.kind != OptionValue::Kind::Identifier || value.negative) return false;
      bits = value.text == "true" ? 1 : 0;
      return bits != 0 || value.text == "false";
    case FieldType::Float:
    case FieldType::Double:
      return floatBits(type, value, bits, expected);
    case FieldType::Int32:
    case FieldType::SInt32:
    case FieldType::SFixed32:
    case FieldType::Enum:
      least = INT32_MIN;
      most = INT32_MAX;
      break;
    case FieldType::Int64:
    case FieldType::SInt64:
    case FieldType::SFixed64:
      least = INT64_MIN;
      most = INT64_MAX;
      break;
    case FieldType::UInt32:
    case FieldType::Fixed32:
      most = UINT32_MAX;
      break;
    case FieldType::UInt64:
    case FieldType::Fixed64:
      most = UINT64_MAX;
      break;
    default:
      expected = "no value";
      return false;
  }
  expected = "an integer from " + std::to_string(least) + " to " + std::to_string(most);
  if (value.kind != OptionValue::Kind::Integer || value.overflow) return false;
  // Two's complement: the least number's magnitude is one above the most.
  const uint64_t magnitudeOfLeast = uint64_t{0} - static_cast<uint64_t>(least);
  if (value.integer > (value.negative ? magnitudeOfLeast : most)) return false;
  bits = value.negative ? uint64_t{0} - value.integer : value.integer;
  return true;
}

void Resolver::eachField(File& file, const std::function<void(Field&, const Symbol*)>& visit) {
  for (const auto& message : file.messages) eachField(*message, visit);
  const Symbol* scope = _symbols.scopeOf(file, nullptr);
  for (const auto& extension : file.extensions) visit(*extension, scope);
}

void Resolver::eachField(Message& message, const std::function<void(Field&, const Symbol*)>& visit) {
  const Symbol* scope = _symbols.scopeOf(*message.file, &message);
  for (const auto& field : message.fields) visit(*field, scope);
  for (const auto& extension : message.extensions) visit(*extension, scope);
  for (const auto& nested : message.messages) eachField(*nested, visit);
}

void Resolver::linkField(Field& field, const Symbol* scope) {
  const bool isLinked = field.message != nullptr;
  if (!isLinked && !field.typeName.text.empty()) {
    const Symbol* type = _symbols.find(field.typeName, scope, *field.file, SymbolTable::Wanted::Type);
    if (type && type->kind == Symbol::Kind::Message) {
      if (type->message->isMapEntry)
        error(field.typeName.at, "expected a message that is not the entry of a map");
      field.type = FieldType::Message;
      field.message = type->message;
    } else if (type) {
      field.type = FieldType::Enum;
      field.enumeration = type->enumeration;
    }
  }
  if (field.isExtension()) linkExtension(field, scope);
}

void Resolver::linkExtension(Field& field, const Symbol* scope) {
  const Symbol* extended = _symbols.find(field.extendeeName, scope, *field.file, SymbolTable::Wanted::Type);
  if (!extended) return;
  if (extended->kind != Symbol::Kind::Message) {
    return error(field.extendeeName.at, "expected the name of a message, found " +
                                            inQuotes(field.extendeeName.text) + ", which is an enum");
  }
  Message& extendee = *extended->message;
  field.extendee = &extendee;
  const std::string number = std::to_string(field.number);
  const auto above =
      std::upper_bound(extendee.extensionRanges.begin(), extendee.extensionRanges.end(), field.number,
                       [](int64_t one, const Range& range) { return one < range.first; });
  if (above == extendee.extensionRanges.begin() || std::prev(above)->last < field.number) {
    std::string ranges;
    for (const Range& range : extendee.extensionRanges) {
      ranges += (ranges.empty() ? "" : ", ") + std::to_string(range.first);
      if (range.last != range.first) ranges += " to " + std::to_string(range.last);
      if (ranges.size() > 100) {
        ranges += ", ...";
        break;
      }
    }
    return error(field.numberAt, "expected a number in an extension range of " +
                                     inQuotes(extended->fullName()) + " (" +
                                     (ranges.empty() ? "it has none" : ranges) + "), found " + number);
  }
  if (field.number >= 19000 && field.number <= 19999) {
    error(field.numberAt,
          "expected a number outside 19000 to 19999, which the format keeps, found " + number);
  }
  if (extendee.isMessageSet && (field.type != FieldType::Message || field.label != Label::Optional)) {
    error(field.labelAt,
          "expected an optional message: " + inQuotes(extended->fullName()) + " is a message set");
  }
  const auto [first, isNew] = _extensionNumbers[&extendee].emplace(field.number, &field);
  if (!isNew) {
    const Field& other = *first->second;
    error(field.numberAt, "expected another number: " + inQuotes(other.name.text) + " at " +
                              other.file->path + ":" + std::to_string(other.name.at.line) + " extends " +
                              inQuotes(extended->fullName()) + " with " + number + " too");
  }
}

/// All but those that others have defined.
void Resolver::fieldOptions(Field& field) {
  const bool isKnown = field.typeName.text.empty() || field.message || field.enumeration;
  if (!isKnown) return;
  const auto accessor = [&](const Option& option) {
    field.accessor = nameValue(option, false);
    field.hasExplicitAccessor = !field.accessor.empty();
  };
  const auto hasIndex = [&](const Option& option) {
    field.hasIndexAt = option.value.at;
    field.hasIndex = integerValue(option.value, "a has-index", 0, kLargestHasIndex);
    if (field.isExtension()) error(option.at(), "expected no has-index: an extension has none");
  };
  const auto others =
      applyOptions(field.options, "a field",
                   {{"default", [&](const Option& option) { defaultValue(field, option.value); }},
                    // Of no use to the runtime.
                    {"json_name", [&](const Option& option) { stringValue(option); }},
                    {"nvxcore.accessor", accessor},
                    {"nvxcore.has_index", hasIndex}});
  std::set<std::string_view> seen;
  for (const Option* option : others) {
    const OptionNamePart& first = option->name.front();
    if (first.isExtension) continue;
    if (!seen.insert(first.name.text).second) {
      error(option->at(), "expected the option " + inQuotes(first.name.text) + " once");
      continue;
    }
    if (!standardFieldOption(*option, field.serialisedOptions)) continue;
    if (first.name.text != "packed") continue;
    field.isPacked = option->value.text == "true";
    if (field.isPacked && (!field.isRepeated() || !isPackableType(field.type))) {
      error(option->at(), "expected a repeated field of numbers, bools or enums for \"packed\"");
      field.isPacked = false;
    }
  }
}

void Resolver::defaultValue(Field& field, const OptionValue& value) {
  if (field.isRepeated()) return error(value.at, "expected no default: a repeated field has none");
  switch (field.type) {
    case FieldType::Message:
    case FieldType::Group:
      return error(value.at, "expected no default: a field of a message has none");
    case FieldType::Enum:
      return enumDefault(field, value);
    case FieldType::String:
    case FieldType::Data:
      if (value.kind != OptionValue::Kind::String) return error(value.at, "expected a string in quotes");
      if (field.type == FieldType::String && !isUTF8(value.text)) {
        return error(value.at, "expected UTF-8 as the default of a string");
      }
      field.defaultBytes = value.text;
      field.hasDefault = true;
      return;
    default:
      break;
  }
  std::string expected;
  if (!scalarBits(field.type, value, field.defaultBits, expected)) {
    return error(value.at, "expected " + expected + " as the default");
  }
  field.hasDefault = true;
}

const EnumValue* Resolver::enumValue(const Enum& enumeration, std::string_view name) {
  auto& values = _enumValues[&enumeration];
  if (values.empty()) {
    for (const EnumValue& value : enumeration.values) values.emplace(value.name.text, &value);
  }
  const auto found = values.find(name);
  return found == values.end() ? nullptr : found->second;
}

/// A value's name, or a number where values need no name.
void Resolver::enumDefault(Field& field, const OptionValue& value) {
  const Enum& enumeration = *field.enumeration;
  if (value.kind == OptionValue::Kind::Identifier && !value.negative) {
    if (const EnumValue* one = enumValue(enumeration, value.text)) {
      field.defaultBits = static_cast<uint64_t>(static_cast<int64_t>(one->number));
      field.hasDefault = true;
      return;
    }
    return error(value.at, "expected a value of enum " + inQuotes(enumeration.name.text) + ", found " +
                               inQuotes(value.text));
  }
  if (enumeration.valid.empty()) {
    return error(value.at, "expected the name of a value of enum " + inQuotes(enumeration.name.text));
  }
  std::string expected;
  if (!scalarBits(FieldType::Enum, value, field.defaultBits, expected) ||
      !Ranges(enumeration.valid).holds(static_cast<int64_t>(field.defaultBits))) {
    return error(value.at, "expected a value of enum " + inQuotes(enumeration.name.text) +
                               " or a number within its (nvxcore.valid)");
  }
  field.hasDefault = true;
}

}  // namespace nvxcore::messagegen
