// One request that reached the server and what became of it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/ClientIdentity.h"
#include "tools/geoserver/HeaderList.h"
#include "tools/geoserver/ReplyPlan.h"
#include "tools/geoserver/RequestTypes.h"

namespace nvxcore::geoserver {

enum class Ending {
  none,           // still under way
  answered,       // the whole reply went out, framing included
  cut,            // the plan closed the connection
  reset,          // the plan reset the connection
  streamReset,    // the plan reset the stream (HTTP/2)
  refused,        // the plan's GOAWAY left the stream unserved (HTTP/2)
  collateral,     // another exchange's plan took the connection away (HTTP/2)
  clientGone,     // the client closed, reset or cancelled
  badRequest,     // the client's bytes broke the protocol in the middle of the body
  serverStopped,  // stop() came first
};

const char* endingName(Ending ending);

using ExchangeClock = std::chrono::steady_clock;

// A value. Handlers see it on the loop thread; the server's record hands out copies, which share the body.
struct Exchange {
  uint64_t sequence = 0;            // 1, 2, ... in the order in which request heads arrived at the server
  uint64_t connection = 0;          // 1, 2, ... in the order in which connections were accepted
  uint64_t numberOnConnection = 0;  // 1 for the first on its connection
  int32_t streamId = 0;             // HTTP/2 only

  std::string method;
  std::string target;   // as it stood in the request line, or in :path
  std::string path;     // without query, percent escapes kept
  std::string query;    // without the question mark
  std::string version;  // "HTTP/1.0", "HTTP/1.1" or "HTTP/2"
  bool tls = false;
  HeaderList headers;  // in wire order; over HTTP/2 without pseudo fields, :authority given as host
  HeaderList trailers;

  ExchangeClock::time_point headArrived;
  ExchangeClock::time_point bodyArrived;   // epoch when it never did
  ExchangeClock::time_point replyStarted;  // first byte of the reply handed to the socket
  ExchangeClock::time_point ended;

  uint64_t bodyBytes = 0;                   // decoded of any transfer coding, as far as they came
  std::shared_ptr<const std::string> body;  // never null; empty when the record keeps no bodies
  bool bodyComplete = false;
  Post post;  // of a POST that no other handler took; else empty

  ClientIdentity identity;  // of a decoded POST
  // What the client got wrong: messages and fields that can't be read. Such a POST is answered all the same.
  std::vector<std::string> clientFaults;

  FaultKind fault = FaultKind::none;  // of the plan
  std::string plan;                   // the plan in words
  int status = 0;                     // as sent; 0 when no reply head went out
  Ending ending = Ending::none;
  std::string handlerError;  // what a handler threw; the client got a 500

  std::vector<std::string> notes;  // what request types found worth telling
  // The reply's body as planned, and where its answers end; only where ServerOptions::keepReplies says so.
  std::shared_ptr<const std::string> reply;
  std::vector<size_t> answerEnds;

  uint64_t replyBytes = 0;      // length of the reply's body as planned
  uint64_t replyBytesSent = 0;  // bytes of it that were handed to the socket
  uint64_t answersPlanned = 0;  // answers that the protocol's reply had before the plan changed it
  // Leading answers that were handed to the socket whole and unchanged, in a reply a client must accept so
  // far. After a reset the client may have seen fewer, since a reset throws away what it has not read yet.
  uint64_t answersSent = 0;
  // An answer that the plan made unreadable while those behind it stayed good. It counts as sent.
  std::optional<uint64_t> spoiledAnswer;

  std::string_view payload(const PostRequest& request) const {
    return std::string_view(*body).substr(request.payloadOffset, request.payloadLength);
  }
  // One line: who, what, how much, how it ended.
  std::string summary() const;
};

}  // namespace nvxcore::geoserver
