#include "tools/geoserver/RequestTypes.h"

#include "tools/geoserver/Exchange.h"

namespace nvxcore::geoserver {
namespace {

void readCounted(WireReader& reader) { reader.readCountedBytes(); }

// The answer to a message that can't be read is one without fields: the wire has no way to say so.
std::string messageAnswer(const RequestType& type, std::string_view payload, const Exchange& exchange,
                          std::vector<std::string>& notes) {
  const std::string_view bytes = WireReader(payload).readCountedBytes();
  const bool known = type.message.request != nullptr;
  WireMessage message;
  try {
    message = WireMessage::parse(bytes, known ? *type.message.request : schemas::unknown);
  } catch (const WireError&) {
    if (known) return {};
  }
  if (!message.fault().empty()) return {};
  return type.message.answerMessage({bytes, message, exchange, notes});
}

}  // namespace

RequestTypes::RequestTypes() {
  _echo.readPayload = readCounted;
  _echo.writeAnswer = [](std::string_view payload, const Exchange&, WireWriter& answer) {
    answer.writeBytes(payload);
  };
  _echo.answersSubdata = true;
  _echo.message.name = "echo";
}

void RequestTypes::registerMessageType(uint16_t id, MessageType type) {
  RequestType registered;
  registered.readPayload = readCounted;
  registered.message = std::move(type);
  registered.answersSubdata = true;
  registerType(id, std::move(registered));
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

ProtocolReply answerPost(const Exchange& exchange, const RequestTypes& types,
                         const Compression& compression) {
  ProtocolReply reply;
  reply.bytes.reserve(exchange.body->size() + 64);
  reply.answerEnds.reserve(exchange.post.requests.size());
  const bool compress = !compression.onlyWhenAsked || exchange.identity.gzipEnabled();
  WireWriter writer(reply.bytes);
  writer.writeShort(kProtocolVersion);
  for (const PostRequest& request : exchange.post.requests) {
    const RequestType& type = types.find(request.id);
    const std::string_view payload = exchange.payload(request);
    writer.writeShort(request.id);
    if (type.carriesMessages()) {
      writeSubdata(writer, messageAnswer(type, payload, exchange, reply.notes), compression, compress);
    } else {
      type.writeAnswer(payload, exchange, writer);
    }
    reply.answerEnds.push_back(reply.bytes.size());
    reply.subdata.push_back(type.answersSubdata);
  }
  return reply;
}

}  // namespace nvxcore::geoserver
