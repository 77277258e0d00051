#include "tools/geoserver/internal/ServerCore.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "tools/geoserver/BuiltInHandlers.h"
#include "tools/geoserver/StandardTypes.h"
#include "tools/geoserver/internal/Connection.h"
#include "tools/geoserver/internal/Http1Protocol.h"
#include "tools/geoserver/internal/Http2Protocol.h"
#include "tools/geoserver/internal/SocketStream.h"
#include "tools/geoserver/internal/TlsContext.h"
#include "tools/geoserver/internal/TlsStream.h"

namespace nvxcore::geoserver {
namespace {

constexpr size_t kReadBufferBytes = 256 * 1024;
constexpr int kBacklog = 4096;

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

int spareDescriptor() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

}  // namespace

ServerCore::ServerCore(ServerOptions options)
    : _options(std::move(options)),
      _office(std::make_shared<IdentityOffice>(_options.identity)),
      _record(_options.record),
      _readBuffer(kReadBufferBytes),
      _config(std::make_shared<const Config>()) {
  configure([this](Config& config) {
    registerStandardTypes(config.types, _office, std::make_shared<const ContentFolder>(_options.folder));
  });
  if (_options.tls) _tls = std::make_unique<TlsContext>(_options);
  listen();
  _spare = spareDescriptor();
  // A host's signals are none of the thread's business, and a write to a closed socket is no reason to die.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  _thread = std::thread([this] { run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ServerCore::~ServerCore() {
  stop();
  if (_spare >= 0) close(_spare);
}

void ServerCore::listen() {
  sockaddr_storage address{};
  socklen_t length = 0;
  auto& v4 = reinterpret_cast<sockaddr_in&>(address);
  auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
  if (inet_pton(AF_INET, _options.address.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(_options.port);
    length = sizeof(v4);
  } else if (inet_pton(AF_INET6, _options.address.c_str(), &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(_options.port);
    length = sizeof(v6);
  } else {
    throw std::invalid_argument("no address: " + _options.address);
  }
  _listener = socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (_listener < 0) fail("socket");
  const int on = 1;
  setsockopt(_listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (bind(_listener, reinterpret_cast<sockaddr*>(&address), length) < 0 ||
      ::listen(_listener, kBacklog) < 0 ||
      getsockname(_listener, reinterpret_cast<sockaddr*>(&address), &length) < 0) {
    const int error = errno;
    close(_listener);
    errno = error;
    fail("listen");
  }
  _port = ntohs(address.ss_family == AF_INET ? v4.sin_port : v6.sin6_port);
  _loop.watch(_listener, EPOLLIN, this);
}

void ServerCore::run() {
  pthread_setname_np(pthread_self(), "geoserver");
  _loop.run();
}

void ServerCore::stop() {
  std::lock_guard lock(_stopMutex);
  if (!_thread.joinable()) return;
  _loop.post([this] {
    closeListener();
    std::vector<Connection*> open;
    for (const auto& entry : _connections) open.push_back(entry.second.get());
    for (Connection* connection : open) connection->abandon(Ending::serverStopped);
    _loop.quit();
  });
  _thread.join();
}

void ServerCore::stopListening() {
  _loop.post([this] { closeListener(); });
}

void ServerCore::closeListener() {
  if (_listener < 0) return;
  _loop.unwatch(_listener);
  close(std::exchange(_listener, -1));
}

std::string ServerCore::caFile() const { return _tls ? _tls->caFile() : std::string(); }

std::shared_ptr<const Config> ServerCore::config() const {
  std::lock_guard lock(_mutex);
  return _config;
}

void ServerCore::configure(const std::function<void(Config&)>& change) {
  std::shared_ptr<const Config> replaced;  // goes after the lock, with what the host's functions hold
  std::lock_guard lock(_mutex);
  auto changed = std::make_shared<Config>(*_config);
  change(*changed);
  replaced = std::exchange(_config, std::move(changed));
}

void ServerCore::enqueue(ReplyPlan plan) {
  std::lock_guard lock(_mutex);
  _queue.push_back(std::move(plan));
}

void ServerCore::failRequests(uint16_t id, ReplyPlan plan, uint64_t times) {
  if (times == 0) return;
  std::lock_guard lock(_mutex);
  _typeFailures.push_back({id, std::move(plan), times});
}

std::optional<ReplyPlan> ServerCore::takeTypeFailure(const Post& post) {
  std::lock_guard lock(_mutex);
  for (auto failure = _typeFailures.begin(); failure != _typeFailures.end(); ++failure) {
    const auto isOfType = [&](const PostRequest& request) { return request.id == failure->id; };
    if (std::none_of(post.requests.begin(), post.requests.end(), isOfType)) continue;
    ReplyPlan plan = failure->plan;
    if (--failure->left == 0) _typeFailures.erase(failure);
    return plan;
  }
  return std::nullopt;
}

void ServerCore::clearQueue() {
  std::deque<ReplyPlan> dropped;
  std::deque<TypeFailure> droppedFailures;
  std::lock_guard lock(_mutex);
  dropped.swap(_queue);
  droppedFailures.swap(_typeFailures);
}

void ServerCore::onEvents(uint32_t) {
  while (_listener >= 0) {
    const int socket = accept4(_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket >= 0) {
      accept(socket);
    } else if ((errno == EMFILE || errno == ENFILE) && _spare >= 0) {
      // Without a descriptor the connection would keep the listener ready for ever: take it, and let it go.
      close(std::exchange(_spare, -1));
      const int refused = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (refused >= 0) close(refused);
      _spare = spareDescriptor();
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return;
    }
  }
}

void ServerCore::accept(int socket) {
  const uint64_t number = ++_lastConnection;
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  if (_options.sendBufferBytes > 0) {
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &_options.sendBufferBytes, sizeof(_options.sendBufferBytes));
  }
  std::unique_ptr<ByteStream> stream;
  if (_tls) {
    stream = std::make_unique<TlsStream>(*_tls, socket);
  } else {
    stream = std::make_unique<SocketStream>(socket);
  }
  _record.change([](Counters& counters) {
    ++counters.connectionsAccepted;
    ++counters.connectionsOpen;
  });
  const auto config = this->config();
  Acceptance acceptance = Acceptance::serve;
  if (config->acceptScript) acceptance = config->acceptScript(number);
  auto& connection = *(_connections[number] =
                           std::make_unique<Connection>(*this, number, std::move(stream), _tls != nullptr));
  connection.begin(acceptance != Acceptance::serve);
  if (acceptance == Acceptance::close) connection.abandon(Ending::cut);
  if (acceptance == Acceptance::reset) connection.reset();
}

std::unique_ptr<Protocol> ServerCore::makeProtocol(Connection& connection, const std::string& name) {
  if (name == "h2") return std::make_unique<Http2Protocol>(connection);
  return std::make_unique<Http1Protocol>(connection);
}

void ServerCore::connectionClosed(uint64_t number) {
  _record.change([](Counters& counters) { --counters.connectionsOpen; });
  _loop.afterEvents([this, number] { _connections.erase(number); });
}

bool ServerCore::speaksProtocol(const Exchange& exchange) const {
  if (exchange.method != "POST" || isBuiltInPath(exchange.path)) return false;
  for (const Config::Route& route : config()->routes) {
    if (exchange.path.starts_with(route.prefix)) return false;
  }
  return true;
}

std::optional<ReplyPlan> ServerCore::planAtHead(const Exchange& exchange) {
  std::shared_ptr<const Config> config;
  {
    std::lock_guard lock(_mutex);
    if (!_queue.empty()) {
      ReplyPlan plan = std::move(_queue.front());
      _queue.pop_front();
      return plan;
    }
    config = _config;
  }
  if (config->headScript) return config->headScript(exchange);
  return std::nullopt;
}

ReplyPlan ServerCore::planAtEnd(const Exchange& exchange) {
  if (auto plan = takeTypeFailure(exchange.post)) return std::move(*plan);
  const auto config = this->config();
  if (config->script) {
    if (auto plan = config->script(exchange)) return std::move(*plan);
  }
  for (const Config::Route& route : config->routes) {
    if (exchange.path.starts_with(route.prefix)) return route.handler(exchange);
  }
  if (auto plan = builtInReply(exchange)) return std::move(*plan);
  if (exchange.method != "POST") return ReplyPlan::withBody(404, "text/plain", "nothing here\n");
  if (!exchange.post.error.empty()) return ReplyPlan::withBody(400, "text/plain", exchange.post.error + "\n");
  ReplyPlan plan;
  if (_options.defaultDelay.count() > 0) plan.thenPause(_options.defaultDelay);
  return plan;
}

void ServerCore::exchangeEnded(Exchange& exchange, Ending ending) {
  const auto config = this->config();
  if (config->observer) {
    Exchange ended = exchange;
    _record.ended(exchange, ending);
    ended.ending = exchange.ending;
    ended.ended = exchange.ended;
    config->observer(ended);
  } else {
    _record.ended(exchange, ending);
  }
}

}  // namespace nvxcore::geoserver
