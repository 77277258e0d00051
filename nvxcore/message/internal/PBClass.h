#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "nvxcore/message/NVXx_PBEnumDescriptor.h"
#include "nvxcore/message/NVXx_PBFile.h"
#include "nvxcore/message/NVXx_PBTable.h"
#include "nvxcore/message/NVXx_PBValue.h"
#include "nvxcore/platform/Data.h"

namespace nvxcore {

class NVXx_PBDescriptor;

/// What the walks of the parser and the writer look at of a field: 16 bytes, in order of number.
struct PBEntry {
  uint32_t tag;         // number and wire type, 2 for a packed field
  uint32_t encodedTag;  // the tag's varint in the order of memory, for tags of up to four bytes
  uint16_t offset;
  uint16_t has;
  NVXx_PBType type;
  uint8_t flags;    // PBField…
  uint8_t op;       // what the parser's loop does: the type of what it reads itself, or one of kPBOp…
  uint8_t tagSize;  // bytes of the encoded tag

  uint32_t number() const { return tag >> 3; }
  bool isRepeated() const { return flags & PBFieldRepeated; }
  bool isPacked() const { return flags & PBFieldPacked; }
  bool isObject() const { return isRepeated() || NVXx_PBTypeIsObject(type); }
  bool isMessage() const { return NVXx_PBTypeIsMessage(type); }
};
static_assert(sizeof(PBEntry) == 16);

inline constexpr uint8_t kPBOpSlow = kPBTypeCount;         // a field that is read elsewhere
inline constexpr uint8_t kPBOpUnknown = kPBTypeCount + 1;  // no field

/// The rest that is known of a field.
struct PBFieldInfo {
  const PBFile* file = nullptr;
  const char* name = nullptr;
  uint32_t reference = 0;  // of the class or the enum
  uint32_t options = PBNone;
  bool hasDefault = false;
  PBValue defaultValue;  // of a scalar
  Data defaultBytes;     // of a String or Data with an explicit default

  const PBClass& messageClass() const {
    const PBClass* found = _class.load(std::memory_order_acquire);
    return found ? *found : findClass();
  }
  const NVXx_PBEnumDescriptor& enumDescriptor() const {
    const NVXx_PBEnumDescriptor* found = _enum.load(std::memory_order_acquire);
    return found ? *found : findEnum();
  }

 private:
  const PBClass& findClass() const;
  const NVXx_PBEnumDescriptor& findEnum() const;
  mutable std::atomic<const PBClass*> _class{nullptr};
  mutable std::atomic<const NVXx_PBEnumDescriptor*> _enum{nullptr};
};

/// A message class at run time: built at first use, kept for the life of the process.
struct PBClass {
  const PBEntry* entries = nullptr;  // there is one before the first, that stands for no field
  const uint8_t* byTag = nullptr;    // the index + 1 of the field of each tag of one byte, 0 for none
  uint32_t fieldCount = 0;
  uint32_t directCount = 0;          // numbers that `direct` covers
  const uint16_t* direct = nullptr;  // the index + 1 of the field with a number, 0 for none
  const PBFieldInfo* infos = nullptr;
  uint32_t storageSize = 0;
  uint32_t plainSize = 0;   // bytes of a message with its header
  uint32_t parsedSize = 0;  // with the room for slices that a parsed one has
  uint32_t sliceCount = 0;
  bool hasChildren = false;           // fields of messages or groups
  const uint16_t* objects = nullptr;  // indexes of the fields whose slot is a reference
  uint32_t objectCount = 0;
  const uint16_t* bytesOffsets = nullptr;  // of the slots of singular strings and data
  uint32_t bytesCount = 0;
  const uint16_t* owners = nullptr;  // indexes of the fields with other references
  uint32_t ownerCount = 0;
  // The indexes of the fields by their has-index, where these are in the order of the fields; else null.
  const uint16_t* byHas = nullptr;
  uint32_t hasWords = 0;
  uint32_t scalarBound = 0;  // bytes that all singular scalars take at most
  bool isMessageSet = false;
  const PBRangeEntry* ranges = nullptr;
  uint32_t rangeCount = 0;
  const PBFile* file = nullptr;
  uint32_t index = 0;
  const char* textFormat = nullptr;  // the block of text-format information
  std::string name;
  mutable std::atomic<const NVXx_PBDescriptor*> descriptor{nullptr};

  const NVXx_PBDescriptor& descriptorOfClass() const;
};

/// Reads the tables of a file.
struct PBFileAccess {
  static const PBFileHeader& header(const PBFile& file);
  template <class T>
  static const T* after(const void* start, size_t skip) {
    return reinterpret_cast<const T*>(static_cast<const char*>(start) + skip);
  }
  struct Tables {
    explicit Tables(const PBFileHeader& header);
    const PBMessageEntry* messages;
    const PBFieldEntry* fields;
    const PBSideEntry* sides;
    const PBRangeEntry* ranges;
    const PBEnumEntry* enums;
    const PBExtensionEntry* extensions;
    const int32_t* numbers;
    const char* names;
    const char* bytes;
  };
  static const PBClass& classForReference(const PBFile& file, uint32_t reference);
  static const NVXx_PBEnumDescriptor& enumForReference(const PBFile& file, uint32_t reference);
  static const NVXx_PBDescriptor* buildDescriptor(const PBClass& messageClass);
  static PBFile::State* makeState(const PBFile& file, const PBFileHeader* tables, PBLinkFunction link);
  static PBClass* buildClass(const PBFile& file, uint32_t index);
  static NVXx_PBEnumDescriptor* buildEnum(const PBFile& file, uint32_t index);
  static PBValue scalarDefault(const Tables& tables, NVXx_PBType type, uint32_t value);
  static Data block(const Tables& tables, uint32_t reference);
  static PBFile::Rest& rest(const PBFile& file);
};

/// The one lock under which classes, enums, extensions and registries are built.
std::recursive_mutex& pbSchemaLock();

/// The bytes of a block of a table, which is a 32-bit big-endian length and what follows.
struct PBBlockBytes {
  explicit PBBlockBytes(const char* block);
  const char* bytes;
  uint32_t length;
};

}  // namespace nvxcore
