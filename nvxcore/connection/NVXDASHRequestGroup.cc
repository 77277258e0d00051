#include "nvxcore/connection/NVXDASHRequestGroup.h"

#include <utility>

#include "nvxcore/foundation/base/NVXLog.h"

namespace nvxcore {

NVXDASHRequestGroupIDRef NVXDASHRequestGroupID::initWithAutorizer(AuthorizerRef autorizer,
                                                                  int64_t xGeoVerison) {
  return NVXDASHRequestGroupIDRef(new NVXDASHRequestGroupID(std::move(autorizer), xGeoVerison));
}

NVXDASHRequestGroupID::NVXDASHRequestGroupID(AuthorizerRef authorizer, int64_t xGeoVersion)
    : _authorizer(std::move(authorizer)), _xGeoVersion(xGeoVersion) {}

std::string NVXDASHRequestGroup::description() const {
  const AuthorizerRef& authorizer = groupID->authorizer();
  const std::string email = authorizer ? authorizer->userEmail() : "none";
  return formattedString("%s %p: auth %p (%s), %zd requests", "NVXDASHRequestGroup",
                         static_cast<const void*>(this), static_cast<const void*>(authorizer.get()),
                         email.c_str(), static_cast<ssize_t>(requests.size()));
}

}  // namespace nvxcore
