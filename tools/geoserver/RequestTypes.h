// The request types that a geo server knows: for each ID how its payload is read and how its answer is
// written.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/geoserver/Subdata.h"
#include "tools/geoserver/WireCodec.h"
#include "tools/geoserver/messages/WireMessage.h"

namespace nvxcore::geoserver {

struct Exchange;

// Reads past the payload of one request, no more and no less: the wire has no length that would say where it
// ends. Throws WireError when it is malformed, which ends the decoding of that POST.
using PayloadReader = std::function<void(WireReader&)>;

// Writes the answer to one request, without the ID that stands before it. `payload` is what the reader went
// past.
using AnswerWriter =
    std::function<void(std::string_view payload, const Exchange& exchange, WireWriter& answer)>;

// One request whose payload is a message, and what its handler may want to know.
struct MessageCall {
  std::string_view bytes;  // the message
  const WireMessage&
      message;  // the same, read by the type's schema; without one it is read as unknown fields
  const Exchange& exchange;
  std::vector<std::string>& notes;  // for the record: what the handler finds worth telling
};

// Gives the answer, a serialised message.
using MessageAnswer = std::function<std::string(const MessageCall&)>;

// A request type that carries a message both ways: a 32-bit length with that many bytes out, a subdata back.
struct MessageType {
  std::string name;
  const MessageSchema* request = nullptr;
  const MessageSchema* answer = nullptr;
  MessageAnswer answerMessage;
};

// Functions of a type run on the server's loop thread, and must not block. An exception of theirs fails only
// the POST at hand.
struct RequestType {
  PayloadReader readPayload;
  AnswerWriter writeAnswer;     // empty in a type that carries messages
  MessageType message = {};     // of a type that carries messages; of others the name alone
  bool answersSubdata = false;  // the answer is a length and that many bytes

  bool carriesMessages() const { return static_cast<bool>(message.answerMessage); }
};

class RequestTypes {
 public:
  static constexpr uint16_t kUserCookie = 15;
  static constexpr uint16_t kResource = 39;
  static constexpr uint16_t kClientProperties = 62;
  static constexpr uint16_t kClientParameters = 75;
  static constexpr uint16_t kUserEvent3 = 145;

  // Knows no type: a 32-bit length with that many bytes, echoed.
  RequestTypes();

  void registerType(uint16_t id, RequestType type) { _types[id] = std::move(type); }
  void registerMessageType(uint16_t id, MessageType type);
  // The type of that ID. One that was never registered is a 32-bit length with that many bytes, echoed.
  const RequestType& find(uint16_t id) const;

 private:
  std::unordered_map<uint16_t, RequestType> _types;
  RequestType _echo;
};

// What stands at the head of a POST.
struct PostHeader {
  uint16_t version = 0;
  int64_t userCookie = 0;
  std::string language;
  std::string platform;
  std::string softwareVersion;
  std::string distributionChannel;
};

// One request of a POST; its payload is given as its place in the body.
struct PostRequest {
  uint16_t id = 0;
  size_t payloadOffset = 0;
  size_t payloadLength = 0;
};

// A POST's body, decoded as far as that went.
struct Post {
  PostHeader header;
  std::vector<PostRequest> requests;
  // Why decoding stopped before the end of the body; empty when it did not.
  std::string error;
};

inline constexpr uint16_t kProtocolVersion = 24;

Post decodePost(std::string_view body, const RequestTypes& types);

// A reply's body: the version word and the answers, and where in it each answer ends (its ID starts where the
// one before it ends, the first at 2).
struct ProtocolReply {
  std::string bytes;
  std::vector<size_t> answerEnds;
  std::vector<bool> subdata;  // which answers are a length and that many bytes behind the ID
  // An answer that a change made unreadable without leaving the client out of step: those behind it are good.
  std::optional<size_t> spoiledAnswer;
  std::vector<std::string> notes;  // of the handlers
};

ProtocolReply answerPost(const Exchange& exchange, const RequestTypes& types, const Compression& compression);

}  // namespace nvxcore::geoserver
