// One exchange under way: gathers the request, asks for a plan and plays it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/geoserver/internal/ReplyPlayer.h"

namespace nvxcore::geoserver {

class ServerCore;

// Loop thread. Destroying it before its end needs an end() first, so that the record knows how it ended.
class ActiveExchange {
 public:
  // `head` has what the protocol knows of the request; the rest is filled in here.
  ActiveExchange(ServerCore& core, ReplySink& sink, Exchange head);
  ActiveExchange(const ActiveExchange&) = delete;
  ActiveExchange& operator=(const ActiveExchange&) = delete;

  // Asks for a plan that needs no body, and plays it when it is an early one.
  void begin();
  void addBody(std::string_view bytes);
  // All of the body is there: plays the reply, unless an early one does already.
  void endBody(HeaderList trailers);
  void reserveBody(uint64_t bytes);
  // The sink has sent all that waited.
  void outputDrained();
  // Puts an end to it from outside; does nothing once it has ended.
  void end(Ending ending);

  const Exchange& exchange() const { return *_exchange; }
  bool bodyEnded() const { return _exchange->bodyComplete; }
  bool replying() const { return _player != nullptr; }
  bool heldUp() const { return _player && _player->heldUp(); }
  ReplyPlan::After after() const { return _after; }
  bool leavesBodyUnread() const { return _early && _intake == ReplyPlan::Intake::unread; }

 private:
  void play(ReplyPlan plan);

  ServerCore& _core;
  ReplySink& _sink;
  const std::shared_ptr<Exchange> _exchange;
  std::string _body;
  std::optional<ReplyPlan> _plan;  // asked for at the head, for when the body is there
  ReplyPlan::After _after = ReplyPlan::After::asAsked;
  ReplyPlan::Intake _intake = ReplyPlan::Intake::read;
  bool _early = false;
  std::unique_ptr<ReplyPlayer> _player;
};

}  // namespace nvxcore::geoserver
