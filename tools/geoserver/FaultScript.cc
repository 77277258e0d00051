#include "tools/geoserver/FaultScript.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include "tools/geoserver/internal/Random.h"

namespace nvxcore::geoserver {
namespace {

// Byte offsets within what a reply to some dozens of requests has; smaller ones are likelier, since there the
// version word and the first answers are.
constexpr uint64_t kSmallOffset = 64;
constexpr uint64_t kLargeOffset = 4096;
constexpr Millis kLongestPause{20};

}  // namespace

FaultWeights FaultScript::messageWeights() {
  FaultWeights weights;
  weights.fill(1);
  weights[static_cast<size_t>(FaultKind::stalledBody)] = 0;
  weights[static_cast<size_t>(FaultKind::none)] = kFaultKindCount - 2;
  return weights;
}

FaultWeights FaultScript::defaultWeights() {
  FaultWeights weights = messageWeights();
  for (const FaultKind kind : {FaultKind::badCompression, FaultKind::unreadableMessage})
    weights[static_cast<size_t>(kind)] = 0;
  weights[static_cast<size_t>(FaultKind::none)] -= 2;
  return weights;
}

FaultScript::FaultScript(uint64_t seed, const FaultWeights& weights) {
  _http1.random = seed;
  _http2.random = ~seed;
  for (size_t i = 0; i < kFaultKindCount; ++i) {
    const auto kind = static_cast<FaultKind>(i);
    _http2.cards.insert(_http2.cards.end(), weights[i], kind);
    if (!needsHttp2(kind)) _http1.cards.insert(_http1.cards.end(), weights[i], kind);
  }
  for (Deck* deck : {&_http1, &_http2}) {
    if (deck->cards.empty()) deck->cards.push_back(FaultKind::none);
    deck->dealt = deck->cards.size();
  }
}

uint64_t FaultScript::draw(uint64_t& state) {
  const uint64_t drawn = splitMix64(state);
  state += kSplitMix64Step;
  return drawn;
}

FaultKind FaultScript::deal(Deck& deck) {
  if (deck.dealt == deck.cards.size()) {
    deck.dealt = 0;
    for (size_t i = deck.cards.size() - 1; i > 0; --i)
      std::swap(deck.cards[i], deck.cards[draw(deck.random) % (i + 1)]);
  }
  return deck.cards[deck.dealt++];
}

ReplyPlan FaultScript::next(const Exchange& exchange) {
  std::lock_guard lock(_mutex);
  Deck& deck = exchange.version == "HTTP/2" ? _http2 : _http1;
  const FaultKind kind = deal(deck);
  ++_counts[static_cast<size_t>(kind)];
  return plan(kind, deck.random);
}

ReplyPlan FaultScript::plan(FaultKind kind, uint64_t& random) {
  const auto below = [&random](uint64_t bound) { return draw(random) % bound; };
  const auto offset = [&] { return 1 + below(below(2) ? kSmallOffset : kLargeOffset); };
  const auto share = [&] { return below(below(2) ? 50 : 1000); };
  const auto pause = [&] { return Millis(1 + below(static_cast<uint64_t>(kLongestPause.count()))); };
  const auto anyOf = [&](auto... choices) {
    const std::array all{choices...};
    return all[below(all.size())];
  };
  // Drawn here for all: the order in which a call's arguments are evaluated is the compiler's choice.
  const uint64_t answer = below(100);
  const uint64_t few = 1 + below(8);
  switch (kind) {
    case FaultKind::none:
      return ReplyPlan();
    case FaultKind::status:
      return faults::status(anyOf(302, 400, 403, 404, 429, 500, 502, 503), "not this time\n");
    case FaultKind::emptyStatus:
      return faults::emptyStatus(anyOf(301, 304, 401, 404, 500, 503));
    case FaultKind::wrongContentType:
      return faults::wrongContentType(
          anyOf("text/html", "application/octet-stream", "application/binary; x=1", ""));
    case FaultKind::wrongVersionWord:
      return faults::wrongVersionWord(anyOf(0, 23, 25, 0x1800, 0xFFFF));
    case FaultKind::wrongRequestId:
      return faults::wrongRequestId(answer, static_cast<uint16_t>(40000 + below(999)));
    case FaultKind::alteredAnswer:
      return faults::alteredAnswer(answer, few);
    case FaultKind::shortAnswer:
      return faults::shortAnswer(answer, few);
    case FaultKind::badCompression:
      return faults::badCompression(answer);
    case FaultKind::unreadableMessage:
      return faults::unreadableMessage(answer);
    case FaultKind::excessiveLength:
      return faults::excessiveLength(answer, static_cast<uint32_t>(offset()), few > 4);
    case FaultKind::lowestLength:
      return faults::lowestLength(answer);
    case FaultKind::extraBytes:
      return faults::extraBytes(std::string(offset(), '\xEE'));
    case FaultKind::truncated:
      return ReplyPlan().withFault(kind).withChange([thousandths = share()](ProtocolReply& reply) {
        reply.bytes.resize(reply.bytes.size() * thousandths / 1000);
      });
    case FaultKind::pieces: {
      std::vector<uint64_t> cuts(1 + below(6));
      for (uint64_t& cut : cuts) cut = offset();
      std::sort(cuts.begin(), cuts.end());
      return faults::pieces(cuts, Millis(few / 2));
    }
    case FaultKind::delayedHead:
      return faults::delayedHead(pause());
    case FaultKind::delayedBody:
      return faults::delayedBody(pause());
    case FaultKind::drip:
      return faults::drip(16 + offset(), Millis(1));
    case FaultKind::pausedBody:
      return ReplyPlan().withFault(kind).thenShare(share()).thenPause(pause());
    case FaultKind::stalledBody:
      return ReplyPlan().withFault(kind).thenShare(share()).thenStall();
    case FaultKind::closeBeforeReply:
      return faults::closeBeforeReply();
    case FaultKind::closeAfterHead:
      return faults::closeAfterHead();
    case FaultKind::closeMidBody:
      return ReplyPlan().withFault(kind).thenShare(share()).thenClose();
    case FaultKind::resetBeforeReply:
      return faults::resetBeforeReply();
    case FaultKind::resetMidBody:
      return ReplyPlan().withFault(kind).thenShare(share()).thenReset();
    case FaultKind::earlyReply:
      return faults::earlyReply(anyOf(400, 403, 413, 503), "no need for the rest\n");
    case FaultKind::garbage:
      return faults::garbage(anyOf("\r\n\r\n", "HELO\r\n", "HTTP/9.9 abc\r\n\r\n", "\x16\x03\x01"));
    // PROTOCOL_ERROR, INTERNAL_ERROR, REFUSED_STREAM, CANCEL and ENHANCE_YOUR_CALM (RFC 9113, 7).
    case FaultKind::streamResetBeforeHead:
      return faults::streamResetBeforeHead(anyOf(1u, 2u, 7u, 8u, 11u));
    case FaultKind::streamResetMidBody:
      return ReplyPlan().withFault(kind).thenShare(share()).thenStreamReset(anyOf(1u, 2u, 7u, 8u, 11u));
    case FaultKind::goAwayServed:
      return faults::goAwayServed();
    case FaultKind::goAwayRefused:
      return faults::goAwayRefused(anyOf(0u, 2u, 11u));
  }
  return ReplyPlan();
}

void FaultScript::attachTo(GeoServer& server) {
  server.setHeadScript([this](const Exchange& exchange) { return next(exchange); });
}

std::array<uint64_t, kFaultKindCount> FaultScript::counts() const {
  std::lock_guard lock(_mutex);
  return _counts;
}

uint64_t FaultScript::faultCount() const {
  const auto all = counts();
  return std::accumulate(all.begin() + 1, all.end(), uint64_t{0});
}

std::string FaultScript::report() const {
  const auto all = counts();
  std::string lines;
  for (size_t i = 0; i < all.size(); ++i) {
    std::string count = std::to_string(all[i]);
    count.insert(0, count.size() < 8 ? 8 - count.size() : 0, ' ');
    lines += count + "  " + faultName(static_cast<FaultKind>(i)) + "\n";
  }
  return lines;
}

}  // namespace nvxcore::geoserver
