#include "nvxcore/message/internal/PBRelease.h"

#include "nvxcore/platform/internal/BlockPool.h"

namespace nvxcore {

/// The block that a message lies in. It outlives the message while somebody holds a slice that lies behind
/// it.
struct PBMessageMemory {
  using Message = NVXx_PBGeneratedMessage;

  static std::atomic<uint32_t>& count(Message& message) { return message._block; }
  static std::atomic<uint32_t>& references(Message& message) { return message._references; }

  /// The input that the message pins, or null when it has copies.
  static PBBlock* input(Message& message) {
    const uintptr_t backing = PBMessageAccess::backing(message);
    return backing & 1 ? nullptr : reinterpret_cast<PBBlock*>(backing);
  }
  static void freeParsed(Message& message) {
    BlockPool::free(&message, size_t{message._class->parsedSize} + PBMessageAccess::roomBehind(message));
  }
  static void setNext(Message& message, Message* next) {
    message._side.store(reinterpret_cast<PBSide*>(next), std::memory_order_relaxed);
  }
  static Message* next(Message& message) {
    return reinterpret_cast<Message*>(message._side.load(std::memory_order_relaxed));
  }
  static PBSide* takeSide(Message& message) {
    PBSide* side = message._side.load(std::memory_order_relaxed);
    message._side.store(nullptr, std::memory_order_relaxed);
    return side;
  }
  /// True when nothing else keeps the block.
  static bool leave(Message& message) {
    std::atomic<uint32_t>& counted = count(message);
    return (counted.load(std::memory_order_acquire) & ~PBMessageAccess::kHasSlices) == 1 ||
           (counted.fetch_sub(1, std::memory_order_acq_rel) & ~PBMessageAccess::kHasSlices) == 1;
  }
  static void endSlice(PBBlock* slice) {
    auto& message = *reinterpret_cast<Message*>(reinterpret_cast<char*>(slice) - slice->extra);
    if (!leave(message)) return;
    PBBlock* pinned = input(message);
    freeParsed(message);
    if (pinned) DataAccess::drop(pinned);
  }
};

void PBMessageAccess::endSlice(PBBlock* slice) { PBMessageMemory::endSlice(slice); }

void PBMessageAccess::dropSharedBytes(Message& message, PBBlock* block) {
  if (!isOwnSlice(message, block)) return DataAccess::drop(block);
  // The one who lets go of the slice last counts the block down, so it is counted up before.
  PBMessageMemory::count(message).fetch_add(1, std::memory_order_relaxed);
  if (block->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    PBMessageMemory::count(message).fetch_sub(1, std::memory_order_relaxed);
  }
}

PBReleaseWalk::~PBReleaseWalk() {
  run();
  giveBack();
}

void PBReleaseWalk::giveBack() {
  if (_pins > 1) _input->references.fetch_sub(_pins - 1, std::memory_order_acq_rel);
  if (_pins) DataAccess::drop(_input);
  _pins = 0;
}

void PBReleaseWalk::drop(NVXx_PBGeneratedMessage* message) {
  std::atomic<uint32_t>& references = PBMessageMemory::references(*message);
  if (references.load(std::memory_order_acquire) == 1 ||
      references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    end(*message);
  }
}

void PBReleaseWalk::end(NVXx_PBGeneratedMessage& message) {
  if (PBMessageAccess::side(message)) {
    // What is in the record goes at once: the word is needed for the list.
    PBSide* side = PBMessageMemory::takeSide(message);
    for (PBExtensionValue& value : side->autocreatedExtensions) {
      value.value.valueMessage->clearAutocreator();
      drop(value.value.valueMessage);
    }
    for (PBExtensionValue& value : side->extensions) {
      if (value.field->isRepeated()) {
        dropArray(value.value.valueArray);
      } else if (value.field->isMessage()) {
        drop(value.value.valueMessage);
      } else {
        PBMessageAccess::dropExtensionValue(*value.field, value.value);
      }
    }
    delete side;
  }
  PBMessageMemory::setNext(message, _waiting);
  _waiting = &message;
}

void PBReleaseWalk::dropArray(NVXx_PBMutableArray* array) {
  std::atomic<uint32_t>& references = PBArrayAccess::references(*array);
  if (references.load(std::memory_order_acquire) != 1 &&
      references.fetch_sub(1, std::memory_order_acq_rel) != 1) {
    return;
  }
  if (array->valueType() == PBArrayValueTypeObject) dropElements(*array);
  PBArrayAccess::destroy(array);
}

void PBReleaseWalk::dropElements(NVXx_PBArray& array) {
  void** elements = PBArrayAccess::elements<void*>(array);
  const uint32_t count = PBArrayAccess::count(array);
  if (array.objectKind() == PBObjectKind::Message) {
    for (uint32_t i = 0; i < count; ++i) drop(static_cast<NVXx_PBGeneratedMessage*>(elements[i]));
  } else {
    for (uint32_t i = 0; i < count; ++i) PBArrayAccess::dropElement(array.objectKind(), elements[i]);
  }
}

void PBReleaseWalk::letGo(NVXx_PBGeneratedMessage& message) {
  const PBClass& messageClass = PBMessageAccess::classOf(message);
  for (uint32_t i = 0; i < messageClass.bytesCount; ++i) {
    auto* block = PBMessageAccess::slot<PBBlock>(message, messageClass.bytesOffsets[i]);
    if (block) PBMessageAccess::dropBytes(message, block);
  }
  for (uint32_t i = 0; i < messageClass.ownerCount; ++i) {
    const PBEntry& entry = messageClass.entries[messageClass.owners[i]];
    void* object = PBMessageAccess::slot<void>(message, entry.offset);
    if (!object) continue;
    if (entry.isRepeated()) {
      auto* array = static_cast<NVXx_PBMutableArray*>(object);
      if (PBArrayAccess::messageDelegate(*array) == &message)
        PBArrayAccess::setMessageDelegate(*array, nullptr);
      dropArray(array);
    } else {
      auto* child = static_cast<NVXx_PBGeneratedMessage*>(object);
      if (!PBMessageAccess::has(message, entry.has)) child->clearAutocreator();
      drop(child);
    }
  }
}

void PBReleaseWalk::run() {
  while (NVXx_PBGeneratedMessage* message = _waiting) {
    _waiting = PBMessageMemory::next(*message);
    letGo(*message);
    if (PBMessageAccess::hasSlices(*message)) {
      if (PBMessageMemory::leave(*message)) {
        PBBlock* input = PBMessageMemory::input(*message);
        PBMessageMemory::freeParsed(*message);
        if (input) unpin(input);
      }
    } else {
      BlockPool::free(message, PBMessageAccess::classOf(*message).plainSize);
    }
  }
}

}  // namespace nvxcore
