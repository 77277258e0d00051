#include "nvxcore/message/internal/PBWriter.h"

#include <cstring>
#include <new>
#include <type_traits>

#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/internal/PBVarints.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

/// Writes where there is room for all, and for seven bytes more.
struct MemoryOut {
  static constexpr bool kGuesses = false;
  uint8_t* p;

  void byte(uint8_t value) { *p++ = value; }
  void varint32(uint32_t value) { p = pbPutVarint32(p, value); }
  void varint64(uint64_t value) {
    if (value <= UINT32_MAX) return varint32(static_cast<uint32_t>(value));
    uint8_t* q = p;
    while (value >= 0x80) {
      *q++ = static_cast<uint8_t>(value | 0x80);
      value >>= 7;
    }
    *q++ = static_cast<uint8_t>(value);
    p = q;
  }
  void raw(const void* bytes, size_t length) {
    if (length) std::memcpy(p, bytes, length);
    p += length;
  }
  void tag(const PBEntry& entry) {
    if (entry.tagSize == 1) {
      *p++ = static_cast<uint8_t>(entry.encodedTag);
    } else if (entry.tagSize == 2) {
      std::memcpy(p, &entry.encodedTag, 2);
      p += 2;
    } else {
      varint32(entry.tag);
    }
  }
  void unknown(const NVXx_PBUnknownFieldSet& fields, bool asMessageSet);
  /// 32-bit values, each behind a tag of one byte where that isn't 0.
  template <class Encode>
  void words(const uint32_t* value, const uint32_t* end, uint8_t tag, Encode encode) {
    uint8_t* q = p;
    if (tag) {
      for (; value < end; ++value) {
        *q++ = tag;
        q = encode(q, *value);
      }
    } else {
      for (; value < end; ++value) q = encode(q, *value);
    }
    p = q;
  }
};

/// The same for a message that was not measured: a length has one byte of room, and what follows moves when
/// it needs two.
struct SmallOut : MemoryOut {
  static constexpr bool kGuesses = true;
};

struct StreamOut {
  static constexpr bool kGuesses = false;
  NVXx_PBCodedOutputStream& stream;

  void byte(uint8_t value) { stream.writeRawByte(value); }
  void varint32(uint32_t value) { stream.writeRawVarint32(value); }
  void varint64(uint64_t value) { stream.writeRawVarint64(value); }
  void raw(const void* bytes, size_t length) { stream.writeRawPtr(bytes, 0, length); }
  void tag(const PBEntry& entry) { stream.writeRawVarint32(entry.tag); }
  void unknown(const NVXx_PBUnknownFieldSet& fields, bool asMessageSet) {
    if (asMessageSet) {
      fields.writeAsMessageSetTo(stream);
    } else {
      fields.writeToCodedOutputStream(stream);
    }
  }
};

void MemoryOut::unknown(const NVXx_PBUnknownFieldSet& fields, bool asMessageSet) {
  NVXx_PBCodedOutputStream stream = NVXx_PBCodedOutputStream::overMemory(p, SIZE_MAX / 2);
  StreamOut{stream}.unknown(fields, asMessageSet);
  p += stream.position();
}

template <class Out>
class Writer {
 public:
  Writer(PBSizes& sizes, Out& out) : _sizes(sizes), _out(out) {}

  // A length, and what writes as much.
  template <class Write>
  void prefixed(Write write) {
    if constexpr (Out::kGuesses) {
      uint8_t* const start = _out.p++;
      write();
      const auto length = static_cast<size_t>(_out.p - start - 1);
      if (length < 0x80) {
        *start = static_cast<uint8_t>(length);
      } else {
        std::memmove(start + 2, start + 1, length);
        start[0] = static_cast<uint8_t>(length | 0x80);
        start[1] = static_cast<uint8_t>(length >> 7);
        ++_out.p;
      }
    } else {
      _out.varint32(_sizes.next());
      write();
    }
  }

  void message(const NVXx_PBGeneratedMessage& message) {
    const PBClass& messageClass = Access::classOf(message);
    const PBSide* link = Access::side(message);
    if (link && !link->extensions.empty()) [[unlikely]] {
      PBFieldOrder(message).walk([&](const PBEntry& entry) { field(message, entry); },
                                 [&](const PBExtensionValue& value) { extension(value); });
    } else {
      for (uint32_t i = 0; i < messageClass.fieldCount; ++i) field(message, messageClass.entries[i]);
    }
    if (link && link->unknownFields) _out.unknown(*link->unknownFields, messageClass.isMessageSet);
  }

  void field(const NVXx_PBGeneratedMessage& message, const PBEntry& entry) {
    if (entry.isRepeated()) {
      const auto* values = Access::slot<NVXx_PBMutableArray>(message, entry.offset);
      if (values && values->count()) array(entry, *values);
      return;
    }
    if (!Access::has(message, entry.has)) return;
    _out.tag(entry);
    if (!NVXx_PBTypeIsObject(entry.type)) return scalar(entry.type, Access::storage(message) + entry.offset);
    object(entry, Access::slot<void>(message, entry.offset));
  }

  void extension(const PBExtensionValue& value) {
    const NVXx_PBExtensionField& field = *value.field;
    const auto number = static_cast<uint32_t>(field.fieldNumber());
    const uint32_t tag = number << 3 | static_cast<uint32_t>(field.wireType());
    if (!field.isRepeated()) return extensionElement(field, tag, value.value);
    const NVXx_PBArray& values = *value.value.valueArray;
    const size_t count = values.count();
    if (field.isPackable()) {
      _out.varint32(tag);
      _out.varint32(_sizes.next());
      elements(field.type(), values, [] {});
      return;
    }
    for (size_t i = 0; i < count; ++i) extensionElement(field, tag, values.valueAtIndex(i));
  }

 private:
  [[gnu::always_inline]] void scalar(NVXx_PBType type, const void* slot) {
    uint32_t word;
    uint64_t wide;
    switch (type) {
      case NVXx_PBType::Bool:
        return _out.byte(*static_cast<const uint8_t*>(slot));
      case NVXx_PBType::Fixed32:
      case NVXx_PBType::SFixed32:
      case NVXx_PBType::Float:
        return _out.raw(slot, 4);
      case NVXx_PBType::Fixed64:
      case NVXx_PBType::SFixed64:
      case NVXx_PBType::Double:
        return _out.raw(slot, 8);
      case NVXx_PBType::Int32:
        std::memcpy(&word, slot, 4);
        return int32(word);
      case NVXx_PBType::SInt32:
        std::memcpy(&word, slot, 4);
        return _out.varint32(NVXx_PBEncodeZigZag32(static_cast<int32_t>(word)));
      case NVXx_PBType::UInt32:
      case NVXx_PBType::Enum:
        std::memcpy(&word, slot, 4);
        return _out.varint32(word);
      case NVXx_PBType::SInt64:
        std::memcpy(&wide, slot, 8);
        return _out.varint64(NVXx_PBEncodeZigZag64(static_cast<int64_t>(wide)));
      default:
        std::memcpy(&wide, slot, 8);
        return _out.varint64(wide);
    }
  }
  void int32(uint32_t word) {
    if (static_cast<int32_t>(word) >= 0) {
      _out.varint32(word);
    } else {
      _out.varint64(static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(word))));
    }
  }
  void bytes(const PBBlock* block) {
    const size_t length = block ? block->length : 0;
    _out.varint32(static_cast<uint32_t>(length));
    if (length) _out.raw(block->bytes, length);
  }
  // What follows a tag.
  void object(const PBEntry& entry, const void* object) {
    switch (entry.type) {
      case NVXx_PBType::Message:
        return prefixed([&] { message(*static_cast<const NVXx_PBGeneratedMessage*>(object)); });
      case NVXx_PBType::Group:
        message(*static_cast<const NVXx_PBGeneratedMessage*>(object));
        return _out.varint32(entry.number() << 3 | PBWireTypeEndGroup);
      default:
        return bytes(static_cast<const PBBlock*>(object));
    }
  }
  template <class T, class Before, class Write>
  void each(const NVXx_PBArray& values, Before before, Write write) {
    const T* element = PBArrayAccess::elements<T>(values);
    const T* const end = element + values.count();
    for (; element < end; ++element) {
      before();
      write(*element);
    }
  }
  template <class Before>
  void elements(NVXx_PBType type, const NVXx_PBArray& values, Before before) {
    switch (type) {
      case NVXx_PBType::Bool:
        return each<uint8_t>(values, before, [&](uint8_t v) { _out.byte(v); });
      case NVXx_PBType::Fixed32:
      case NVXx_PBType::SFixed32:
      case NVXx_PBType::Float:
        return each<uint32_t>(values, before, [&](const uint32_t& v) { _out.raw(&v, 4); });
      case NVXx_PBType::Fixed64:
      case NVXx_PBType::SFixed64:
      case NVXx_PBType::Double:
        return each<uint64_t>(values, before, [&](const uint64_t& v) { _out.raw(&v, 8); });
      case NVXx_PBType::Int32:
        return each<uint32_t>(values, before, [&](uint32_t v) { int32(v); });
      case NVXx_PBType::SInt32:
        return each<int32_t>(values, before, [&](int32_t v) { _out.varint32(NVXx_PBEncodeZigZag32(v)); });
      case NVXx_PBType::UInt32:
      case NVXx_PBType::Enum:
        return each<uint32_t>(values, before, [&](uint32_t v) { _out.varint32(v); });
      case NVXx_PBType::Int64:
      case NVXx_PBType::UInt64:
        return each<uint64_t>(values, before, [&](uint64_t v) { _out.varint64(v); });
      case NVXx_PBType::SInt64:
        return each<int64_t>(values, before, [&](int64_t v) { _out.varint64(NVXx_PBEncodeZigZag64(v)); });
      default:
        return;
    }
  }
  // Arrays of varints of 32 bits, in memory; false for the others.
  bool words(NVXx_PBType type, const NVXx_PBArray& values, uint8_t tag) {
    if constexpr (std::is_base_of_v<MemoryOut, Out>) {
      const uint32_t* first = PBArrayAccess::elements<uint32_t>(values);
      const uint32_t* const end = first + values.count();
      switch (type) {
        case NVXx_PBType::Int32:
          _out.words(first, end, tag, [](uint8_t* q, uint32_t v) {
            if (static_cast<int32_t>(v) >= 0) [[likely]]
              return pbPutVarint32(q, v);
            std::memset(q, 0xFF, 9);
            for (int i = 0; i < 4; ++i) q[i] = static_cast<uint8_t>(v >> (7 * i) | 0x80);
            q[4] = static_cast<uint8_t>(v >> 28 | 0xF0);
            q[9] = 1;
            return q + 10;
          });
          return true;
        case NVXx_PBType::UInt32:
        case NVXx_PBType::Enum:
          _out.words(first, end, tag, [](uint8_t* q, uint32_t v) { return pbPutVarint32(q, v); });
          return true;
        case NVXx_PBType::SInt32:
          _out.words(first, end, tag, [](uint8_t* q, uint32_t v) {
            return pbPutVarint32(q, NVXx_PBEncodeZigZag32(static_cast<int32_t>(v)));
          });
          return true;
        default:
          return false;
      }
    } else {
      return false;
    }
  }
  void array(const PBEntry& entry, const NVXx_PBArray& values) {
    if (entry.isPacked()) {
      _out.tag(entry);
      const NVXx_PBType type = entry.type;
      return prefixed([&] {
        if (NVXx_PBWireFormatForType(type, false) != PBWireTypeVarint || type == NVXx_PBType::Bool) {
          _out.raw(values.data(), values.count() * pbElementSize(values.valueType()));
        } else if (!words(type, values, 0)) {
          elements(type, values, [] {});
        }
      });
    }
    if (entry.tagSize == 1 && words(entry.type, values, static_cast<uint8_t>(entry.encodedTag))) return;
    if (NVXx_PBTypeIsObject(entry.type)) {
      return each<void*>(
          values, [&] { _out.tag(entry); }, [&](void* element) { object(entry, element); });
    }
    elements(entry.type, values, [&] { _out.tag(entry); });
  }
  void extensionElement(const NVXx_PBExtensionField& field, uint32_t tag, const PBValue& value) {
    switch (field.type()) {
      case NVXx_PBType::Message:
        if (field.isMessageSetExtension()) {
          _out.byte(11);
          _out.byte(16);
          _out.varint32(static_cast<uint32_t>(field.fieldNumber()));
          tag = 3 << 3 | PBWireTypeLengthDelimited;
        }
        _out.varint32(tag);
        _out.varint32(_sizes.next());
        message(*value.valueMessage);
        if (field.isMessageSetExtension()) _out.byte(12);
        return;
      case NVXx_PBType::Group:
        _out.varint32(tag);
        message(*value.valueMessage);
        return _out.varint32((tag & ~7U) | PBWireTypeEndGroup);
      case NVXx_PBType::String:
      case NVXx_PBType::Data:
        _out.varint32(tag);
        return bytes(static_cast<const PBBlock*>(value.valueObject));
      default:
        _out.varint32(tag);
        return scalar(field.type(), &value);
    }
  }

  PBSizes& _sizes;
  Out& _out;
};

// Varints are written as words of eight bytes, of which only the first ones count.
constexpr size_t kSlack = 8;

void endBytes(PBBlock* block) {
  const size_t size = sizeof(PBBlock) + block->length + kSlack;
  block->~Block();
  BlockPool::free(block, size);
}

}  // namespace

uint8_t* pbWriteMessage(const NVXx_PBGeneratedMessage& message, PBSizes& sizes, uint8_t* to) {
  MemoryOut out{to};
  Writer<MemoryOut>(sizes, out).message(message);
  return out.p;
}

uint8_t* pbWriteSmallMessage(const NVXx_PBGeneratedMessage& message, uint8_t* to) {
  PBSizes none;
  SmallOut out;
  out.p = to;
  Writer<SmallOut>(none, out).message(message);
  return out.p;
}

void pbWriteMessage(const NVXx_PBGeneratedMessage& message, PBSizes& sizes,
                    NVXx_PBCodedOutputStream& stream) {
  StreamOut out{stream};
  Writer<StreamOut>(sizes, out).message(message);
}

void pbWriteField(const NVXx_PBGeneratedMessage& message, const PBEntry& entry,
                  NVXx_PBCodedOutputStream& stream) {
  PBSizes sizes;
  sizes.measureField(message, entry);
  StreamOut out{stream};
  Writer<StreamOut>(sizes, out).field(message, entry);
}

void pbWriteExtension(const PBExtensionValue& value, NVXx_PBCodedOutputStream& stream) {
  PBSizes sizes;
  sizes.measureExtension(value);
  StreamOut out{stream};
  Writer<StreamOut>(sizes, out).extension(value);
}

PBBlock* pbNewBytes(size_t length, uint8_t*& bytes) {
  auto* block = ::new (BlockPool::allocate(sizeof(PBBlock) + length + kSlack)) PBBlock;
  bytes = reinterpret_cast<uint8_t*>(block + 1);
  block->bytes = bytes;
  block->length = length;
  block->destroy = &endBytes;
  return block;
}

}  // namespace nvxcore
