#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
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
