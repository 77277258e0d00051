#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "nvxcore/connection/java_data/JavaDataInput.h"
#include "nvxcore/connection/java_data/JavaDataOutput.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/TimeInterval.h"
#include "nvxcore/transport/HTKFetcherAuthorizationProtocol.h"

namespace nvxcore {

class NVXDASHConnection;
using NVXDASHConnectionRef = std::shared_ptr<NVXDASHConnection>;

/// Seconds without progress after which a POST fails.
inline constexpr TimeInterval NVXx_kDASHRequestDefaultHTTPTimeoutSeconds = 15.0;

/// One typed request to the geo server: it knows how to write its payload and how to read its answer. Set up
/// by its maker, and left alone once it was handed to a connection, which calls it back on threads of its
/// own.
class NVXCORE_EXPORT NVXDASHConnectionRequest {
 public:
  NVXDASHConnectionRequest() = delete;
  NVXDASHConnectionRequest(const NVXDASHConnectionRequest&) = delete;
  NVXDASHConnectionRequest& operator=(const NVXDASHConnectionRequest&) = delete;
  virtual ~NVXDASHConnectionRequest();

  /// Selects the server's handler. A request with 0 is dropped without a word.
  int32_t requestID() const { return _requestID; }
  /// A request that may not use a cellular network goes in a POST of its own. True at first.
  bool allowsCellularAccess() const { return _allowsCellularAccess; }
  void setAllowsCellularAccess(bool allows) { _allowsCellularAccess = allows; }
  /// A POST takes the longest of its requests', and at least the default.
  TimeInterval httpTimeout() const { return _httpTimeout; }
  void setHTTPTimeout(TimeInterval seconds) { _httpTimeout = seconds; }
  /// Requests with the same authorizer share POSTs. Without one the connection gives its service's.
  AuthorizerRef authorizer() const { return _authorizer; }
  void setAuthorizer(AuthorizerRef authorizer) { _authorizer = std::move(authorizer); }

  /// Writes the payload, on the transport's stream thread. What it throws fails all requests of the POST.
  virtual void asyncSerializeRequestData(utils::JavaDataOutput* output,
                                         const NVXDASHConnectionRef& connection) = 0;
  /// Reads the payload of the answer, on a reply reader, which blocks while bytes are missing. True when the
  /// next answer can be read from there on; otherwise all later requests of the POST fail. What it throws
  /// counts as false.
  virtual bool asyncReadResponse(utils::JavaDataInput* input, const NVXDASHConnectionRef& connection) = 0;
  /// There is no answer. On a reply reader. The connection is missing when it went before the request left.
  virtual void asyncRequestFailed(const Error& error, const NVXDASHConnectionRef& connection);

 protected:
  explicit NVXDASHConnectionRequest(int32_t requestID) : _requestID(requestID) {}

 private:
  std::atomic<bool> _allowsCellularAccess{true};
  const int32_t _requestID;
  std::atomic<TimeInterval> _httpTimeout{NVXx_kDASHRequestDefaultHTTPTimeoutSeconds};
  AuthorizerRef _authorizer;
};
using NVXDASHConnectionRequestRef = std::shared_ptr<NVXDASHConnectionRequest>;

}  // namespace nvxcore
