#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/message/NVXx_PBObject.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/message/NVXx_PBTypes.h"
#include "nvxcore/message/NVXx_PBValue.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_PBMutableArray;

inline constexpr char kPBArrayTypeMismatchException[] = "NVXx_PBArrayTypeMismatchException";
inline constexpr char kPBArrayNumberExpectedException[] = "NVXx_PBArrayNumberExpectedException";
inline constexpr char kPBArrayAllocationFailureException[] = "NVXx_PBArrayAllocationFailureException";
inline constexpr char kRangeException[] = "NSRangeException";
inline constexpr char kGenericException[] = "NSGenericException";

/// A contiguous array of one value type; scalars lie unboxed. This class has the reads, and its objects never
/// change. Typed operations on an array of another type throw NVXx_PBArrayTypeMismatchException, an index at
/// or past the count NSRangeException: reads by index look at the index first, replacements at the type
/// first. Any number of threads may read; a writer is alone.
class NVXCORE_EXPORT NVXx_PBArray {
 public:
  NVXx_PBArray(const NVXx_PBArray&) = delete;
  NVXx_PBArray& operator=(const NVXx_PBArray&) = delete;

  static Ref<NVXx_PBArray> arrayWithValueType(PBArrayValueType type);
  /// Values in a row, of the width of `type`; PBObjects for an object array.
  static Ref<NVXx_PBArray> arrayWithValues(const void* values, size_t count, PBArrayValueType type);
  /// Boxed values: objects for an object array, numbers for the others; a value that is no number throws
  /// NVXx_PBArrayNumberExpectedException.
  static Ref<NVXx_PBArray> arrayWithArray(const std::vector<PBBoxedValue>& values, PBArrayValueType type);
  static Ref<NVXx_PBArray> arrayWithObject(const PBObject& object);
  static Ref<NVXx_PBMutableArray> arrayWithObjects(std::initializer_list<PBObject> objects);
  static Ref<NVXx_PBArray> arrayWithInt32(int32_t value);
  /// Up to the first 2147483647, which ends the list.
  static Ref<NVXx_PBMutableArray> arrayWithInt32s(std::initializer_list<int32_t> values);

  void retain() const { _references.fetch_add(1, std::memory_order_relaxed); }
  void release() const;

  size_t count() const { return _count; }
  /// Elements that there is room for, as the rules of growth tell it.
  size_t capacity() const { return _capacity; }
  PBArrayValueType valueType() const { return static_cast<PBArrayValueType>(_valueType); }
  /// What the elements of an object array are; None while it has none and was not told.
  PBObjectKind objectKind() const { return _objectKind; }
  bool isMutable() const { return _isMutable; }
  /// The elements in a row, of the value type's width; null while there was none. Valid until the next
  /// change.
  const void* data() const { return _data; }

  PBObject objectAtIndex(size_t index) const;
  PBObject objectAtIndexedSubscript(size_t index) const { return objectAtIndex(index); }
  PBObject firstObject() const;
  PBObject lastObject() const;
  /// Views and references without counting; valid until the next change. An element of another kind throws
  /// the mismatch.
  std::string_view stringAtIndex(size_t index) const;
  std::string_view dataAtIndex(size_t index) const;
  template <class T>
  T& messageAtIndex(size_t index) const;
  bool boolAtIndex(size_t index) const;
  int32_t int32AtIndex(size_t index) const;
  uint32_t uint32AtIndex(size_t index) const;
  int64_t int64AtIndex(size_t index) const;
  uint64_t uint64AtIndex(size_t index) const;
  float floatAtIndex(size_t index) const;
  double doubleAtIndex(size_t index) const;
  /// An element of any value type; an object is borrowed.
  PBValue valueAtIndex(size_t index) const;

  std::vector<PBBoxedValue> array() const;
  /// Each element through the handler; what it answers is kept where it is present.
  std::vector<PBBoxedValue> arrayWithConversion(
      const std::function<PBBoxedValue(const PBBoxedValue& element)>& conversion) const;
  /// A new array of the receiver's class.
  Ref<NVXx_PBArray> arrayByAppendingArray(const NVXx_PBArray& other) const;
  /// A change to the array by the handler throws NSGenericException.
  void enumerateObjectsUsingBlock(
      const std::function<void(const PBObject& object, size_t index, bool& stop)>& handler) const;
  void enumerateInt32sUsingBlock(
      const std::function<void(int32_t value, size_t index, bool& stop)>& handler) const;
  /// For an object array of messages: the value of each one's field of that name, nothing where it has none.
  std::vector<PBBoxedValue> valueForKey(std::string_view key) const;
  void setValueForKey(const PBBoxedValue& value, std::string_view key) const;

  bool isEqual(const NVXx_PBArray* other) const;
  size_t hash() const;
  std::string description() const;
  /// An immutable array gives itself.
  Ref<NVXx_PBArray> copy() const;
  Ref<NVXx_PBMutableArray> mutableCopy() const;

 protected:
  friend struct PBArrayAccess;
  NVXx_PBArray(PBArrayValueType type, PBObjectKind kind, bool isMutable, uint32_t room)
      : _valueType(static_cast<uint8_t>(type)), _objectKind(kind), _isMutable(isMutable), _room(room) {}
  ~NVXx_PBArray() = default;
  const char* className() const;
  void fill(const void* values, size_t count);
  void requireUnchanged(uint64_t mutations) const;
  void* borrowAtIndex(size_t index, PBObjectKind kind) const;
  NVXx_PBMutableArray* copied(bool isMutable) const;

  mutable std::atomic<uint32_t> _references{1};
  const uint8_t _valueType;
  PBObjectKind _objectKind;
  const bool _isMutable;
  bool _isOwnBlock = false;  // `_data` comes from the heap, not from the room behind the object
  uint32_t _count = 0;
  uint32_t _capacity = 0;  // as reported
  uint32_t _space = 0;     // elements that fit at `_data`
  const uint32_t _room;    // bytes behind the object
  uint64_t _mutationCount = 0;
  void* _data = nullptr;
  uintptr_t _delegate = 0;  // a message with the lowest bit set, or a PBMutableArrayDelegate; not owned
};

/// What an array tells before it grows.
class NVXCORE_EXPORT PBMutableArrayDelegate {
 public:
  virtual ~PBMutableArrayDelegate() = default;
  virtual void pbMutableArrayWillAddElements(NVXx_PBMutableArray& array, size_t count) = 0;
};

/// An array that can change. It tells its delegate before each growth; a message learns so that an array
/// which a read created has become real.
class NVXCORE_EXPORT NVXx_PBMutableArray : public NVXx_PBArray {
 public:
  static Ref<NVXx_PBMutableArray> arrayWithValueType(PBArrayValueType type, size_t capacity = 0);

  void ensureAdditionalCapacity(size_t count);
  /// An absent object throws NSInvalidArgumentException; one of another kind than the elements the mismatch.
  void addObject(const PBObject& object);
  void addBool(bool value);
  void addInt32(int32_t value);
  void addUInt32(uint32_t value);
  void addInt64(int64_t value);
  void addUInt64(uint64_t value);
  void addFloat(float value);
  void addDouble(double value);

  void replaceObjectAtIndex(size_t index, const PBObject& object);
  /// Adds where the index is the count.
  void setObjectAtIndexedSubscript(const PBObject& object, size_t index);
  void replaceBoolAtIndex(size_t index, bool value);
  void replaceInt32AtIndex(size_t index, int32_t value);
  void replaceUInt32AtIndex(size_t index, uint32_t value);
  void replaceInt64AtIndex(size_t index, int64_t value);
  void replaceUInt64AtIndex(size_t index, uint64_t value);
  void replaceFloatAtIndex(size_t index, float value);
  void replaceDoubleAtIndex(size_t index, double value);

  void setArray(const NVXx_PBArray* other);
  void appendArray(const NVXx_PBArray* other);
  /// Values in a row, of the width of `type`; PBObjects for an object array.
  void appendValues(const void* values, PBArrayValueType type, size_t count);
  void removeAllValues();

  PBMutableArrayDelegate* delegate() const;
  void setDelegate(PBMutableArrayDelegate* delegate);

 private:
  friend class NVXx_PBArray;
  friend struct PBArrayAccess;
  friend void NVXx_PBArrayAddRetainedObject(NVXx_PBMutableArray& array, PBObject&& object);
  using NVXx_PBArray::NVXx_PBArray;
  /// Throws the mismatch unless it holds, or can come to hold, objects of the kind.
  void takeKind(PBObjectKind kind);
};

template <class T>
T& NVXx_PBArray::messageAtIndex(size_t index) const {
  return *static_cast<T*>(static_cast<NVXx_PBGeneratedMessage*>(borrowAtIndex(index, PBObjectKind::Message)));
}

/// 0 for an absent array.
inline size_t NVXx_PBArrayCount(const NVXx_PBArray* array) { return array ? array->count() : 0; }
/// Adds the object and takes over the caller's reference; absent ones are not looked for.
NVXCORE_EXPORT void NVXx_PBArrayAddRetainedObject(NVXx_PBMutableArray& array, PBObject&& object);

}  // namespace nvxcore
