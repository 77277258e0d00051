#pragma once

#include <optional>

#include "nvxcore/platform/URLRequest.h"
#include "nvxcore/platform/URLResponse.h"

namespace nvxcore {

/// The request that a reply sends its client on to (RFC 9110, 15.4), as user agents make it: 303, and 301 and
/// 302 to a POST, lead to a GET without a body; 307 and 308 keep method and body. Credentials do not go to
/// another origin. Nothing when the reply is no redirect, or names no place on the web.
std::optional<URLRequest> redirectedRequest(const URLRequest& request, const URLResponse& response);

}  // namespace nvxcore
