#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Preferences.h"
#include "nvxcore/platform/URLRequest.h"
#include "nvxcore/platform/URLResponse.h"

namespace nvxcore {

/// Keeps an anonymous identifier that a server has issued, for all sibling applications, and carries it as a
/// cookie. Off until a host switches it on: then everything here does nothing, or gives nothing. Any thread.
class NVXCORE_EXPORT NVXx_CRWPseudonymousIDStore {
 public:
  /// For the life of the process; to be called before first use.
  static void enable();
  /// The one on the group's preferences, made by the first call.
  static NVXx_CRWPseudonymousIDStore& sharedInstance();
  explicit NVXx_CRWPseudonymousIDStore(std::shared_ptr<Preferences> sharedStorage);

  std::optional<std::string> pseudonymousID() const;
  /// Nothing removes it. Blocks until that is on disk, where that can be done.
  void setPseudonymousID(const std::optional<std::string>& pseudonymousID);
  /// Replaces the field "Cookie" by one with the identifier, empty without one.
  void updateRequestWithPseudonymousID(URLRequest& request) const;
  /// Stores the identifier of the response's last cookie of that name. Answers the one that is stored now.
  std::optional<std::string> setPseudonymousIDFromResponse(const URLResponse& response);

 private:
  static std::atomic<bool> _sEnabled;
  const std::shared_ptr<Preferences> _sharedStorage;
};

}  // namespace nvxcore
