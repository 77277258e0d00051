#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "nvxcore/message/NVXx_PBField.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBCodedInputStream;

/// What a parser read and could not place, by field number, in the order in which the numbers came. Any
/// number of threads may read; a writer is alone.
class NVXCORE_EXPORT NVXx_PBUnknownFieldSet {
 public:
  static Ref<NVXx_PBUnknownFieldSet> set();
  /// Shares the fields of another set.
  static Ref<NVXx_PBUnknownFieldSet> setWithFields(const NVXx_PBUnknownFieldSet& other);
  NVXx_PBUnknownFieldSet(const NVXx_PBUnknownFieldSet&) = delete;
  NVXx_PBUnknownFieldSet& operator=(const NVXx_PBUnknownFieldSet&) = delete;
  void retain() const { _references.fetch_add(1, std::memory_order_relaxed); }
  void release() const;
  Ref<NVXx_PBUnknownFieldSet> copy() const { return setWithFields(*this); }
  Ref<NVXx_PBUnknownFieldSet> mutableCopy() const { return setWithFields(*this); }

  bool hasField(int32_t number) const { return find(number) != nullptr; }
  /// Null when there is none.
  NVXx_PBField* getField(int32_t number) const;
  size_t countOfFields() const { return _fields.size(); }
  /// Ascending by number.
  std::vector<NVXx_PBField*> sortedFields() const;
  /// The numbers, in the set's order; there are countOfFields of them.
  void getTags(int32_t* tags) const;

  /// Replaces any field of its number. The number 0 throws NSInvalidArgumentException; so do the next ones.
  void addField(const Ref<NVXx_PBMutableField>& field);
  NVXx_PBMutableField* getFieldBuilder(int32_t number, bool create);
  /// Merges into the field of its number, or keeps the object itself.
  void mergeField(const Ref<NVXx_PBMutableField>& field);
  void mergeUnknownFields(const NVXx_PBUnknownFieldSet& other);
  void mergeVarintField(int32_t number, int32_t value);
  void mergeMessageSetMessage(int32_t number, const Data& data);

  /// Reads the field of a tag that was just read. False, with nothing read, for wire types 4, 6 and 7.
  bool mergeFieldFrom(uint32_t tag, NVXx_PBCodedInputStream& input);
  /// To the end or to an end-group tag.
  void mergeFromCodedInputStream(NVXx_PBCodedInputStream& input);
  void mergeFromData(const Data& data);
  /// False for an end-group tag.
  static bool isFieldTag(int32_t tag) { return (tag & 7) != 4; }

  /// Ascending by number.
  void writeToCodedOutputStream(NVXx_PBCodedOutputStream& output) const;
  /// The set's own order; only length-delimited values are written.
  void writeAsMessageSetTo(NVXx_PBCodedOutputStream& output) const;
  Data data() const;
  size_t serializedSize() const;
  size_t serializedSizeAsMessageSet() const;

  bool isEqual(const NVXx_PBUnknownFieldSet* other) const;
  size_t hash() const;
  std::string description() const;

 private:
  friend struct PBUnknownAccess;
  NVXx_PBUnknownFieldSet() = default;
  ~NVXx_PBUnknownFieldSet() = default;
  NVXx_PBMutableField* find(int32_t number) const;
  void put(Ref<NVXx_PBMutableField> field);
  void enter(uint64_t entry);
  void index();

  mutable std::atomic<uint32_t> _references{1};
  bool _hasDictionary = false;  // a field was added at some time
  std::vector<Ref<NVXx_PBMutableField>> _fields;
  // Open addressing, once there are more than a few: the number in the upper half, below it the index + 1.
  std::vector<uint64_t> _table;
};

}  // namespace nvxcore
