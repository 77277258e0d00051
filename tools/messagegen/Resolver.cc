#include "tools/messagegen/Resolver.h"

#include <algorithm>
#include <set>
#include <utility>

#include "tools/messagegen/Names.h"
#include "tools/messagegen/Ranges.h"

namespace nvxcore::messagegen {

void Resolver::resolve(const std::vector<std::unique_ptr<File>>& files) {
  for (const auto& file : files) {
    _symbols.add(*file);
    nameFile(*file);
  }
  const auto eachFieldOfAll = [&](const std::function<void(Field&, const Symbol*)>& visit) {
    for (const auto& file : files) eachField(*file, visit);
  };
  eachFieldOfAll([&](Field& field, const Symbol* scope) { linkField(field, scope); });
  eachFieldOfAll([&](Field& field, const Symbol*) { fieldOptions(field); });
  eachFieldOfAll([&](Field& field, const Symbol* scope) { customFieldOptions(field, scope); });
  // What a message is laid out by is complete only once all its fields are linked.
  for (const auto& file : files) {
    for (const auto& message : file->messages) layOut(*message);
    nameExtensions(file->extensions);
  }
}

void Resolver::nameFile(File& file) {
  bool hasEnumPrefix = false;
  // Other options of a file are for other generators.
  applyOptions(
      file.options, "a file",
      {{"nvxcore.class_prefix", [&](const Option& option) { file.classPrefix = nameValue(option, true); }},
       {"nvxcore.enum_prefix",
        [&](const Option& option) {
          file.enumPrefix = nameValue(option, true);
          hasEnumPrefix = true;
        }},
       {"nvxcore.namespace", [&](const Option& option) { file.cppNamespace = namespaceValue(option); }},
       {"nvxcore.root", [&](const Option& option) { file.rootName = nameValue(option, false); }},
       {"nvxcore.enum_value_names", [&](const Option& option) { file.enumValueNames = boolValue(option); }}});
  if (!hasEnumPrefix) file.enumPrefix = file.classPrefix;
  const Position top{file.number, 1, 1};
  if (file.rootName.empty()) {
    const size_t start = file.path.rfind('/') == std::string::npos ? 0 : file.path.rfind('/') + 1;
    const size_t end = std::min(file.path.find('.', start), file.path.size());
    std::string base;
    for (char c : file.path.substr(start, end - start)) {
      const bool isWord = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
      base += isWord ? c : '_';
    }
    file.rootName = file.classPrefix + camelCase(base, true) + "Root";
  }
  claim(file.cppNamespace, file.rootName, top, "root class");
  for (const auto& message : file.messages) nameMessage(*message);
  for (const auto& enumeration : file.enums) nameEnum(*enumeration);
}

void Resolver::claim(const std::string& scope, const std::string& name, Position at, std::string_view what) {
  const auto [place, isNew] = _claimed[scope].emplace(name, at);
  if (isNew) return;
  error(at, "expected another name: the " + std::string(what) + " " + name +
                " would have the name of what stands at " + _diagnostics.fileName(place->second.file) + ":" +
                std::to_string(place->second.line));
}

std::string Resolver::joinedName(const Message* parent, const std::string& name) const {
  return parent->className + "_" + name;
}

void Resolver::nameMessage(Message& message) {
  message.className = message.parent ? joinedName(message.parent, message.name.text)
                                     : message.file->classPrefix + message.name.text;
  if (isReservedWord(message.className)) message.className += "_p";
  const auto others = applyOptions(
      message.options, "a message",
      {{"nvxcore.class_name",
        [&](const Option& option) {
          const std::string name = nameValue(option, false);
          if (isReservedWord(name))
            error(option.value.at, "expected no word of C++, found " + inQuotes(name));
          if (!name.empty()) message.className = name;
        }},
       {"nvxcore.retired", [&](const Option& option) { retire(message, option); }},
       {"message_set_wire_format", [&](const Option& option) { message.isMessageSet = boolValue(option); }},
       {"map_entry",
        [&](const Option& option) {
          error(option.at(), "expected a map, in place of the option \"map_entry\"");
        }}},
      "nvxcore.retired");
  languageOptions(others, "a message",
                  {"deprecated", "map_entry", "message_set_wire_format", "no_standard_descriptor_accessor",
                   "deprecated_legacy_json_field_conflicts"});
  if (message.className.size() > kLongestCppName) {
    error(message.name.at,
          "expected a class name of at most " + std::to_string(kLongestCppName) + " characters");
    message.className.resize(kLongestCppName);
    // Its parts would be told of one by one.
    return;
  }
  claim(message.file->cppNamespace, message.className, message.name.at, "class");
  for (const auto& nested : message.messages) nameMessage(*nested);
  for (const auto& enumeration : message.enums) nameEnum(*enumeration);
  checkMessage(message);
}

void Resolver::nameEnum(Enum& enumeration) {
  const File& file = *enumeration.file;
  if (!enumeration.parent) {
    enumeration.emittedName = file.enumPrefix + enumeration.name.text;
  } else {
    // The class's name with the other prefix.
    std::string name = joinedName(enumeration.parent, enumeration.name.text);
    if (name.compare(0, file.classPrefix.size(), file.classPrefix) == 0) {
      name.replace(0, file.classPrefix.size(), file.enumPrefix);
    }
    enumeration.emittedName = std::move(name);
  }
  if (isReservedWord(enumeration.emittedName)) enumeration.emittedName += "_p";
  const auto others = applyOptions(
      enumeration.options, "an enum",
      {{"nvxcore.valid", [&](const Option& option) { validNumbers(enumeration, option); }},
       {"allow_alias", [&](const Option& option) { enumeration.allowsAlias = boolValue(option); }}});
  languageOptions(others, "an enum", {"allow_alias", "deprecated", "deprecated_legacy_json_field_conflicts"});
  if (enumeration.emittedName.size() > kLongestCppName) {
    error(enumeration.name.at,
          "expected an enum name of at most " + std::to_string(kLongestCppName) + " characters");
    enumeration.emittedName.resize(kLongestCppName);
    return;
  }
  claim(file.cppNamespace, enumeration.emittedName, enumeration.name.at, "enum");
  claim(file.cppNamespace, enumeration.emittedName + "EnumDescriptor", enumeration.name.at,
        "enum descriptor");
  claim(file.cppNamespace, enumeration.emittedName + "IsValidValue", enumeration.name.at, "verifier");
  checkEnum(enumeration);
}

void Resolver::checkEnum(Enum& enumeration) {
  if (enumeration.values.empty() && enumeration.valid.empty()) {
    error(enumeration.name.at, "expected at least one value, or the option (nvxcore.valid), in enum " +
                                   inQuotes(enumeration.name.text));
  }
  checkRanges(enumeration.reservedRanges, "reserved range");
  std::set<std::string_view> reserved;
  for (const Name& name : enumeration.reservedNames) reserved.insert(name.text);
  std::map<int32_t, const EnumValue*> numbers;
  std::map<std::string_view, const EnumValue*> names;
  const Ranges reservedNumbers(enumeration.reservedRanges);
  const Ranges valid(enumeration.valid);
  if (enumeration.values.size() > 0xFFFF)
    return error(enumeration.name.at, "expected at most 65535 values in an enum");
  for (EnumValue& value : enumeration.values) {
    const std::string shown = inQuotes(value.name.text);
    languageOptions(applyOptions(value.options, "an enum value", {}), "an enum value",
                    {"deprecated", "debug_redact"});
    const auto [first, isNew] = numbers.emplace(value.number, &value);
    if (!isNew && !enumeration.allowsAlias) {
      error(value.name.at, "expected another number for " + shown +
                               ", or the option allow_alias: " + inQuotes(first->second->name.text) + " is " +
                               std::to_string(value.number) + " too");
    }
    if (reserved.count(value.name.text))
      error(value.name.at, "expected a name that is not reserved, found " + shown);
    if (reservedNumbers.holds(value.number)) {
      error(value.name.at, "expected a number that is not reserved, found " + std::to_string(value.number));
    }
    if (!enumeration.valid.empty() && !valid.holds(value.number)) {
      error(value.name.at, "expected a number within (nvxcore.valid), found " + std::to_string(value.number));
    }
    value.emittedName = camelCase(value.name.text, true);
    if (value.emittedName.empty()) {
      error(value.name.at, "expected a letter or digit in the name " + shown);
    }
  }
  for (const EnumValue& value : enumeration.values) {
    const auto [first, isNew] = names.emplace(value.emittedName, &value);
    if (!isNew && !value.emittedName.empty()) {
      error(value.name.at, "expected another name: " + inQuotes(value.name.text) + " and " +
                               inQuotes(first->second->name.text) + " would both be " + value.emittedName);
    } else {
      claim(enumeration.file->cppNamespace, enumeration.emittedName + "_" + value.emittedName, value.name.at,
            "enum value");
    }
  }
}

/// No two of them share a number.
void Resolver::checkRanges(std::vector<Range> ranges, std::string_view what) {
  std::stable_sort(ranges.begin(), ranges.end(),
                   [](const Range& a, const Range& b) { return a.first < b.first; });
  const Range* widest = nullptr;
  for (const Range& range : ranges) {
    if (widest && range.first <= widest->last) {
      const Range& later =
          std::make_pair(range.at.line, range.at.column) > std::make_pair(widest->at.line, widest->at.column)
              ? range
              : *widest;
      error(later.at, "expected no number in two places: " + std::to_string(range.first) +
                          " stands in another " + std::string(what) + " too");
    }
    if (!widest || range.last > widest->last) widest = &range;
  }
}

void Resolver::checkMessage(Message& message) {
  const int64_t most = message.isMessageSet ? kMaximumMessageSetNumber : kMaximumFieldNumber;
  for (Range& range : message.extensionRanges) {
    if (range.toMax) range.last = most;
    if (range.last > most || range.first > most) {
      error(range.at, "expected numbers up to " + std::to_string(most));
      range.last = std::min(range.last, most);
    }
  }
  checkRanges(message.extensionRanges, "extension range");
  std::stable_sort(message.extensionRanges.begin(), message.extensionRanges.end(),
                   [](const Range& a, const Range& b) { return a.first < b.first; });
  checkRanges(message.reservedRanges, "reserved range");
  std::vector<Range> both = message.extensionRanges;
  both.insert(both.end(), message.reservedRanges.begin(), message.reservedRanges.end());
  if (!_diagnostics.failed()) checkRanges(std::move(both), "range, extensions or reserved,");
  if (message.isMessageSet) {
    if (!message.fields.empty()) {
      error(message.fields.front()->name.at, "expected no fields in a message set, only extensions");
    }
    if (message.extensionRanges.empty()) {
      error(message.name.at, "expected \"extensions\" in the message set " + inQuotes(message.name.text));
    }
  }
  checkNumbers(message);
}

void Resolver::checkNumbers(Message& message) {
  std::set<std::string_view> reservedNames;
  for (const Name& name : message.reservedNames) {
    if (!reservedNames.insert(name.text).second) {
      error(name.at, "expected each reserved name once, found " + inQuotes(name.text));
    }
  }
  std::map<int64_t, const Retired*> retired;
  for (const Retired& one : message.retired) {
    if (!retired.emplace(one.number, &one).second) {
      error(one.at, "expected each retired number once, found " + std::to_string(one.number));
    }
  }
  const Ranges reserved(message.reservedRanges);
  const Ranges extensions(message.extensionRanges);
  std::map<int64_t, const Field*> numbers;
  for (const auto& owned : message.fields) {
    const Field& field = *owned;
    const std::string number = std::to_string(field.number);
    if (field.number > kMaximumFieldNumber) {
      error(field.numberAt,
            "expected a field number from 1 to " + std::to_string(kMaximumFieldNumber) + ", found " + number);
    } else if (field.number >= 19000 && field.number <= 19999) {
      error(field.numberAt,
            "expected a field number outside 19000 to 19999, which the format keeps, found " + number);
    } else if (reserved.holds(field.number)) {
      error(field.numberAt, "expected a number that is not reserved, found " + number);
    } else if (extensions.holds(field.number)) {
      error(field.numberAt, "expected a number that is not for extensions, found " + number);
    } else if (retired.count(field.number)) {
      error(field.numberAt, "expected a number that is not retired, found " + number);
    }
    if (reservedNames.count(field.name.text)) {
      error(field.name.at, "expected a name that is not reserved, found " + inQuotes(field.name.text));
    }
    const auto [first, isNew] = numbers.emplace(field.number, &field);
    if (!isNew) {
      error(field.numberAt, "expected another field number: " + inQuotes(first->second->name.text) + " has " +
                                number + " too");
    }
  }
  for (const Retired& one : message.retired) {
    if (extensions.holds(one.number)) {
      error(one.at,
            "expected a retired number that is not for extensions, found " + std::to_string(one.number));
    }
  }
}

}  // namespace nvxcore::messagegen
