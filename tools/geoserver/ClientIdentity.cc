#include "tools/geoserver/ClientIdentity.h"

#include <algorithm>

#include "tools/geoserver/WireCodec.h"
#include "tools/geoserver/messages/WebSafe.h"

namespace nvxcore::geoserver {
namespace {

std::string_view takeWord(std::string_view& rest) {
  const size_t blank = std::min(rest.find(' '), rest.size());
  const std::string_view word = rest.substr(0, blank);
  rest.remove_prefix(blank);
  return word;
}

WireMessage descriptor(std::string_view& rest) {
  if (takeWord(rest) != "w" || rest.empty()) throw WireError("no \"w \" in front");
  rest.remove_prefix(1);
  const std::string_view word = takeWord(rest);
  if (word.empty()) throw WireError("empty");
  const auto bytes = webSafeDecoded(word);
  if (!bytes) throw WireError("no web-safe Base64 without padding");
  WireMessage message = WireMessage::parse(*bytes, schemas::locationDescriptor);
  if (const std::string fault = message.fault(); !fault.empty()) throw WireError(fault);
  return message;
}

}  // namespace

std::vector<WireMessage> locationDescriptors(std::string_view fieldValue) {
  std::vector<WireMessage> descriptors;
  std::string_view rest = fieldValue;
  do {
    try {
      if (!descriptors.empty()) rest.remove_prefix(1);
      descriptors.push_back(descriptor(rest));
    } catch (const WireError& error) {
      throw WireError("descriptor " + std::to_string(descriptors.size() + 1) + ": " + error.what());
    }
  } while (!rest.empty());
  return descriptors;
}

}  // namespace nvxcore::geoserver
