// What a geo server shall reply to one request, and when each part of it goes out.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/FaultKind.h"
#include "tools/geoserver/HeaderList.h"

namespace nvxcore::geoserver {

struct ProtocolReply;

using Millis = std::chrono::milliseconds;

// A change to the reply's bytes before they are sent. Runs on the loop thread.
using BodyChange = std::function<void(ProtocolReply&)>;

// One thing that is done while a reply plays. Built by the then... functions of ReplyPlan.
struct ReplyStep {
  enum class Kind {
    head,
    bytes,
    share,
    upToAnswer,
    rest,
    drip,
    raw,
    interim,
    pause,
    stall,
    close,
    reset,
    streamReset,
    goAway
  };
  Kind kind = Kind::head;
  uint64_t amount = 0;  // bytes, thousandths, answers, or the error code
  Millis wait{0};
  std::string text = {};  // a gate's name, or bytes as they stand
  HeaderList headers = {};
  bool refuse = false;
};

// A value; build it anywhere. As it is made it is a good reply: status 200, the connection's own protocol, in
// one piece.
//
// The reply's parts are what it says; the steps are when it says it. A reply without steps goes out at once.
// With steps they are played one after the other, each handing its bytes to the socket before the next
// begins. What no step has sent when they are over follows by itself, the head included: a plan whose one
// step is a pause is a late reply.
struct ReplyPlan {
  enum class Framing { length, chunked, untilClose };  // HTTP/1 only; HTTP/2 has its own
  enum class Intake {
    read,    // the request's body is read as it comes
    unread,  // it is left in the socket until the reply is over: the client cannot send more than the buffers
             // hold
  };
  enum class After {
    asAsked,  // the connection stays or closes as the client's head asked
    close,    // "Connection: close" is announced, and kept
    drop,     // the connection closes after the reply without having announced it
    linger,   // announced; after the reply the server reads and throws away what still comes, then closes
  };

  int status = 200;
  std::string reason;               // of the status line; the usual one when empty
  HeaderList headers;               // each replaces the default field of that name
  std::vector<std::string> absent;  // default fields that are left out
  // The body; without one it is the protocol's reply to the POST (empty when no POST was decoded).
  std::optional<std::string> body;
  std::vector<BodyChange> changes;
  std::optional<uint64_t> truncateAt;      // the body ends here, and the framing agrees
  std::optional<uint64_t> declaredLength;  // a Content-Length that need not be true
  HeaderList trailers;                     // behind a chunked body, or over HTTP/2
  Framing framing = Framing::length;
  // Reply as soon as the request's head is there. Only a head script or a queued plan comes in time for that.
  bool early = false;
  Intake intake = Intake::read;
  std::vector<ReplyStep> steps;
  After after = After::asAsked;
  FaultKind fault = FaultKind::none;
  std::string label;  // for the record; the fault's name when empty

  static ReplyPlan withStatus(int status) { return withBody(status, {}, {}); }
  static ReplyPlan withBody(int status, std::string_view contentType, std::string body);
  // Bytes written to the socket as they stand, in place of a reply (over HTTP/2: between its frames). With
  // `after` asAsked the connection goes on as if a reply had been sent.
  static ReplyPlan raw(std::string bytes, After after = After::asAsked);

  ReplyPlan& withHeader(std::string_view name, std::string_view value);
  ReplyPlan& withoutHeader(std::string_view name);
  ReplyPlan& withChange(BodyChange change);
  ReplyPlan& withFault(FaultKind kind, std::string words = {});
  ReplyPlan& answeredEarly(Intake bodyIntake = Intake::read);

  // Each of these appends a step. Those that send body bytes send the head first when it has not gone out.
  ReplyPlan& thenHead();
  ReplyPlan& thenBytes(uint64_t count);
  // Until that many thousandths of the body are out; never its last byte.
  ReplyPlan& thenShare(uint64_t thousandths);
  ReplyPlan& thenUpToAnswer(uint64_t answers);  // all bytes of the first `answers` answers
  ReplyPlan& thenRest();
  ReplyPlan& thenDrip(uint64_t bytes, Millis every);  // until the body's end
  ReplyPlan& thenRaw(std::string bytes);
  ReplyPlan& thenInterim(int status, HeaderList headers = {});  // a 1xx reply
  ReplyPlan& thenPause(Millis wait);
  // Waits until GeoServer::release(gate); with an empty name until the client goes or the server stops.
  ReplyPlan& thenStall(std::string gate = {});
  ReplyPlan& thenClose();  // FIN; unannounced
  ReplyPlan& thenReset();  // RST
  // RST_STREAM over HTTP/2; over HTTP/1 the connection's reset.
  ReplyPlan& thenStreamReset(uint32_t code);
  // GOAWAY over HTTP/2. With `refuse` its last stream is the one before this, so that this one is not served;
  // else this one is served to its end. Over HTTP/1 the connection closes, with `refuse` at once, else after
  // the reply.
  ReplyPlan& thenGoAway(uint32_t code, bool refuse);

 private:
  ReplyPlan& then(ReplyStep step);
};

}  // namespace nvxcore::geoserver
