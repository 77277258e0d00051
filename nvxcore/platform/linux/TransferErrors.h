#pragma once

#include <curl/curl.h>

#include <string_view>

#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/URL.h"
#include "nvxcore/platform/URLErrors.h"

namespace nvxcore {

/// An error of `kURLErrorDomain` that names the URL.
Error transferError(URLErrorCode code, const URL& url, Error underlying = {});

/// What libcurl tells of a transfer that failed.
struct CurlFailure {
  CURLcode code = CURLE_OK;
  long systemError = 0;      ///< errno of the last connect, 0 when unknown.
  long verifyResult = 0;     ///< OpenSSL's, of the certificate.
  std::string_view message;  ///< libcurl's, for people.
  bool hasHead = false;      ///< The head of a reply had come.
};

/// The published code for it; the message goes along as the reason.
Error transferError(const CurlFailure& failure, const URL& url);

}  // namespace nvxcore
