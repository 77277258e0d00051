// Where a reply goes: one request's place on an HTTP/1 connection, or one HTTP/2 stream.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/geoserver/internal/PreparedReply.h"

namespace nvxcore::geoserver {

// Loop thread. What is sent waits until flush().
class ReplySink {
 public:
  virtual void sendInterim(int status, const HeaderList& headers) = 0;
  virtual void sendHead(const PreparedReply& reply) = 0;
  // The bytes stay valid until the exchange is over.
  virtual void sendBody(std::string_view bytes) = 0;
  virtual void endBody(const PreparedReply& reply) = 0;
  virtual void sendRaw(std::string_view bytes) = 0;
  // Whether all that was sent is in the socket's hands. If not, ReplyPlayer::resume() is called once it is,
  // and must not be called from within.
  virtual bool flush() = 0;

  // Each of these ends the reply, and may destroy who calls it.
  virtual void replyEnded() = 0;
  virtual void closeConnection() = 0;
  virtual void resetConnection() = 0;
  virtual void resetStream(uint32_t code) = 0;
  virtual void refuse(uint32_t code) = 0;

  // Announces that nothing new is served on this connection; the reply goes on.
  virtual void announceEnd(uint32_t code) = 0;

 protected:
  ~ReplySink() = default;
};

}  // namespace nvxcore::geoserver
