#include "tools/geoserver/internal/Http2Protocol.h"

#include <new>
#include <string>
#include <utility>

#include "tools/geoserver/internal/ServerCore.h"

namespace nvxcore::geoserver {
namespace {

constexpr uint32_t kConcurrentStreams = 1000;
constexpr int32_t kStreamWindow = 1024 * 1024;
constexpr int32_t kConnectionWindow = 16 * 1024 * 1024;
// What is taken from nghttp2 at a time.
constexpr size_t kOutputAtOnce = 256 * 1024;

std::string_view viewOf(const uint8_t* bytes, size_t length) {
  return {reinterpret_cast<const char*>(bytes), length};
}

Http2Protocol& protocol(void* self) { return *static_cast<Http2Protocol*>(self); }

}  // namespace

Http2Protocol::Http2Protocol(Connection& connection) : _connection(connection) {
  nghttp2_session_callbacks* callbacks = nullptr;
  nghttp2_option* option = nullptr;
  nghttp2_session* session = nullptr;
  if (nghttp2_session_callbacks_new(&callbacks) != 0 || nghttp2_option_new(&option) != 0)
    throw std::bad_alloc();
  nghttp2_session_callbacks_set_on_begin_headers_callback(callbacks, onBeginHeaders);
  nghttp2_session_callbacks_set_on_header_callback(callbacks, onHeader);
  nghttp2_session_callbacks_set_on_frame_recv_callback(callbacks, onFrame);
  nghttp2_session_callbacks_set_on_invalid_frame_recv_callback(callbacks, onInvalidFrame);
  nghttp2_session_callbacks_set_on_data_chunk_recv_callback(callbacks, onData);
  nghttp2_session_callbacks_set_on_stream_close_callback(callbacks, onStreamClose);
  // Windows are granted by hand, so that a plan can leave a body unread.
  nghttp2_option_set_no_auto_window_update(option, 1);
  const int made = nghttp2_session_server_new2(&session, callbacks, this, option);
  nghttp2_option_del(option);
  nghttp2_session_callbacks_del(callbacks);
  if (made != 0) throw std::bad_alloc();
  _session.reset(session);
}

void Http2Protocol::begin() {
  const nghttp2_settings_entry settings[] = {
      {NGHTTP2_SETTINGS_MAX_CONCURRENT_STREAMS, kConcurrentStreams},
      {NGHTTP2_SETTINGS_INITIAL_WINDOW_SIZE, kStreamWindow},
  };
  nghttp2_submit_settings(_session.get(), NGHTTP2_FLAG_NONE, settings, std::size(settings));
  nghttp2_session_set_local_window_size(_session.get(), NGHTTP2_FLAG_NONE, 0, kConnectionWindow);
  pump();
}

void Http2Protocol::onBytes(std::string_view bytes) {
  _finished.clear();
  const ssize_t taken =
      nghttp2_session_mem_recv(_session.get(), reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  if (taken < 0) countBadInput();
  handleEvents();
  if (!_connection.open()) return;
  grantWindows();
  pump();
  onOutputDrained();
}

void Http2Protocol::onInputEnd() {
  endAll(Ending::clientGone);
  _connection.linger(true);
}

void Http2Protocol::onOutputDrained() {
  pump();
  _busy = true;
  for (auto& entry : _streams) {
    // A reply that goes on can end the connection, and with it all the others.
    if (_connection.open()) entry.second->outputDrained();
  }
  _busy = false;
  if (!_connection.open()) return;
  handleEvents();
  if (_connection.open()) closeWhenDone();
}

void Http2Protocol::onGone(Ending ending) { endAll(ending); }

void Http2Protocol::pump() {
  while (_connection.open() && _connection.flush()) {
    std::string out;
    const uint8_t* data = nullptr;
    ssize_t length = 0;
    while (out.size() < kOutputAtOnce && (length = nghttp2_session_mem_send(_session.get(), &data)) > 0) {
      out.append(viewOf(data, static_cast<size_t>(length)));
    }
    if (out.empty()) return;
    _connection.output().add(std::move(out));
  }
}

void Http2Protocol::sendRaw(std::string_view bytes) {
  pump();
  _connection.output().add(std::string(bytes));
}

void Http2Protocol::goAway(uint32_t code, int32_t lastStream) {
  nghttp2_submit_goaway(_session.get(), NGHTTP2_FLAG_NONE, lastStream, code, nullptr, 0);
  pump();
}

int32_t Http2Protocol::lastStream() { return nghttp2_session_get_last_proc_stream_id(_session.get()); }

void Http2Protocol::endOthers(const Http2Stream& stream) {
  for (auto& [id, other] : _streams) {
    if (other.get() != &stream) other->end(Ending::collateral);
  }
}

void Http2Protocol::endAll(Ending ending) {
  for (auto& entry : _streams) entry.second->end(ending);
}

void Http2Protocol::tidy() {
  // Whoever goes through the streams or events at this moment does this afterwards.
  if (_busy || !_connection.open()) return;
  handleEvents();
  if (_connection.open()) closeWhenDone();
}

void Http2Protocol::dropFinished() {
  for (auto next = _streams.begin(); next != _streams.end();) {
    const auto stream = next++;
    if (!stream->second->finished()) continue;
    _finished.push_back(std::move(stream->second));
    _streams.erase(stream);
  }
  if (_streams.empty()) _connection.setIdle(true);
}

void Http2Protocol::handleEvents() {
  _busy = true;
  // Replies that play meanwhile add to the events.
  for (size_t i = 0; i < _events.size() && _connection.open(); ++i) {
    const Event event = _events[i];
    Http2Stream* stream = find(event.stream);
    if (!stream) continue;
    switch (event.kind) {
      case Event::Kind::head:
        _connection.setIdle(false);
        stream->begin();
        break;
      case Event::Kind::bodyEnd:
        stream->bodyEnded();
        break;
      case Event::Kind::closed:
        stream->closed(event.code,
                       event.code == NGHTTP2_REFUSED_STREAM ? Ending::refused : Ending::clientGone);
        break;
    }
  }
  _events.clear();
  _busy = false;
  dropFinished();
}

void Http2Protocol::grantWindows() {
  for (auto& [id, stream] : _streams) {
    if (const size_t grant = stream->takeGrant()) nghttp2_session_consume_stream(_session.get(), id, grant);
  }
}

void Http2Protocol::closeWhenDone() {
  if (!_badInput && (nghttp2_session_want_read(_session.get()) || nghttp2_session_want_write(_session.get())))
    return;
  endAll(Ending::badRequest);
  _connection.linger(true);
}

void Http2Protocol::countBadInput() {
  if (std::exchange(_badInput, true)) return;
  _connection.core().record().change([](Counters& counters) { ++counters.badRequests; });
}

Http2Stream* Http2Protocol::find(int32_t id) {
  const auto found = _streams.find(id);
  return found == _streams.end() ? nullptr : found->second.get();
}

int Http2Protocol::onBeginHeaders(nghttp2_session*, const nghttp2_frame* frame, void* self) {
  if (frame->headers.cat == NGHTTP2_HCAT_REQUEST) {
    const int32_t id = frame->hd.stream_id;
    protocol(self)._streams.emplace(id, std::make_unique<Http2Stream>(protocol(self), id));
  }
  return 0;
}

int Http2Protocol::onHeader(nghttp2_session*, const nghttp2_frame* frame, const uint8_t* name,
                            size_t nameLength, const uint8_t* value, size_t valueLength, uint8_t,
                            void* self) {
  if (Http2Stream* stream = protocol(self).find(frame->hd.stream_id)) {
    stream->addField(viewOf(name, nameLength), viewOf(value, valueLength));
  }
  return 0;
}

int Http2Protocol::onFrame(nghttp2_session*, const nghttp2_frame* frame, void* self) {
  const int32_t id = frame->hd.stream_id;
  Http2Stream* stream = protocol(self).find(id);
  if (!stream) return 0;
  if (frame->hd.type == NGHTTP2_HEADERS && frame->headers.cat == NGHTTP2_HCAT_REQUEST) {
    stream->headEnded();
    protocol(self)._events.push_back({Event::Kind::head, id});
  }
  const bool carriesEnd = frame->hd.type == NGHTTP2_HEADERS || frame->hd.type == NGHTTP2_DATA;
  if (carriesEnd && (frame->hd.flags & NGHTTP2_FLAG_END_STREAM)) {
    protocol(self)._events.push_back({Event::Kind::bodyEnd, id});
  }
  return 0;
}

int Http2Protocol::onInvalidFrame(nghttp2_session*, const nghttp2_frame*, int, void* self) {
  protocol(self)._connection.core().record().change([](Counters& counters) { ++counters.badRequests; });
  return 0;
}

int Http2Protocol::onData(nghttp2_session* session, uint8_t, int32_t id, const uint8_t* data, size_t length,
                          void* self) {
  // A body that is left unread holds up its own stream, not the others.
  nghttp2_session_consume_connection(session, length);
  Http2Stream* stream = protocol(self).find(id);
  if (!stream) return 0;
  stream->addBody(viewOf(data, length));
  if (stream->bodyBytes() > protocol(self)._connection.core().options().maxBodyBytes) {
    stream->end(Ending::badRequest);
    nghttp2_submit_rst_stream(session, NGHTTP2_FLAG_NONE, id, NGHTTP2_ENHANCE_YOUR_CALM);
  }
  return 0;
}

int Http2Protocol::onStreamClose(nghttp2_session*, int32_t id, uint32_t code, void* self) {
  protocol(self)._events.push_back({Event::Kind::closed, id, code});
  return 0;
}

}  // namespace nvxcore::geoserver
