#include "nvxcore/message/NVXProtoFunctions.h"

#include <utility>

#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/OutputStream.h"
#include "nvxcore/transport/transforms/NVXx_HTKStringEncoding.h"

namespace nvxcore {

using Message = NVXx_PBGeneratedMessage;

namespace {

const NVXx_HTKStringEncoding& websafeEncoding() {
  static const NVXx_HTKStringEncodingRef encoding = [] {
    NVXx_HTKStringEncodingRef made = NVXx_HTKStringEncoding::rfc4648Base64WebsafeStringEncoding();
    made->setDoPad(false);
    made->addDecodeSynonyms("-+_/");
    return made;
  }();
  return *encoding;
}

/// As Base64 that was padded to whole groups of four; nothing where it is none.
Data websafeDecoded(std::string_view string) {
  const size_t missing = (4 - string.size() % 4) % 4;
  const size_t padding = string.size() - (string.find_last_not_of('=') + 1);
  if (missing + padding > 2) return {};
  return websafeEncoding().decode(string);
}

}  // namespace

Ref<Message> NVXLoadProtoModTime(const PBClass& messageClass, std::string_view path, Date* modTime) {
  if (path.empty()) return {};
  const URL file = URL::fileURLWithPath(path);
  const std::optional<FileAttributes> attributes = fileAttributes(file);
  if (!attributes || attributes->isDirectory) return {};
  if (modTime) *modTime = attributes->modificationDate;
  Error ignored;
  return Message::parseFromData(messageClass, readFile(file, &ignored), nullptr, &ignored);
}

Ref<Message> NVXLoadProto(const PBClass& messageClass, std::string_view path) {
  Date modTime;
  return NVXLoadProtoModTime(messageClass, path, &modTime);
}

bool NVXSaveProto(const Message& message, std::string_view path) {
  const std::shared_ptr<OutputStream> output =
      path.empty() ? nullptr : OutputStream::streamWithURL(URL::fileURLWithPath(path), false);
  if (!output) return false;
  // The coded stream closes it in every case.
  try {
    message.writeToOutputStream(output);
  } catch (const Exception&) {
    return false;
  }
  return true;
}

Ref<Message> NVXRaiseExceptionOnParseError(Ref<Message> message, const Error& error) {
  if (!message && error) throw Exception("NSInternalInconsistencyException", error.description());
  return message;
}

std::optional<std::string> NVXWebsafeEncodeProto(const Message* message) {
  if (!message) return std::nullopt;
  std::optional<std::string> text = websafeEncoding().encode(message->data());
  if (text->empty()) throw Exception(kRangeException, "An empty message has no web-safe form");
  return text;
}

std::string NVXWebsafeEncodeAndPrefixProto(const Message& message) {
  return "0" + *NVXWebsafeEncodeProto(&message);
}

Ref<Message> NVXWebsafeDecodeProto(const PBClass& messageClass, std::string_view string, Error* error) {
  return Message::parseFromData(messageClass, websafeDecoded(string), nullptr, error);
}

Ref<Message> NVXDeprecatedWebsafeDecodeProto(const PBClass& messageClass, std::string_view string) {
  Error error;
  Ref<Message> message = NVXWebsafeDecodeProto(messageClass, string, &error);
  return NVXRaiseExceptionOnParseError(std::move(message), error);
}

}  // namespace nvxcore
