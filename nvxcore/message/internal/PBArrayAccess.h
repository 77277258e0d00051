#pragma once

#include <cstdint>
#include <cstring>

#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/message/internal/PBBytes.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

constexpr uint32_t pbElementSize(PBArrayValueType type) {
  constexpr uint8_t kSizes[8] = {8, 1, 4, 4, 8, 8, 4, 8};
  return kSizes[type];
}

constexpr PBObjectKind pbObjectKind(NVXx_PBType type) {
  switch (type) {
    case NVXx_PBType::Data:
      return PBObjectKind::Data;
    case NVXx_PBType::String:
      return PBObjectKind::String;
    case NVXx_PBType::Message:
    case NVXx_PBType::Group:
      return PBObjectKind::Message;
    default:
      return PBObjectKind::None;
  }
}

/// The inside of arrays, for the walks.
struct PBArrayAccess {
  using Array = NVXx_PBArray;
  using MutableArray = NVXx_PBMutableArray;

  /// An array with room for `count` elements within its own block.
  static MutableArray* create(PBArrayValueType type, PBObjectKind kind, uint32_t count,
                              bool isMutable = true);
  static MutableArray* createFor(NVXx_PBType type, uint32_t count) {
    return create(NVXx_PBArrayValueTypeForPBType(type), pbObjectKind(type), count);
  }
  static void destroy(Array* array);
  static uint32_t count(const Array& array) { return array._count; }
  template <class T>
  static const T* elements(const Array& array) {
    return static_cast<const T*>(array._data);
  }
  template <class T>
  static T* elements(Array& array) {
    return static_cast<T*>(array._data);
  }
  static std::atomic<uint32_t>& references(const Array& array) { return array._references; }

  /// Room for `count` more elements, told to the delegate; answers where the first goes. The count is
  /// unchanged.
  static void* grow(MutableArray& array, size_t count);
  /// The same, for elements that are added one by one.
  template <class T>
  static T* room(MutableArray& array, uint32_t count) {
    if (array._delegate || array._space - array._count < count) [[unlikely]]
      return static_cast<T*>(grow(array, count));
    if (array._count + count > array._capacity)
      array._capacity = reportedCapacity(array, array._count + count);
    return static_cast<T*>(array._data) + array._count;
  }
  static void added(MutableArray& array, uint32_t count) {
    array._count += count;
    ++array._mutationCount;
  }
  /// Space for `count` more elements, of which nobody is told yet; answers where the first goes.
  static void* reserve(MutableArray& array, uint32_t count) {
    if (array._space - array._count < count) [[unlikely]]
      makeSpace(array, uint64_t{array._count} + count);
    return static_cast<char*>(array._data) + size_t{array._count} * pbElementSize(array.valueType());
  }
  static void addedOneByOne(MutableArray& array, uint32_t count) {
    array._capacity = reportedCapacity(array, uint64_t{array._count} + count);
    array._count += count;
    array._mutationCount += count;
  }
  /// The elements' block, where it isn't the room behind the object.
  static void freeBlock(Array& array) {
    if (array._isOwnBlock)
      BlockPool::free(array._data, size_t{array._space} * pbElementSize(array.valueType()));
  }
  static void makeSpace(MutableArray& array, uint64_t needed);
  template <class T>
  static void add(MutableArray& array, T value) {
    *room<T>(array, 1) = value;
    added(array, 1);
  }
  /// The reported capacity once elements were added one by one up to `needed`.
  static uint32_t reportedCapacity(const Array& array, uint64_t needed) {
    uint64_t capacity = array._capacity;
    if (!capacity) capacity = 1;
    if (needed <= capacity) return static_cast<uint32_t>(capacity);
    capacity = (capacity + 33) / 32 * 32;
    if (needed > capacity) capacity += (needed - capacity + 31) / 32 * 32;
    return static_cast<uint32_t>(capacity);
  }

  static NVXx_PBGeneratedMessage* messageDelegate(const Array& array) {
    return array._delegate & 1 ? reinterpret_cast<NVXx_PBGeneratedMessage*>(array._delegate - 1) : nullptr;
  }
  static void setMessageDelegate(MutableArray& array, NVXx_PBGeneratedMessage* message) {
    array._delegate = message ? reinterpret_cast<uintptr_t>(message) | 1 : 0;
  }
  /// True when it holds what a field of the type holds; an untold kind of objects becomes the field's.
  static bool fits(Array& array, NVXx_PBType type);
  static void retainElement(PBObjectKind kind, void* object);
  static void dropElement(PBObjectKind kind, void* object);
};

}  // namespace nvxcore
