#include "tools/geoserver/internal/Connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <utility>

#include "tools/geoserver/internal/ServerCore.h"

namespace nvxcore::geoserver {
namespace {

constexpr int kPiecesAtOnce = 64;
// After that many full buffers the other connections get their turn.
constexpr int kReadsAtOnce = 16;

}  // namespace

Connection::Connection(ServerCore& core, uint64_t number, std::unique_ptr<ByteStream> stream, bool tls)
    : _core(core), _number(number), _tls(tls), _stream(std::move(stream)) {}

Connection::~Connection() = default;

void Connection::begin(bool silent) {
  if (silent) {
    _reading = false;
    _interest = EPOLLRDHUP;
    _core.loop().watch(_stream->socket(), _interest, this);
    return;
  }
  _interest = EPOLLIN;
  _core.loop().watch(_stream->socket(), _interest, this);
  if (!_tls) continueHandshake();
}

void Connection::onEvents(uint32_t events) {
  if (_state == State::closed) return;
  if (!_reading && (events & (EPOLLERR | EPOLLHUP))) return abandon(Ending::clientGone);
  if (_state == State::handshake) {
    if (!_reading) return abandon(Ending::clientGone);
    return continueHandshake();
  }
  if ((events & EPOLLOUT) && _wantsWrite) {
    _wantsWrite = false;
    if (flush()) {
      updateInterest();
      outputDrained();
    }
    if (_state == State::closed) return;
  }
  if (!_reading && (events & EPOLLRDHUP)) return inputEnded();
  if (events & (EPOLLIN | EPOLLERR | EPOLLHUP)) readSome();
}

void Connection::continueHandshake() {
  const IoResult result = _stream->handshake();
  switch (result.status) {
    case IoStatus::wantsRead:
    case IoStatus::wantsWrite:
      _wantsWrite = result.status == IoStatus::wantsWrite;
      return updateInterest();
    case IoStatus::end:
    case IoStatus::failed:
      return close();
    case IoStatus::done:
      break;
  }
  _wantsWrite = false;
  _state = State::open;
  if (_tls) _core.record().change([](Counters& counters) { ++counters.tlsHandshakes; });
  _protocol = _core.makeProtocol(*this, _stream->protocol());
  updateInterest();
  setIdle(true);
  _protocol->begin();
  if (_tls && _state != State::closed) readSome();
}

void Connection::readSome() {
  if (_inputEnded) {
    // Only errors still come: the peer has gone altogether.
    return abandon(Ending::clientGone);
  }
  for (int reads = 0; reads < kReadsAtOnce; ++reads) {
    std::vector<char>& buffer = _core.readBuffer();
    const IoResult result = _stream->read(buffer.data(), buffer.size());
    switch (result.status) {
      case IoStatus::wantsRead:
      case IoStatus::wantsWrite:
        return;
      case IoStatus::failed:
        return abandon(Ending::clientGone);
      case IoStatus::end:
        return inputEnded();
      case IoStatus::done:
        break;
    }
    _core.record().countIn(result.bytes);
    if (!take({buffer.data(), result.bytes}) || !_reading) return;
    if (_stream->shortReadIsLast() && result.bytes < buffer.size()) return;
  }
  readSoon();
}

bool Connection::take(std::string_view bytes) {
  if (_state == State::lingering) {
    if (bytes.size() > _lingerBytesLeft) {
      close();
    } else {
      _lingerBytesLeft -= bytes.size();
    }
  } else {
    _protocol->onBytes(bytes);
  }
  return _state != State::closed;
}

void Connection::inputEnded() {
  _inputEnded = true;
  updateInterest();
  if (_state == State::lingering) {
    if (_outputEnded) close();
  } else if (_protocol) {
    _protocol->onInputEnd();
  } else {
    close();
  }
}

void Connection::outputDrained() {
  if (_state != State::lingering) return _protocol->onOutputDrained();
  _outputEnded = true;
  _stream->endOutput(_orderlyEnd);
  if (_inputEnded) close();
}

bool Connection::flush() {
  if (_broken || _state == State::closed) return false;
  iovec pieces[kPiecesAtOnce];
  while (!_output.empty()) {
    const IoResult result = _stream->write(pieces, _output.fill(pieces, kPiecesAtOnce));
    if (result.status == IoStatus::done) {
      _core.record().countOut(result.bytes);
      _output.consume(result.bytes);
    } else if (result.status == IoStatus::wantsWrite || result.status == IoStatus::wantsRead) {
      _wantsWrite = true;
      updateInterest();
      return false;
    } else {
      // Whoever flushes may be in the middle of something: it learns of the loss once that is over.
      _broken = true;
      _core.loop().afterEvents([this] { abandon(Ending::clientGone); });
      return false;
    }
  }
  return true;
}

void Connection::setReading(bool reading) {
  if (_reading == reading || _state == State::closed) return;
  _reading = reading;
  updateInterest();
  if (reading) readSoon();
}

void Connection::readSoon() {
  // The security layer can hold bytes that the socket no longer announces.
  if (_stream->shortReadIsLast() || _readTimer) return;
  _readTimer = _core.loop().startTimer({}, [this] {
    _readTimer = 0;
    if (_reading && !_inputEnded) readSome();
  });
}

void Connection::setIdle(bool idle) {
  if (_core.options().idleTimeout.count() == 0) return;
  if (_idleTimer) _core.loop().cancelTimer(std::exchange(_idleTimer, 0));
  if (idle && _state == State::open) {
    _idleTimer = _core.loop().startTimer(_core.options().idleTimeout, [this] {
      _idleTimer = 0;
      linger(true);
    });
  }
}

void Connection::linger(bool orderly) {
  if (_state == State::closed || _state == State::lingering) return;
  _state = State::lingering;
  setIdle(false);
  _orderlyEnd = orderly;
  _lingerBytesLeft = _core.options().lingerBytes;
  _lingerTimer = _core.loop().startTimer(_core.options().lingerTime, [this] {
    _lingerTimer = 0;
    close();
  });
  setReading(true);
  if (flush()) outputDrained();
}

void Connection::reset() {
  if (_state == State::closed) return;
  const ::linger atOnce{1, 0};
  setsockopt(_stream->socket(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
  close();
}

void Connection::abandon(Ending ending) {
  if (_state == State::closed) return;
  if (_protocol && _state == State::open) _protocol->onGone(ending);
  close();
}

void Connection::updateInterest() {
  if (_state == State::closed) return;
  uint32_t interest = _wantsWrite ? uint32_t{EPOLLOUT} : 0;
  if (!_inputEnded) interest |= _reading ? uint32_t{EPOLLIN} : uint32_t{EPOLLRDHUP};
  if (interest == _interest) return;
  _interest = interest;
  _core.loop().rewatch(_stream->socket(), interest, this);
}

void Connection::close() {
  if (_state == State::closed) return;
  _state = State::closed;
  for (EventLoop::TimerId* timer : {&_lingerTimer, &_idleTimer, &_readTimer}) {
    if (*timer) _core.loop().cancelTimer(std::exchange(*timer, 0));
  }
  _output.clear();
  _core.loop().unwatch(_stream->socket());
  _stream.reset();
  _core.connectionClosed(_number);
}

}  // namespace nvxcore::geoserver
