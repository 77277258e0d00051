#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/message/NVXx_PBTypes.h"
#include "tools/messagegen/Lexer.h"

/// What a source says: first as the parser reads it, then filled in by the resolver.
namespace nvxcore::messagegen {

struct File;
struct Message;
struct Enum;

/// The runtime's own list: its numbers stand in the tables.
using FieldType = NVXx_PBType;

enum class Label : uint8_t { Optional, Required, Repeated };

inline constexpr int64_t kMaximumFieldNumber = 536870911;
/// Of a message set, whose extensions' numbers do not stand in tags.
inline constexpr int64_t kMaximumMessageSetNumber = 2147483646;

/// A name as it was written, with its place.
struct Name {
  std::string text;
  Position at;
};

struct AggregateField;

struct OptionValue {
  enum class Kind : uint8_t { Identifier, Integer, Float, String, Aggregate };
  Kind kind = Kind::Identifier;
  Position at;
  bool negative = false;
  bool overflow = false;
  /// The magnitude of an integer.
  uint64_t integer = 0;
  /// The magnitude of a float, or of an integer as one.
  double number = 0;
  /// The identifier, or the bytes of a string.
  std::string text;
  std::vector<AggregateField> fields;
};

/// One entry of a value in braces.
struct AggregateField {
  Name name;
  /// The name stood in brackets: an extension.
  bool isExtension = false;
  /// Several where the entry had a list.
  std::vector<OptionValue> values;
};

struct OptionNamePart {
  Name name;
  /// The part stood in parentheses.
  bool isExtension = false;
};

struct Option {
  std::vector<OptionNamePart> name;
  OptionValue value;

  const Position& at() const { return name.front().name.at; }
};

/// Numbers of an enum, extension range or reservation: both ends belong to it.
struct Range {
  int64_t first = 0;
  int64_t last = 0;
  Position at;
  /// The end was written as "max".
  bool toMax = false;
};

struct EnumValue {
  Name name;
  int32_t number = 0;
  std::vector<Option> options;
  Comment comment;
  /// As in `StringPiece`: what the runtime's table calls it.
  std::string emittedName;
};

struct Enum {
  Name name;
  std::vector<EnumValue> values;
  std::vector<Option> options;
  std::vector<Range> reservedRanges;
  std::vector<Name> reservedNames;
  Comment comment;
  File* file = nullptr;
  Message* parent = nullptr;

  bool allowsAlias = false;
  /// Of `valid`: in ascending order and apart; empty where the enum has none, and its values are the valid
  /// numbers.
  std::vector<Range> valid;
  std::string emittedName;
};

struct Field {
  Name name;
  Label label = Label::Optional;
  Position labelAt;
  int64_t number = 0;
  Position numberAt;
  FieldType type = FieldType::Int32;
  /// Set where the type is not built in.
  Name typeName;
  /// Set for an extension.
  Name extendeeName;
  std::vector<Option> options;
  Comment comment;
  File* file = nullptr;
  /// The message that the declaration stands in; none for an extension at the top of a file.
  Message* scope = nullptr;

  /// The extended message.
  Message* extendee = nullptr;
  Message* message = nullptr;
  Enum* enumeration = nullptr;
  bool isPacked = false;
  bool hasDefault = false;
  /// Of a scalar or enum: two's complement, or the bits of a float or double.
  uint64_t defaultBits = 0;
  /// Of a string or data.
  std::string defaultBytes;
  /// The serialised field options; empty where there are none.
  std::string serialisedOptions;
  /// The base name of the accessors.
  std::string accessor;
  bool hasExplicitAccessor = false;
  int64_t hasIndex = -1;
  Position hasIndexAt;
  uint32_t offset = 0;

  bool isExtension() const { return !extendeeName.text.empty(); }
  bool isRepeated() const { return label == Label::Repeated; }
};

/// A field number that is gone, and the has-index that stays with it: none told is -1.
struct Retired {
  int64_t number = 0;
  int64_t hasIndex = -1;
  Position at;
  Position hasIndexAt;
};

struct Message {
  Name name;
  std::vector<std::unique_ptr<Field>> fields;
  std::vector<std::unique_ptr<Field>> extensions;
  std::vector<std::unique_ptr<Message>> messages;
  std::vector<std::unique_ptr<Enum>> enums;
  /// In ascending order once they are checked.
  std::vector<Range> extensionRanges;
  std::vector<Range> reservedRanges;
  std::vector<Name> reservedNames;
  std::vector<Option> options;
  Comment comment;
  File* file = nullptr;
  Message* parent = nullptr;
  /// The entry of a map, or a group: declared by a field.
  bool isMapEntry = false;
  bool isGroup = false;

  bool isMessageSet = false;
  std::string className;
  std::vector<Retired> retired;
  /// In ascending order of numbers.
  std::vector<Field*> sortedFields;
  uint32_t hasWordCount = 0;
  uint32_t storageSize = 0;
  /// The text-format information; empty where every name can be rebuilt.
  std::string textFormatInfo;
  std::vector<bool> textFormatFlags;
};

struct Import {
  Name path;
  bool isPublic = false;
  File* file = nullptr;
};

struct File {
  /// As imports write it, with "/" between folders.
  std::string path;
  uint32_t number = 0;
  std::string source;
  Name package;
  std::vector<Import> imports;
  std::vector<std::unique_ptr<Message>> messages;
  std::vector<std::unique_ptr<Enum>> enums;
  std::vector<std::unique_ptr<Field>> extensions;
  std::vector<Option> options;
  Comment comment;

  std::string classPrefix;
  std::string enumPrefix;
  std::string rootName;
  /// Of the generated code, its parts joined by "::".
  std::string cppNamespace = "nvxcore";
  bool enumValueNames = false;
};

}  // namespace nvxcore::messagegen
