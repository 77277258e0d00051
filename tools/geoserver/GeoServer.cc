#include "tools/geoserver/GeoServer.h"

#include <algorithm>
#include <utility>

#include "tools/geoserver/internal/ServerCore.h"

namespace nvxcore::geoserver {

GeoServer::GeoServer(ServerOptions options) : _core(std::make_unique<ServerCore>(std::move(options))) {}

GeoServer::~GeoServer() = default;

void GeoServer::stop() { _core->stop(); }

void GeoServer::stopListening() { _core->stopListening(); }

uint16_t GeoServer::port() const { return _core->port(); }

std::string GeoServer::url(std::string_view path) const {
  const std::string& address = _core->options().address;
  const std::string host = address.find(':') == std::string::npos ? address : "[" + address + "]";
  return (_core->options().tls ? "https://" : "http://") + host + ":" + std::to_string(port()) +
         std::string(path);
}

std::string GeoServer::caFile() const { return _core->caFile(); }

void GeoServer::enqueue(ReplyPlan plan) { _core->enqueue(std::move(plan)); }

void GeoServer::failRequests(uint16_t id, ReplyPlan plan, uint64_t times) {
  _core->failRequests(id, std::move(plan), times);
}

void GeoServer::setHeadScript(HeadScript script) {
  _core->configure([&](Config& config) { config.headScript = std::move(script); });
}

void GeoServer::setScript(Script script) {
  _core->configure([&](Config& config) { config.script = std::move(script); });
}

void GeoServer::setAcceptScript(AcceptScript script) {
  _core->configure([&](Config& config) { config.acceptScript = std::move(script); });
}

void GeoServer::setObserver(ExchangeObserver observer) {
  _core->configure([&](Config& config) { config.observer = std::move(observer); });
}

void GeoServer::handle(std::string_view pathPrefix, ReplyHandler handler) {
  _core->configure([&](Config& config) {
    auto& routes = config.routes;
    std::erase_if(routes, [&](const Config::Route& route) { return route.prefix == pathPrefix; });
    const auto shorter = [&](const Config::Route& route) { return route.prefix.size() < pathPrefix.size(); };
    routes.insert(std::find_if(routes.begin(), routes.end(), shorter),
                  {std::string(pathPrefix), std::move(handler)});
  });
}

void GeoServer::registerRequestType(uint16_t id, PayloadReader readPayload, AnswerWriter writeAnswer) {
  _core->configure([&](Config& config) {
    config.types.registerType(id, {std::move(readPayload), std::move(writeAnswer)});
  });
}

void GeoServer::registerMessageType(uint16_t id, MessageType type) {
  _core->configure([&](Config& config) { config.types.registerMessageType(id, std::move(type)); });
}

void GeoServer::rememberCookie(int64_t cookie) { _core->office().remember(cookie); }

std::vector<int64_t> GeoServer::issuedCookies() const { return _core->office().issuedCookies(); }

void GeoServer::release(std::string_view gate) {
  _core->onLoop([core = _core.get(), gate = std::string(gate)] { core->gates().release(gate); });
}

void GeoServer::releaseAll() {
  _core->onLoop([core = _core.get()] { core->gates().releaseAll(); });
}

void GeoServer::holdAgain(std::string_view gate) {
  _core->onLoop([core = _core.get(), gate = std::string(gate)] { core->gates().closeAgain(gate); });
}

std::vector<Exchange> GeoServer::exchanges() const { return _core->record().exchanges(); }

Counters GeoServer::counters() const { return _core->record().counters(); }

std::string GeoServer::describe(const Exchange& exchange, LogLevel level) const {
  return conversation(exchange, _core->config()->types, level);
}

void GeoServer::clear() {
  _core->record().clear();
  _core->clearQueue();
}

bool GeoServer::waitFor(const std::function<bool(const Counters&)>& condition,
                        std::chrono::milliseconds timeout) const {
  return _core->record().waitFor(condition, timeout);
}

bool GeoServer::waitForExchangeCount(uint64_t count, std::chrono::milliseconds timeout) const {
  return waitFor([count](const Counters& counters) { return counters.exchangesReceived >= count; }, timeout);
}

bool GeoServer::waitForEndedCount(uint64_t count, std::chrono::milliseconds timeout) const {
  return waitFor([count](const Counters& counters) { return counters.exchangesEnded >= count; }, timeout);
}

bool GeoServer::waitUntilStalled(uint64_t count, std::chrono::milliseconds timeout) const {
  return waitFor([count](const Counters& counters) { return counters.exchangesStalled >= count; }, timeout);
}

bool GeoServer::waitForOpenConnections(uint64_t count, std::chrono::milliseconds timeout) const {
  return waitFor([count](const Counters& counters) { return counters.connectionsOpen == count; }, timeout);
}

}  // namespace nvxcore::geoserver
