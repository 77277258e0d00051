#include "tools/geoserver/ConversationLog.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "tools/geoserver/messages/TextFormat.h"

namespace nvxcore::geoserver {
namespace {

constexpr size_t kMessageIndent = 6;
// Of bodies and of payloads that are no messages.
constexpr size_t kBytesShown = 64;

__attribute__((format(printf, 1, 2))) std::string format(const char* text, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, text);
  std::vsnprintf(line, sizeof(line), text, arguments);
  va_end(arguments);
  return line;
}

std::string cookieText(int64_t cookie) { return format("0x%016" PRIx64, static_cast<uint64_t>(cookie)); }

const char* standingText(CookieStanding standing) {
  switch (standing) {
    case CookieStanding::none:
      return "none";
    case CookieStanding::known:
      return "known";
    case CookieStanding::unknown:
      return "unknown";
  }
  return "";
}

std::string shown(std::string_view bytes) {
  return quoted(bytes.substr(0, kBytesShown), true) + (bytes.size() > kBytesShown ? "..." : "");
}

// What is known to be a message is shown as one, by numbers if need be.
const MessageSchema* schemaOr(const MessageSchema* schema) { return schema ? schema : &schemas::unknown; }

class Writer {
 public:
  Writer(const Exchange& exchange, const RequestTypes& types) : _exchange(exchange), _types(types) {}

  std::string brief() {
    _out += _exchange.summary() + "\n";
    for (size_t i = 0; i < _exchange.post.requests.size(); ++i) requestLine(i);
    troubles();
    return std::move(_out);
  }

  std::string verbose() {
    _out += _exchange.summary() + "\n";
    for (const auto& [name, value] : _exchange.headers) _out += "  " + name + ": " + value + "\n";
    if (_exchange.post.header.version) head();
    for (size_t i = 0; i < _exchange.identity.locationDescriptors.size(); ++i) {
      _out += format("  X-Geo descriptor %zu\n", i + 1);
      _out += textFormat(_exchange.identity.locationDescriptors[i], kMessageIndent);
    }
    for (size_t i = 0; i < _exchange.post.requests.size(); ++i) {
      requestLine(i);
      if (!_exchange.body->empty()) request(i);
      if (_exchange.reply) answer(i);
    }
    troubles();
    return std::move(_out);
  }

 private:
  const RequestType& typeOf(size_t i) const { return _types.find(_exchange.post.requests[i].id); }

  // The answer's bytes behind its ID, as far as they are part of the reply.
  std::string_view answerBytes(size_t i) const {
    if (!_exchange.reply || i >= _exchange.answerEnds.size()) return {};
    const std::string_view reply = *_exchange.reply;
    const size_t begin = std::min((i ? _exchange.answerEnds[i - 1] : 2) + 2, reply.size());
    return reply.substr(begin, std::max(std::min(_exchange.answerEnds[i], reply.size()), begin) - begin);
  }

  void head() {
    const PostHeader& head = _exchange.post.header;
    _out +=
        format("  version %d, cookie %s (%s), language %s, platform %s, software %s, channel %s\n",
               head.version, cookieText(head.userCookie).c_str(), standingText(_exchange.identity.cookie),
               quoted(head.language, false).c_str(), quoted(head.platform, false).c_str(),
               quoted(head.softwareVersion, false).c_str(), quoted(head.distributionChannel, false).c_str());
  }

  void requestLine(size_t i) {
    const PostRequest& request = _exchange.post.requests[i];
    const std::string& name = typeOf(i).message.name;
    _out += format("  %5d %-18s %8zu bytes", request.id, name.c_str(), request.payloadLength);
    if (_exchange.reply && i < _exchange.answerEnds.size()) {
      const std::string_view bytes = answerBytes(i);
      _out += format(" -> %8zu bytes", bytes.size());
      if (typeOf(i).answersSubdata && bytes.size() >= 4 && WireReader(bytes).readInt() < 0)
        _out += ", compressed";
      if (_exchange.spoiledAnswer == i) _out += ", spoiled";
      if (i >= _exchange.answersSent) _out += ", not sent";
    }
    _out += "\n";
  }

  void message(std::string_view bytes, const MessageSchema* schema) {
    if (!schema) {
      _out += std::string(kMessageIndent, ' ') + shown(bytes) + "\n";
      return;
    }
    _out += textFormat(WireMessage::parse(bytes, *schema), kMessageIndent, kBytesShown);
  }

  void request(size_t i) {
    const std::string_view payload = _exchange.payload(_exchange.post.requests[i]);
    try {
      if (typeOf(i).carriesMessages()) {
        message(WireReader(payload).readCountedBytes(), schemaOr(typeOf(i).message.request));
      } else if (!payload.empty()) {
        message(payload, nullptr);
      }
    } catch (const WireError& error) {
      _out += std::string(kMessageIndent, ' ') + "# " + error.what() + ": " + shown(payload) + "\n";
    }
  }

  void answer(size_t i) {
    const std::string_view bytes = answerBytes(i);
    if (bytes.empty()) return;
    _out += "    answer\n";
    try {
      if (typeOf(i).carriesMessages()) {
        WireReader reader(bytes);
        message(readSubdata(reader), schemaOr(typeOf(i).message.answer));
      } else if (_exchange.post.requests[i].id == RequestTypes::kUserCookie &&
                 bytes.size() == sizeof(int64_t)) {
        _out += std::string(kMessageIndent, ' ') + cookieText(WireReader(bytes).readLong()) + "\n";
      } else {
        message(bytes, nullptr);
      }
    } catch (const WireError& error) {
      _out += std::string(kMessageIndent, ' ') + "# " + error.what() + ": " + shown(bytes) + "\n";
    }
  }

  void troubles() {
    if (_exchange.identity.cookie == CookieStanding::unknown)
      _out += "  unknown cookie " + cookieText(_exchange.post.header.userCookie) + "\n";
    for (const std::string& fault : _exchange.clientFaults) _out += "  client fault: " + fault + "\n";
    for (const std::string& note : _exchange.notes) _out += "  note: " + note + "\n";
  }

  const Exchange& _exchange;
  const RequestTypes& _types;
  std::string _out;
};

}  // namespace

std::string conversation(const Exchange& exchange, const RequestTypes& types, LogLevel level) {
  Writer writer(exchange, types);
  return level == LogLevel::brief ? writer.brief() : writer.verbose();
}

}  // namespace nvxcore::geoserver
