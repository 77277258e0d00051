// HTTP/2 on one connection, by nghttp2.
#pragma once

#include <nghttp2/nghttp2.h>

#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "tools/geoserver/internal/Connection.h"
#include "tools/geoserver/internal/Http2Stream.h"
#include "tools/geoserver/internal/Protocol.h"

namespace nvxcore::geoserver {

// Loop thread. nghttp2 must not be asked to send from within its own callbacks: what they report is kept, and
// dealt with once it has returned.
class Http2Protocol final : public Protocol {
 public:
  explicit Http2Protocol(Connection& connection);

  void begin() override;
  void onBytes(std::string_view bytes) override;
  void onInputEnd() override;
  void onOutputDrained() override;
  void onGone(Ending ending) override;

  // For the streams.
  Connection& connection() { return _connection; }
  nghttp2_session* session() { return _session.get(); }
  // Hands what nghttp2 has to send to the socket, as far as that takes it.
  void pump();
  void sendRaw(std::string_view bytes);
  uint64_t nextExchangeNumber() { return ++_exchanges; }
  // GOAWAY. Streams behind `lastStream` are not served.
  void goAway(uint32_t code, int32_t lastStream);
  int32_t lastStream();
  // All other streams lose their connection through one stream's plan.
  void endOthers(const Http2Stream& stream);
  // A reply is over: streams with nothing left to do can go.
  void tidy();

 private:
  struct Event {
    enum class Kind { head, bodyEnd, closed } kind;
    int32_t stream;
    uint32_t code = 0;
  };
  struct SessionDeleter {
    void operator()(nghttp2_session* session) const { nghttp2_session_del(session); }
  };

  static int onBeginHeaders(nghttp2_session*, const nghttp2_frame* frame, void* self);
  static int onHeader(nghttp2_session*, const nghttp2_frame* frame, const uint8_t* name, size_t nameLength,
                      const uint8_t* value, size_t valueLength, uint8_t, void* self);
  static int onFrame(nghttp2_session*, const nghttp2_frame* frame, void* self);
  static int onInvalidFrame(nghttp2_session*, const nghttp2_frame*, int, void* self);
  static int onData(nghttp2_session*, uint8_t, int32_t id, const uint8_t* data, size_t length, void* self);
  static int onStreamClose(nghttp2_session*, int32_t id, uint32_t code, void* self);

  Http2Stream* find(int32_t id);
  void handleEvents();
  void dropFinished();
  void grantWindows();
  void endAll(Ending ending);
  void closeWhenDone();
  void countBadInput();

  Connection& _connection;
  std::unique_ptr<nghttp2_session, SessionDeleter> _session;
  std::map<int32_t, std::unique_ptr<Http2Stream>> _streams;
  // Streams that are over, but may still be on the call stack.
  std::vector<std::unique_ptr<Http2Stream>> _finished;
  std::vector<Event> _events;
  uint64_t _exchanges = 0;
  bool _busy = false;  // going through streams or events, none of which may be destroyed meanwhile
  bool _badInput = false;
};

}  // namespace nvxcore::geoserver
