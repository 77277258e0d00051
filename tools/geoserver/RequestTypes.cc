#include "tools/geoserver/RequestTypes.h"

#include "tools/geoserver/Exchange.h"

namespace nvxcore::geoserver {
namespace {

// What a client without a cookie is given: any value but 0 does.
constexpr int64_t kIssuedCookie = 0x1122334455667788;

void readCounted(WireReader& reader) { reader.readCountedBytes(); }

}  // namespace

RequestTypes::RequestTypes() {
  _echo = {readCounted,
           [](std::string_view payload, const Exchange&, WireWriter& answer) { answer.writeBytes(payload); }};
  registerType(kUserCookie,
               {[](WireReader&) {}, [](std::string_view, const Exchange&,
                                       WireWriter& answer) { answer.writeLong(kIssuedCookie); }});
  registerType(kClientProperties, {readCounted, [](std::string_view, const Exchange&, WireWriter& answer) {
                                     answer.writeCountedBytes({});
                                   }});
}

const RequestType& RequestTypes::find(uint16_t id) const {
  const auto found = _types.find(id);
  return found == _types.end() ? _echo : found->second;
}

Post decodePost(std::string_view body, const RequestTypes& types) {
  Post post;
  WireReader reader(body);
  try {
    post.header.version = reader.readShort();
    if (post.header.version != kProtocolVersion) {
      throw WireError("protocol version " + std::to_string(post.header.version));
    }
    post.header.userCookie = reader.readLong();
    post.header.language = reader.readUtf();
    post.header.platform = reader.readUtf();
    post.header.softwareVersion = reader.readUtf();
    post.header.distributionChannel = reader.readUtf();
    while (!reader.atEnd()) {
      PostRequest request;
      request.id = reader.readShort();
      request.payloadOffset = reader.position();
      types.find(request.id).readPayload(reader);
      request.payloadLength = reader.position() - request.payloadOffset;
      post.requests.push_back(request);
    }
  } catch (const std::exception& error) {
    post.error = "at byte " + std::to_string(reader.position()) + ": " + error.what();
  }
  return post;
}

ProtocolReply answerPost(const Exchange& exchange, const RequestTypes& types) {
  ProtocolReply reply;
  reply.bytes.reserve(exchange.body->size() + 64);
  reply.answerEnds.reserve(exchange.post.requests.size());
  WireWriter writer(reply.bytes);
  writer.writeShort(kProtocolVersion);
  for (const PostRequest& request : exchange.post.requests) {
    writer.writeShort(request.id);
    types.find(request.id).writeAnswer(exchange.payload(request), exchange, writer);
    reply.answerEnds.push_back(reply.bytes.size());
  }
  return reply;
}

}  // namespace nvxcore::geoserver
