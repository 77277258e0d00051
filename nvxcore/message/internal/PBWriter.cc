#include "nvxcore/message/internal/PBWriter.h"

#include <bit>
#include <cstring>
#include <new>
#include <type_traits>

#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/internal/PBRuns.h"
#include "nvxcore/message/internal/PBVarints.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

using Access = PBMessageAccess;

namespace {

// Where a walk writes to: one word that goes from hand to hand, so that it stays in a register.

/// Writes where there is room for all, and for seven bytes more.
struct MemoryOut {
  static constexpr bool kGuesses = false;
  uint8_t* p;

  void byte(uint8_t value) { *p++ = value; }
  void varint32(uint32_t value) {
    if (value < 0x80) {
      *p++ = static_cast<uint8_t>(value);
    } else {
      p = pbPutVarint(p, value);
    }
  }
  void varint64(uint64_t value) {
    if (value < 0x80) {
      *p++ = static_cast<uint8_t>(value);
    } else if (value >> 56 == 0) {
      p = pbPutVarint(p, value);
    } else {
      for (; value >= 0x80; value >>= 7) *p++ = static_cast<uint8_t>(value | 0x80);
      *p++ = static_cast<uint8_t>(value);
    }
  }
  void raw(const void* bytes, size_t length) {
    if (length) pbCopy(p, static_cast<const uint8_t*>(bytes), length);
    p += length;
  }
  void tag(const PBEntry& entry) {
    if (entry.tagSize <= 4) [[likely]] {
      std::memcpy(p, &entry.encodedTag, 4);
      p += entry.tagSize;
    } else {
      p = pbPutVarint(p, entry.tag);
    }
  }
  void unknown(const NVXx_PBUnknownFieldSet& fields, bool asMessageSet);
};

/// The same for a message that was not measured: a length has one byte of room, and what follows moves when
/// it needs two.
struct SmallOut : MemoryOut {
  static constexpr bool kGuesses = true;
};

struct StreamOut {
  static constexpr bool kGuesses = false;
  NVXx_PBCodedOutputStream* stream;

  void byte(uint8_t value) { stream->writeRawByte(value); }
  void varint32(uint32_t value) { stream->writeRawVarint32(value); }
  void varint64(uint64_t value) { stream->writeRawVarint64(value); }
  void raw(const void* bytes, size_t length) { stream->writeRawPtr(bytes, 0, length); }
  void tag(const PBEntry& entry) { stream->writeRawVarint32(entry.tag); }
  void unknown(const NVXx_PBUnknownFieldSet& fields, bool asMessageSet) {
    if (asMessageSet) {
      fields.writeAsMessageSetTo(*stream);
    } else {
      fields.writeToCodedOutputStream(*stream);
    }
  }
};

void MemoryOut::unknown(const NVXx_PBUnknownFieldSet& fields, bool asMessageSet) {
  NVXx_PBCodedOutputStream stream = NVXx_PBCodedOutputStream::overMemory(p, SIZE_MAX / 2);
  StreamOut{&stream}.unknown(fields, asMessageSet);
  p += stream.position();
}

template <class Out>
class Writer {
 public:
  explicit Writer(PBSizes& sizes) : _sizes(sizes) {}

  Out message(Out out, const NVXx_PBGeneratedMessage& message) {
    const PBClass& messageClass = Access::classOf(message);
    const PBSide* link = Access::side(message);
    if (link && !link->extensions.empty()) [[unlikely]] {
      PBFieldOrder(message).walk([&](const PBEntry& entry) { out = field(out, message, entry); },
                                 [&](const PBExtensionValue& value) { out = extension(out, value); });
    } else if (messageClass.byHas) [[likely]] {
      // An array that isn't empty has its bit as well.
      const uint16_t* byHas = messageClass.byHas;
      for (uint32_t i = 0; i < messageClass.hasWords; ++i, byHas += 32) {
        for (uint32_t bits = Access::hasWord(message, i); bits; bits &= bits - 1) {
          out = present(out, message, messageClass.entries[byHas[std::countr_zero(bits)]]);
        }
      }
    } else {
      for (uint32_t i = 0; i < messageClass.fieldCount; ++i) {
        out = field(out, message, messageClass.entries[i]);
      }
    }
    if (link && link->unknownFields) out.unknown(*link->unknownFields, messageClass.isMessageSet);
    return out;
  }

  Out field(Out out, const NVXx_PBGeneratedMessage& message, const PBEntry& entry) {
    return Access::has(message, entry.has) ? present(out, message, entry) : out;
  }

  Out extension(Out out, const PBExtensionValue& value) {
    const NVXx_PBExtensionField& field = *value.field;
    const auto number = static_cast<uint32_t>(field.fieldNumber());
    const uint32_t tag = number << 3 | static_cast<uint32_t>(field.wireType());
    if (!field.isRepeated()) return extensionElement(out, field, tag, value.value);
    const NVXx_PBArray& values = *value.value.valueArray;
    if (field.isPackable()) {
      out.varint32(tag);
      out.varint32(_sizes.next());
      return elements(out, field.type(), values, nullptr);
    }
    const size_t count = values.count();
    for (size_t i = 0; i < count; ++i) out = extensionElement(out, field, tag, values.valueAtIndex(i));
    return out;
  }

 private:
  [[gnu::always_inline]] Out present(Out out, const NVXx_PBGeneratedMessage& message, const PBEntry& entry) {
    if (entry.isRepeated()) {
      const auto* values = Access::slot<NVXx_PBMutableArray>(message, entry.offset);
      return values && values->count() ? array(out, entry, *values) : out;
    }
    out.tag(entry);
    switch (entry.type) {
      case NVXx_PBType::Message:
      case NVXx_PBType::Group:
        return child(out, entry, Access::slot<void>(message, entry.offset));
      case NVXx_PBType::String:
      case NVXx_PBType::Data:
        return bytes(out, Access::slot<PBBlock>(message, entry.offset));
        // Each by itself, so that a field takes one jump and not two.
#define NVX_PB_SCALAR(kind) \
  case NVXx_PBType::kind:   \
    return scalar(out, NVXx_PBType::kind, Access::storage(message) + entry.offset)
        NVX_PB_SCALAR(Bool);
        NVX_PB_SCALAR(Fixed32);
        NVX_PB_SCALAR(SFixed32);
        NVX_PB_SCALAR(Float);
        NVX_PB_SCALAR(Fixed64);
        NVX_PB_SCALAR(SFixed64);
        NVX_PB_SCALAR(Double);
        NVX_PB_SCALAR(Int32);
        NVX_PB_SCALAR(Int64);
        NVX_PB_SCALAR(SInt32);
        NVX_PB_SCALAR(SInt64);
        NVX_PB_SCALAR(UInt32);
        NVX_PB_SCALAR(UInt64);
        NVX_PB_SCALAR(Enum);
#undef NVX_PB_SCALAR
    }
    __builtin_unreachable();
  }

  // A length, and what writes as much.
  template <class Write>
  Out prefixed(Out out, Write write) {
    if constexpr (Out::kGuesses) {
      uint8_t* const start = out.p++;
      out = write(out);
      const auto length = static_cast<size_t>(out.p - start - 1);
      if (length < 0x80) {
        *start = static_cast<uint8_t>(length);
      } else {
        std::memmove(start + 2, start + 1, length);
        start[0] = static_cast<uint8_t>(length | 0x80);
        start[1] = static_cast<uint8_t>(length >> 7);
        ++out.p;
      }
      return out;
    } else {
      out.varint32(_sizes.next());
      return write(out);
    }
  }

  [[gnu::always_inline]] Out scalar(Out out, NVXx_PBType type, const void* slot) {
    uint32_t word;
    uint64_t wide;
    switch (type) {
      case NVXx_PBType::Bool:
        out.byte(*static_cast<const uint8_t*>(slot));
        break;
      case NVXx_PBType::Fixed32:
      case NVXx_PBType::SFixed32:
      case NVXx_PBType::Float:
        out.raw(slot, 4);
        break;
      case NVXx_PBType::Fixed64:
      case NVXx_PBType::SFixed64:
      case NVXx_PBType::Double:
        out.raw(slot, 8);
        break;
      case NVXx_PBType::Int32:
        std::memcpy(&word, slot, 4);
        // A negative one has ten bytes.
        out.varint64(static_cast<uint64_t>(int64_t{static_cast<int32_t>(word)}));
        break;
      case NVXx_PBType::SInt32:
        std::memcpy(&word, slot, 4);
        out.varint32(NVXx_PBEncodeZigZag32(static_cast<int32_t>(word)));
        break;
      case NVXx_PBType::UInt32:
      case NVXx_PBType::Enum:
        std::memcpy(&word, slot, 4);
        out.varint32(word);
        break;
      case NVXx_PBType::SInt64:
        std::memcpy(&wide, slot, 8);
        out.varint64(NVXx_PBEncodeZigZag64(static_cast<int64_t>(wide)));
        break;
      default:
        std::memcpy(&wide, slot, 8);
        out.varint64(wide);
    }
    return out;
  }
  [[gnu::always_inline]] Out bytes(Out out, const PBBlock* block) {
    const size_t length = block ? block->length : 0;
    out.varint32(static_cast<uint32_t>(length));
    if (length) out.raw(block->bytes, length);
    return out;
  }
  // What follows the tag of a message or group.
  Out child(Out out, const PBEntry& entry, const void* object) {
    const auto& nested = *static_cast<const NVXx_PBGeneratedMessage*>(object);
    if (entry.type == NVXx_PBType::Message) {
      return prefixed(out, [&](Out inner) { return message(inner, nested); });
    }
    out = message(out, nested);
    out.varint32(entry.number() << 3 | PBWireTypeEndGroup);
    return out;
  }
  // Scalars, each behind the tag of a field where there is one.
  Out elements(Out out, NVXx_PBType type, const NVXx_PBArray& values, const PBEntry* entry) {
    if constexpr (std::is_base_of_v<MemoryOut, Out>) {
      if (!entry || entry->tagSize == 1) {
        const auto tag = static_cast<uint8_t>(entry ? entry->encodedTag : 0);
        if (uint8_t* end = pbPutWords(out.p, type, values.data(), values.count(), tag)) {
          out.p = end;
          return out;
        }
      }
    }
    const uint32_t size = pbElementSize(values.valueType());
    const auto* element = static_cast<const uint8_t*>(values.data());
    const auto* const end = element + values.count() * size_t{size};
    for (; element < end; element += size) {
      if (entry) out.tag(*entry);
      out = scalar(out, type, element);
    }
    return out;
  }
  Out array(Out out, const PBEntry& entry, const NVXx_PBArray& values) {
    if (entry.isPacked()) {
      out.tag(entry);
      return prefixed(out, [&](Out inner) {
        if (NVXx_PBWireFormatForType(entry.type, false) == PBWireTypeVarint &&
            entry.type != NVXx_PBType::Bool) {
          return elements(inner, entry.type, values, nullptr);
        }
        inner.raw(values.data(), values.count() * pbElementSize(values.valueType()));
        return inner;
      });
    }
    if (!NVXx_PBTypeIsObject(entry.type)) return elements(out, entry.type, values, &entry);
    void* const* element = PBArrayAccess::elements<void*>(values);
    void* const* const end = element + values.count();
    for (; element < end; ++element) {
      out.tag(entry);
      out =
          entry.isMessage() ? child(out, entry, *element) : bytes(out, static_cast<const PBBlock*>(*element));
    }
    return out;
  }
  Out extensionElement(Out out, const NVXx_PBExtensionField& field, uint32_t tag, const PBValue& value) {
    switch (field.type()) {
      case NVXx_PBType::Message:
        if (field.isMessageSetExtension()) {
          out.byte(11);
          out.byte(16);
          out.varint32(static_cast<uint32_t>(field.fieldNumber()));
          tag = 3 << 3 | PBWireTypeLengthDelimited;
        }
        out.varint32(tag);
        out.varint32(_sizes.next());
        out = message(out, *value.valueMessage);
        if (field.isMessageSetExtension()) out.byte(12);
        return out;
      case NVXx_PBType::Group:
        out.varint32(tag);
        out = message(out, *value.valueMessage);
        out.varint32((tag & ~7U) | PBWireTypeEndGroup);
        return out;
      case NVXx_PBType::String:
      case NVXx_PBType::Data:
        out.varint32(tag);
        return bytes(out, static_cast<const PBBlock*>(value.valueObject));
      default:
        out.varint32(tag);
        return scalar(out, field.type(), &value);
    }
  }

  PBSizes& _sizes;
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
  return Writer<MemoryOut>(sizes).message(MemoryOut{to}, message).p;
}

uint8_t* pbWriteSmallMessage(const NVXx_PBGeneratedMessage& message, uint8_t* to) {
  PBSizes none;
  return Writer<SmallOut>(none).message(SmallOut{to}, message).p;
}

void pbWriteMessage(const NVXx_PBGeneratedMessage& message, PBSizes& sizes,
                    NVXx_PBCodedOutputStream& stream) {
  Writer<StreamOut>(sizes).message(StreamOut{&stream}, message);
}

void pbWriteField(const NVXx_PBGeneratedMessage& message, const PBEntry& entry,
                  NVXx_PBCodedOutputStream& stream) {
  PBSizes sizes;
  sizes.measureField(message, entry);
  Writer<StreamOut>(sizes).field(StreamOut{&stream}, message, entry);
}

void pbWriteExtension(const PBExtensionValue& value, NVXx_PBCodedOutputStream& stream) {
  PBSizes sizes;
  sizes.measureExtension(value);
  Writer<StreamOut>(sizes).extension(StreamOut{&stream}, value);
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
