// All that the parts of one server share, and its thread.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "tools/geoserver/GeoServer.h"
#include "tools/geoserver/internal/EventLoop.h"
#include "tools/geoserver/internal/Gates.h"
#include "tools/geoserver/internal/Protocol.h"
#include "tools/geoserver/internal/Record.h"

namespace nvxcore::geoserver {

class Connection;
class TlsContext;

// What a host may change while the server runs; replaced as a whole, so that the loop reads it without a
// lock.
struct Config {
  struct Route {
    std::string prefix;
    ReplyHandler handler;
  };
  RequestTypes types;
  std::vector<Route> routes;  // the longest prefix first
  HeadScript headScript;
  Script script;
  AcceptScript acceptScript;
  ExchangeObserver observer;
};

class ServerCore final : private EventLoop::Watcher {
 public:
  explicit ServerCore(ServerOptions options);
  ~ServerCore();

  // Any thread.
  void stop();
  uint16_t port() const { return _port; }
  std::string caFile() const;
  std::shared_ptr<const Config> config() const;
  void configure(const std::function<void(Config&)>& change);
  void enqueue(ReplyPlan plan);
  void failRequests(uint16_t id, ReplyPlan plan, uint64_t times);
  void clearQueue();
  const ServerOptions& options() const { return _options; }
  Record& record() { return _record; }
  IdentityOffice& office() { return *_office; }
  void onLoop(EventLoop::Task task) { _loop.post(std::move(task)); }
  void stopListening();

  // Loop thread.
  EventLoop& loop() { return _loop; }
  Gates& gates() { return _gates; }
  std::vector<char>& readBuffer() { return _readBuffer; }
  std::unique_ptr<Protocol> makeProtocol(Connection& connection, const std::string& name);
  void connectionClosed(uint64_t number);
  // Whether the exchange's body is read as a POST of the connection's protocol.
  bool speaksProtocol(const Exchange& exchange) const;
  std::optional<ReplyPlan> planAtHead(const Exchange& exchange);
  ReplyPlan planAtEnd(const Exchange& exchange);
  void exchangeEnded(Exchange& exchange, Ending ending);

 private:
  struct TypeFailure {
    uint16_t id;
    ReplyPlan plan;
    uint64_t left;
  };

  std::optional<ReplyPlan> takeTypeFailure(const Post& post);
  void onEvents(uint32_t events) override;
  void listen();
  void accept(int socket);
  void closeListener();
  void run();

  const ServerOptions _options;
  const std::shared_ptr<IdentityOffice> _office;
  Record _record;
  Gates _gates;
  EventLoop _loop;
  std::vector<char> _readBuffer;
  std::unique_ptr<TlsContext> _tls;
  int _listener = -1;
  int _spare = -1;  // a descriptor given up to refuse a connection when there is none left
  uint16_t _port = 0;
  uint64_t _lastConnection = 0;
  std::unordered_map<uint64_t, std::unique_ptr<Connection>> _connections;

  mutable std::mutex _mutex;  // guards what follows
  std::shared_ptr<const Config> _config;
  std::deque<ReplyPlan> _queue;
  std::deque<TypeFailure> _typeFailures;

  std::mutex _stopMutex;
  std::thread _thread;
};

}  // namespace nvxcore::geoserver
