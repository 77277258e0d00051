#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/HTTPHeaders.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/TimeInterval.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

enum class URLRequestCachePolicy : uint32_t { UseProtocolCachePolicy = 0, ReloadIgnoringLocalCacheData = 1 };

/// A request for the resource at a URL. A plain value.
struct URLRequest {
  URLRequest() = default;
  explicit URLRequest(URL requestURL) : url(std::move(requestURL)) {}

  URL url;
  std::string method = "GET";  ///< Empty means GET.
  HTTPHeaders headers;
  Data body;
  /// A body that is pulled while it is sent. It can be pulled once.
  std::shared_ptr<InputStream> bodyStream;
  /// Seconds without any progress, in either direction, after which the transfer fails. Looking the name up
  /// and connecting count; waiting for the host (an answer, room for data, bytes of a stream) does not. Not
  /// the time that the transfer may take.
  TimeInterval timeoutInterval = 60.0;
  URLRequestCachePolicy cachePolicy = URLRequestCachePolicy::UseProtocolCachePolicy;
  bool allowsCellularAccess = true;
  bool shouldHandleCookies = true;
  URL mainDocumentURL;
};

}  // namespace nvxcore
