#pragma once

#include <cstddef>
#include <cstdint>

#include "nvxcore/message/NVXx_PBTypes.h"

// The constant tables that the message generator writes, one for each schema file, and that the runtime reads
// at first use. A table is one object of plain numbers and characters: no pointers, so no relocations, and no
// code that runs when the program starts.
//
//   constexpr struct {
//     PBFileHeader header;
//     PBMessageEntry messages[N];      // each array only where its count is not 0,
//     PBFieldEntry fields[N];          // always in this order
//     PBSideEntry sides[N];
//     PBRangeEntry ranges[N];
//     PBEnumEntry enums[N];
//     PBExtensionEntry extensions[N];
//     int32_t numbers[N];
//     char names[N];                   // never empty: the root's name is in it
//     char bytes[N];
//   } kTables = {...};
//   static_assert(offsetof(Tables, names) == PBNamesOffset(kTables.header));
//
// Indexes. Messages are numbered in the order of the array `messages`, nested ones included, enums and
// extensions likewise; the order is the generator's choice (depth first, as they stand in the file). A *class
// reference* is the index of a message of this file, or, from messageCount on, messageCount + i for the class
// that the file's link function answers for PBLinkClass and i. An *enum reference* works the same way with
// enumCount and PBLinkEnum.
//
// names. NUL-terminated texts. A reference into it is a byte offset. Offset 0 holds the root class's name. A
// message's run is: class name, then the accessor name of each field in the order of its entries (final form:
// "eventArray", "hash_p"). An enum's run is: the enum's name, then, for an enum with names, each value's name
// without the enum's name in front, as it stands in the accessor style ("Red", "StringPiece"; the full name
// is both joined), in the order of its numbers. An extension's is its singleton name alone.
//
// bytes. Blocks of a 32-bit big-endian length, then that many bytes: defaults of strings and data, serialised
// field options, text-format information. And eight bytes, little-endian, for a 64-bit default. A reference
// is the byte offset of the block's first byte. Blocks need no alignment.
//
// numbers. For an enum: its values' numbers in order of declaration (valueCount of them), then rangeCount
// pairs of first and last (inclusive) valid number, ascending.
//
// Storage of a message: the block begins with the has-bits in 32-bit words, as many as the highest has-index
// used or retired asks for (none for a message without fields). Slots follow: first those of 1 byte (Bool),
// then those of 4 (Fixed32, SFixed32, Float, Int32, SInt32, UInt32, Enum), then those of 8 (64-bit types, and
// one reference for each Data, String, Message, Group and each repeated field of any type). Within a width by
// ascending field number, each slot aligned to its own width, none shared. storageSize is the end of the last
// slot rounded up to a multiple of 8. Offsets count from the start of the block.
//
// Has-indexes: one for each field, repeated ones too. The runtime takes any that are distinct. The generator
// gives the fields without an explicit has_index the free ones, ascending, in order of field number; retired
// numbers keep theirs.

namespace nvxcore {

inline constexpr uint16_t kPBTableFormat = 1;

struct PBFileHeader {
  uint16_t format;  // kPBTableFormat
  uint16_t messageCount;
  uint16_t enumCount;
  uint16_t extensionCount;
  uint16_t rangeCount;
  uint16_t
      importCount;  // imported files whose registries this root's takes in: PBLinkFile, 0 to importCount - 1
  uint32_t fieldCount;
  uint32_t sideCount;
  uint32_t numberCount;
  uint32_t nameSize;  // of `names`, the last NUL included
  uint32_t byteSize;  // of `bytes`; 0 where there is no array
};

/// Flags of a message.
inline constexpr uint16_t PBMessageIsMessageSet = 1;

struct PBMessageEntry {
  uint32_t names;
  uint32_t firstField;  // its fields: fields[firstField] and on, ascending by number
  uint32_t firstSide;   // its side entries: ascending by (field, kind)
  uint16_t fieldCount;
  uint16_t sideCount;
  uint16_t firstRange;  // its extension ranges, ascending
  uint16_t rangeCount;
  uint16_t storageSize;  // bytes
  uint16_t flags;
};

/// Flags of a field. One that is neither repeated nor required is optional.
inline constexpr uint8_t PBFieldRepeated = 0x01;
inline constexpr uint8_t PBFieldPacked = 0x02;  // with PBFieldRepeated only; the told flag "packable"
inline constexpr uint8_t PBFieldRequired = 0x04;
inline constexpr uint8_t PBFieldHasDefault =
    0x08;  // an explicit default; a side entry where it isn't all zero bits
inline constexpr uint8_t PBFieldTextFormat = 0x10;  // its text-format name is in the message's information
inline constexpr uint8_t PBFieldEnumDescriptor =
    0x20;  // its enum is found by name; else just the verifier is used
inline constexpr uint8_t PBFieldWideNumber =
    0x40;  // the number doesn't fit: `number` is 0 and a side entry has it

struct PBFieldEntry {
  uint16_t number;
  uint16_t hasIndex;
  uint16_t offset;
  NVXx_PBType type;
  uint8_t flags;
};

/// What a side entry tells of a field. Message, Group and Enum fields always have a PBSideClass or
/// PBSideEnum.
enum PBSideKind : uint16_t {
  PBSideNumber = 0,  // the field number
  PBSideClass = 1,   // Message and Group: the class reference
  PBSideEnum = 2,    // Enum: the enum reference
  PBSideDefault =
      3,  // singular: the value's bits for a type of up to 32 bits, else the reference into `bytes`
  PBSideOptions = 4,  // reference into `bytes`: a serialised NVXx_PBFieldOptions
  // Of the message as a whole, with the field PBSideOfMessage:
  PBSideTextFormat = 5,  // reference into `bytes`
  PBSideNestedEnum =
      6,  // the enum reference of an enum that the descriptor lists (one declared in the message)
};
inline constexpr uint16_t PBSideOfMessage = 0xFFFF;

struct PBSideEntry {
  uint16_t field;  // index within the message's fields, not the number
  PBSideKind kind;
  uint32_t value;
};

struct PBRangeEntry {
  uint32_t start;  // inclusive
  uint32_t end;    // exclusive
};

inline constexpr uint32_t PBNone = 0xFFFFFFFF;

/// Flags of an enum.
inline constexpr uint16_t PBEnumHasNames = 1;    // each value has its name in `names`
inline constexpr uint16_t PBEnumListsValid = 2;  // no valueCount: its values are the valid numbers

struct PBEnumEntry {
  uint32_t names;
  uint32_t numbers;     // index of its first in `numbers`
  uint32_t textFormat;  // reference into `bytes`, or PBNone. Its keys are positions in the value table
  uint16_t valueCount;
  uint16_t rangeCount;  // of ranges of valid numbers; with none, the values' numbers are the valid ones
  uint16_t flags;
  uint16_t unused;
};

/// Options of an extension.
inline constexpr uint16_t PBExtensionRepeated = 0x4;
inline constexpr uint16_t PBExtensionPacked = 0x8;
inline constexpr uint16_t PBExtensionMessageSet = 0x10;
inline constexpr uint16_t PBExtensionHasDefault = 0x100;  // `defaultValue` counts

struct PBExtensionEntry {
  uint32_t names;
  uint32_t number;
  uint32_t defaultValue;   // as PBSideDefault
  uint16_t extendedClass;  // class reference
  uint16_t valueType;      // class reference of a Message or Group, enum reference of an Enum, else 0
  uint16_t options;
  NVXx_PBType type;
  uint8_t unused;
};

static_assert(sizeof(PBFileHeader) == 32 && sizeof(PBMessageEntry) == 24 && sizeof(PBFieldEntry) == 8 &&
              sizeof(PBSideEntry) == 8 && sizeof(PBRangeEntry) == 8 && sizeof(PBEnumEntry) == 20 &&
              sizeof(PBExtensionEntry) == 20);

/// Where `names` begins in a table.
constexpr size_t PBNamesOffset(const PBFileHeader& header) {
  return sizeof(PBFileHeader) + header.messageCount * sizeof(PBMessageEntry) +
         header.fieldCount * sizeof(PBFieldEntry) + header.sideCount * sizeof(PBSideEntry) +
         header.rangeCount * sizeof(PBRangeEntry) + header.enumCount * sizeof(PBEnumEntry) +
         header.extensionCount * sizeof(PBExtensionEntry) + header.numberCount * sizeof(int32_t);
}

/// What a file's link function is asked for: things of other files.
enum PBLink : uint32_t {
  PBLinkClass,  // answers a const PBClass*
  PBLinkEnum,   // answers a const NVXx_PBEnumDescriptor*
  PBLinkFile,   // answers a const PBFile*: imports in the order of the file, those without a root left out
};
/// Null for a file that uses nothing of others.
using PBLinkFunction = const void* (*)(PBLink link, uint32_t index);

}  // namespace nvxcore
