// Plays the steps of one plan into a sink.
#pragma once

#include <functional>
#include <memory>

#include "tools/geoserver/internal/EventLoop.h"
#include "tools/geoserver/internal/Gates.h"
#include "tools/geoserver/internal/ReplySink.h"

namespace nvxcore::geoserver {

class ServerCore;

// Loop thread. Destroying it while it plays stops the reply where it is.
class ReplyPlayer {
 public:
  // `onEnd` is called once, right before the sink is told that the reply has ended or ends the connection.
  ReplyPlayer(ServerCore& core, ReplySink& sink, Exchange& exchange, PreparedReply reply,
              std::vector<ReplyStep> steps, std::function<void(Ending)> onEnd);
  ~ReplyPlayer();
  ReplyPlayer(const ReplyPlayer&) = delete;
  ReplyPlayer& operator=(const ReplyPlayer&) = delete;

  // Plays until it must wait or is over. May destroy the player.
  void resume();
  // Whether it waits for a moment or a gate, not for the socket.
  bool heldUp() const { return _timer != 0 || _ticket != 0; }
  // Puts down in the exchange how far the reply came.
  void noteProgress();

 private:
  enum class Outcome { goOn, waiting, over };

  Outcome play(const ReplyStep& step);
  Outcome waitAtGate(const std::string& gate);
  void wait(Millis time);
  void sendHead();
  void sendBodyUpTo(uint64_t offset);
  void noteStart();
  void stalled(bool begins);
  Outcome finish(Ending ending, const std::function<void()>& tellSink);

  ServerCore& _core;
  ReplySink& _sink;
  Exchange& _exchange;
  const PreparedReply _reply;
  const std::vector<ReplyStep> _steps;
  std::function<void(Ending)> _onEnd;

  size_t _nextStep = 0;
  uint64_t _offset = 0;  // into the body
  bool _started = false;
  bool _headSent = false;
  bool _rawSent = false;  // raw bytes stand for the reply
  bool _bodyEnded = false;
  bool _over = false;
  EventLoop::TimerId _timer = 0;
  Gates::Ticket _ticket = 0;
};

}  // namespace nvxcore::geoserver
