#include "tools/geoserver/internal/ReplyPlayer.h"

#include <algorithm>
#include <utility>

#include "tools/geoserver/internal/ServerCore.h"

namespace nvxcore::geoserver {

ReplyPlayer::ReplyPlayer(ServerCore& core, ReplySink& sink, Exchange& exchange, PreparedReply reply,
                         std::vector<ReplyStep> steps, std::function<void(Ending)> onEnd)
    : _core(core),
      _sink(sink),
      _exchange(exchange),
      _reply(std::move(reply)),
      _steps(std::move(steps)),
      _onEnd(std::move(onEnd)) {}

ReplyPlayer::~ReplyPlayer() {
  if (_timer) _core.loop().cancelTimer(_timer);
  if (_ticket) {
    _core.gates().leave(_ticket);
    stalled(false);
  }
}

void ReplyPlayer::resume() {
  // Returning is the last thing done wherever the reply is over: this object may be gone by then.
  if (_over) return;
  while (_nextStep < _steps.size()) {
    if (play(_steps[_nextStep++]) != Outcome::goOn) return;
    if (!_sink.flush()) return;
  }
  if (!_bodyEnded) {
    _bodyEnded = true;
    if (_headSent || !_rawSent) {
      sendHead();
      sendBodyUpTo(_reply.body.size());
      _sink.endBody(_reply);
    }
    if (!_sink.flush()) return;
  }
  finish(Ending::answered, [this] { _sink.replyEnded(); });
}

ReplyPlayer::Outcome ReplyPlayer::play(const ReplyStep& step) {
  switch (step.kind) {
    case ReplyStep::Kind::head:
      sendHead();
      return Outcome::goOn;
    case ReplyStep::Kind::bytes:
      sendHead();
      sendBodyUpTo(_offset + std::min<uint64_t>(step.amount, _reply.body.size()));
      return Outcome::goOn;
    case ReplyStep::Kind::share:
      sendHead();
      if (const uint64_t size = _reply.body.size()) {
        sendBodyUpTo(std::min(size * std::min<uint64_t>(step.amount, 1000) / 1000, size - 1));
      }
      return Outcome::goOn;
    case ReplyStep::Kind::upToAnswer:
      sendHead();
      if (step.amount == 0 || _reply.answerEnds.empty()) {
        sendBodyUpTo(std::min<uint64_t>(sizeof(kProtocolVersion), _reply.body.size()));
      } else {
        sendBodyUpTo(_reply.answerEnds[std::min<uint64_t>(step.amount, _reply.answerEnds.size()) - 1]);
      }
      return Outcome::goOn;
    case ReplyStep::Kind::rest:
      sendHead();
      sendBodyUpTo(_reply.body.size());
      return Outcome::goOn;
    case ReplyStep::Kind::drip:
      sendHead();
      sendBodyUpTo(_offset + std::min<uint64_t>(step.amount, _reply.body.size()));
      if (_offset == _reply.body.size() || !_reply.bodyAllowed) return Outcome::goOn;
      --_nextStep;
      _sink.flush();
      wait(step.wait);
      return Outcome::waiting;
    case ReplyStep::Kind::raw:
      noteStart();
      _rawSent = true;
      _sink.sendRaw(step.text);
      return Outcome::goOn;
    case ReplyStep::Kind::interim:
      noteStart();
      _sink.sendInterim(static_cast<int>(step.amount), step.headers);
      return Outcome::goOn;
    case ReplyStep::Kind::pause:
      wait(step.wait);
      return Outcome::waiting;
    case ReplyStep::Kind::stall:
      return waitAtGate(step.text);
    case ReplyStep::Kind::close:
      return finish(Ending::cut, [this] { _sink.closeConnection(); });
    case ReplyStep::Kind::reset:
      return finish(Ending::reset, [this] { _sink.resetConnection(); });
    case ReplyStep::Kind::streamReset:
      return finish(Ending::streamReset,
                    [this, &step] { _sink.resetStream(static_cast<uint32_t>(step.amount)); });
    case ReplyStep::Kind::goAway:
      if (step.refuse) {
        return finish(Ending::refused, [this, &step] { _sink.refuse(static_cast<uint32_t>(step.amount)); });
      }
      _sink.announceEnd(static_cast<uint32_t>(step.amount));
      return Outcome::goOn;
  }
  return Outcome::goOn;
}

ReplyPlayer::Outcome ReplyPlayer::finish(Ending ending, const std::function<void()>& tellSink) {
  _over = true;
  noteProgress();
  _onEnd(ending);
  tellSink();
  return Outcome::over;
}

ReplyPlayer::Outcome ReplyPlayer::waitAtGate(const std::string& gate) {
  if (_core.gates().isOpen(gate)) return Outcome::goOn;
  _ticket = _core.gates().wait(gate, [this] {
    _ticket = 0;
    stalled(false);
    resume();
  });
  noteProgress();
  stalled(true);
  return Outcome::waiting;
}

void ReplyPlayer::wait(Millis time) {
  _timer = _core.loop().startTimer(time, [this] {
    _timer = 0;
    if (_sink.flush()) resume();
  });
}

void ReplyPlayer::stalled(bool begins) {
  _core.record().change([begins](Counters& counters) {
    if (begins) {
      ++counters.exchangesStalled;
    } else {
      --counters.exchangesStalled;
    }
  });
}

void ReplyPlayer::noteStart() {
  if (std::exchange(_started, true)) return;
  _core.record().change([this](Counters&) { _exchange.replyStarted = ExchangeClock::now(); });
}

void ReplyPlayer::noteProgress() {
  _core.record().change([this](Counters&) {
    _exchange.replyBytesSent = _offset;
    const auto whole = std::min<uint64_t>(_offset, _reply.goodBytes);
    _exchange.answersSent =
        static_cast<uint64_t>(std::upper_bound(_reply.answerEnds.begin(), _reply.answerEnds.end(), whole) -
                              _reply.answerEnds.begin());
  });
}

void ReplyPlayer::sendHead() {
  if (std::exchange(_headSent, true)) return;
  noteStart();
  _core.record().change([this](Counters&) { _exchange.status = _reply.status; });
  _sink.sendHead(_reply);
}

void ReplyPlayer::sendBodyUpTo(uint64_t offset) {
  offset = std::min<uint64_t>(offset, _reply.body.size());
  if (!_reply.bodyAllowed || offset <= _offset) return;
  _sink.sendBody(std::string_view(_reply.body).substr(_offset, offset - _offset));
  _offset = offset;
}

}  // namespace nvxcore::geoserver
