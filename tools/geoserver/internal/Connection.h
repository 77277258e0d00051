// One accepted connection: the handshake, the bytes in and out, and the ways to end it.
#pragma once

#include <cstdint>
#include <memory>

#include "tools/geoserver/internal/ByteStream.h"
#include "tools/geoserver/internal/EventLoop.h"
#include "tools/geoserver/internal/OutputQueue.h"
#include "tools/geoserver/internal/Protocol.h"

namespace nvxcore::geoserver {

class ServerCore;

// Loop thread. The server destroys it some time after it has closed, never within one of its own calls.
class Connection final : public EventLoop::Watcher {
 public:
  Connection(ServerCore& core, uint64_t number, std::unique_ptr<ByteStream> stream, bool tls);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // `silent` accepts, and then never reads a byte.
  void begin(bool silent);

  ServerCore& core() { return _core; }
  uint64_t number() const { return _number; }
  bool tls() const { return _tls; }
  bool open() const { return _state == State::open; }

  OutputQueue& output() { return _output; }
  // Whether all output is with the socket. If not, Protocol::onOutputDrained() is called once it is.
  bool flush();
  void setReading(bool reading);
  // Idle connections are closed when the server has an idle time-out.
  void setIdle(bool idle);

  // After what waits to be written: ends the output, reads and throws away what the client still sends within
  // the server's bounds, and closes. The client sees an orderly end. `orderly` also says so over TLS.
  void linger(bool orderly);
  void reset();
  // Takes the connection away from its protocol, which is told.
  void abandon(Ending ending);

  void onEvents(uint32_t events) override;

 private:
  enum class State { handshake, open, lingering, closed };

  void continueHandshake();
  void readSome();
  bool take(std::string_view bytes);
  void inputEnded();
  void outputDrained();
  void readSoon();
  void updateInterest();
  void close();

  ServerCore& _core;
  const uint64_t _number;
  const bool _tls;
  std::unique_ptr<ByteStream> _stream;
  std::unique_ptr<Protocol> _protocol;
  OutputQueue _output;
  State _state = State::handshake;
  uint32_t _interest = 0;
  bool _reading = true;
  bool _inputEnded = false;
  bool _wantsWrite = false;
  bool _broken = false;  // a write failed
  bool _orderlyEnd = false;
  bool _outputEnded = false;
  uint64_t _lingerBytesLeft = 0;
  EventLoop::TimerId _lingerTimer = 0;
  EventLoop::TimerId _idleTimer = 0;
  EventLoop::TimerId _readTimer = 0;
};

}  // namespace nvxcore::geoserver
