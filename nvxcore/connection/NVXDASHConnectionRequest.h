#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "nvxcore/connection/java_data/JavaDataInput.h"
#include "nvxcore/connection/java_data/JavaDataOutput.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/TimeInterval.h"
#include "nvxcore/transport/HTKFetcherAuthorizationProtocol.h"

namespace nvxcore {

class NVXDASHConnection;
class NVXx_LOCULocationDescriptor;
using NVXDASHConnectionRef = std::shared_ptr<NVXDASHConnection>;

/// Seconds without progress after which a POST fails.
inline constexpr TimeInterval NVXx_kDASHRequestDefaultHTTPTimeoutSeconds = 15.0;

/// Descriptors by the number of their producer, in the order in which the producers came. Empty is none.
using NVXDASHLocationOverrides = std::vector<std::pair<int32_t, Ref<NVXx_LOCULocationDescriptor>>>;

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
  /// Changes what the POST of this request says of where the device is: it is merged into the connection's
  /// descriptor of the same producer, or added when there is none. A later one of the same producer takes the
  /// place of the earlier one. A request with overrides goes in a POST of its own.
  void addLocationDescriptorOverride(Ref<NVXx_LOCULocationDescriptor> descriptor);
  /// A copy of the list.
  NVXDASHLocationOverrides locationDescriptorOverridesByProducer() const;
  bool hasLocationDescriptorOverrides() const { return _locationDescriptorOverridesByProducer != nullptr; }

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
  explicit NVXDASHConnectionRequest(int32_t requestID);

 private:
  /// Made on first use.
  std::unique_ptr<NVXDASHLocationOverrides> _locationDescriptorOverridesByProducer;
  std::atomic<bool> _allowsCellularAccess{true};
  const int32_t _requestID;
  std::atomic<TimeInterval> _httpTimeout{NVXx_kDASHRequestDefaultHTTPTimeoutSeconds};
  AuthorizerRef _authorizer;
};
using NVXDASHConnectionRequestRef = std::shared_ptr<NVXDASHConnectionRequest>;

}  // namespace nvxcore
