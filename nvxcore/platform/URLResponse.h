#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/HTTPHeaders.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

/// The head of a reply: an immutable, shared handle; an empty one is "no response". Any thread.
class NVXCORE_EXPORT URLResponse {
 public:
  URLResponse() = default;
  /// A response that HTTP did not bring: of a file or data URL.
  static URLResponse withURL(URL url, std::string mimeType, int64_t expectedContentLength);
  /// `httpVersion` is "HTTP/1.1", for one. Type and length are taken from the headers; the length of a coded
  /// body is unknown when it is delivered decoded.
  static URLResponse http(URL url, int statusCode, std::string httpVersion, HTTPHeaders headers,
                          bool bodyIsDecoded = true);

  explicit operator bool() const { return _contents != nullptr; }
  const URL& url() const;
  bool isHTTP() const;
  /// 0 when it is no HTTP response.
  int statusCode() const;
  const std::string& httpVersion() const;
  const HTTPHeaders& headers() const;
  /// Media type without its parameters, in lower case.
  const std::string& mimeType() const;
  /// Bytes of the body as they are to be delivered, or -1 when unknown (as with a coded body).
  int64_t expectedContentLength() const;
  friend bool operator==(const URLResponse& a, const URLResponse& b) { return a._contents == b._contents; }

 private:
  struct Contents;
  std::shared_ptr<const Contents> _contents;
};

}  // namespace nvxcore
