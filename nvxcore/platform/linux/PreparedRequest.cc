#include "nvxcore/platform/linux/PreparedRequest.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace nvxcore {

namespace {

bool sameText(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Fields that the transfer settles by itself.
bool isOwnField(std::string_view name) {
  return sameText(name, "Content-Length") || sameText(name, "Transfer-Encoding") || sameText(name, "Expect");
}

bool needsLookUp(const std::string& host) {
  in6_addr address;
  return !host.empty() && ::inet_pton(AF_INET, host.c_str(), &address) != 1 &&
         ::inet_pton(AF_INET6, host.c_str(), &address) != 1 && !sameText(host, "localhost");
}

/// The URL as it goes out: without its fragment, and in ASCII.
std::string textToSend(const URL& url) {
  std::string text = url.absoluteString().substr(0, url.absoluteString().find('#'));
  if (isASCII(text)) return text;
  CURLU* parts = curl_url();
  char* encoded = nullptr;
  if (curl_url_set(parts, CURLUPART_URL, text.c_str(), CURLU_URLENCODE | CURLU_PATH_AS_IS) == CURLUE_OK &&
      curl_url_get(parts, CURLUPART_URL, &encoded, 0) == CURLUE_OK)
    text = encoded;
  curl_free(encoded);
  curl_url_cleanup(parts);
  return text;
}

/// Time-outs that are no time, or none that will pass, are as good as none.
int64_t nanosOf(TimeInterval seconds) {
  constexpr TimeInterval kLongest = 1e9;
  return static_cast<int64_t>((seconds > 0 && seconds < kLongest ? seconds : kLongest) * 1e9);
}

}  // namespace

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

bool isHTTPToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
  });
}

void HeaderLines::reserve(size_t count) {
  constexpr size_t kUsualLength = 48;
  _starts.reserve(count);
  _nodes.reserve(count);
  _text.reserve(count * kUsualLength);
}

void HeaderLines::add(std::string_view name, std::string_view value) {
  if (!isHTTPToken(name)) return;
  _starts.push_back(_text.size());
  _text.append(name);
  const size_t first = value.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) {
    _text += ';';  // This is how libcurl wants a field without a value.
  } else {
    _text += ": ";
    // A line break in a value would begin another field, or the body.
    for (char c : value.substr(first)) _text += c == '\r' || c == '\n' || c == '\0' ? ' ' : c;
  }
  _text += '\0';
}

void HeaderLines::suppress(std::string_view name) {
  _starts.push_back(_text.size());
  _text.append(name);
  _text += ':';
  _text += '\0';
}

curl_slist* HeaderLines::list() {
  if (_starts.empty()) return nullptr;
  _nodes.resize(_starts.size());
  for (size_t i = 0; i < _nodes.size(); ++i)
    _nodes[i] = {_text.data() + _starts[i], i + 1 < _nodes.size() ? &_nodes[i + 1] : nullptr};
  return _nodes.data();
}

PreparedRequest::PreparedRequest(const URLRequest& request, RequestBody requestBody,
                                 const std::string& cookies, const HTTPSessionConfiguration& configuration)
    : url(request.url),
      urlText(textToSend(url)),
      isSecure(sameText(url.scheme(), "https")),
      method(request.method.empty() ? "GET" : request.method),
      body(std::move(requestBody)),
      timeoutNanos(nanosOf(request.timeoutInterval)) {
  if (method == "HEAD") body = RequestBody();
  port = url.port().value_or(isSecure ? 443 : 80);
  if (configuration.proxy.empty() && needsLookUp(url.host())) host = url.host();
  headers.reserve(request.headers.size() + configuration.additionalHeaders.size() + 3);
  bool hasContentType = false;
  bool hasCookies = false;
  for (const auto& [name, value] : request.headers) {
    if (isOwnField(name)) continue;
    headers.add(name, value);
    if (sameText(name, "Accept-Encoding")) decodesReply = false;
    if (sameText(name, "Content-Type")) hasContentType = true;
    if (sameText(name, "Cookie")) hasCookies = true;
  }
  for (const auto& [name, value] : configuration.additionalHeaders) {
    if (isOwnField(name) || request.headers.contains(name)) continue;
    headers.add(name, value);
    if (sameText(name, "Accept-Encoding")) decodesReply = false;
    if (sameText(name, "Content-Type")) hasContentType = true;
  }
  if (!cookies.empty() && !hasCookies) headers.add("Cookie", cookies);
  headers.suppress("Expect");
  if (!hasContentType) headers.suppress("Content-Type");
}

}  // namespace nvxcore
