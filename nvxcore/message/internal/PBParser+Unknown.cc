#include <utility>

#include "nvxcore/message/NVXx_PBExtensionRegistry.h"
#include "nvxcore/message/internal/PBParser.h"
#include "nvxcore/message/internal/PBReflection.h"
#include "nvxcore/platform/Exception.h"

// What a message's table doesn't name: extensions, message-set items, unknown fields.

namespace nvxcore {

using Access = PBMessageAccess;

/// Message-set items lie in streams of their own, whose depth starts at 0: how many of them, with the
/// messages and groups between them, lie in each other is limited here, before the machine's stack does it.
class PBParser::Chain {
 public:
  explicit Chain(NVXx_PBCodedInputStream& stream) : _stream(stream) {
    constexpr uint32_t kLimit = 1000;
    const uint64_t depth = stream._chain + stream._recursionDepth;
    if (depth >= kLimit) {
      throw Exception(kParseErrorException, pbFormat("recursionDepth(%ld) >= %ld", static_cast<long>(depth),
                                                     static_cast<long>(kLimit)));
    }
    ++stream._chain;
  }
  ~Chain() { --_stream._chain; }
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

 private:
  NVXx_PBCodedInputStream& _stream;
};

// False ends the merge loop.
bool PBParser::unknown(Message& message, uint32_t tag) {
  const PBClass& messageClass = Access::classOf(message);
  NVXx_PBExtensionField* field =
      _registry ? _registry->getExtension(messageClass, static_cast<int32_t>(tag >> 3)) : nullptr;
  if (field && static_cast<uint32_t>(field->wireType()) == (tag & 7)) {
    extension(message, *field);
    return true;
  }
  if (!field && messageClass.isMessageSet && tag == 11) {
    messageSetItem(message);
    return true;
  }
  if (!NVXx_PBUnknownFieldSet::isFieldTag(static_cast<int32_t>(tag))) return false;
  return message.mutableUnknownFields().mergeFieldFrom(tag, _stream);
}

void PBParser::messageSetItem(Message& message) {
  const PBClass& messageClass = Access::classOf(message);
  Revisits revisits;
  const uint8_t* highest = get() - 1;
  const uint8_t* bytes = nullptr;  // of the payload
  uint64_t length = 0;
  uint32_t typeID = 0;
  NVXx_PBExtensionField* field = nullptr;
  for (;;) {
    const uint8_t* const tagStart = get();
    const int32_t tag = _stream.readTag();
    if (tag == 0) break;
    if (tagStart > highest) {
      highest = tagStart;
    } else {
      revisits.look(tagStart, _stream);
    }
    if (tag == 26) {
      bytes = nullptr;
      const int32_t told = _stream.readInt32();
      if (told < 0) continue;
      length = static_cast<uint64_t>(told);
      _stream.requireBytes(length);
      bytes = get();
      _stream._bufferPos += length;
    } else if (tag == 16) {
      typeID = _stream.readUInt32();
      // An id of 0 is forgotten, but not the extension that was found before it.
      if (typeID)
        field = _registry ? _registry->getExtension(messageClass, static_cast<int32_t>(typeID)) : nullptr;
    } else if (!_stream.skipField(tag)) {
      break;
    }
  }
  _stream.checkLastTagWas(12);
  if (!bytes || !typeID) return;
  if (!field) {
    const Data payload = DataAccess::adopt(sharedBytes(bytes, length));
    flushPins();
    message.mutableUnknownFields().mergeMessageSetMessage(static_cast<int32_t>(typeID), payload);
    return;
  }
  flushPins();
  const Chain chain(_stream);
  NVXx_PBCodedInputStream item(_stream, bytes, length);
  PBParser parser(item, _registry, _dropsOnFailure);
  parser.extension(message, *field);
  _stream._rereads = item._rereads;
}

// Extensions.

void PBParser::extension(Message& message, NVXx_PBExtensionField& field) {
  if (field.isPackable()) {
    const uint64_t oldLimit = _stream.pushLimit(static_cast<uint64_t>(int64_t{_stream.readInt32()}));
    while (_stream.bytesUntilLimit() != 0) addExtensionElement(message, field);
    _stream.popLimit(oldLimit);
  } else if (field.isRepeated()) {
    addExtensionElement(message, field);
  } else if (field.isMessage()) {
    extensionMessage(message, field);
  } else {
    PBValue value;
    if (NVXx_PBTypeIsObject(field.type())) {
      value.valueObject = readBlock(field.type() == NVXx_PBType::String);
      flushPins();
      if (!value.valueObject) return message.clearExtensionField(field);
    } else {
      value = plainScalar(field.type());
    }
    Access::setExtensionValue(message, field, value);
  }
}

void PBParser::addExtensionElement(Message& message, NVXx_PBExtensionField& field) {
  if (!NVXx_PBTypeIsObject(field.type())) {
    const PBValue value = plainScalar(field.type());
    Array& array = Access::extensionArray(message, field);
    switch (pbElementSize(array.valueType())) {
      case 1:
        PBArrayAccess::add<uint8_t>(array, value.valueBool);
        break;
      case 4:
        PBArrayAccess::add<uint32_t>(array, value.valueUInt32);
        break;
      default:
        PBArrayAccess::add<uint64_t>(array, value.valueUInt64);
    }
  } else if (field.isMessage()) {
    Guard made(*this, create(*field.record().messageClass, 0));
    readExtensionMessage(field, *made, true);
    Array& array = Access::extensionArray(message, field);
    *PBArrayAccess::room<void*>(array, 1) = &*made;
    made.take();
    PBArrayAccess::added(array, 1);
  } else {
    PBBlock* block = readBlock(field.type() == NVXx_PBType::String);
    flushPins();
    PBObject element = PBObjectAccess::adopt(pbObjectKind(field.type()), block);
    Access::extensionArray(message, field).addObject(element);
  }
  Access::becomeVisible(message);
}

void PBParser::extensionMessage(Message& message, NVXx_PBExtensionField& field) {
  const PBExtensionValue* found = Access::findExtension(message, field);
  Message* existing = found ? found->value.valueMessage : nullptr;
  if (existing && _dropsOnFailure && Access::isAlone(*existing)) {
    const Ref<Message> held(existing);
    return readExtensionMessage(field, *existing, false);
  }
  flushPins();
  Guard made(*this, existing ? Access::copy(*existing) : create(*field.record().messageClass, 0));
  readExtensionMessage(field, *made, !existing);
  flushPins();
  PBValue value;
  value.valueMessage = made.take();
  Access::setExtensionValue(message, field, value);
}

void PBParser::readExtensionMessage(NVXx_PBExtensionField& field, Message& into, bool isFresh) {
  if (field.type() == NVXx_PBType::Group) {
    readGroup(static_cast<uint32_t>(field.fieldNumber()), into, isFresh);
  } else if (field.isMessageSetExtension()) {
    // The stream holds just the message.
    const Chain chain(_stream);
    loop(into, isFresh);
  } else {
    readMessage(into, isFresh);
  }
}

}  // namespace nvxcore
