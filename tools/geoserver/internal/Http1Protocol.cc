#include "tools/geoserver/internal/Http1Protocol.h"

#include <cstdio>
#include <utility>

#include "tools/geoserver/internal/ServerCore.h"

namespace nvxcore::geoserver {
namespace {

// Pipelined input beyond that stays in the socket.
constexpr size_t kPendingAtMost = 1024 * 1024;

void appendStatusLine(std::string& out, int status, std::string_view reason) {
  out += "HTTP/1.1 ";
  out += std::to_string(status);
  out += ' ';
  out += reason;
  out += "\r\n";
}

void appendField(std::string& out, std::string_view name, std::string_view value) {
  out += name;
  out += ": ";
  out += value;
  out += "\r\n";
}

void appendFields(std::string& out, const HeaderList& fields) {
  for (const auto& [name, value] : fields) appendField(out, name, value);
}

}  // namespace

Http1Protocol::Http1Protocol(Connection& connection)
    : _connection(connection),
      _core(connection.core()),
      _parser(_core.options().maxHeadBytes, _core.options().maxBodyBytes) {}

void Http1Protocol::onBytes(std::string_view bytes) {
  if (_pending.empty()) {
    _input = bytes;
  } else {
    _pending.append(bytes);
    _input = _pending;
  }
  advance();
}

void Http1Protocol::onInputEnd() {
  _inputEnded = true;
  if (_active) {
    const bool waits =
        _active->bodyEnded() && (!_active->heldUp() || _core.options().waitsForHalfClosedClients);
    if (waits) return;
    _active->end(Ending::clientGone);
  }
  _connection.linger(true);
}

void Http1Protocol::onOutputDrained() {
  if (_active) _active->outputDrained();
}

void Http1Protocol::onGone(Ending ending) {
  if (_active) _active->end(ending);
}

void Http1Protocol::advance() {
  // Replies that end at once would otherwise nest as deeply as requests are pipelined.
  if (_advancing) return;
  _advancing = true;
  while (_connection.open() && step()) {
  }
  _advancing = false;
  if (_connection.open()) settle();
}

bool Http1Protocol::step() {
  if (!_active) return parse();
  if (_replyOver) {
    if (!_keepAlive) {
      // An exchange that ended before its body came has no more use for it.
      _connection.linger(true);
      return false;
    }
    if (!_active->bodyEnded()) return parse();
    endExchange();
    return true;
  }
  if (_active->bodyEnded() || _active->leavesBodyUnread()) return false;
  return parse();
}

bool Http1Protocol::parse() {
  switch (_parser.next(_input)) {
    case HttpParser::Event::needsMore:
      return false;
    case HttpParser::Event::head:
      beginExchange();
      return true;
    case HttpParser::Event::body:
      _active->addBody(_parser.bodyPiece());
      return true;
    case HttpParser::Event::complete:
      _active->endBody(std::move(_parser.trailers()));
      return true;
    case HttpParser::Event::error:
      refuseInput();
      return false;
  }
  return false;
}

void Http1Protocol::beginExchange() {
  RequestHead& head = _parser.head();
  _connection.setIdle(false);
  _replyOver = false;
  _keepAlive = head.version == "HTTP/1.1" ? !head.headers.hasToken("Connection", "close")
                                          : head.headers.hasToken("Connection", "keep-alive");

  Exchange exchange;
  exchange.connection = _connection.number();
  exchange.numberOnConnection = ++_exchanges;
  exchange.method = std::move(head.method);
  exchange.target = std::move(head.target);
  exchange.version = std::move(head.version);
  exchange.headers = std::move(head.headers);
  exchange.tls = _connection.tls();
  _active.emplace(_core, static_cast<ReplySink&>(*this), std::move(exchange));
  _active->reserveBody(_parser.contentLength());
  _active->begin();
}

void Http1Protocol::endExchange() {
  _active.reset();
  _parser.reset();
  if (_inputEnded && _input.empty()) {
    _connection.linger(true);
  } else {
    _connection.setIdle(true);
  }
}

void Http1Protocol::refuseInput() {
  _core.record().change([](Counters& counters) { ++counters.badRequests; });
  const bool answered = _active && _active->replying();
  if (_active) _active->end(Ending::badRequest);
  if (!answered) {
    const std::string text = _parser.errorText() + "\n";
    std::string reply;
    appendStatusLine(reply, _parser.errorStatus(), reasonPhrase(_parser.errorStatus()));
    appendField(reply, "Content-Type", "text/plain");
    appendField(reply, "Content-Length", std::to_string(text.size()));
    appendField(reply, "Connection", "close");
    _connection.output().add(reply + "\r\n" + text);
  }
  _connection.linger(true);
}

void Http1Protocol::settle() {
  if (_input.empty()) {
    _pending.clear();
  } else if (_input.size() != _pending.size() || _input.data() != _pending.data()) {
    _pending = std::string(_input);
  }
  _input = _pending;
  const bool unread = _active && _active->leavesBodyUnread() && !_replyOver;
  _connection.setReading(!unread && _pending.size() < kPendingAtMost);
}

void Http1Protocol::sendInterim(int status, const HeaderList& headers) {
  std::string bytes;
  appendStatusLine(bytes, status, reasonPhrase(status));
  appendFields(bytes, headers);
  _connection.output().add(bytes + "\r\n");
}

void Http1Protocol::sendHead(const PreparedReply& reply) {
  _framing = reply.framing;
  if (_framing == ReplyPlan::Framing::chunked && _active->exchange().version == "HTTP/1.0") {
    _framing = ReplyPlan::Framing::untilClose;
  }
  const ReplyPlan::After after = _active->after();
  if (after != ReplyPlan::After::asAsked || _framing == ReplyPlan::Framing::untilClose) _keepAlive = false;

  std::string head;
  head.reserve(256);
  appendStatusLine(head, reply.status, reply.reason);
  appendFields(head, reply.headers);
  if (!reply.lengthAllowed) {
  } else if (_framing == ReplyPlan::Framing::chunked) {
    if (reply.lacks("Transfer-Encoding")) appendField(head, "Transfer-Encoding", "chunked");
  } else if (_framing == ReplyPlan::Framing::length && reply.lacks("Content-Length")) {
    appendField(head, "Content-Length", std::to_string(reply.declaredLength));
  }
  if (reply.lacks("Connection")) {
    if (!_keepAlive && after != ReplyPlan::After::drop) {
      appendField(head, "Connection", "close");
    } else if (_keepAlive && _active->exchange().version == "HTTP/1.0") {
      appendField(head, "Connection", "keep-alive");
    }
  }
  head += "\r\n";
  _connection.output().add(std::move(head));
}

void Http1Protocol::sendBody(std::string_view bytes) {
  if (_framing != ReplyPlan::Framing::chunked) return _connection.output().addBorrowed(bytes);
  char size[24];
  const int length = std::snprintf(size, sizeof(size), "%zx\r\n", bytes.size());
  _connection.output().add({size, static_cast<size_t>(length)});
  _connection.output().addBorrowed(bytes);
  _connection.output().addBorrowed("\r\n");
}

void Http1Protocol::endBody(const PreparedReply& reply) {
  if (_framing != ReplyPlan::Framing::chunked || !reply.bodyAllowed) return;
  std::string end = "0\r\n";
  appendFields(end, reply.trailers);
  _connection.output().add(end + "\r\n");
}

void Http1Protocol::sendRaw(std::string_view bytes) {
  if (_active->after() != ReplyPlan::After::asAsked) _keepAlive = false;
  _connection.output().addBorrowed(bytes);
}

void Http1Protocol::replyEnded() {
  _replyOver = true;
  advance();
}

}  // namespace nvxcore::geoserver
