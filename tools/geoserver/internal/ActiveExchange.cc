#include "tools/geoserver/internal/ActiveExchange.h"

#include <algorithm>
#include <utility>

#include "tools/geoserver/internal/ServerCore.h"

namespace nvxcore::geoserver {
namespace {

// What is set aside for a body on the strength of its announced length alone.
constexpr uint64_t kReservedAtMost = 4 * 1024 * 1024;

ReplyPlan handlerFailure(const std::string& what) {
  return ReplyPlan::withBody(500, "text/plain", "a handler failed: " + what + "\n");
}

}  // namespace

ActiveExchange::ActiveExchange(ServerCore& core, ReplySink& sink, Exchange head)
    : _core(core), _sink(sink), _exchange(std::make_shared<Exchange>(std::move(head))) {}

void ActiveExchange::begin() {
  _exchange->headArrived = ExchangeClock::now();
  const size_t question = _exchange->target.find('?');
  _exchange->path = _exchange->target.substr(0, question);
  if (question != std::string::npos) _exchange->query = _exchange->target.substr(question + 1);
  // A proxy's client sends the absolute form (RFC 9112, 3.2.2).
  if (const size_t scheme = _exchange->path.find("://"); scheme != std::string::npos && scheme < 8) {
    const size_t slash = _exchange->path.find('/', scheme + 3);
    _exchange->path = slash == std::string::npos ? "/" : _exchange->path.substr(slash);
  }
  _core.record().began(_exchange);
  try {
    _plan = _core.planAtHead(*_exchange);
  } catch (const std::exception& error) {
    _core.record().change([&](Counters&) { _exchange->handlerError = error.what(); });
    _plan = handlerFailure(error.what());
  }
  if (_plan && _plan->early) {
    _early = true;
    _intake = _plan->intake;
    play(*std::exchange(_plan, std::nullopt));
  } else if (_core.options().answersExpect && _exchange->version != "HTTP/1.0" &&
             _exchange->headers.hasToken("Expect", "100-continue")) {
    _sink.sendInterim(100, {});
    _sink.flush();
  }
}

void ActiveExchange::reserveBody(uint64_t bytes) { _body.reserve(std::min(bytes, kReservedAtMost)); }

void ActiveExchange::addBody(std::string_view bytes) { _body.append(bytes); }

void ActiveExchange::endBody(HeaderList trailers) {
  auto body = std::make_shared<const std::string>(std::move(_body));
  Post post;
  PostReading reading;
  if (!_early && _core.speaksProtocol(*_exchange)) {
    const auto config = _core.config();
    post = decodePost(*body, config->types);
    reading = readPost(post, *body, _exchange->headers, config->types, _core.office());
  }
  if (!trailers.empty()) _core.record().change([&](Counters&) { _exchange->trailers = std::move(trailers); });
  _core.record().received(*_exchange, std::move(body), std::move(post), std::move(reading));
  if (_early || _exchange->ending != Ending::none) return;
  try {
    if (!_plan) _plan = _core.planAtEnd(*_exchange);
  } catch (const std::exception& error) {
    _core.record().change([&](Counters&) { _exchange->handlerError = error.what(); });
    _plan = handlerFailure(error.what());
  }
  play(*std::exchange(_plan, std::nullopt));
}

void ActiveExchange::play(ReplyPlan plan) {
  PreparedReply reply;
  try {
    reply = prepareReply(plan, *_exchange, _core.config()->types, _core.options().compression);
  } catch (const std::exception& error) {
    _core.record().change([&](Counters&) { _exchange->handlerError = error.what(); });
    plan = handlerFailure(error.what());
    reply = prepareReply(plan, *_exchange, _core.config()->types, _core.options().compression);
  }
  _after = plan.after;
  _core.record().change([&](Counters&) {
    _exchange->fault = plan.fault;
    _exchange->plan = plan.label;
    _exchange->replyBytes = reply.body.size();
    _exchange->answersPlanned = reply.answerEnds.size();
    _exchange->spoiledAnswer = reply.spoiledAnswer;
    _exchange->notes = std::move(reply.notes);
    if (_core.options().keepReplies && !reply.answerEnds.empty()) {
      _exchange->reply = std::make_shared<const std::string>(reply.body);
      _exchange->answerEnds = reply.answerEnds;
    }
  });
  _player = std::make_unique<ReplyPlayer>(_core, _sink, *_exchange, std::move(reply), std::move(plan.steps),
                                          [this](Ending ending) { _core.exchangeEnded(*_exchange, ending); });
  _player->resume();
}

void ActiveExchange::outputDrained() {
  if (_player && !_player->heldUp()) _player->resume();
}

void ActiveExchange::end(Ending ending) {
  if (_exchange->ending != Ending::none) return;
  if (_player) _player->noteProgress();
  _player.reset();
  if (!_exchange->bodyComplete)
    _core.record().change([this](Counters&) { _exchange->bodyBytes = _body.size(); });
  _core.exchangeEnded(*_exchange, ending);
}

}  // namespace nvxcore::geoserver
