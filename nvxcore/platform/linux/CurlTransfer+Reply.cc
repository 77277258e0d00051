#include <algorithm>
#include <charconv>
#include <utility>

#include "nvxcore/platform/linux/CurlConnectionPool.h"
#include "nvxcore/platform/linux/CurlTransfer.h"
#include "nvxcore/platform/linux/HTTPTask.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

namespace {

/// Below libcurl's own limit, which it tells as a connection that broke.
constexpr size_t kLongestHead = 256 << 10;

std::string_view trimmed(std::string_view text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool hasCapital(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

}  // namespace

/// Takes a line of a head: the status line, a field, or the empty line at its end. Interim heads are dropped,
/// and so are the fields behind a body.
size_t CurlTransfer::headerLine(std::string_view line) {
  if (_hasHead || _failure) return line.size();
  _headLength += line.size();
  if (_headLength > kLongestHead) refuse(kURLErrorDataLengthExceedsMaximum);
  madeProgress();
  if (line.starts_with("HTTP/")) {
    const size_t space = line.find(' ');
    _headers = {};
    _version = trimmed(line.substr(0, space));
    _status = 0;
    if (space != std::string_view::npos) {
      const std::string_view rest = trimmed(line.substr(space));
      std::from_chars(rest.data(), rest.data() + rest.size(), _status);
    }
    return line.size();
  }
  const std::string_view text = trimmed(line);
  if (text.empty()) {
    if (_status >= 200) headComplete();
    return line.size();
  }
  if (line.front() == ' ' || line.front() == '\t') {
    _headers.continueLast(text);
    return line.size();
  }
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) return line.size();
  const std::string_view name = trimmed(text.substr(0, colon));
  const std::string_view value = trimmed(text.substr(colon + 1));
  // HTTP/2 has no capitals on the wire. A server's own spelling stays as it is.
  if (hasCapital(name)) {
    _headers.add(name, value);
  } else {
    _headers.add(HTTPHeaders::canonicalName(name), value);
  }
  return line.size();
}

void CurlTransfer::headComplete() {
  _hasHead = true;
  if (hasUnsentBody()) {
    const auto onWire = URLResponse::http(_request.url, _status, {}, _headers, false);
    _bodyLength = _status == 204 || _status == 304 ? 0 : onWire.expectedContentLength();
  }
  _task->receivedHead(*this, URLResponse::http(_request.url, _status, std::move(_version),
                                               std::move(_headers), _request.decodesReply));
  noteChange();
}

size_t CurlTransfer::body(const char* bytes, size_t length) {
  madeProgress();
  if (_failure) return length;
  if (_received + static_cast<int64_t>(length) > _task->maximumReplyLength()) {
    refuse(kURLErrorDataLengthExceedsMaximum);
    return length;
  }
  if (!_task->receivedBody(*this, bytes, length)) {
    _receivePaused = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  _received += static_cast<int64_t>(length);
  noteChange();
  return length;
}

size_t CurlTransfer::onHeader(char* bytes, size_t, size_t length, void* self) noexcept {
  try {
    return static_cast<CurlTransfer*>(self)->headerLine({bytes, length});
  } catch (...) {
    return 0;
  }
}

size_t CurlTransfer::onBody(char* bytes, size_t, size_t length, void* self) noexcept {
  try {
    return static_cast<CurlTransfer*>(self)->body(bytes, length);
  } catch (...) {
    return 0;
  }
}

}  // namespace nvxcore
