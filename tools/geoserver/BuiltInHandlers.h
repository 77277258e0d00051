// The paths that every geo server answers, for tests of plain HTTP:
//
//   /status/CODE                  that status, with a line of text
//   /bytes/N                      N bytes of the pattern below; ETag, Last-Modified, Range and If-Range (RFC
//   9110, 14) /echo                         the request's body, its method and length in X-Echo-Method and
//   X-Echo-Length /headers                      the request's header fields, one on a line
//   /redirect/CODE?to=URL         that status with that Location
//   /cookies/set?NAME=VALUE&...   sets those cookies
//   /encoded/CODING/N             N bytes of the repeated text below, in gzip, deflate or br
//   /drip?bytes=N&everyMs=M       N bytes of the pattern, one every M milliseconds
//   /delay/MS                     a line of text after that time
//   /basic-auth/USER/PASSWORD     401 until those credentials come
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/geoserver/Exchange.h"
#include "tools/geoserver/ReplyPlan.h"

namespace nvxcore::geoserver {

bool isBuiltInPath(std::string_view path);
// The built-in handlers' plan for that request; nothing when its path is none of theirs. A script can take it
// and add steps of its own.
std::optional<ReplyPlan> builtInReply(const Exchange& exchange);

// The bytes [offset, offset + length) of the endless pattern that /bytes serves. It has a period of 251
// blocks, so that a piece that is lost or twice there shows.
std::string patternBytes(uint64_t offset, size_t length);
// Text of that length that packs to almost nothing.
std::string repeatedText(size_t length);

}  // namespace nvxcore::geoserver
