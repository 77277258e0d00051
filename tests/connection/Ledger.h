#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
#include "tools/geoserver/FaultScript.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::testing {

/// What the client knows of its requests: each has one line in the ledger, and it is written once.
class Ledger {
 public:
  explicit Ledger(size_t count) : _entries(count) {}

  struct Entry {
    std::atomic<int> outcomes{0};
    std::atomic<bool> answered{false};
    std::atomic<uint64_t> order{0};
  };

  /// Enters an outcome; `answered` when the answer was the request's own.
  void enter(size_t request, bool answered) {
    Entry& entry = _entries[request];
    entry.answered = answered;
    entry.order = ++_order;
    ++entry.outcomes;
  }
  const Entry& entry(size_t request) const { return _entries[request]; }
  size_t size() const { return _entries.size(); }

 private:
  std::vector<Entry> _entries;
  std::atomic<uint64_t> _order{0};
};

struct LedgerCase {
  const char* name;
  bool tls;
  bool http2;
};

/// The connections over HTTP/2 that the plan of an exchange took away, from all who were on it.
inline std::set<uint64_t> brokenConnections(const std::vector<geoserver::Exchange>& exchanges) {
  std::set<uint64_t> broken;
  for (const geoserver::Exchange& exchange : exchanges) {
    if (exchange.version != "HTTP/2") continue;
    const bool garbled = exchange.fault == geoserver::FaultKind::garbage;
    if (exchange.ending == geoserver::Ending::cut || exchange.ending == geoserver::Ending::reset || garbled) {
      broken.insert(exchange.connection);
    }
  }
  return broken;
}

/// Hands the numbers of `total` requests out in batches of seeded sizes, 21.5 on average, each to be a POST
/// of its own, on a few threads; ends early where `sendBatch(first, end)` answers false.
inline void sendInBatches(size_t total, uint64_t seed, const std::function<bool(size_t, size_t)>& sendBatch) {
  constexpr size_t kSenders = 4;
  constexpr size_t kLongestBatch = 42;
  std::atomic<size_t> next{0};
  std::vector<std::thread> senders;
  for (size_t sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([&, sender] {
      std::mt19937_64 random(seed + sender);
      for (;;) {
        const size_t length = 1 + random() % kLongestBatch;
        const size_t first = next.fetch_add(length);
        if (first >= total || !sendBatch(first, std::min(first + length, total))) return;
      }
    });
  }
  for (std::thread& sender : senders) sender.join();
}

/// A whole proof has met a thousand faults, and each kind that there is often.
inline void expectEachFault(const geoserver::FaultScript& script, const geoserver::FaultWeights& weights,
                            bool isHttp2) {
  const auto counts = script.counts();
  EXPECT_GE(script.faultCount(), 1000u);
  for (size_t kind = 0; kind < counts.size(); ++kind) {
    const auto fault = static_cast<geoserver::FaultKind>(kind);
    if (weights[kind] == 0 || (!isHttp2 && geoserver::needsHttp2(fault))) continue;
    EXPECT_GE(counts[kind], 50u) << geoserver::faultName(fault);
  }
}

/// A service for that server, which trusts its certificate.
inline std::shared_ptr<NVXx_HTKSessionFetcherService> serviceFor(const geoserver::GeoServer& server) {
  auto service = NVXDASHConnectionImpl::fetcherServiceWithUserAgent("ledger/1");
  service->updateSettings([&](NVXx_HTKSessionFetcherService::Settings& settings) {
    settings.configuration = HTTPSessionConfiguration::ephemeral();
    settings.configuration->caFile = server.caFile();
  });
  return service;
}

}  // namespace nvxcore::testing
