// The development geo server: a real HTTP server on loopback that speaks the connection's protocol, plays
// faulty replies as scripted, and keeps a record of all that it received.
//
//   GeoServer server;
//   server.enqueue(faults::closeMidBody(10));
//   ... POST to server.url() ...
//   server.waitForEndedCount(1, std::chrono::seconds(5));
//   server.exchanges().front().post.requests;
//
// The program beside it, `geoserver`, is a server of this kind in a process of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/ConversationLog.h"
#include "tools/geoserver/Exchange.h"
#include "tools/geoserver/Faults.h"
#include "tools/geoserver/ReplyPlan.h"
#include "tools/geoserver/RequestTypes.h"
#include "tools/geoserver/ServerOptions.h"

namespace nvxcore::geoserver {

class ServerCore;

// Functions of the host. All run on the server's loop thread, one at a time, and must not block: while one
// runs, the server does nothing else. What they throw turns into a 500 and is put down in the exchange.
using ReplyHandler = std::function<ReplyPlan(const Exchange&)>;
// Asked when a request's head is there, and when it is there to the end. Nothing leaves the exchange to the
// next in turn.
using HeadScript = std::function<std::optional<ReplyPlan>(const Exchange&)>;
using Script = std::function<std::optional<ReplyPlan>(const Exchange&)>;
// What is done with a new connection, given its number. `silent` leaves it open and reads nothing, so that
// not even a TLS handshake gets anywhere.
enum class Acceptance { serve, close, reset, silent };
using AcceptScript = std::function<Acceptance(uint64_t connection)>;
using ExchangeObserver = std::function<void(const Exchange&)>;

// Who plans a reply, in turn: the queue, the head script (both at the head), the failures of request types,
// the script, a handler of the path, the built-in handlers, and at last the protocol, which answers a POST in
// order and gives anything else a 404.
//
// Every function may be called on any thread, but for stop() and the destructor, which are not for the loop
// thread.
class GeoServer {
 public:
  // Listens and serves when it returns. Throws std::system_error when it cannot.
  explicit GeoServer(ServerOptions options = {});
  ~GeoServer();
  GeoServer(const GeoServer&) = delete;
  GeoServer& operator=(const GeoServer&) = delete;

  // Ends every connection and exchange, and joins the thread. The record stays.
  void stop();
  // Closes the listening socket, so that connects are refused; open connections are served on.
  void stopListening();

  uint16_t port() const;
  // "http://127.0.0.1:PORT" and `path`, or https.
  std::string url(std::string_view path = "/") const;
  // A PEM file with the certificate authority of this server, which a client is to trust; it goes with the
  // server. Empty without TLS.
  std::string caFile() const;

  // The next plan for a request, whatever its path, in the order in which heads arrive.
  void enqueue(ReplyPlan plan);
  // The plan for the next `times` POSTs that hold a request of that type. A type may be named again: the
  // failures queue up.
  void failRequests(uint16_t id, ReplyPlan plan, uint64_t times);
  void setHeadScript(HeadScript script);
  void setScript(Script script);
  void setAcceptScript(AcceptScript script);
  // Sees each exchange when it has ended.
  void setObserver(ExchangeObserver observer);
  void handle(std::string_view pathPrefix, ReplyHandler handler);
  // In place of what the server knew of that ID. It knows the user cookie (15), resources (39), client
  // properties (62), client parameters (75) and user events (145), and echoes all others.
  void registerRequestType(uint16_t id, PayloadReader readPayload, AnswerWriter writeAnswer);
  void registerMessageType(uint16_t id, MessageType type);
  // Of clients that were given it in another run.
  void rememberCookie(int64_t cookie);
  std::vector<int64_t> issuedCookies() const;

  // Opens a gate for all replies that wait or will wait at it.
  void release(std::string_view gate);
  // Lets all replies that wait at any gate at this moment go on.
  void releaseAll();
  // Makes a released gate hold replies again.
  void holdAgain(std::string_view gate);

  // A snapshot, by sequence number. Exchanges under way are among them.
  std::vector<Exchange> exchanges() const;
  Counters counters() const;
  // The exchange as text, with the names that the server's request types have now.
  std::string describe(const Exchange& exchange, LogLevel level) const;
  // Forgets the exchanges that have ended, the plans that wait in the queue and the failures of request types
  // that are still to come; counters and gates stay.
  void clear();

  // Each waits until its condition holds, and says whether it did in time.
  bool waitFor(const std::function<bool(const Counters&)>& condition,
               std::chrono::milliseconds timeout) const;
  // That many requests came whole since the start.
  bool waitForExchangeCount(uint64_t count, std::chrono::milliseconds timeout) const;
  bool waitForEndedCount(uint64_t count, std::chrono::milliseconds timeout) const;
  // At least that many replies are in a stall step.
  bool waitUntilStalled(uint64_t count, std::chrono::milliseconds timeout) const;
  // That many connections are open, no more and no less. One that closes counts until its client has closed
  // as well.
  bool waitForOpenConnections(uint64_t count, std::chrono::milliseconds timeout) const;

 private:
  const std::unique_ptr<ServerCore> _core;
};

}  // namespace nvxcore::geoserver
