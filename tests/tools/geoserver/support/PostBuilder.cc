#include "support/PostBuilder.h"

#include <cstdlib>
#include <stdexcept>

namespace nvxcore::geoserver {

std::string fromHex(std::string_view digits) {
  std::string bytes;
  std::string pair;
  for (const char c : digits) {
    if (c != ' ') pair.push_back(c);
    if (pair.size() < 2) continue;
    bytes.push_back(static_cast<char>(std::strtoul(pair.c_str(), nullptr, 16)));
    pair.clear();
  }
  return bytes;
}

PostBuilder::PostBuilder(int64_t cookie) {
  WireWriter writer(_bytes);
  writer.writeShort(24);
  writer.writeLong(cookie);
  for (const char* text : {"en", "linux:test", "1.0", "channel"}) writer.writeUtf(text);
}

PostBuilder& PostBuilder::request(uint16_t id, std::string_view payload) {
  WireWriter writer(_bytes);
  writer.writeShort(id);
  writer.writeBytes(payload);
  return *this;
}

PostBuilder& PostBuilder::message(uint16_t id, std::string_view bytes) {
  WireWriter writer(_bytes);
  writer.writeShort(id);
  writer.writeCountedBytes(bytes);
  return *this;
}

WireMessage clientProperties(bool gzip) {
  WireMessage properties(schemas::clientPropertiesRequest);
  if (gzip) properties.add("gzip_enabled", 1);
  return properties;
}

PostReply::PostReply(const GeoServer& server, const PostBuilder& post, std::string_view moreFields) {
  RawClient client(server.port());
  client.send(postRequest(post.bytes(), "/", moreFields));
  _raw = client.readReply();
  _body = bodyOf(_raw);
}

WireReader PostReply::answer(uint16_t id) {
  WireReader reader(std::string_view(_body).substr(std::min(_at, _body.size())));
  if (reader.readShort() != id) throw std::runtime_error("another answer than " + std::to_string(id));
  return reader;
}

int64_t PostReply::cookie() {
  WireReader reader = answer(RequestTypes::kUserCookie);
  const int64_t cookie = reader.readLong();
  _at += reader.position();
  return cookie;
}

WireMessage PostReply::message(uint16_t id, const MessageSchema& schema) {
  WireReader reader = answer(id);
  _compressed = WireReader(reader).readInt() < 0;
  const std::string bytes = readSubdata(reader);
  _at += reader.position();
  return WireMessage::parse(bytes, schema);
}

}  // namespace nvxcore::geoserver
