#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/messagegen/Diagnostics.h"
#include "tools/messagegen/Model.h"

namespace nvxcore::messagegen {

/// The constant table of one file as the runtime reads it (nvxcore/message/NVXx_PBTable.h has the rules):
/// plain numbers, here still apart by kind, and what of other files it refers to.
struct Tables {
  struct MessageEntry {
    uint32_t names = 0;
    uint32_t firstField = 0;
    uint32_t firstSide = 0;
    size_t fieldCount = 0;
    size_t sideCount = 0;
    size_t firstRange = 0;
    size_t rangeCount = 0;
    uint32_t storageSize = 0;
    bool isMessageSet = false;
  };
  struct FieldEntry {
    const Field* field = nullptr;
    bool hasTextFormat = false;
  };
  enum class SideKind : uint8_t { Number, Class, Enum, Default, Options, TextFormat, NestedEnum };
  struct SideEntry {
    /// The index within the message, or that of the message as a whole.
    uint32_t field = 0;
    SideKind kind = SideKind::Number;
    uint32_t value = 0;
  };
  static constexpr uint32_t kSideOfMessage = 0xFFFF;
  struct EnumEntry {
    uint32_t names = 0;
    uint32_t numbers = 0;
    uint32_t textFormat = 0;
    bool hasTextFormat = false;
    size_t valueCount = 0;
    size_t rangeCount = 0;
    bool hasNames = false;
    bool listsValid = false;
  };
  struct ExtensionEntry {
    const Field* field = nullptr;
    uint32_t names = 0;
    uint32_t defaultValue = 0;
    bool hasDefault = false;
    uint32_t extendedClass = 0;
    uint32_t valueType = 0;
  };

  std::vector<const Message*> messages;
  std::vector<const Enum*> enums;
  /// In the order of the source.
  std::vector<const Field*> extensions;

  std::vector<MessageEntry> messageEntries;
  std::vector<FieldEntry> fieldEntries;
  std::vector<SideEntry> sideEntries;
  std::vector<std::pair<uint32_t, uint32_t>> ranges;
  std::vector<EnumEntry> enumEntries;
  std::vector<ExtensionEntry> extensionEntries;
  std::vector<int32_t> numbers;
  /// Texts that each end in a NUL, in runs as they belong together.
  std::vector<std::string> names;
  uint32_t nameSize = 0;
  std::vector<std::string> bytes;
  uint32_t byteSize = 0;

  /// What stands behind the own ones in class references, enum references and imports.
  std::vector<const Message*> foreignMessages;
  std::vector<const Enum*> foreignEnums;

  std::map<const Message*, uint32_t> messageIndex;
  std::map<const Enum*, uint32_t> enumIndex;
  std::map<const Field*, uint32_t> extensionIndex;
};

/// True where the values that an enum's descriptor lists are all its valid numbers: these have no names, and
/// are not too many to list.
bool listsValidNumbers(const Enum& enumeration);

/// Builds the table of a resolved file. What the table's formats do not hold is an error.
Tables buildTables(const File& file, Diagnostics& diagnostics);

}  // namespace nvxcore::messagegen
