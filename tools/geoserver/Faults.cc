#include "tools/geoserver/Faults.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "tools/geoserver/RequestTypes.h"

namespace nvxcore::geoserver {

const char* faultName(FaultKind kind) {
  switch (kind) {
    case FaultKind::none:
      return "none";
    case FaultKind::status:
      return "status";
    case FaultKind::emptyStatus:
      return "empty status";
    case FaultKind::wrongContentType:
      return "wrong content type";
    case FaultKind::wrongVersionWord:
      return "wrong version word";
    case FaultKind::wrongRequestId:
      return "wrong request id";
    case FaultKind::alteredAnswer:
      return "altered answer";
    case FaultKind::shortAnswer:
      return "short answer";
    case FaultKind::badCompression:
      return "bad compression";
    case FaultKind::unreadableMessage:
      return "unreadable message";
    case FaultKind::excessiveLength:
      return "excessive length";
    case FaultKind::lowestLength:
      return "lowest length";
    case FaultKind::extraBytes:
      return "extra bytes";
    case FaultKind::truncated:
      return "truncated";
    case FaultKind::pieces:
      return "pieces";
    case FaultKind::delayedHead:
      return "delayed head";
    case FaultKind::delayedBody:
      return "delayed body";
    case FaultKind::drip:
      return "drip";
    case FaultKind::pausedBody:
      return "paused body";
    case FaultKind::stalledBody:
      return "stalled body";
    case FaultKind::closeBeforeReply:
      return "close before reply";
    case FaultKind::closeAfterHead:
      return "close after head";
    case FaultKind::closeMidBody:
      return "close mid body";
    case FaultKind::resetBeforeReply:
      return "reset before reply";
    case FaultKind::resetMidBody:
      return "reset mid body";
    case FaultKind::earlyReply:
      return "early reply";
    case FaultKind::garbage:
      return "garbage";
    case FaultKind::streamResetBeforeHead:
      return "stream reset before head";
    case FaultKind::streamResetMidBody:
      return "stream reset mid body";
    case FaultKind::goAwayServed:
      return "goaway, served";
    case FaultKind::goAwayRefused:
      return "goaway, refused";
  }
  return "unknown";
}

namespace faults {
namespace {

ReplyPlan faulty(FaultKind kind) { return ReplyPlan().withFault(kind); }

// The place of one answer in the reply's bytes, its ID included.
struct Span {
  size_t begin;
  size_t end;
};

// Runs `change` on the answer at that place, if the reply has answers at all. The ends of the answers are
// those of the unchanged reply, and stay so: they serve the pieces that a plan may still name.
BodyChange onAnswer(uint64_t answer, std::function<void(std::string& bytes, Span span)> change) {
  return [answer, change = std::move(change)](ProtocolReply& reply) {
    if (reply.answerEnds.empty()) return;
    const size_t place = answer % reply.answerEnds.size();
    const size_t begin = place ? reply.answerEnds[place - 1] : sizeof(kProtocolVersion);
    change(reply.bytes, {begin, reply.answerEnds[place]});
  };
}

void putShort(std::string& bytes, size_t at, uint16_t value) {
  bytes[at] = static_cast<char>(value >> 8);
  bytes[at + 1] = static_cast<char>(value);
}

constexpr size_t kIdBytes = 2;
constexpr size_t kLengthBytes = 4;

std::string lengthField(int32_t length) {
  std::string bytes;
  WireWriter(bytes).writeInt(length);
  return bytes;
}

// Runs `change` on the answer at that place or the next that is a subdata; nothing when there is none.
BodyChange onSubdata(uint64_t answer,
                     std::function<void(ProtocolReply& reply, size_t place, Span span)> change) {
  return [answer, change = std::move(change)](ProtocolReply& reply) {
    const size_t count = reply.subdata.size();
    for (size_t i = 0; i < count; ++i) {
      const size_t place = (answer + i) % count;
      if (!reply.subdata[place]) continue;
      change(reply, place,
             {place ? reply.answerEnds[place - 1] : sizeof(kProtocolVersion), reply.answerEnds[place]});
      return;
    }
  };
}

// Puts other bytes behind the ID, which the client can go past; the answers behind it move.
BodyChange spoiling(uint64_t answer, std::string replacement) {
  return onSubdata(
      answer, [replacement = std::move(replacement)](ProtocolReply& reply, size_t place, Span span) {
        reply.bytes.replace(span.begin + kIdBytes, span.end - span.begin - kIdBytes, replacement);
        const size_t end = span.begin + kIdBytes + replacement.size();
        for (size_t i = place; i < reply.answerEnds.size(); ++i) reply.answerEnds[i] += end - span.end;
        reply.spoiledAnswer = place;
      });
}

}  // namespace

ReplyPlan status(int status, std::string body) {
  return ReplyPlan::withBody(status, "text/plain", std::move(body)).withFault(FaultKind::status);
}

ReplyPlan emptyStatus(int status) { return ReplyPlan::withStatus(status).withFault(FaultKind::emptyStatus); }

ReplyPlan wrongContentType(std::string_view contentType) {
  return faulty(FaultKind::wrongContentType).withHeader("Content-Type", contentType);
}

ReplyPlan wrongVersionWord(uint16_t version) {
  return faulty(FaultKind::wrongVersionWord).withChange([version](ProtocolReply& reply) {
    if (reply.bytes.size() >= sizeof(version)) putShort(reply.bytes, 0, version);
  });
}

ReplyPlan wrongRequestId(uint64_t answer, uint16_t id) {
  return faulty(FaultKind::wrongRequestId).withChange(onAnswer(answer, [id](std::string& bytes, Span span) {
    putShort(bytes, span.begin, id);
  }));
}

ReplyPlan otherAnswer(uint64_t answer, std::string replacement) {
  return faulty(FaultKind::alteredAnswer)
      .withChange(onAnswer(answer, [replacement = std::move(replacement)](std::string& bytes, Span span) {
        bytes.replace(span.begin + kIdBytes, span.end - span.begin - kIdBytes, replacement);
      }));
}

ReplyPlan alteredAnswer(uint64_t answer, uint64_t count) {
  return faulty(FaultKind::alteredAnswer).withChange(onAnswer(answer, [count](std::string& bytes, Span span) {
    const size_t length = std::min<uint64_t>(count, span.end - span.begin - kIdBytes);
    for (size_t i = span.end - length; i < span.end; ++i) bytes[i] = static_cast<char>(~bytes[i]);
  }));
}

ReplyPlan shortAnswer(uint64_t answer, uint64_t count) {
  return faulty(FaultKind::shortAnswer).withChange(onAnswer(answer, [count](std::string& bytes, Span span) {
    const size_t length = std::min<uint64_t>(count, span.end - span.begin);
    bytes.erase(span.end - length, length);
  }));
}

ReplyPlan badCompression(uint64_t answer) {
  // The head of a zlib stream, and a block of a kind that there is not (RFC 1951, 3.2.3).
  const std::string stream("\x78\x9C\xFF\xFF\xFF\xFF", 6);
  return faulty(FaultKind::badCompression)
      .withChange(spoiling(answer, lengthField(-static_cast<int32_t>(stream.size())) + stream));
}

ReplyPlan unreadableMessage(uint64_t answer) {
  // A field that is longer than its message.
  return faulty(FaultKind::unreadableMessage).withChange(spoiling(answer, lengthField(3) + "\x0A\x7F!"));
}

ReplyPlan excessiveLength(uint64_t answer, uint32_t beyond, bool compressed) {
  return faulty(FaultKind::excessiveLength)
      .withChange(onSubdata(answer, [beyond, compressed](ProtocolReply& reply, size_t, Span span) {
        const size_t start = span.begin + kIdBytes + kLengthBytes;
        const uint64_t length =
            std::min<uint64_t>(reply.bytes.size() - start + beyond, std::numeric_limits<int32_t>::max());
        reply.bytes.replace(span.begin + kIdBytes, kLengthBytes,
                            lengthField(static_cast<int32_t>(length) * (compressed ? -1 : 1)));
      }));
}

ReplyPlan lowestLength(uint64_t answer) {
  return faulty(FaultKind::lowestLength)
      .withChange(onSubdata(answer, [](ProtocolReply& reply, size_t, Span span) {
        reply.bytes.replace(span.begin + kIdBytes, kLengthBytes,
                            lengthField(std::numeric_limits<int32_t>::min()));
      }));
}

ReplyPlan extraBytes(std::string extra) {
  return faulty(FaultKind::extraBytes).withChange([extra = std::move(extra)](ProtocolReply& reply) {
    reply.bytes += extra;
  });
}

ReplyPlan truncated(uint64_t bytes) {
  ReplyPlan plan = faulty(FaultKind::truncated);
  plan.truncateAt = bytes;
  return plan;
}

ReplyPlan pieces(const std::vector<uint64_t>& cuts, Millis pause) {
  ReplyPlan plan = faulty(FaultKind::pieces);
  uint64_t sent = 0;
  for (const uint64_t cut : cuts) {
    plan.thenBytes(cut > sent ? cut - sent : 0).thenPause(pause);
    sent = std::max(sent, cut);
  }
  return plan;
}

ReplyPlan delayedHead(Millis delay) { return faulty(FaultKind::delayedHead).thenPause(delay); }

ReplyPlan delayedBody(Millis delay) { return faulty(FaultKind::delayedBody).thenHead().thenPause(delay); }

ReplyPlan drip(uint64_t bytes, Millis every) { return faulty(FaultKind::drip).thenDrip(bytes, every); }

ReplyPlan pausedBody(uint64_t after, Millis pause) {
  return faulty(FaultKind::pausedBody).thenBytes(after).thenPause(pause);
}

ReplyPlan stalledBody(uint64_t after, std::string gate) {
  return faulty(FaultKind::stalledBody).thenBytes(after).thenStall(std::move(gate));
}

ReplyPlan closeBeforeReply() { return faulty(FaultKind::closeBeforeReply).thenClose(); }

ReplyPlan closeAfterHead() { return faulty(FaultKind::closeAfterHead).thenHead().thenClose(); }

ReplyPlan closeMidBody(uint64_t after) {
  return faulty(FaultKind::closeMidBody).thenBytes(after).thenClose();
}

ReplyPlan resetBeforeReply() { return faulty(FaultKind::resetBeforeReply).thenReset(); }

ReplyPlan resetMidBody(uint64_t after) {
  return faulty(FaultKind::resetMidBody).thenBytes(after).thenReset();
}

ReplyPlan earlyReply(int status, std::string body) {
  ReplyPlan plan = ReplyPlan::withBody(status, "text/plain", std::move(body));
  plan.after = ReplyPlan::After::linger;
  return plan.withFault(FaultKind::earlyReply).answeredEarly();
}

ReplyPlan garbage(std::string bytes) {
  return ReplyPlan::raw(std::move(bytes), ReplyPlan::After::drop).withFault(FaultKind::garbage);
}

ReplyPlan streamResetBeforeHead(uint32_t code) {
  return faulty(FaultKind::streamResetBeforeHead).thenStreamReset(code);
}

ReplyPlan streamResetMidBody(uint64_t after, uint32_t code) {
  return faulty(FaultKind::streamResetMidBody).thenBytes(after).thenStreamReset(code);
}

ReplyPlan goAwayServed(uint32_t code) { return faulty(FaultKind::goAwayServed).thenGoAway(code, false); }

ReplyPlan goAwayRefused(uint32_t code) { return faulty(FaultKind::goAwayRefused).thenGoAway(code, true); }

}  // namespace faults
}  // namespace nvxcore::geoserver
