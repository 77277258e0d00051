#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/URLRequest.h"

namespace nvxcore {

class HTKSessionFetcherServiceProtocol;

/// What an authorizer of requests offers. The operations that have a default need not be offered. Called on
/// any thread.
class NVXCORE_EXPORT HTKFetcherAuthorizationProtocol {
 public:
  using AuthorizedHandler = std::function<void(URLRequest authorizedRequest, Error error)>;

  virtual ~HTKFetcherAuthorizationProtocol() = default;
  /// Authorizes a copy of `request` and calls `handler` with it, on any thread; with an error when it can't.
  virtual void authorizeRequest(const URLRequest& request, AuthorizedHandler handler) = 0;
  virtual void stopAuthorization() = 0;
  virtual void stopAuthorizationForRequest(const URLRequest& request) = 0;
  virtual bool isAuthorizingRequest(const URLRequest& request) const = 0;
  virtual bool isAuthorizedRequest(const URLRequest& request) const = 0;
  virtual std::string userEmail() const = 0;

  /// After a 401: true when the next authorization will bring fresh credentials.
  virtual bool primeForRefresh() { return false; }
  virtual bool canAuthorize() const { return true; }
  virtual bool shouldAuthorizeAllRequests() const { return false; }
  virtual void setShouldAuthorizeAllRequests(bool) {}
  virtual std::weak_ptr<HTKSessionFetcherServiceProtocol> fetcherService() const { return {}; }
  virtual void setFetcherService(std::weak_ptr<HTKSessionFetcherServiceProtocol>) {}
};
using AuthorizerRef = std::shared_ptr<HTKFetcherAuthorizationProtocol>;

}  // namespace nvxcore
