#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "nvxcore/message/NVXx_PBExtensionField.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/internal/PBArrayAccess.h"
#include "nvxcore/message/internal/PBBytes.h"
#include "nvxcore/message/internal/PBClass.h"
#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

/// The value of one extension on a message: a scalar's bits, or a counted reference to a block of bytes, a
/// message, or an array where the extension is repeated. The field tells which.
struct PBExtensionValue {
  NVXx_PBExtensionField* field;
  PBValue value;
};

/// What few messages have.
struct PBSide {
  Ref<NVXx_PBUnknownFieldSet> unknownFields;
  std::vector<PBExtensionValue> extensions;  // in the order in which they were first set
  std::vector<PBExtensionValue> autocreatedExtensions;
  NVXx_PBGeneratedMessage* autocreator = nullptr;  // not counted
  const NVXx_PBExtensionField* autocreatorExtension = nullptr;
  uint32_t autocreatorField = 0;  // index in the parent's table, when there is no extension
};

/// The inside of messages, for the walks.
struct PBMessageAccess {
  using Message = NVXx_PBGeneratedMessage;
  static constexpr uint32_t kHasSlices = 0x80000000;

  static const PBClass& classOf(const Message& message) { return *message._class; }
  static uint8_t* storage(Message& message) { return message.pb_storage(); }
  static const uint8_t* storage(const Message& message) { return message.pb_storage(); }

  static bool has(const Message& message, uint32_t index) { return message.pb_has(index); }
  static void setHas(Message& message, uint32_t index) {
    message.pb_words()[index >> 5] |= uint32_t{1} << (index & 31);
  }
  static uint32_t hasWord(const Message& message, uint32_t index) { return message.pb_words()[index]; }
  /// For indexes below 64, as bits.
  static void addHas(Message& message, uint64_t bits) {
    uint32_t* words = message.pb_words();
    if (const auto low = static_cast<uint32_t>(bits)) words[0] |= low;
    if (const auto high = static_cast<uint32_t>(bits >> 32)) words[1] |= high;
  }
  static void clearHas(Message& message, uint32_t index) {
    message.pb_words()[index >> 5] &= ~(uint32_t{1} << (index & 31));
  }
  template <class T>
  static T load(const Message& message, uint32_t offset) {
    T value;
    std::memcpy(&value, message.pb_storage() + offset, sizeof(T));
    return value;
  }
  template <class T>
  static void store(Message& message, uint32_t offset, T value) {
    std::memcpy(message.pb_storage() + offset, &value, sizeof(T));
  }
  /// What a slot refers to; as readers may see another reader's fresh child there, by an atomic load.
  template <class T>
  static T* slot(const Message& message, uint32_t offset) {
    return static_cast<T*>(message.pb_slot(offset));
  }
  static void setSlot(Message& message, uint32_t offset, void* object) {
    __atomic_store_n(reinterpret_cast<void**>(message.pb_storage() + offset), object, __ATOMIC_RELEASE);
  }

  static PBSide* side(const Message& message) { return message._side.load(std::memory_order_acquire); }
  static PBSide& needSide(const Message& message);
  static void becomeVisible(Message& message) {
    if (message._side.load(std::memory_order_relaxed)) message.pb_becomeVisible();
  }
  static bool isAlone(const Message& message) {
    return message._references.load(std::memory_order_acquire) == 1;
  }

  static Message* create(const PBClass& messageClass);
  /// With room for slices behind the storage: of the input, whose pin the caller counts, or, without one, of
  /// `room` bytes behind them.
  static Message* createParsed(const PBClass& messageClass, PBBlock* input, uint32_t room) {
    void* memory = BlockPool::allocate(size_t{messageClass.parsedSize} + room);
    auto* message = ::new (memory) Message(messageClass);
    message->_block.store(1 | kHasSlices, std::memory_order_relaxed);
    std::memset(message->pb_storage(), 0, messageClass.storageSize);
    const uintptr_t backing = input ? reinterpret_cast<uintptr_t>(input) : uintptr_t{room} << 1 | 1;
    std::memcpy(message->pb_storage() + messageClass.storageSize, &backing, sizeof backing);
    return message;
  }
  /// Of a message with slices: the input, or twice the room plus one.
  static uintptr_t backing(const Message& message) {
    uintptr_t word;
    std::memcpy(&word, reinterpret_cast<const char*>(&message) + message._class->plainSize, sizeof word);
    return word;
  }
  static uint32_t roomBehind(const Message& message) {
    const uintptr_t word = backing(message);
    return word & 1 ? static_cast<uint32_t>(word >> 1) : 0;
  }
  static bool hasSlices(const Message& message) {
    return message._block.load(std::memory_order_relaxed) & kHasSlices;
  }
  static PBBlock* slices(Message& message) {
    return reinterpret_cast<PBBlock*>(reinterpret_cast<char*>(&message) + message._class->plainSize +
                                      sizeof(void*));
  }
  static void initSlice(Message& message, PBBlock* slice, const uint8_t* bytes, size_t length) {
    ::new (slice) PBBlock;
    slice->extra = static_cast<uint32_t>(reinterpret_cast<char*>(slice) - reinterpret_cast<char*>(&message));
    slice->bytes = bytes;
    slice->length = length;
    slice->destroy = &endSlice;
  }
  static void endSlice(PBBlock* slice);
  /// True for a slice that lies behind the message's own storage.
  static bool isOwnSlice(const Message& message, const PBBlock* block) {
    return reinterpret_cast<const char*>(block) - block->extra == reinterpret_cast<const char*>(&message);
  }
  /// Gives back the message's reference to bytes of its own.
  static void dropBytes(Message& message, PBBlock* block) {
    // Where nobody else has it, the room of a slice of its own just stays with the message.
    if (isOwnSlice(message, block) && block->references.load(std::memory_order_acquire) == 1) return;
    dropSharedBytes(message, block);
  }
  static void dropSharedBytes(Message& message, PBBlock* block);

  /// Puts an object, whose counted reference it takes over, into a slot; null takes the field away.
  static void setObject(Message& message, uint32_t field, void* object);
  static bool wasAutocreatedBy(const Message& child, const Message& parent) {
    const PBSide* link = side(child);
    return link && link->autocreator == &parent;
  }
  static NVXx_PBMutableArray& array(const Message& message, uint32_t field) {
    const uint32_t offset = message._class->entries[field].offset;
    void* found = message.pb_slot(offset);
    return found ? *static_cast<NVXx_PBMutableArray*>(found) : *message.pb_autocreateArray(field);
  }
  static Message& child(const Message& message, uint32_t field) {
    void* found = message.pb_slot(message._class->entries[field].offset);
    return found ? *static_cast<Message*>(found) : *message.pb_autocreate(field);
  }
  static void setArray(Message& message, uint32_t field, NVXx_PBMutableArray* array) {
    message.pb_setArray(field, array);
  }
  static void clearField(Message& message, uint32_t field) { message.pb_setHas(field, false); }
  static void arrayBecameReal(Message& message, NVXx_PBMutableArray& array);

  // Extensions.
  static PBExtensionValue* findExtension(const Message& message, const NVXx_PBExtensionField& field);
  static void requireExtension(const Message& message, const NVXx_PBExtensionField& field);
  /// Takes over the reference in the value.
  static void setExtensionValue(Message& message, NVXx_PBExtensionField& field, PBValue value);
  static NVXx_PBMutableArray& extensionArray(Message& message, NVXx_PBExtensionField& field);
  static Message& extensionMessage(const Message& message, NVXx_PBExtensionField& field);
  static void dropExtensionValue(const NVXx_PBExtensionField& field, PBValue value);
  static PBValue copyExtensionValue(const NVXx_PBExtensionField& field, PBValue value);
  static Message* copy(const Message& message);
  static Message* deepCopy(const Message& message);
};

}  // namespace nvxcore
