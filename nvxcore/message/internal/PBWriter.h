#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "nvxcore/message/internal/PBMessageAccess.h"

namespace nvxcore {

/// The sizes that a message's writing needs before it gets to what they are of: nested messages and packed
/// runs, in the order of writing. One walk of the whole tree finds them all.
class PBSizes {
 public:
  PBSizes() = default;
  PBSizes(const PBSizes&) = delete;
  PBSizes& operator=(const PBSizes&) = delete;

  /// Bytes of the message in the wire encoding; its parts' sizes are kept.
  uint64_t measure(const NVXx_PBGeneratedMessage& message);
  uint64_t measureField(const NVXx_PBGeneratedMessage& message, const PBEntry& entry);
  uint64_t measureExtension(const PBExtensionValue& value);
  /// The next size, while writing; lengths are cut to 32 bits.
  uint32_t next() { return _sizes[_next++]; }

  /// Messages, fields and arrays that were measured: shows that no part is measured twice.
  uint64_t measured() const { return _measured; }

 private:
  uint64_t measureArray(const PBEntry& entry, const NVXx_PBArray& array);
  uint64_t measureNested(const NVXx_PBGeneratedMessage& message);
  void grow();
  size_t reserve() {
    if (_count == _space) grow();
    return _count++;
  }

  static constexpr uint32_t kFew = 128;
  uint32_t _few[kFew];
  uint32_t* _sizes = _few;
  std::unique_ptr<uint32_t[]> _many;
  size_t _count = 0;
  size_t _space = kFew;
  size_t _next = 0;
  uint64_t _measured = 0;
};

/// The extensions of a message that come at one place of its serialised form, and the fields between them.
class PBFieldOrder {
 public:
  explicit PBFieldOrder(const NVXx_PBGeneratedMessage& message);
  bool hasExtensions() const { return !_sorted.empty(); }
  /// Fields and ranges as two sorted lists: a range goes before a field whose number is at or above its
  /// start.
  template <class FieldHandler, class ExtensionHandler>
  void walk(FieldHandler onField, ExtensionHandler onExtension) const {
    const PBClass& messageClass = *_class;
    uint32_t range = 0;
    for (uint32_t i = 0; i < messageClass.fieldCount; ++i) {
      while (range < messageClass.rangeCount &&
             messageClass.entries[i].number() >= messageClass.ranges[range].start) {
        inRange(messageClass.ranges[range++], onExtension);
      }
      onField(messageClass.entries[i]);
    }
    while (range < messageClass.rangeCount) inRange(messageClass.ranges[range++], onExtension);
  }

 private:
  template <class ExtensionHandler>
  void inRange(const PBRangeEntry& range, ExtensionHandler& handler) const {
    for (const PBExtensionValue* value : _sorted) {
      const auto number = static_cast<uint32_t>(value->field->fieldNumber());
      if (number >= range.start && number < range.end) handler(*value);
    }
  }
  const PBClass* _class;
  std::vector<const PBExtensionValue*> _sorted;
};

/// Writes a measured message to where there is room for it; answers the end.
uint8_t* pbWriteMessage(const NVXx_PBGeneratedMessage& message, PBSizes& sizes, uint8_t* to);
/// A bound of the message's serialised form, or something above `limit`; messages with extensions or unknown
/// fields count as beyond all limits.
size_t pbBound(const NVXx_PBGeneratedMessage& message, size_t limit);
/// Writes a message whose bound is at most kPBSmall, without measuring it before, where there is room for the
/// bound.
inline constexpr size_t kPBSmall = 1024;
uint8_t* pbWriteSmallMessage(const NVXx_PBGeneratedMessage& message, uint8_t* to);
/// The same to a stream.
void pbWriteMessage(const NVXx_PBGeneratedMessage& message, PBSizes& sizes, NVXx_PBCodedOutputStream& stream);
void pbWriteField(const NVXx_PBGeneratedMessage& message, const PBEntry& entry,
                  NVXx_PBCodedOutputStream& stream);
void pbWriteExtension(const PBExtensionValue& value, NVXx_PBCodedOutputStream& stream);
size_t pbExtensionsSize(const NVXx_PBGeneratedMessage& message);
/// A buffer of the pools whose bytes are to be filled in.
PBBlock* pbNewBytes(size_t length, uint8_t*& bytes);

}  // namespace nvxcore
