#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBCodedOutputStream;
class NVXx_PBMutableField;
class NVXx_PBUnknownFieldSet;

/// The values of one number that a parser could not place, by wire type. Lists are null until they are used.
/// Sets share fields, so that a change shows in all of them. Any number of threads may read; a writer is
/// alone.
class NVXCORE_EXPORT NVXx_PBField {
 public:
  NVXx_PBField(const NVXx_PBField&) = delete;
  NVXx_PBField& operator=(const NVXx_PBField&) = delete;
  void retain() const { _references.fetch_add(1, std::memory_order_relaxed); }
  void release() const;

  int32_t number() const { return _number; }
  const NVXx_PBArray* varintList() const { return _varintList.get(); }                    // UInt64
  const NVXx_PBArray* fixed32List() const { return _fixed32List.get(); }                  // UInt32
  const NVXx_PBArray* fixed64List() const { return _fixed64List.get(); }                  // UInt64
  const NVXx_PBArray* lengthDelimitedList() const { return _lengthDelimitedList.get(); }  // Data
  const NVXx_PBArray* groupList() const { return _groupList.get(); }                      // sets

  void writeToOutput(NVXx_PBCodedOutputStream& output) const;
  size_t serializedSize() const;
  void writeAsMessageSetExtensionToOutput(NVXx_PBCodedOutputStream& output) const;
  size_t serializedSizeAsMessageSetExtension() const;

  /// The numbers are not compared.
  bool isEqual(const NVXx_PBField* other) const;
  size_t hash() const;
  std::string description() const;

 protected:
  friend class NVXx_PBMutableField;
  friend struct PBUnknownAccess;
  explicit NVXx_PBField(int32_t number) : _number(number) {}
  ~NVXx_PBField();

  mutable std::atomic<uint32_t> _references{1};
  int32_t _number;
  Ref<NVXx_PBMutableArray> _varintList;
  Ref<NVXx_PBMutableArray> _fixed32List;
  Ref<NVXx_PBMutableArray> _fixed64List;
  Ref<NVXx_PBMutableArray> _lengthDelimitedList;
  Ref<NVXx_PBMutableArray> _groupList;
};

/// A field that can change.
class NVXCORE_EXPORT NVXx_PBMutableField : public NVXx_PBField {
 public:
  static Ref<NVXx_PBMutableField> fieldWithNumber(int32_t number);

  void mergeFromField(const NVXx_PBField& other);
  void addVarint(uint64_t value);
  void addFixed32(uint32_t value);
  void addFixed64(uint64_t value);
  /// Nothing starts a list as its absent element, and throws NSInvalidArgumentException on one that exists.
  void addLengthDelimited(const Data& value);
  void addGroup(const Ref<NVXx_PBUnknownFieldSet>& value);

 private:
  friend struct PBUnknownAccess;
  friend class NVXx_PBField;
  using NVXx_PBField::NVXx_PBField;
};

}  // namespace nvxcore
