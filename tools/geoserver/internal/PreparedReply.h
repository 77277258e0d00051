// A plan applied to one exchange: the bytes and fields that will go out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/Exchange.h"
#include "tools/geoserver/ReplyPlan.h"

namespace nvxcore::geoserver {

struct PreparedReply {
  int status = 200;
  std::string reason;
  HeaderList headers;  // complete but for those of framing and connection
  std::vector<std::string> absent;
  HeaderList trailers;
  std::string body;
  bool bodyAllowed = true;    // false for HEAD, 204 and 304
  bool lengthAllowed = true;  // false for 204
  ReplyPlan::Framing framing = ReplyPlan::Framing::length;
  uint64_t declaredLength = 0;
  std::vector<size_t> answerEnds;  // of the unchanged reply
  // The leading bytes of the body that are those of the unchanged reply, in a reply that a client must
  // accept; else 0.
  size_t goodBytes = 0;

  std::optional<uint64_t> spoiledAnswer;
  std::vector<std::string> notes;  // of the request types

  // Whether a field that the protocol would add by itself is still to be added.
  bool lacks(std::string_view name) const;
};

// Runs the answer writers and the plan's changes; throws what they throw.
PreparedReply prepareReply(const ReplyPlan& plan, const Exchange& exchange, const RequestTypes& types,
                           const Compression& compression);

const char* reasonPhrase(int status);
// The present moment as an HTTP date (RFC 9110, 5.6.7), kept for a second.
std::string_view httpDate();

}  // namespace nvxcore::geoserver
