// The request types that a geo server knows: for each ID how its payload is read and how its answer is
// written.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/geoserver/WireCodec.h"

namespace nvxcore::geoserver {

struct Exchange;

// Reads past the payload of one request, no more and no less: the wire has no length that would say where it
// ends. Throws WireError when it is malformed, which ends the decoding of that POST.
using PayloadReader = std::function<void(WireReader&)>;

// Writes the answer to one request, without the ID that stands before it. `payload` is what the reader went
// past.
using AnswerWriter =
    std::function<void(std::string_view payload, const Exchange& exchange, WireWriter& answer)>;

// Both run on the server's loop thread, and must not block. An exception of theirs fails only the POST at
// hand.
struct RequestType {
  PayloadReader readPayload;
  AnswerWriter writeAnswer;
};

class RequestTypes {
 public:
  static constexpr uint16_t kUserCookie = 15;
  static constexpr uint16_t kClientProperties = 62;

  // Knows the user cookie (no payload; its answer is a 64-bit cookie) and the client properties (a 32-bit
  // length and that many bytes both ways; answered with an empty message).
  RequestTypes();

  void registerType(uint16_t id, RequestType type) { _types[id] = std::move(type); }
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
};

ProtocolReply answerPost(const Exchange& exchange, const RequestTypes& types);

}  // namespace nvxcore::geoserver
