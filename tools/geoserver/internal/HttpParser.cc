#include "tools/geoserver/internal/HttpParser.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace nvxcore::geoserver {
namespace {

bool isTokenChar(char c) {
  constexpr std::string_view kOther = "!#$%&'*+-.^_`|~";
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         kOther.find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenChar);
}

bool isFieldChar(char c) { return c == '\t' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F); }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

bool parseNumber(std::string_view digits, int base, uint64_t& value) {
  const char* end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, value, base);
  return error == std::errc() && stopped == end;
}

}  // namespace

void HttpParser::reset() {
  _state = State::requestLine;
  _headBytes = 0;
  _head = {};
  _trailers.clear();
  _chunked = false;
  _contentLength = 0;
  _left = 0;
  _bodyBytes = 0;
  _bodyPiece = {};
}

HttpParser::Event HttpParser::next(std::string_view& input) {
  std::string_view line;
  for (;;) {
    switch (_state) {
      case State::requestLine:
        if (!takeLine(input, line)) return _state == State::failed ? Event::error : Event::needsMore;
        if (line.empty()) break;  // RFC 9112, 2.2: empty lines before a request are skipped
        if (!parseRequestLine(line)) return Event::error;
        _state = State::fields;
        break;
      case State::fields:
        if (!takeLine(input, line)) return _state == State::failed ? Event::error : Event::needsMore;
        if (!line.empty()) {
          if (!parseField(line, _head.headers)) return Event::error;
          break;
        }
        if (!endHead()) return Event::error;
        return Event::head;
      case State::body:
        return takeBody(input, State::complete);
      case State::chunkSize:
        if (!takeLine(input, line)) return _state == State::failed ? Event::error : Event::needsMore;
        if (!parseChunkSize(line)) return Event::error;
        _state = _left ? State::chunkData : State::trailers;
        _headBytes = 0;
        break;
      case State::chunkData:
        return takeBody(input, State::chunkEnd);
      case State::chunkEnd:
        if (!takeLine(input, line)) return _state == State::failed ? Event::error : Event::needsMore;
        if (!line.empty()) return fail(400, "a chunk is longer than its size"), Event::error;
        _state = State::chunkSize;
        break;
      case State::trailers:
        if (!takeLine(input, line)) return _state == State::failed ? Event::error : Event::needsMore;
        if (line.empty()) {
          _state = State::complete;
          break;
        }
        if (!parseField(line, _trailers)) return Event::error;
        break;
      case State::complete:
        return Event::complete;
      case State::failed:
        return Event::error;
    }
  }
}

bool HttpParser::takeLine(std::string_view& input, std::string_view& line) {
  if (std::exchange(_lineTaken, false)) _line.clear();
  const size_t newline = input.find('\n');
  const size_t length = newline == std::string_view::npos ? input.size() : newline + 1;
  _headBytes += length;
  if (_headBytes > _maxHeadBytes) return fail(431, "the head is too large");
  if (newline == std::string_view::npos) {
    _line.append(input);
    input = {};
    return false;
  }
  if (_line.empty()) {
    line = input.substr(0, newline);
  } else {
    _line.append(input.substr(0, newline));
    _lineTaken = true;
    line = _line;
  }
  input.remove_prefix(length);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return true;
}

bool HttpParser::parseRequestLine(std::string_view line) {
  const size_t first = line.find(' ');
  const size_t last = line.rfind(' ');
  if (first == std::string_view::npos || first == last) return fail(400, "bad request line");
  _head.method = line.substr(0, first);
  _head.target = line.substr(first + 1, last - first - 1);
  _head.version = line.substr(last + 1);
  const auto visible = [](char c) { return static_cast<unsigned char>(c) > 0x20 && c != 0x7F; };
  if (!isToken(_head.method) || _head.target.empty() ||
      !std::all_of(_head.target.begin(), _head.target.end(), visible)) {
    return fail(400, "bad request line");
  }
  if (_head.version == "HTTP/1.1" || _head.version == "HTTP/1.0") return true;
  return _head.version.starts_with("HTTP/") ? fail(505, "unknown version") : fail(400, "bad request line");
}

bool HttpParser::parseField(std::string_view line, HeaderList& fields) {
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos || !isToken(line.substr(0, colon)))
    return fail(400, "bad header field");
  const std::string_view value = trimmed(line.substr(colon + 1));
  if (!std::all_of(value.begin(), value.end(), isFieldChar)) return fail(400, "bad header field value");
  fields.add(line.substr(0, colon), value);
  return true;
}

bool HttpParser::endHead() {
  const HeaderList& headers = _head.headers;
  if (_head.version == "HTTP/1.1" && !headers.has("Host")) return fail(400, "no Host");
  if (!parseContentLength()) return false;
  if (headers.has("Transfer-Encoding")) {
    if (headers.has("Content-Length")) return fail(400, "both Content-Length and Transfer-Encoding");
    if (!equalsIgnoringCase(headers.value("Transfer-Encoding"), "chunked"))
      return fail(501, "unknown transfer coding");
    _chunked = true;
  }
  _left = _contentLength;
  _headBytes = 0;
  _state = _chunked ? State::chunkSize : _left ? State::body : State::complete;
  return true;
}

bool HttpParser::parseContentLength() {
  bool seen = false;
  for (const auto& [name, value] : _head.headers) {
    if (!equalsIgnoringCase(name, "Content-Length")) continue;
    uint64_t length = 0;
    if (!parseNumber(value, 10, length)) return fail(400, "bad Content-Length");
    if (seen && length != _contentLength) return fail(400, "Content-Length fields that differ");
    seen = true;
    _contentLength = length;
  }
  return _contentLength <= _maxBodyBytes || fail(413, "the body is too large");
}

bool HttpParser::parseChunkSize(std::string_view line) {
  const std::string_view digits = trimmed(line.substr(0, line.find(';')));
  if (!parseNumber(digits, 16, _left)) return fail(400, "bad chunk size");
  if (_left > _maxBodyBytes - _bodyBytes) return fail(413, "the body is too large");
  return true;
}

HttpParser::Event HttpParser::takeBody(std::string_view& input, State whenDone) {
  if (input.empty()) return Event::needsMore;
  _bodyPiece = input.substr(0, std::min<uint64_t>(_left, input.size()));
  input.remove_prefix(_bodyPiece.size());
  _left -= _bodyPiece.size();
  _bodyBytes += _bodyPiece.size();
  if (_left == 0) _state = whenDone;
  return Event::body;
}

bool HttpParser::fail(int status, std::string text) {
  _state = State::failed;
  _errorStatus = status;
  _errorText = std::move(text);
  return false;
}

}  // namespace nvxcore::geoserver
