// Faulty replies at random, the same ones for the same seed.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tools/geoserver/FaultKind.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {

// How many times each kind is among the cards of one deck; FaultKind::none is a good reply.
using FaultWeights = std::array<uint32_t, kFaultKindCount>;

// Deals plans from shuffled decks, one deck for HTTP/1 and one for HTTP/2, which alone has the kinds that
// only it knows. A deck is dealt to its end before the next is shuffled, so that the kinds come as often as
// their weights say, and not just on average: after `n` whole decks each has come n times its weight. Any
// thread.
class FaultScript {
 public:
  explicit FaultScript(uint64_t seed, const FaultWeights& weights = defaultWeights());

  // Each kind once, good replies as often as all faults together; no stalls that only a test ends.
  // Nor what leaves a client in step and is for clients that read messages.
  static FaultWeights defaultWeights();
  // The same with those.
  static FaultWeights messageWeights();

  // For GeoServer::setHeadScript, or to be called by a script of one's own.
  ReplyPlan next(const Exchange& exchange);
  // Makes it the server's head script; it must outlive that.
  void attachTo(GeoServer& server);

  // How many plans of each kind were dealt.
  std::array<uint64_t, kFaultKindCount> counts() const;
  uint64_t faultCount() const;
  // The counts, one kind on a line.
  std::string report() const;

 private:
  struct Deck {
    std::vector<FaultKind> cards;
    size_t dealt = 0;
    uint64_t random = 0;
  };

  static uint64_t draw(uint64_t& state);
  FaultKind deal(Deck& deck);
  static ReplyPlan plan(FaultKind kind, uint64_t& random);

  mutable std::mutex _mutex;  // guards what follows
  Deck _http1;
  Deck _http2;
  std::array<uint64_t, kFaultKindCount> _counts{};
};

}  // namespace nvxcore::geoserver
