#include "tools/messagegen/Tables.h"

#include <algorithm>

#include "tools/messagegen/Names.h"
#include "tools/messagegen/TextFormatInfo.h"
#include "tools/messagegen/Wire.h"

namespace nvxcore::messagegen {

namespace {

constexpr size_t kLargest16 = 0xFFFF;
constexpr int64_t kMostListed = 4096;

bool isWide(FieldType type) {
  switch (type) {
    case FieldType::Fixed64:
    case FieldType::SFixed64:
    case FieldType::Double:
    case FieldType::Int64:
    case FieldType::SInt64:
    case FieldType::UInt64:
      return true;
    default:
      return false;
  }
}

class Builder {
 public:
  Builder(const File& file, Diagnostics& diagnostics) : _file(file), _diagnostics(diagnostics) {}

  Tables build() {
    collect();
    addRun(_file.rootName);
    for (const Message* message : _tables.messages) addMessage(*message);
    for (const Enum* enumeration : _tables.enums) addEnum(*enumeration);
    for (const Field* extension : _tables.extensions) addExtension(*extension);
    checkCount(_tables.messages.size() + _tables.foreignMessages.size(), "messages");
    checkCount(_tables.enums.size() + _tables.foreignEnums.size(), "enums");
    checkCount(_tables.extensions.size(), "extensions");
    checkCount(_tables.ranges.size(), "extension ranges");
    checkCount(_file.imports.size(), "imports");
    return std::move(_tables);
  }

 private:
  void checkCount(size_t count, std::string_view what) {
    if (count > kLargest16) {
      _diagnostics.error({_file.number, 1, 1}, "expected at most 65535 " + std::string(what) +
                                                   " in a file, found " + std::to_string(count));
    }
  }

  void collect() {
    for (const auto& message : _file.messages) collect(*message);
    for (const auto& enumeration : _file.enums) _tables.enums.push_back(enumeration.get());
    for (const auto& extension : _file.extensions) _tables.extensions.push_back(extension.get());
    const auto place = [](const Position& at) { return std::make_pair(at.line, at.column); };
    const auto before = [&](const auto* a, const auto* b) { return place(a->name.at) < place(b->name.at); };
    std::stable_sort(_tables.enums.begin(), _tables.enums.end(), before);
    std::stable_sort(_tables.extensions.begin(), _tables.extensions.end(), before);
    for (const Message* one : _tables.messages) index(_tables.messageIndex, one);
    for (const Enum* one : _tables.enums) index(_tables.enumIndex, one);
    for (const Field* one : _tables.extensions) index(_tables.extensionIndex, one);
  }

  void collect(const Message& message) {
    _tables.messages.push_back(&message);
    for (const auto& enumeration : message.enums) _tables.enums.push_back(enumeration.get());
    for (const auto& extension : message.extensions) _tables.extensions.push_back(extension.get());
    for (const auto& nested : message.messages) collect(*nested);
  }

  template <class T>
  static void index(std::map<const T*, uint32_t>& indexes, const T* one) {
    indexes.emplace(one, static_cast<uint32_t>(indexes.size()));
  }

  /// Foreign ones get their numbers as they are met.
  uint32_t classReference(const Message& message) {
    if (message.file != &_file && _tables.messageIndex.count(&message) == 0) {
      index(_tables.messageIndex, &message);
      _tables.foreignMessages.push_back(&message);
    }
    return _tables.messageIndex.at(&message);
  }
  uint32_t enumReference(const Enum& enumeration) {
    if (enumeration.file != &_file && _tables.enumIndex.count(&enumeration) == 0) {
      index(_tables.enumIndex, &enumeration);
      _tables.foreignEnums.push_back(&enumeration);
    }
    return _tables.enumIndex.at(&enumeration);
  }

  /// Begins a run of names and answers where.
  uint32_t addRun(const std::string& first) {
    const uint32_t at = _tables.nameSize;
    _tables.names.emplace_back();
    addName(first);
    return at;
  }
  void addName(const std::string& name) {
    _tables.names.back() += name;
    _tables.names.back() += '\0';
    _tables.nameSize += static_cast<uint32_t>(name.size() + 1);
  }

  /// The same bytes stand there once.
  uint32_t addBytes(std::string bytes) {
    const auto [known, isNew] = _places.emplace(bytes, _tables.byteSize);
    if (!isNew) return known->second;
    const uint32_t at = _tables.byteSize;
    _tables.byteSize += static_cast<uint32_t>(bytes.size());
    _tables.bytes.push_back(std::move(bytes));
    return at;
  }
  /// With its length in front.
  uint32_t addBlock(const std::string& content) {
    const auto length = static_cast<uint32_t>(content.size());
    std::string block;
    for (int shift = 24; shift >= 0; shift -= 8) block += static_cast<char>(length >> shift);
    return addBytes(block + content);
  }

  /// The value of a default that is told: bits, or a reference. False where all bits are zero.
  bool defaultValue(const Field& field, uint32_t& value) {
    if (field.type == FieldType::String || field.type == FieldType::Data) {
      value = addBlock(field.defaultBytes);
      return true;
    }
    if (isWide(field.type)) {
      if (field.defaultBits == 0) return false;
      std::string bytes;
      appendLittleEndian(field.defaultBits, 8, bytes);
      value = addBytes(std::move(bytes));
      return true;
    }
    value = static_cast<uint32_t>(field.defaultBits);
    return value != 0;
  }

  void addMessage(const Message& message) {
    Tables::MessageEntry entry;
    entry.names = addRun(message.className);
    entry.firstField = static_cast<uint32_t>(_tables.fieldEntries.size());
    entry.firstSide = static_cast<uint32_t>(_tables.sideEntries.size());
    entry.firstRange = _tables.ranges.size();
    entry.fieldCount = message.sortedFields.size();
    entry.rangeCount = message.extensionRanges.size();
    entry.storageSize = message.storageSize;
    entry.isMessageSet = message.isMessageSet;
    for (size_t i = 0; i < message.sortedFields.size(); ++i) addField(message, i);
    const auto ofMessage = [&](Tables::SideKind kind, uint32_t value) {
      _tables.sideEntries.push_back({Tables::kSideOfMessage, kind, value});
    };
    if (!message.textFormatInfo.empty()) {
      ofMessage(Tables::SideKind::TextFormat, addBlock(message.textFormatInfo));
    }
    for (const auto& enumeration : message.enums)
      ofMessage(Tables::SideKind::NestedEnum, enumReference(*enumeration));
    entry.sideCount = _tables.sideEntries.size() - entry.firstSide;
    if (entry.sideCount > kLargest16) {
      _diagnostics.error(message.name.at, "expected fewer fields and enums in a message");
    }
    for (const Range& range : message.extensionRanges) {
      _tables.ranges.emplace_back(static_cast<uint32_t>(range.first), static_cast<uint32_t>(range.last + 1));
    }
    _tables.messageEntries.push_back(entry);
  }

  void addField(const Message& message, size_t index) {
    const Field& field = *message.sortedFields[index];
    addName(field.accessor);
    _tables.fieldEntries.push_back({&field, message.textFormatFlags[index]});
    const auto side = [&](Tables::SideKind kind, uint32_t value) {
      _tables.sideEntries.push_back({static_cast<uint32_t>(index), kind, value});
    };
    if (field.number > static_cast<int64_t>(kLargest16)) {
      side(Tables::SideKind::Number, static_cast<uint32_t>(field.number));
    }
    if (field.message) side(Tables::SideKind::Class, classReference(*field.message));
    if (field.enumeration) side(Tables::SideKind::Enum, enumReference(*field.enumeration));
    uint32_t value = 0;
    if (field.hasDefault && defaultValue(field, value)) side(Tables::SideKind::Default, value);
    if (!field.serialisedOptions.empty()) side(Tables::SideKind::Options, addBlock(field.serialisedOptions));
  }

  void addEnum(const Enum& enumeration) {
    Tables::EnumEntry entry;
    entry.names = addRun(enumeration.emittedName);
    entry.numbers = static_cast<uint32_t>(_tables.numbers.size());
    entry.hasNames = _file.enumValueNames && !enumeration.values.empty();
    entry.listsValid = listsValidNumbers(enumeration);
    entry.valueCount = enumeration.values.size();
    if (entry.valueCount > kLargest16)
      _diagnostics.error(enumeration.name.at, "expected at most 65535 values in an enum");
    for (const EnumValue& value : enumeration.values) _tables.numbers.push_back(value.number);
    entry.rangeCount = enumeration.valid.size();
    if (entry.rangeCount > kLargest16)
      _diagnostics.error(enumeration.name.at, "expected at most 65535 ranges");
    for (const Range& range : enumeration.valid) {
      _tables.numbers.push_back(static_cast<int32_t>(range.first));
      _tables.numbers.push_back(static_cast<int32_t>(range.last));
    }
    if (entry.hasNames) {
      std::map<uint32_t, TextFormatEntry> entries;
      for (size_t i = 0; i < enumeration.values.size(); ++i) {
        const EnumValue& value = enumeration.values[i];
        addName(value.emittedName);
        if (rebuiltEnumValueName(value.emittedName) != value.name.text) {
          entries[static_cast<uint32_t>(i)] = {value.emittedName, value.name.text};
        }
      }
      // Steps say each of them: the name that is emitted was made from the one that is wanted.
      const std::string info = encodeTextFormatInfo(entries).value_or("");
      entry.hasTextFormat = !info.empty();
      if (entry.hasTextFormat) entry.textFormat = addBlock(info);
    }
    _tables.enumEntries.push_back(entry);
  }

  void addExtension(const Field& field) {
    Tables::ExtensionEntry entry;
    entry.field = &field;
    entry.names = addRun((field.scope ? field.scope->className : _file.rootName) + "_" + field.accessor);
    entry.extendedClass = classReference(*field.extendee);
    if (field.message) entry.valueType = classReference(*field.message);
    if (field.enumeration) entry.valueType = enumReference(*field.enumeration);
    entry.hasDefault = field.hasDefault && defaultValue(field, entry.defaultValue);
    _tables.extensionEntries.push_back(entry);
  }

  const File& _file;
  Diagnostics& _diagnostics;
  Tables _tables;
  std::map<std::string, uint32_t> _places;
};

}  // namespace

bool listsValidNumbers(const Enum& enumeration) {
  int64_t count = 0;
  for (const Range& range : enumeration.valid) count += range.last - range.first + 1;
  return enumeration.values.empty() && count > 0 && count <= kMostListed;
}

Tables buildTables(const File& file, Diagnostics& diagnostics) { return Builder(file, diagnostics).build(); }

}  // namespace nvxcore::messagegen
