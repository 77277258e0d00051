#include "tools/geoserver/internal/Record.h"

#include <utility>

namespace nvxcore::geoserver {
namespace {

const std::shared_ptr<const std::string>& emptyBody() {
  static const auto body = std::make_shared<const std::string>();
  return body;
}

}  // namespace

void Record::began(const std::shared_ptr<Exchange>& exchange) {
  change([&](Counters& counters) {
    exchange->sequence = ++counters.exchangesStarted;
    exchange->body = emptyBody();
    if (_level != RecordLevel::countersOnly) _exchanges.push_back(exchange);
  });
}

void Record::received(Exchange& exchange, std::shared_ptr<const std::string> body, Post post,
                      PostReading reading) {
  change([&](Counters& counters) {
    exchange.bodyArrived = ExchangeClock::now();
    exchange.bodyBytes = body->size();
    // An early reply can be over before the body is there.
    if (exchange.ending == Ending::none || _level == RecordLevel::everything) exchange.body = std::move(body);
    exchange.bodyComplete = true;
    exchange.post = std::move(post);
    exchange.identity = std::move(reading.identity);
    exchange.clientFaults = std::move(reading.faults);
    counters.unknownCookies += exchange.identity.cookie == CookieStanding::unknown;
    counters.clientFaults += !exchange.clientFaults.empty();
    ++counters.exchangesReceived;
    counters.requestsReceived += exchange.post.requests.size();
  });
}

void Record::ended(Exchange& exchange, Ending ending) {
  change([&](Counters& counters) {
    exchange.ending = ending;
    exchange.ended = ExchangeClock::now();
    ++counters.exchangesEnded;
    if (_level == RecordLevel::withoutBodies) {
      exchange.body = emptyBody();
      exchange.post.requests = {};
      exchange.reply.reset();
    }
  });
}

std::vector<Exchange> Record::exchanges() const {
  std::lock_guard lock(_mutex);
  std::vector<Exchange> copies;
  copies.reserve(_exchanges.size());
  for (const auto& exchange : _exchanges) copies.push_back(*exchange);
  return copies;
}

Counters Record::countersLocked() const {
  Counters counters = _counters;
  counters.bytesIn = _bytesIn.load(std::memory_order_relaxed);
  counters.bytesOut = _bytesOut.load(std::memory_order_relaxed);
  return counters;
}

Counters Record::counters() const {
  std::lock_guard lock(_mutex);
  return countersLocked();
}

void Record::clear() {
  std::lock_guard lock(_mutex);
  std::erase_if(_exchanges, [](const auto& exchange) { return exchange->ending != Ending::none; });
}

bool Record::waitFor(const std::function<bool(const Counters&)>& condition,
                     std::chrono::milliseconds timeout) const {
  std::unique_lock lock(_mutex);
  return _changed.wait_for(lock, timeout, [&] { return condition(countersLocked()); });
}

}  // namespace nvxcore::geoserver
