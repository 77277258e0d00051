#include "tools/geoserver/internal/Http2Stream.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "tools/geoserver/internal/Http2Protocol.h"
#include "tools/geoserver/internal/ServerCore.h"

namespace nvxcore::geoserver {
namespace {

// Fields in nghttp2's form. Names become lower case, and those that speak of an HTTP/1 connection stay out
// (RFC 9113, 8.2).
class FieldBlock {
 public:
  void add(std::string_view name, std::string_view value) {
    for (const char* forbidden :
         {"Connection", "Transfer-Encoding", "Keep-Alive", "Upgrade", "Proxy-Connection"}) {
      if (equalsIgnoringCase(name, forbidden)) return;
    }
    auto& [lowered, copy] = _fields.emplace_back(name, value);
    for (char& c : lowered) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
  }
  void add(const HeaderList& fields) {
    for (const auto& [name, value] : fields) add(name, value);
  }
  std::vector<nghttp2_nv> entries() const {
    const auto bytes = [](const std::string& text) {
      return reinterpret_cast<uint8_t*>(const_cast<char*>(text.data()));
    };
    std::vector<nghttp2_nv> entries;
    for (const auto& [name, value] : _fields) {
      entries.push_back({bytes(name), bytes(value), name.size(), value.size(), NGHTTP2_NV_FLAG_NONE});
    }
    return entries;
  }

 private:
  std::deque<HeaderList::Field> _fields;
};

ssize_t readBodyOfStream(nghttp2_session*, int32_t, uint8_t* destination, size_t capacity, uint32_t* flags,
                         nghttp2_data_source* source, void*) {
  return static_cast<Http2Stream*>(source->ptr)->readBody(destination, capacity, flags);
}

}  // namespace

void Http2Stream::addField(std::string_view name, std::string_view value) {
  if (_active) return _requestTrailers.add(name, value);
  if (name == ":method") {
    _head.method = value;
  } else if (name == ":path") {
    _head.target = value;
  } else if (name == ":authority") {
    _head.headers.add("host", value);
  } else if (!name.starts_with(':')) {
    _head.headers.add(name, value);
  }
}

void Http2Stream::headEnded() {
  _head.connection = _protocol.connection().number();
  _head.streamId = _id;
  _head.numberOnConnection = _protocol.nextExchangeNumber();
  _head.version = "HTTP/2";
  _head.tls = _protocol.connection().tls();
  _active.emplace(_protocol.connection().core(), static_cast<ReplySink&>(*this), std::move(_head));
}

void Http2Stream::begin() { _active->begin(); }

void Http2Stream::addBody(std::string_view bytes) {
  _grant += bytes.size();
  _bodyBytes += bytes.size();
  if (_active) _active->addBody(bytes);
}

void Http2Stream::bodyEnded() {
  if (_active) _active->endBody(std::move(_requestTrailers));
}

size_t Http2Stream::takeGrant() {
  if (_active && _active->leavesBodyUnread() && _active->exchange().ending == Ending::none) return 0;
  return std::exchange(_grant, 0);
}

void Http2Stream::closed(uint32_t code, Ending ending) {
  _closed = true;
  const bool replyIsOut = code == NGHTTP2_NO_ERROR && _endTaken;
  if (!replyIsOut) end(ending);
}

void Http2Stream::end(Ending ending) {
  if (_active) _active->end(ending);
}

void Http2Stream::outputDrained() {
  if (_active && drained()) _active->outputDrained();
}

ssize_t Http2Stream::readBody(uint8_t* destination, size_t capacity, uint32_t* flags) {
  size_t copied = 0;
  while (copied < capacity && !_pending.empty()) {
    std::string_view& piece = _pending.front();
    const size_t length = std::min(piece.size(), capacity - copied);
    std::memcpy(destination + copied, piece.data(), length);
    copied += length;
    piece.remove_prefix(length);
    if (piece.empty()) _pending.pop_front();
  }
  if (_ended && _pending.empty()) {
    _endTaken = true;
    *flags |= NGHTTP2_DATA_FLAG_EOF;
    if (!_trailers.empty()) {
      *flags |= NGHTTP2_DATA_FLAG_NO_END_STREAM;
      FieldBlock block;
      block.add(_trailers);
      const auto entries = block.entries();
      nghttp2_submit_trailer(_protocol.session(), _id, entries.data(), entries.size());
    }
  } else if (copied == 0) {
    _deferred = true;
    return NGHTTP2_ERR_DEFERRED;
  }
  return static_cast<ssize_t>(copied);
}

void Http2Stream::sendInterim(int status, const HeaderList& headers) {
  FieldBlock block;
  block.add(":status", std::to_string(status));
  block.add(headers);
  const auto entries = block.entries();
  nghttp2_submit_headers(_protocol.session(), NGHTTP2_FLAG_NONE, _id, nullptr, entries.data(), entries.size(),
                         nullptr);
}

void Http2Stream::sendHead(const PreparedReply& reply) {
  FieldBlock block;
  block.add(":status", std::to_string(reply.status));
  block.add(reply.headers);
  if (reply.lengthAllowed && reply.framing == ReplyPlan::Framing::length && reply.lacks("Content-Length")) {
    block.add("content-length", std::to_string(reply.declaredLength));
  }
  const auto entries = block.entries();
  nghttp2_data_provider body{};
  body.source.ptr = this;
  body.read_callback = readBodyOfStream;
  _endTaken = !reply.bodyAllowed;
  nghttp2_submit_response(_protocol.session(), _id, entries.data(), entries.size(),
                          reply.bodyAllowed ? &body : nullptr);
}

void Http2Stream::sendBody(std::string_view bytes) {
  if (bytes.empty()) return;
  _pending.push_back(bytes);
  resumeBody();
}

void Http2Stream::endBody(const PreparedReply& reply) {
  _trailers = reply.trailers;
  _ended = true;
  resumeBody();
}

void Http2Stream::resumeBody() {
  if (std::exchange(_deferred, false)) nghttp2_session_resume_data(_protocol.session(), _id);
}

void Http2Stream::sendRaw(std::string_view bytes) { _protocol.sendRaw(bytes); }

bool Http2Stream::drained() const {
  return _pending.empty() && (!_ended || _endTaken) && _protocol.connection().output().empty();
}

bool Http2Stream::flush() {
  _protocol.pump();
  return drained();
}

void Http2Stream::replyEnded() {
  switch (_active->after()) {
    case ReplyPlan::After::drop:
      return closeConnection();
    case ReplyPlan::After::close:
      _protocol.goAway(NGHTTP2_NO_ERROR, _protocol.lastStream());
      break;
    case ReplyPlan::After::linger:
    case ReplyPlan::After::asAsked:
      break;
  }
  const bool wantsRest = _active->after() == ReplyPlan::After::asAsked && !_active->leavesBodyUnread();
  if (!_active->bodyEnded() && !wantsRest) {
    // The client need not send what nobody reads (RFC 9113, 8.1).
    nghttp2_submit_rst_stream(_protocol.session(), NGHTTP2_FLAG_NONE, _id, NGHTTP2_NO_ERROR);
    _protocol.pump();
  }
  _protocol.tidy();
}

void Http2Stream::closeConnection() {
  _protocol.endOthers(*this);
  _protocol.connection().linger(false);
}

void Http2Stream::resetConnection() {
  _protocol.endOthers(*this);
  _protocol.connection().reset();
}

void Http2Stream::resetStream(uint32_t code) {
  nghttp2_submit_rst_stream(_protocol.session(), NGHTTP2_FLAG_NONE, _id, code);
  _protocol.pump();
  _protocol.tidy();
}

void Http2Stream::refuse(uint32_t code) {
  _protocol.goAway(code, std::max(0, _id - 2));
  _protocol.tidy();
}

void Http2Stream::announceEnd(uint32_t code) { _protocol.goAway(code, _protocol.lastStream()); }

}  // namespace nvxcore::geoserver
