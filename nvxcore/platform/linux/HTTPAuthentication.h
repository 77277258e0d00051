#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "nvxcore/platform/HTTPChallenge.h"
#include "nvxcore/platform/URLRequest.h"
#include "nvxcore/platform/URLResponse.h"

namespace nvxcore {

struct ReceivedChallenge {
  AuthenticationChallenge challenge;
  std::string field;  ///< "WWW-Authenticate" or "Proxy-Authenticate" as it came.
};

/// The challenge of a 401 or 407 reply in the strongest scheme that is known here, Digest before Basic.
/// Nothing for other replies and schemes.
std::optional<ReceivedChallenge> authenticationChallenge(const URLResponse& response, int64_t failureCount);

/// The value of "Authorization" or "Proxy-Authorization" that answers the field (RFC 7617, RFC 7616).
std::string authorization(const std::string& field, const URLCredential& credential,
                          const URLRequest& request);

}  // namespace nvxcore
