// One request and its reply on an HTTP/2 connection.
#pragma once

#include <nghttp2/nghttp2.h>

#include <deque>
#include <string>
#include <string_view>

#include "tools/geoserver/internal/ActiveExchange.h"
#include "tools/geoserver/internal/ReplySink.h"

namespace nvxcore::geoserver {

class Http2Protocol;

// Loop thread.
class Http2Stream final : public ReplySink {
 public:
  Http2Stream(Http2Protocol& protocol, int32_t id) : _protocol(protocol), _id(id) {}
  Http2Stream(const Http2Stream&) = delete;
  Http2Stream& operator=(const Http2Stream&) = delete;

  int32_t id() const { return _id; }

  // What the client sends, as it comes.
  void addField(std::string_view name, std::string_view value);
  void headEnded();
  // Asks for a plan; not within nghttp2's callbacks.
  void begin();
  void addBody(std::string_view bytes);
  uint64_t bodyBytes() const { return _bodyBytes; }
  void bodyEnded();
  // What was received since the last call and may be granted to the client anew.
  size_t takeGrant();

  // Nothing more goes either way. The exchange ends as `ending`, unless its reply is out or on its way.
  void closed(uint32_t code, Ending ending);
  bool finished() const { return _closed && (!_active || _active->exchange().ending != Ending::none); }
  void end(Ending ending);
  // Goes on with the reply when what it waits for is out.
  void outputDrained();

  // For nghttp2: copies body bytes out.
  ssize_t readBody(uint8_t* destination, size_t capacity, uint32_t* flags);

 private:
  void sendInterim(int status, const HeaderList& headers) override;
  void sendHead(const PreparedReply& reply) override;
  void sendBody(std::string_view bytes) override;
  void endBody(const PreparedReply& reply) override;
  void sendRaw(std::string_view bytes) override;
  bool flush() override;
  void replyEnded() override;
  void closeConnection() override;
  void resetConnection() override;
  void resetStream(uint32_t code) override;
  void refuse(uint32_t code) override;
  void announceEnd(uint32_t code) override;

  bool drained() const;
  void resumeBody();

  Http2Protocol& _protocol;
  const int32_t _id;
  Exchange _head;  // until the exchange begins
  HeaderList _requestTrailers;
  std::optional<ActiveExchange> _active;
  size_t _grant = 0;
  uint64_t _bodyBytes = 0;

  std::deque<std::string_view> _pending;  // of the reply's body
  HeaderList _trailers;
  bool _ended = false;     // nothing follows what is pending
  bool _endTaken = false;  // nghttp2 knows
  bool _deferred = false;  // nghttp2 waits for more of the body
  bool _closed = false;
};

}  // namespace nvxcore::geoserver
