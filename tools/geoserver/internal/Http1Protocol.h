// HTTP/1.0 and HTTP/1.1 on one connection.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/geoserver/internal/ActiveExchange.h"
#include "tools/geoserver/internal/Connection.h"
#include "tools/geoserver/internal/HttpParser.h"
#include "tools/geoserver/internal/Protocol.h"
#include "tools/geoserver/internal/ReplySink.h"

namespace nvxcore::geoserver {

// Loop thread. One exchange at a time; requests that are pipelined wait until the reply before them is out.
class Http1Protocol final : public Protocol, private ReplySink {
 public:
  explicit Http1Protocol(Connection& connection);

  void onBytes(std::string_view bytes) override;
  void onInputEnd() override;
  void onOutputDrained() override;
  void onGone(Ending ending) override;

 private:
  void sendInterim(int status, const HeaderList& headers) override;
  void sendHead(const PreparedReply& reply) override;
  void sendBody(std::string_view bytes) override;
  void endBody(const PreparedReply& reply) override;
  void sendRaw(std::string_view bytes) override;
  bool flush() override { return _connection.flush(); }
  void replyEnded() override;
  void closeConnection() override { _connection.linger(false); }
  void resetConnection() override { _connection.reset(); }
  void resetStream(uint32_t) override { _connection.reset(); }
  void refuse(uint32_t) override { _connection.linger(true); }
  void announceEnd(uint32_t) override { _keepAlive = false; }

  void advance();
  bool step();
  bool parse();
  void beginExchange();
  void endExchange();
  void refuseInput();
  void settle();

  Connection& _connection;
  ServerCore& _core;
  HttpParser _parser;
  std::optional<ActiveExchange> _active;
  uint64_t _exchanges = 0;
  std::string _pending;     // input that waits its turn
  std::string_view _input;  // what of the input at hand is left
  bool _advancing = false;
  bool _inputEnded = false;
  bool _replyOver = false;
  bool _keepAlive = true;
  ReplyPlan::Framing _framing = ReplyPlan::Framing::length;
};

}  // namespace nvxcore::geoserver
