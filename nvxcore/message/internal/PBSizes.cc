#include <algorithm>
#include <cstring>

#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/internal/PBVarints.h"
#include "nvxcore/message/internal/PBWriter.h"

namespace nvxcore {

using Access = PBMessageAccess;

PBFieldOrder::PBFieldOrder(const NVXx_PBGeneratedMessage& message) : _class(&Access::classOf(message)) {
  const PBSide* link = Access::side(message);
  if (!link || link->extensions.empty()) return;
  for (const PBExtensionValue& value : link->extensions) _sorted.push_back(&value);
  std::stable_sort(_sorted.begin(), _sorted.end(), [](const PBExtensionValue* a, const PBExtensionValue* b) {
    return a->field->compareByFieldNumber(*b->field) < 0;
  });
}

void PBSizes::grow() {
  auto wider = std::make_unique<uint32_t[]>(_space * 4);
  std::copy(_sizes, _sizes + _count, wider.get());
  _many = std::move(wider);
  _sizes = _many.get();
  _space *= 4;
}

namespace {

template <class T, class SizeOf>
uint64_t sum(const NVXx_PBArray& array, SizeOf sizeOf) {
  const T* element = PBArrayAccess::elements<T>(array);
  const T* const end = element + array.count();
  uint64_t total = 0;
  for (; element < end; ++element) total += sizeOf(*element);
  return total;
}

uint64_t payloadSize(NVXx_PBType type, const NVXx_PBArray& array) {
  switch (type) {
    case NVXx_PBType::Int32:
      return pbVarintsSize(PBArrayAccess::elements<uint32_t>(array), array.count(), 10);
    case NVXx_PBType::SInt32:
      return sum<int32_t>(array, [](int32_t v) { return NVXx_PBComputeSInt32SizeNoTag(v); });
    case NVXx_PBType::UInt32:
    case NVXx_PBType::Enum:
      return pbVarintsSize(PBArrayAccess::elements<uint32_t>(array), array.count(), 5);
    case NVXx_PBType::Int64:
    case NVXx_PBType::UInt64:
      return sum<uint64_t>(array, [](uint64_t v) { return NVXx_PBComputeUInt64SizeNoTag(v); });
    case NVXx_PBType::SInt64:
      return sum<int64_t>(array, [](int64_t v) { return NVXx_PBComputeSInt64SizeNoTag(v); });
    default:
      return uint64_t{array.count()} * pbElementSize(array.valueType());
  }
}

uint64_t scalarSize(NVXx_PBType type, const void* slot) {
  uint32_t word;
  uint64_t wide;
  std::memcpy(&word, slot, 4);
  switch (type) {
    case NVXx_PBType::Bool:
      return 1;
    case NVXx_PBType::Fixed32:
    case NVXx_PBType::SFixed32:
    case NVXx_PBType::Float:
      return 4;
    case NVXx_PBType::Fixed64:
    case NVXx_PBType::SFixed64:
    case NVXx_PBType::Double:
      return 8;
    case NVXx_PBType::Int32:
      return NVXx_PBComputeInt32SizeNoTag(static_cast<int32_t>(word));
    case NVXx_PBType::SInt32:
      return NVXx_PBComputeSInt32SizeNoTag(static_cast<int32_t>(word));
    case NVXx_PBType::UInt32:
    case NVXx_PBType::Enum:
      return NVXx_PBComputeUInt32SizeNoTag(word);
    case NVXx_PBType::SInt64:
      std::memcpy(&wide, slot, 8);
      return NVXx_PBComputeSInt64SizeNoTag(static_cast<int64_t>(wide));
    default:
      std::memcpy(&wide, slot, 8);
      return NVXx_PBComputeUInt64SizeNoTag(wide);
  }
}

}  // namespace

uint64_t PBSizes::measureNested(const NVXx_PBGeneratedMessage& message) {
  const size_t place = reserve();
  const uint64_t size = measure(message);
  _sizes[place] = static_cast<uint32_t>(size);
  return NVXx_PBComputePrefixedSize(size);
}

uint64_t PBSizes::measureArray(const PBEntry& entry, const NVXx_PBArray& array) {
  const size_t count = array.count();
  if (!count) return 0;
  ++_measured;
  const uint64_t tags =
      entry.type == NVXx_PBType::Group ? uint64_t{entry.tagSize} * 2 * count : entry.tagSize * count;
  if (NVXx_PBTypeIsObject(entry.type)) {
    uint64_t total = tags;
    void* const* elements = PBArrayAccess::elements<void*>(array);
    for (size_t i = 0; i < count; ++i) {
      if (entry.type == NVXx_PBType::Message) {
        total += measureNested(*static_cast<NVXx_PBGeneratedMessage*>(elements[i]));
      } else if (entry.type == NVXx_PBType::Group) {
        total += measure(*static_cast<NVXx_PBGeneratedMessage*>(elements[i]));
      } else {
        const auto* block = static_cast<const PBBlock*>(elements[i]);
        total += NVXx_PBComputePrefixedSize(block ? block->length : 0);
      }
    }
    return total;
  }
  if (!entry.isPacked()) return tags + payloadSize(entry.type, array);
  const size_t place = reserve();
  const uint64_t payload = payloadSize(entry.type, array);
  _sizes[place] = static_cast<uint32_t>(payload);
  return entry.tagSize + NVXx_PBComputeSizeTSizeAsInt32NoTag(payload) + payload;
}

uint64_t PBSizes::measureField(const NVXx_PBGeneratedMessage& message, const PBEntry& entry) {
  if (entry.isRepeated()) {
    const auto* array = Access::slot<NVXx_PBMutableArray>(message, entry.offset);
    return array ? measureArray(entry, *array) : 0;
  }
  if (!Access::has(message, entry.has)) return 0;
  ++_measured;
  if (!NVXx_PBTypeIsObject(entry.type)) {
    return entry.tagSize + scalarSize(entry.type, Access::storage(message) + entry.offset);
  }
  if (entry.type == NVXx_PBType::Message) {
    return entry.tagSize + measureNested(*Access::slot<NVXx_PBGeneratedMessage>(message, entry.offset));
  }
  if (entry.type == NVXx_PBType::Group) {
    return uint64_t{entry.tagSize} * 2 +
           measure(*Access::slot<NVXx_PBGeneratedMessage>(message, entry.offset));
  }
  return entry.tagSize + NVXx_PBComputePrefixedSize(Access::slot<PBBlock>(message, entry.offset)->length);
}

uint64_t PBSizes::measure(const NVXx_PBGeneratedMessage& message) {
  ++_measured;
  uint64_t total = 0;
  const PBClass& messageClass = Access::classOf(message);
  const PBSide* link = Access::side(message);
  if (link && !link->extensions.empty()) [[unlikely]] {
    PBFieldOrder(message).walk([&](const PBEntry& entry) { total += measureField(message, entry); },
                               [&](const PBExtensionValue& value) { total += measureExtension(value); });
  } else {
    for (uint32_t i = 0; i < messageClass.fieldCount; ++i)
      total += measureField(message, messageClass.entries[i]);
  }
  if (link && link->unknownFields) {
    total += messageClass.isMessageSet ? link->unknownFields->serializedSizeAsMessageSet()
                                       : link->unknownFields->serializedSize();
  }
  return total;
}

uint64_t PBSizes::measureExtension(const PBExtensionValue& value) {
  ++_measured;
  const NVXx_PBExtensionField& field = *value.field;
  const NVXx_PBType type = field.type();
  const uint64_t tag = NVXx_PBComputeWireFormatTagSize(field.fieldNumber(), type);
  const auto element = [&](const PBValue& one) -> uint64_t {
    if (type == NVXx_PBType::Group) return tag + measure(*one.valueMessage);
    if (type == NVXx_PBType::Message) {
      const uint64_t prefixed = measureNested(*one.valueMessage);
      if (!field.isMessageSetExtension()) return tag + prefixed;
      return 4 + NVXx_PBComputeRawVarint32SizeForInteger(field.fieldNumber()) + prefixed;
    }
    if (NVXx_PBTypeIsObject(type)) {
      return tag + NVXx_PBComputePrefixedSize(static_cast<const PBBlock*>(one.valueObject)->length);
    }
    return tag + scalarSize(type, &one);
  };
  if (!field.isRepeated()) return element(value.value);
  const NVXx_PBArray& array = *value.value.valueArray;
  const size_t count = array.count();
  if (field.isPackable()) {
    // Its tag and length are written even when it is empty.
    const size_t place = reserve();
    const uint64_t payload = payloadSize(type, array);
    _sizes[place] = static_cast<uint32_t>(payload);
    return tag + NVXx_PBComputeRawVarint32Size(static_cast<uint32_t>(payload)) + payload;
  }
  if (!NVXx_PBTypeIsObject(type)) return tag * count + payloadSize(type, array);
  uint64_t total = 0;
  for (size_t i = 0; i < count; ++i) total += element(array.valueAtIndex(i));
  return total;
}

size_t pbBound(const NVXx_PBGeneratedMessage& message, size_t limit) {
  constexpr size_t kPrefix = 5;
  const PBClass& messageClass = Access::classOf(message);
  if (Access::side(message)) return limit + 1;
  size_t bound = messageClass.scalarBound;
  for (uint32_t i = 0; i < messageClass.objectCount && bound <= limit; ++i) {
    const PBEntry& entry = messageClass.entries[messageClass.objects[i]];
    const void* object = Access::slot<void>(message, entry.offset);
    if (!object) continue;
    if (entry.isRepeated()) {
      const auto& array = *static_cast<const NVXx_PBMutableArray*>(object);
      const size_t count = array.count();
      bound += kPrefix + 2 * size_t{entry.tagSize};
      if (!NVXx_PBTypeIsObject(entry.type)) {
        bound += count * (entry.tagSize + size_t{10});
        continue;
      }
      void* const* elements = PBArrayAccess::elements<void*>(array);
      for (size_t k = 0; k < count && bound <= limit; ++k) {
        bound += kPrefix + 2 * size_t{entry.tagSize};
        if (entry.isMessage()) {
          bound += pbBound(*static_cast<const NVXx_PBGeneratedMessage*>(elements[k]), limit);
        } else if (elements[k]) {
          bound += static_cast<const PBBlock*>(elements[k])->length;
        }
      }
    } else if (Access::has(message, entry.has)) {
      bound += kPrefix + 2 * size_t{entry.tagSize};
      bound += entry.isMessage() ? pbBound(*static_cast<const NVXx_PBGeneratedMessage*>(object), limit)
                                 : static_cast<const PBBlock*>(object)->length;
    }
  }
  return bound;
}

size_t pbExtensionsSize(const NVXx_PBGeneratedMessage& message) {
  PBSizes sizes;
  uint64_t total = 0;
  PBFieldOrder(message).walk([](const PBEntry&) {},
                             [&](const PBExtensionValue& value) { total += sizes.measureExtension(value); });
  return total;
}

}  // namespace nvxcore
