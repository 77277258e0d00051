#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/URLRequest.h"

namespace nvxcore {

/// Header lines in the form that libcurl reads, in three allocations.
class HeaderLines {
 public:
  HeaderLines() = default;
  HeaderLines(HeaderLines&&) = default;
  HeaderLines& operator=(HeaderLines&&) = default;

  /// Room for `count` lines.
  void reserve(size_t count);
  void add(std::string_view name, std::string_view value);
  /// Keeps libcurl from adding a field of its own.
  void suppress(std::string_view name);
  /// Null without lines. Valid until the next change.
  curl_slist* list();

 private:
  std::string _text;  ///< Lines that end with a zero.
  std::vector<size_t> _starts;
  std::vector<curl_slist> _nodes;
};

/// The body of a request: none, bytes, or a stream that is pulled while it is sent.
struct RequestBody {
  Data bytes;
  std::shared_ptr<InputStream> stream;
  int64_t streamLength = -1;  ///< -1 when unknown.

  bool isStream() const { return stream != nullptr; }
};

/// A request as it goes to libcurl, made on the thread that starts it, so that the I/O thread need not.
struct PreparedRequest {
  PreparedRequest(const URLRequest& request, RequestBody requestBody, const std::string& cookies,
                  const HTTPSessionConfiguration& configuration);

  URL url;
  std::string urlText;  ///< Without its fragment, in ASCII.
  std::string host;     ///< To be looked up; empty when that is an address, or another's task.
  uint16_t port = 0;
  bool isSecure = false;
  std::string method;
  HeaderLines headers;
  RequestBody body;
  bool decodesReply = true;
  int64_t timeoutNanos = 0;

  bool hasBody() const { return body.isStream() || !body.bytes.empty(); }
  /// True when a second copy of it does no harm (RFC 9110, 9.2.2).
  bool mayBeRepeated() const { return !hasBody() && (method == "GET" || method == "HEAD"); }
};

/// True for a token (RFC 9110, 5.6.2), which methods and names of fields are.
bool isHTTPToken(std::string_view text);
bool isASCII(std::string_view text);

}  // namespace nvxcore
