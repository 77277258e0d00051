#include "nvxcore/message/NVXx_PBDescriptor.h"

#include <cctype>
#include <mutex>

#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/internal/PBBytes.h"
#include "nvxcore/message/internal/PBClass.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/message/schema/descriptor.pb.h"
#include "nvxcore/platform/Exception.h"

namespace nvxcore {

namespace {

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }

void cutEnd(std::string& text, std::string_view end) {
  if (text.ends_with(end)) text.resize(text.size() - end.size());
}

}  // namespace

std::string SelFromStrings(std::string_view prefix, std::string_view name, bool takesArgument) {
  std::string result(prefix);
  result += name;
  if (!prefix.empty() && !name.empty()) result[prefix.size()] = upper(name[0]);
  if (takesArgument) result += ':';
  return result;
}

Data NVXx_PBEmptyNSData() { return DataAccess::adopt(pbEmptyString()); }

std::string NVXx_PBDecodeTextFormatName(std::string_view info, int32_t key, std::string_view inputName) {
  if (info.empty() || inputName.empty()) return {};
  const char* p = info.data();
  const char* const end = p + info.size();
  const auto varint = [&] {
    uint32_t result = 0;
    for (int i = 0; i < 10; ++i) {
      const uint32_t byte = p < end ? static_cast<uint8_t>(*p++) : 0;
      if (i < 5) result |= (byte & 0x7F) << (7 * i);
      if (byte < 0x80) return static_cast<int32_t>(result);
    }
    throw Exception("NSParseErrorException", "Unable to read varint32");
  };
  int32_t entries = varint();
  for (; entries > 0; --entries) {
    if (varint() == key) break;
    if (p < end && *p == 0) ++p;  // a name as it stands follows
    while (p < end && *p) ++p;
    ++p;
  }
  if (entries <= 0 || p >= end) return {};
  if (*p == 0) {
    ++p;
    std::string result;
    while (p < end && *p) result += *p++;
    return result;
  }
  std::string result;
  size_t position = 0;
  for (; p < end && *p; ++p) {
    const auto step = static_cast<uint8_t>(*p);
    if (step & 0x80) result += '_';
    size_t run = step & 0x1F;
    for (size_t i = 0; i < run && position < inputName.size(); ++i, ++position) {
      const char c = inputName[position];
      switch (step & 0x60) {
        case 0x20:
          result += i ? c : lower(c);
          break;
        case 0x40:
          result += i ? c : upper(c);
          break;
        case 0x60:
          result += upper(c);
          break;
        default:
          result += c;
      }
    }
  }
  return result;
}

// Enums.

const NVXx_PBEnumValueDescriptor* NVXx_PBEnumDescriptor::enumValueWithNumber(int32_t number) const {
  for (const auto& value : _values) {
    if (value.number() == number) return &value;
  }
  return nullptr;
}

const NVXx_PBEnumValueDescriptor* NVXx_PBEnumDescriptor::enumValueWithName(std::string_view name) const {
  for (const auto& value : _values) {
    if (value.name() == name) return &value;
  }
  return nullptr;
}

bool NVXx_PBEnumDescriptor::isValidElsewhere(int32_t number) const {
  size_t low = 0;
  size_t high = _valid.size();
  while (low < high) {
    const size_t middle = (low + high) / 2;
    if (number < _valid[middle].first) {
      high = middle;
    } else if (number > _valid[middle].last) {
      low = middle + 1;
    } else {
      return true;
    }
  }
  return false;
}

std::string NVXx_PBEnumDescriptor::textFormatNameForEnumValue(int32_t number) const {
  const NVXx_PBEnumValueDescriptor* value = enumValueWithNumber(number);
  if (!value || value->name().size() <= _name.size()) return {};
  const std::string_view own = std::string_view(value->name()).substr(_name.size());
  if (_extraTextFormatInfo) {
    const std::string_view info(_extraTextFormatInfo,
                                static_cast<size_t>(_extraTextFormatEnd - _extraTextFormatInfo));
    std::string decoded =
        NVXx_PBDecodeTextFormatName(info, static_cast<int32_t>(value - _values.data()), own);
    if (!decoded.empty()) return decoded;
  }
  std::string result;
  for (size_t i = 0; i < own.size(); ++i) {
    if (i && isUpper(own[i])) result += '_';
    result += upper(own[i]);
  }
  return result;
}

// Fields.

NVXx_PBFieldDescriptor::NVXx_PBFieldDescriptor(const PBClass& messageClass, uint32_t index)
    : _class(messageClass), _index(index) {
  const char* name = messageClass.infos[index].name;
  _getSel = SelFromStrings("", name, false);
  _setSel = SelFromStrings("set", name, true);
  _hasSel = SelFromStrings("has", name, false);
  _setHasSel = SelFromStrings("setHas", name, true);
}

NVXx_PBFieldDescriptor::~NVXx_PBFieldDescriptor() = default;

NVXx_PBType NVXx_PBFieldDescriptor::type() const { return _class.entries[_index].type; }
uint32_t NVXx_PBFieldDescriptor::hasIndex() const { return _class.entries[_index].has; }
uint32_t NVXx_PBFieldDescriptor::number() const { return _class.entries[_index].number(); }
size_t NVXx_PBFieldDescriptor::offset() const { return _class.entries[_index].offset; }
uint32_t NVXx_PBFieldDescriptor::tag() const { return _class.entries[_index].tag; }
std::string NVXx_PBFieldDescriptor::name() const { return _class.infos[_index].name; }
bool NVXx_PBFieldDescriptor::hasDefaultValue() const { return _class.infos[_index].hasDefault; }
bool NVXx_PBFieldDescriptor::isRequired() const { return _class.entries[_index].flags & PBFieldRequired; }
bool NVXx_PBFieldDescriptor::isOptional() const { return !isRequired() && !isRepeated(); }
bool NVXx_PBFieldDescriptor::isRepeated() const { return _class.entries[_index].isRepeated(); }
bool NVXx_PBFieldDescriptor::isPackable() const { return _class.entries[_index].isPacked(); }
bool NVXx_PBFieldDescriptor::isMessage() const { return _class.entries[_index].isMessage(); }

uint32_t NVXx_PBFieldDescriptor::flags() const {
  const uint8_t flags = _class.entries[_index].flags;
  return (isRequired() ? 0x2U : 0) | (isRepeated() ? 0x4U : 0) | (isPackable() ? 0x8U : 0) |
         (isOptional() ? 0x10U : 0) | (hasDefaultValue() ? 0x100000U : 0) |
         (flags & PBFieldTextFormat ? 0x200000U : 0) | (flags & PBFieldEnumDescriptor ? 0x400000U : 0);
}

const NVXx_PBEnumDescriptor* NVXx_PBFieldDescriptor::enumDescriptor() const {
  if (!(_class.entries[_index].flags & PBFieldEnumDescriptor)) return nullptr;
  return &_class.infos[_index].enumDescriptor();
}

bool NVXx_PBFieldDescriptor::isValidEnumValue(int32_t value) const {
  return NVXx_PBTypeIsEnum(type()) && _class.infos[_index].enumDescriptor().isValidValue(value);
}

const PBClass* NVXx_PBFieldDescriptor::msgClass() const {
  return isMessage() ? &_class.infos[_index].messageClass() : nullptr;
}

PBBoxedValue NVXx_PBFieldDescriptor::defaultValue() const {
  if (isRepeated()) return {};
  if (isMessage())
    throw Exception("NSInternalInconsistencyException", "-defaultValue called for a message field");
  const PBFieldInfo& info = _class.infos[_index];
  if (!NVXx_PBTypeIsObject(type())) return pbBoxedScalar(type(), info.defaultValue);
  const Data bytes = info.defaultBytes ? info.defaultBytes : NVXx_PBEmptyNSData();
  if (type() == NVXx_PBType::Data) return PBObject(bytes);
  return PBObject(NVXx_PBString::sharing(bytes));
}

std::string NVXx_PBFieldDescriptor::textFormatName() const {
  std::string name = _class.infos[_index].name;
  if (_class.entries[_index].flags & PBFieldTextFormat) {
    if (!_class.textFormat) return {};
    const PBBlockBytes info(_class.textFormat);
    return NVXx_PBDecodeTextFormatName({info.bytes, info.length}, static_cast<int32_t>(number()), name);
  }
  if (isRepeated()) cutEnd(name, "Array");
  cutEnd(name, "_p");
  if (type() == NVXx_PBType::Group) {
    if (!name.empty()) name[0] = upper(name[0]);
    return name;
  }
  std::string result;
  for (size_t i = 0; i < name.size(); ++i) {
    if (i && isUpper(name[i])) {
      result += '_';
      result += lower(name[i]);
    } else {
      result += name[i];
    }
  }
  return result;
}

const NVXx_PBFieldOptions* NVXx_PBFieldDescriptor::fieldOptions() const {
  if (_optionsAreParsed.load(std::memory_order_acquire)) return _fieldOptions.load(std::memory_order_relaxed);
  const std::lock_guard<std::recursive_mutex> hold(pbSchemaLock());
  if (!_optionsAreParsed.load(std::memory_order_relaxed)) {
    const PBFieldInfo& info = _class.infos[_index];
    if (info.options != PBNone) {
      const PBFileAccess::Tables tables(PBFileAccess::header(*info.file));
      const PBBlockBytes block(tables.bytes + info.options);
      if (block.length) {
        Ref<NVXx_PBFieldOptions> options = NVXx_PBFieldOptions::parseFromData(
            Data::copy(block.bytes, block.length), &info.file->extensionRegistry(), nullptr);
        _fieldOptions.store(options.take(), std::memory_order_relaxed);
      }
    }
    _optionsAreParsed.store(true, std::memory_order_release);
  }
  return _fieldOptions.load(std::memory_order_relaxed);
}

// Messages.

NVXx_PBDescriptor::NVXx_PBDescriptor(const PBClass& messageClass) : _class(messageClass) {
  for (uint32_t i = 0; i < messageClass.fieldCount; ++i) {
    _fields.push_back(std::make_unique<const NVXx_PBFieldDescriptor>(messageClass, i));
  }
  for (uint32_t i = 0; i < messageClass.rangeCount; ++i) {
    _extensionRanges.emplace_back(messageClass.ranges[i].start, messageClass.ranges[i].end);
  }
}

const NVXx_PBDescriptor* PBFileAccess::buildDescriptor(const PBClass& messageClass) {
  auto* result = new NVXx_PBDescriptor(messageClass);
  const Tables tables(header(*messageClass.file));
  const PBMessageEntry& entry = tables.messages[messageClass.index];
  for (uint32_t i = 0; i < entry.sideCount; ++i) {
    const PBSideEntry& side = tables.sides[entry.firstSide + i];
    if (side.field == PBSideOfMessage && side.kind == PBSideNestedEnum) {
      result->_enums.push_back(&enumForReference(*messageClass.file, side.value));
    }
  }
  return result;
}

const std::string& NVXx_PBDescriptor::name() const { return _class.name; }
size_t NVXx_PBDescriptor::storageSize() const { return _class.storageSize; }
bool NVXx_PBDescriptor::isWireFormat() const { return _class.isMessageSet; }

const NVXx_PBFieldDescriptor* NVXx_PBDescriptor::fieldWithNumber(uint32_t number) const {
  for (const auto& field : _fields) {
    if (field->number() == number) return field.get();
  }
  return nullptr;
}

const NVXx_PBFieldDescriptor* NVXx_PBDescriptor::fieldWithName(std::string_view name) const {
  for (const auto& field : _fields) {
    if (field->getSel() == name) return field.get();
  }
  return nullptr;
}

const NVXx_PBEnumDescriptor* NVXx_PBDescriptor::enumWithName(std::string_view name) const {
  for (const NVXx_PBEnumDescriptor* found : _enums) {
    if (found->name() == name) return found;
  }
  return nullptr;
}

const NVXx_PBExtensionDescriptor* NVXx_PBDescriptor::extensionWithNumber(int32_t number) const {
  for (const NVXx_PBExtensionDescriptor* extension : _extensions) {
    if (extension->fieldNumber() == number) return extension;
  }
  return nullptr;
}

const NVXx_PBExtensionDescriptor* NVXx_PBDescriptor::extensionWithName(std::string_view name) const {
  for (const NVXx_PBExtensionDescriptor* extension : _extensions) {
    if (extension->singletonName() == name) return extension;
  }
  return nullptr;
}

}  // namespace nvxcore
