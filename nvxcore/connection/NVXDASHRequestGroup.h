#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nvxcore/connection/NVXDASHConnectionRequest.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// The key of a group of requests that may share a POST. Immutable. Any thread.
class NVXCORE_EXPORT NVXDASHRequestGroupID {
 public:
  static std::shared_ptr<const NVXDASHRequestGroupID> initWithAutorizer(AuthorizerRef autorizer,
                                                                        int64_t xGeoVerison);

  const AuthorizerRef& authorizer() const { return _authorizer; }
  int64_t xGeoVersion() const { return _xGeoVersion; }
  size_t hash() const { return static_cast<size_t>(_xGeoVersion); }
  /// The same authorizer object and the same version.
  friend bool operator==(const NVXDASHRequestGroupID& a, const NVXDASHRequestGroupID& b) {
    return a._authorizer == b._authorizer && a._xGeoVersion == b._xGeoVersion;
  }

 private:
  NVXDASHRequestGroupID(AuthorizerRef authorizer, int64_t xGeoVersion);
  const AuthorizerRef _authorizer;
  const int64_t _xGeoVersion;
};
using NVXDASHRequestGroupIDRef = std::shared_ptr<const NVXDASHRequestGroupID>;

/// Requests that wait for a POST, in the order of their arrival. Guarded by the connection's lock.
struct NVXCORE_EXPORT NVXDASHRequestGroup {
  NVXDASHRequestGroupIDRef groupID;
  std::vector<NVXDASHConnectionRequestRef> requests;
  /// POSTs that were decided on for this group and have not taken their requests yet.
  size_t prePostConnectionCount = 0;

  std::string description() const;
};

}  // namespace nvxcore
