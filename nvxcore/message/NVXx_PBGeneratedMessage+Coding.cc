#include <memory>
#include <utility>

#include "nvxcore/message/NVXx_PBCodedInputStream.h"
#include "nvxcore/message/NVXx_PBCodedOutputStream.h"
#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/message/NVXx_PBSizes.h"
#include "nvxcore/message/internal/PBParser.h"
#include "nvxcore/message/internal/PBWriter.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/Value.h"

// Reading and writing whole messages.

namespace nvxcore {

using Access = PBMessageAccess;

void NVXx_PBGeneratedMessage::mergeFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                                        const NVXx_PBExtensionRegistry* registry) {
  PBParser(stream, registry).merge(*this);
}

void NVXx_PBGeneratedMessage::mergeFromData(const Data& data, const NVXx_PBExtensionRegistry* registry) {
  NVXx_PBCodedInputStream stream(data);
  PBParser(stream, registry).merge(*this);
  stream.checkLastTagWas(0);
}

void NVXx_PBGeneratedMessage::mergeDelimitedFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                                                 const NVXx_PBExtensionRegistry* registry) {
  if (stream.isAtEnd()) return;
  const Data data = stream.readData();
  if (data) mergeFromData(data, registry);
}

namespace {

NVXx_PBGeneratedMessage* parsed(const PBClass& messageClass, NVXx_PBCodedInputStream& stream,
                                const NVXx_PBExtensionRegistry* registry, bool isWhole) {
  Ref<NVXx_PBGeneratedMessage> message;
  PBParser parser(stream, registry, true);
  message = Ref<NVXx_PBGeneratedMessage>::adopt(parser.create(messageClass, parser.left()));
  parser.merge(*message, true);
  if (isWhole) {
    stream.checkLastTagWas(0);
    parser.handOverBuffer();
  }
  return message.take();
}

template <class Parse>
NVXx_PBGeneratedMessage* withError(Error* error, Parse parse) {
  try {
    NVXx_PBGeneratedMessage* message = parse();
    if (error) *error = Error();
    return message;
  } catch (const Exception& failure) {
    if (error) {
      *error = Error(kPBGeneratedMessageErrorDomain, kPBGeneratedMessageErrorCode,
                     Dictionary{{kPBErrorReasonKey, failure.reason()}});
    }
    return nullptr;
  }
}

}  // namespace

NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_parse(const PBClass& messageClass, const Data& data,
                                                           const NVXx_PBExtensionRegistry* registry) {
  NVXx_PBCodedInputStream stream(data);
  return parsed(messageClass, stream, registry, true);
}

NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_parse(const PBClass& messageClass, const Data& data,
                                                           const NVXx_PBExtensionRegistry* registry,
                                                           Error* error) {
  return withError(error, [&] { return pb_parse(messageClass, data, registry); });
}

Ref<NVXx_PBGeneratedMessage> NVXx_PBGeneratedMessage::parseFromData(const PBClass& messageClass,
                                                                    const Data& data,
                                                                    const NVXx_PBExtensionRegistry* registry,
                                                                    Error* error) {
  return Ref<NVXx_PBGeneratedMessage>::adopt(pb_parse(messageClass, data, registry, error));
}

NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_parse(const PBClass& messageClass,
                                                           NVXx_PBCodedInputStream& stream, bool delimited,
                                                           const NVXx_PBExtensionRegistry* registry) {
  if (!delimited) return parsed(messageClass, stream, registry, false);
  if (stream.isAtEnd()) return pb_new(messageClass);
  const Data data = stream.readData();
  return data ? pb_parse(messageClass, data, registry) : pb_new(messageClass);
}

NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_parse(const PBClass& messageClass,
                                                           NVXx_PBCodedInputStream& stream, bool delimited,
                                                           const NVXx_PBExtensionRegistry* registry,
                                                           Error* error) {
  return withError(error, [&] { return pb_parse(messageClass, stream, delimited, registry); });
}

void NVXx_PBGeneratedMessage::encodeWithCoder(Dictionary& coder) const { coder.set(kPBCoderDataKey, data()); }

NVXx_PBGeneratedMessage* NVXx_PBGeneratedMessage::pb_decode(const PBClass& messageClass,
                                                            const Dictionary& coder) {
  const Data data = coder.get(kPBCoderDataKey).data();
  return data ? pb_parse(messageClass, data, nullptr) : nullptr;
}

// Writing.

void NVXx_PBGeneratedMessage::writeToCodedOutputStream(NVXx_PBCodedOutputStream& stream) const {
  PBSizes sizes;
  sizes.measure(*this);
  pbWriteMessage(*this, sizes, stream);
}

void NVXx_PBGeneratedMessage::writeDelimitedToCodedOutputStream(NVXx_PBCodedOutputStream& stream) const {
  PBSizes sizes;
  stream.writeRawVarintSizeTAs32(sizes.measure(*this));
  pbWriteMessage(*this, sizes, stream);
}

void NVXx_PBCodedOutputStream::writeMessageNoTag(const NVXx_PBGeneratedMessage& value) {
  value.writeDelimitedToCodedOutputStream(*this);
}

void NVXx_PBGeneratedMessage::writeToOutputStream(const std::shared_ptr<OutputStream>& output) const {
  NVXx_PBCodedOutputStream stream(output);
  writeToCodedOutputStream(stream);
  stream.flush();
}

void NVXx_PBGeneratedMessage::writeDelimitedToOutputStream(
    const std::shared_ptr<OutputStream>& output) const {
  NVXx_PBCodedOutputStream stream(output);
  writeDelimitedToCodedOutputStream(stream);
  stream.flush();
}

void NVXx_PBGeneratedMessage::writeField(const NVXx_PBFieldDescriptor& field,
                                         NVXx_PBCodedOutputStream& stream) const {
  if (&field.classOfField() != _class) {
    throw Exception(kInvalidArgumentException, "Field " + field.name() + " is not one of " + _class->name);
  }
  pbWriteField(*this, _class->entries[field.index()], stream);
}

Data NVXx_PBGeneratedMessage::data() const {
  if (pbBound(*this, kPBSmall) <= kPBSmall) {
    uint8_t small[kPBSmall + 16];
    const uint8_t* const end = pbWriteSmallMessage(*this, small);
    return DataAccess::adopt(pbCopyBytes(small, static_cast<size_t>(end - small)));
  }
  PBSizes sizes;
  const size_t size = sizes.measure(*this);
  uint8_t* bytes = nullptr;
  Data result = DataAccess::adopt(pbNewBytes(size, bytes));
  pbWriteMessage(*this, sizes, bytes);
  return result;
}

Data NVXx_PBGeneratedMessage::delimitedData() const {
  PBSizes sizes;
  const size_t size = sizes.measure(*this);
  uint8_t* bytes = nullptr;
  const size_t prefix = NVXx_PBComputeRawVarint32Size(static_cast<uint32_t>(size));
  Data result = DataAccess::adopt(pbNewBytes(size + prefix, bytes));
  auto left = static_cast<uint32_t>(size);
  for (; left >= 0x80; left >>= 7) *bytes++ = static_cast<uint8_t>(left | 0x80);
  *bytes++ = static_cast<uint8_t>(left);
  pbWriteMessage(*this, sizes, bytes);
  return result;
}

size_t NVXx_PBGeneratedMessage::serializedSize() const {
  PBSizes sizes;
  return sizes.measure(*this);
}

size_t NVXx_PBGeneratedMessage::extensionsSerializedSize() const { return pbExtensionsSize(*this); }

}  // namespace nvxcore
