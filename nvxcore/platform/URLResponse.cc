#include "nvxcore/platform/URLResponse.h"
#include "nvxcore/platform/internal/Pooled.h"

#include <charconv>
#include <utility>

namespace nvxcore {

struct URLResponse::Contents {
  URL url;
  bool isHTTP = false;
  int statusCode = 0;
  std::string httpVersion;
  HTTPHeaders headers;
  std::string mimeType;
  int64_t expectedContentLength = -1;
};

namespace {

std::string mediaType(std::string_view contentType) {
  contentType = contentType.substr(0, contentType.find(';'));
  const size_t first = contentType.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  contentType = contentType.substr(first, contentType.find_last_not_of(" \t") - first + 1);
  std::string result(contentType);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
  }
  return result;
}

/// -1 for what is no length. A repeated field counts where its values agree (RFC 9110, 8.6).
int64_t contentLength(const HTTPHeaders& headers) {
  const std::optional<std::string> field = headers.value("Content-Length");
  if (!field) return -1;
  int64_t length = -1;
  const char* next = field->data();
  const char* const end = next + field->size();
  while (true) {
    int64_t number = -1;
    const auto [stop, failure] = std::from_chars(next, end, number);
    if (failure != std::errc() || *next == '-' || (length >= 0 && number != length)) return -1;
    length = number;
    next = stop;
    if (next == end) return length;
    if (*next != ',') return -1;
    while (next != end && (*next == ',' || *next == ' ')) ++next;
  }
}

}  // namespace

URLResponse URLResponse::withURL(URL url, std::string mimeType, int64_t expectedContentLength) {
  auto contents = makePooled<Contents>();
  contents->url = std::move(url);
  contents->mimeType = std::move(mimeType);
  contents->expectedContentLength = expectedContentLength;
  URLResponse response;
  response._contents = std::move(contents);
  return response;
}

URLResponse URLResponse::http(URL url, int statusCode, std::string httpVersion, HTTPHeaders headers,
                              bool bodyIsDecoded) {
  auto contents = makePooled<Contents>();
  contents->url = std::move(url);
  contents->isHTTP = true;
  contents->statusCode = statusCode;
  contents->httpVersion = std::move(httpVersion);
  contents->headers = std::move(headers);
  contents->mimeType = mediaType(contents->headers.value("Content-Type").value_or(std::string()));
  if (!bodyIsDecoded || contents->headers.value("Content-Encoding").value_or("identity") == "identity")
    contents->expectedContentLength = contentLength(contents->headers);
  URLResponse response;
  response._contents = std::move(contents);
  return response;
}

namespace {

template <class T>
const T& none() {
  static const T value{};
  return value;
}

}  // namespace

const URL& URLResponse::url() const { return _contents ? _contents->url : none<URL>(); }
bool URLResponse::isHTTP() const { return _contents && _contents->isHTTP; }
int URLResponse::statusCode() const { return _contents ? _contents->statusCode : 0; }
const std::string& URLResponse::httpVersion() const {
  return _contents ? _contents->httpVersion : none<std::string>();
}
const HTTPHeaders& URLResponse::headers() const {
  return _contents ? _contents->headers : none<HTTPHeaders>();
}
const std::string& URLResponse::mimeType() const {
  return _contents ? _contents->mimeType : none<std::string>();
}
int64_t URLResponse::expectedContentLength() const {
  return _contents ? _contents->expectedContentLength : -1;
}

}  // namespace nvxcore
