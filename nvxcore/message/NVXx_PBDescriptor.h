#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/message/NVXx_PBEnumDescriptor.h"
#include "nvxcore/message/NVXx_PBExtensionField.h"
#include "nvxcore/message/NVXx_PBTypes.h"
#include "nvxcore/message/NVXx_PBValue.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBFieldOptions;
struct PBClass;

/// A range of numbers that extensions of a message may have.
class NVXCORE_EXPORT NVXx_PBExtensionRange {
 public:
  NVXx_PBExtensionRange(uint32_t start, uint32_t end) : _start(start), _end(end) {}
  uint32_t start() const { return _start; }  // inclusive
  uint32_t end() const { return _end; }      // exclusive

 private:
  uint32_t _start;
  uint32_t _end;
};

/// A field of a message class. Never changes; any thread.
class NVXCORE_EXPORT NVXx_PBFieldDescriptor {
 public:
  NVXx_PBFieldDescriptor(const PBClass& messageClass, uint32_t index);
  NVXx_PBFieldDescriptor(const NVXx_PBFieldDescriptor&) = delete;
  NVXx_PBFieldDescriptor& operator=(const NVXx_PBFieldDescriptor&) = delete;
  ~NVXx_PBFieldDescriptor();

  NVXx_PBType type() const;
  uint32_t hasIndex() const;
  uint32_t number() const;
  size_t offset() const;
  uint32_t tag() const;
  std::string name() const;
  bool hasDefaultValue() const;
  bool isRequired() const;
  bool isOptional() const;
  bool isRepeated() const;
  bool isPackable() const;
  bool isMessage() const;
  /// The told bits: 0x2 required, 0x4 repeated, 0x8 packable, 0x10 optional, 0x100000 explicit default,
  /// 0x200000 extra text-format information, 0x400000 enum descriptor.
  uint32_t flags() const;
  /// Null unless it is an Enum whose enum has a descriptor.
  const NVXx_PBEnumDescriptor* enumDescriptor() const;
  bool isValidEnumValue(int32_t value) const;
  /// Nothing for a repeated field; a message field throws NSInternalInconsistencyException.
  PBBoxedValue defaultValue() const;
  /// The name in the schema; empty where it can't be told.
  std::string textFormatName() const;
  /// Names of the accessors; those that take a value end in a colon.
  const std::string& getSel() const { return _getSel; }
  const std::string& setSel() const { return _setSel; }
  const std::string& hasSel() const { return _hasSel; }
  const std::string& setHasSel() const { return _setHasSel; }
  /// Null where there are none or they don't parse. Parsed at first use.
  const NVXx_PBFieldOptions* fieldOptions() const;
  /// The class of a Message or Group; else null.
  const PBClass* msgClass() const;

  const PBClass& classOfField() const { return _class; }
  uint32_t index() const { return _index; }

 private:
  const PBClass& _class;
  const uint32_t _index;
  std::string _getSel;
  std::string _setSel;
  std::string _hasSel;
  std::string _setHasSel;
  mutable std::atomic<const NVXx_PBFieldOptions*> _fieldOptions{nullptr};
  mutable std::atomic<bool> _optionsAreParsed{false};
};

inline uint32_t NVXx_PBFieldNumber(const NVXx_PBFieldDescriptor& field) { return field.number(); }
inline NVXx_PBType NVXx_PBFieldType(const NVXx_PBFieldDescriptor& field) { return field.type(); }
inline uint32_t NVXx_PBFieldHasIndex(const NVXx_PBFieldDescriptor& field) { return field.hasIndex(); }
inline uint32_t NVXx_PBFieldTag(const NVXx_PBFieldDescriptor& field) { return field.tag(); }

/// A message class as its table tells it: built at first use, kept for the life of the process. Look-ups are
/// linear, in the table's order, and answer null when there is nothing. Any thread.
class NVXCORE_EXPORT NVXx_PBDescriptor {
 public:
  using Fields = std::vector<std::unique_ptr<const NVXx_PBFieldDescriptor>>;

  explicit NVXx_PBDescriptor(const PBClass& messageClass);
  NVXx_PBDescriptor(const NVXx_PBDescriptor&) = delete;
  NVXx_PBDescriptor& operator=(const NVXx_PBDescriptor&) = delete;

  const std::string& name() const;
  const PBClass& messageClass() const { return _class; }
  /// Ascending by number; empty for a message without fields.
  const Fields& fields() const { return _fields; }
  const std::vector<const NVXx_PBEnumDescriptor*>& enums() const { return _enums; }
  const std::vector<const NVXx_PBExtensionDescriptor*>& extensions() const { return _extensions; }
  const std::vector<NVXx_PBExtensionRange>& extensionRanges() const { return _extensionRanges; }
  size_t storageSize() const;
  bool isWireFormat() const;

  const NVXx_PBFieldDescriptor* fieldWithNumber(uint32_t number) const;
  const NVXx_PBFieldDescriptor* fieldWithName(std::string_view name) const;
  const NVXx_PBEnumDescriptor* enumWithName(std::string_view name) const;
  const NVXx_PBExtensionDescriptor* extensionWithNumber(int32_t number) const;
  const NVXx_PBExtensionDescriptor* extensionWithName(std::string_view name) const;

 private:
  friend struct PBFileAccess;
  const PBClass& _class;
  Fields _fields;
  std::vector<const NVXx_PBEnumDescriptor*> _enums;
  std::vector<const NVXx_PBExtensionDescriptor*> _extensions;
  std::vector<NVXx_PBExtensionRange> _extensionRanges;
};

/// An accessor's name: prefix and field name, its first letter upper-cased, with a colon where it takes a
/// value.
NVXCORE_EXPORT std::string SelFromStrings(std::string_view prefix, std::string_view name, bool takesArgument);
/// The one empty byte buffer that Data fields without a default give.
NVXCORE_EXPORT Data NVXx_PBEmptyNSData();
/// The schema's name by a program of text-format information; empty where there is none for the key. Throws
/// NSParseErrorException on an endless varint.
NVXCORE_EXPORT std::string NVXx_PBDecodeTextFormatName(std::string_view info, int32_t key,
                                                       std::string_view inputName);

}  // namespace nvxcore
