#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/message/NVXx_PBTypes.h"
#include "nvxcore/message/NVXx_PBValue.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBCodedInputStream;
class NVXx_PBCodedOutputStream;
class NVXx_PBDescriptor;
class NVXx_PBEnumDescriptor;
class NVXx_PBExtensionRegistry;
class NVXx_PBExtensionField;
struct PBClass;

/// What an extension is told to be. Any thread.
class NVXCORE_EXPORT NVXx_PBExtensionDescriptor {
 public:
  explicit NVXx_PBExtensionDescriptor(const NVXx_PBExtensionField& field) : _field(field) {}
  NVXx_PBExtensionDescriptor(const NVXx_PBExtensionDescriptor&) = delete;
  NVXx_PBExtensionDescriptor& operator=(const NVXx_PBExtensionDescriptor&) = delete;

  std::string singletonName() const;
  const char* singletonNameC() const;
  int32_t fieldNumber() const;
  NVXx_PBType type() const;
  bool isRepeated() const;
  bool isPackable() const;
  bool isMessage() const;
  /// The class of a Message or Group; else null.
  const PBClass* msgClass() const;
  /// Null unless the type is Enum.
  const NVXx_PBEnumDescriptor* enumDescriptor() const;

 private:
  const NVXx_PBExtensionField& _field;
};

/// A field that a schema file adds to a message of another: one object for the process, built at first use.
/// Any thread, but a message only as the message allows.
class NVXCORE_EXPORT NVXx_PBExtensionField {
 public:
  /// What the static record tells.
  struct Description {
    const char* singletonName = "";
    NVXx_PBType type = NVXx_PBType::Bool;
    int32_t fieldNumber = 0;
    uint32_t options = 0;  // PBExtension…
    const PBClass* extendedClass = nullptr;
    const PBClass* messageClass = nullptr;
    const NVXx_PBEnumDescriptor* enumDescriptor = nullptr;
    PBValue defaultValue;
    Data defaultBytes;
  };

  explicit NVXx_PBExtensionField(Description description);
  NVXx_PBExtensionField(const NVXx_PBExtensionField&) = delete;
  NVXx_PBExtensionField& operator=(const NVXx_PBExtensionField&) = delete;

  const char* singletonName() const { return _description.singletonName; }
  int32_t fieldNumber() const { return _description.fieldNumber; }
  NVXx_PBType type() const { return _description.type; }
  bool isRepeated() const { return _description.options & 0x4; }
  bool isPackable() const { return _description.options & 0x8; }
  bool isMessageSetExtension() const { return _description.options & 0x10; }
  bool isMessage() const { return NVXx_PBTypeIsMessage(type()); }
  int32_t wireType() const { return NVXx_PBWireFormatForType(type(), isPackable()); }
  const PBClass& containingMessageClass() const { return *_description.extendedClass; }
  const NVXx_PBDescriptor& containingType() const;
  const NVXx_PBExtensionDescriptor& descriptor() const { return _descriptor; }
  const Description& record() const { return _description; }
  std::string description() const;

  /// Nothing for a repeated extension; a message extension throws NSInternalInconsistencyException.
  PBBoxedValue defaultValue() const;
  /// Ascending by number: negative, 0 or positive.
  int compareByFieldNumber(const NVXx_PBExtensionField& other) const;

  /// One value, of which the tag was read. A message is a copy of the existing one with what is read merged
  /// in; nothing for data of a negative length.
  PBBoxedValue readSingleValueFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                                   const NVXx_PBExtensionRegistry* registry,
                                                   const PBBoxedValue& existingValue) const;
  /// What follows a tag into a message of the class that is extended: sets it or adds to it.
  void mergeFromCodedInputStream(NVXx_PBCodedInputStream& stream, const NVXx_PBExtensionRegistry* registry,
                                 NVXx_PBGeneratedMessage& builder);

  // Single values and arrays, with and without tags.
  void writePBValueIncludingTag(PBValue value, NVXx_PBCodedOutputStream& output) const;
  void writePBValueNoTag(PBValue value, NVXx_PBCodedOutputStream& output) const;
  void writePBValuesIncludingTags(const NVXx_PBArray& values, NVXx_PBCodedOutputStream& output) const;
  void writeValueIncludingTag(const PBBoxedValue& value, NVXx_PBCodedOutputStream& output) const;
  size_t computePBSerializedSizeNoTag(PBValue value) const;
  size_t computePBSerializedSizeIncludingTag(PBValue value) const;
  size_t computePBSerializedSizesIncludingTags(const NVXx_PBArray& values) const;
  size_t computeSerializedSizeIncludingTag(const PBBoxedValue& value) const;

 private:
  Description _description;
  NVXx_PBExtensionDescriptor _descriptor;
};

}  // namespace nvxcore
