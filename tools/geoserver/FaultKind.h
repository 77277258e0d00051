// The kinds of fault that a reply can have.
#pragma once

#include <array>

namespace nvxcore::geoserver {

enum class FaultKind {
  none,
  status,       // an error status with a body
  emptyStatus,  // an error status without one
  wrongContentType,
  wrongVersionWord,
  wrongRequestId,     // before one of the answers
  alteredAnswer,      // bytes of one answer changed, its length kept
  shortAnswer,        // bytes missing at the end of one answer, those behind it moved up
  badCompression,     // a message that says it is compressed, and is not
  unreadableMessage,  // an answer whose bytes are no message
  excessiveLength,    // a message longer than all that still comes
  lowestLength,       // a message of length -2147483648
  extraBytes,         // behind the last answer
  truncated,          // the body ends early, the framing agrees
  pieces,             // a good reply in pieces, with pauses
  delayedHead,        // a good reply after a pause
  delayedBody,        // a good reply with a pause behind its head
  drip,               // a good reply, few bytes at a time
  pausedBody,         // a good reply with a long pause in the middle of its body
  stalledBody,        // a pause that ends only when the test releases it, or the client gives up
  closeBeforeReply,
  closeAfterHead,
  closeMidBody,
  resetBeforeReply,
  resetMidBody,
  earlyReply,             // an error status before the request's body was read, then a lingering close
  garbage,                // bytes that are no HTTP
  streamResetBeforeHead,  // HTTP/2 only, like all that follow
  streamResetMidBody,
  goAwayServed,   // GOAWAY, the stream served to its end
  goAwayRefused,  // GOAWAY that leaves the stream out
};

inline constexpr FaultKind kLastFaultKind = FaultKind::goAwayRefused;
inline constexpr size_t kFaultKindCount = static_cast<size_t>(kLastFaultKind) + 1;

const char* faultName(FaultKind kind);
inline bool needsHttp2(FaultKind kind) { return kind >= FaultKind::streamResetBeforeHead; }

}  // namespace nvxcore::geoserver
