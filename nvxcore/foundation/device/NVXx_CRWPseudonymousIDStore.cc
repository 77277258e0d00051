#include "nvxcore/foundation/device/NVXx_CRWPseudonymousIDStore.h"

#include <utility>

#include "nvxcore/foundation/base/NVXDateProvider.h"
#include "nvxcore/foundation/device/NVXx_CRWAppGroups.h"
#include "nvxcore/platform/HTTPCookie.h"

namespace nvxcore {

namespace {

constexpr char kPseudonymousKey[] = "com.ovrasoft.common.pseudonymous";
constexpr char kCookieName[] = "NID";

}  // namespace

std::atomic<bool> NVXx_CRWPseudonymousIDStore::_sEnabled{false};

void NVXx_CRWPseudonymousIDStore::enable() { _sEnabled = true; }

NVXx_CRWPseudonymousIDStore& NVXx_CRWPseudonymousIDStore::sharedInstance() {
  static auto& store = *new NVXx_CRWPseudonymousIDStore(NVXx_ovrasoftCommonDefaults());
  return store;
}

NVXx_CRWPseudonymousIDStore::NVXx_CRWPseudonymousIDStore(std::shared_ptr<Preferences> sharedStorage)
    : _sharedStorage(std::move(sharedStorage)) {}

std::optional<std::string> NVXx_CRWPseudonymousIDStore::pseudonymousID() const {
  return _sEnabled ? _sharedStorage->stringForKey(kPseudonymousKey) : std::nullopt;
}

void NVXx_CRWPseudonymousIDStore::setPseudonymousID(const std::optional<std::string>& pseudonymousID) {
  if (!_sEnabled) return;
  _sharedStorage->setObject(pseudonymousID ? Value(*pseudonymousID) : Value(), kPseudonymousKey);
  _sharedStorage->synchronize();
}

void NVXx_CRWPseudonymousIDStore::updateRequestWithPseudonymousID(URLRequest& request) const {
  if (!_sEnabled) return;
  request.headers.set("Cookie", std::string(kCookieName) + "=" + pseudonymousID().value_or(""));
}

std::optional<std::string> NVXx_CRWPseudonymousIDStore::setPseudonymousIDFromResponse(
    const URLResponse& response) {
  if (!_sEnabled) return std::nullopt;
  const Date now = NVXSystemDateProvider::systemDateProvider()->currentDate();
  for (const HTTPCookie& cookie :
       HTTPCookie::cookiesWithResponseHeaders(response.headers(), response.url(), now)) {
    if (cookie.name() == kCookieName) setPseudonymousID(cookie.value());
  }
  return pseudonymousID();
}

}  // namespace nvxcore
