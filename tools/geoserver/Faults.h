// Ready-made faulty replies, one function for each kind. Each gives a plan that can be changed further.
//
// An answer is named by its place, 0 for the first; a place beyond the last wraps around, so that any number
// names an answer of any reply that has one. Byte counts beyond the body's length mean its end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/ReplyPlan.h"

namespace nvxcore::geoserver::faults {

ReplyPlan status(int status, std::string body);
ReplyPlan emptyStatus(int status);
ReplyPlan wrongContentType(std::string_view contentType);
ReplyPlan wrongVersionWord(uint16_t version);
ReplyPlan wrongRequestId(uint64_t answer, uint16_t id);
// Replaces the answer's bytes behind its ID by others, whatever their number.
ReplyPlan otherAnswer(uint64_t answer, std::string bytes);
// Flips all bits of the last `count` bytes of the answer, its ID aside.
ReplyPlan alteredAnswer(uint64_t answer, uint64_t count);
// Leaves out the last `count` bytes of the answer.
ReplyPlan shortAnswer(uint64_t answer, uint64_t count);
// Faults of messages. They befall the answer at that place or the first behind it that is a length and that
// many bytes. After the first two the client is still in step, and what lies behind is good.
ReplyPlan badCompression(uint64_t answer);
ReplyPlan unreadableMessage(uint64_t answer);
// Its length goes beyond all that still comes by that many bytes; a negative one when `compressed`.
ReplyPlan excessiveLength(uint64_t answer, uint32_t beyond, bool compressed = false);
ReplyPlan lowestLength(uint64_t answer);
ReplyPlan extraBytes(std::string bytes);
// The body ends after `bytes`, and Content-Length says so.
ReplyPlan truncated(uint64_t bytes);
// Cuts the reply's body at ascending offsets and waits for `pause` at each cut.
ReplyPlan pieces(const std::vector<uint64_t>& cuts, Millis pause);
ReplyPlan delayedHead(Millis delay);
ReplyPlan delayedBody(Millis delay);
ReplyPlan drip(uint64_t bytes, Millis every);
ReplyPlan pausedBody(uint64_t after, Millis pause);
// Stalls behind that many body bytes until the gate is released; with an empty name for ever.
ReplyPlan stalledBody(uint64_t after, std::string gate = {});
ReplyPlan closeBeforeReply();
ReplyPlan closeAfterHead();
ReplyPlan closeMidBody(uint64_t after);
ReplyPlan resetBeforeReply();
ReplyPlan resetMidBody(uint64_t after);
// An error status while the request's body is still coming; then the connection lingers, so that what the
// client still sends does not turn into a reset that destroys the reply.
ReplyPlan earlyReply(int status, std::string body);
ReplyPlan garbage(std::string bytes);
ReplyPlan streamResetBeforeHead(uint32_t code);
ReplyPlan streamResetMidBody(uint64_t after, uint32_t code);
ReplyPlan goAwayServed(uint32_t code = 0);
ReplyPlan goAwayRefused(uint32_t code = 0);

}  // namespace nvxcore::geoserver::faults
