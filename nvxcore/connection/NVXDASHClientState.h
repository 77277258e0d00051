#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "nvxcore/connection/CookieStore.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Preferences.h"
#include "nvxcore/platform/ReentrantMutex.h"

namespace nvxcore {

class NVXDASHClientState;
class NVXx_ZLCClientPropertiesResponseProto;  // of nvxcore/message/schema/client_properties.pb.h,
class NVXx_ZLCOatcakeTokenProto;              // which who takes a token includes

/// Observes the melba cookie of a state.
class NVXCORE_EXPORT NVXDASHClientStateMelbaMonitor {
 public:
  virtual ~NVXDASHClientStateMelbaMonitor() = default;
  /// Called on the thread that has changed it. Under the lock of the state when that was `setMelbaCookie`: it
  /// may ask and change the state, but must not wait for another thread that does.
  virtual void clientState(NVXDASHClientState& state,
                           const std::optional<std::string>& melbaCookieChanged) = 0;
};

/// The part of the client's identity that the server gave, kept between runs. Shared by connections. Any
/// thread. What changes it blocks until that is on disk, where that can be done.
class NVXCORE_EXPORT NVXDASHClientState {
 public:
  /// The one that all share, on `NVXUserDefaults::sharedUserDefaults`; made by the first call, and kept.
  static const std::shared_ptr<NVXDASHClientState>& defaultState();
  static std::shared_ptr<NVXDASHClientState> initWithDefaults(std::shared_ptr<Preferences> defaults);
  /// One that ends with the object.
  NVXDASHClientState();
  ~NVXDASHClientState();
  NVXDASHClientState(const NVXDASHClientState&) = delete;
  NVXDASHClientState& operator=(const NVXDASHClientState&) = delete;

  /// 0 is none.
  uint64_t userCookie() const;
  std::optional<std::string> clientCohort() const;
  std::optional<std::string> legalCountry() const;
  /// Null without one. Not to be changed.
  Ref<NVXx_ZLCOatcakeTokenProto> oatcakeToken() const;
  std::optional<std::string> melbaCookie() const;

  /// Ignored when it is 0, or when there is a cookie.
  void updateUserCookie(uint64_t userCookie);
  void setMelbaCookie(std::optional<std::string> melbaCookie);
  /// Takes over what the response has; of the cohort and the token nothing when `skipUserState`.
  void updateFromZLCClientPropertiesResponseProto(const NVXx_ZLCClientPropertiesResponseProto& response,
                                                  bool skipUserState);
  /// Drops the tokens whose bits are clear in `options`, as in `enabledZLCTokens`.
  void synchronizeToClientTokenOptions(uint64_t options);
  /// Drops all that the server gave, but for the cohort.
  void clearZLCServerTokens();

  std::shared_ptr<NVXDASHClientStateMelbaMonitor> melbaMonitor() const;
  /// Held weakly.
  void setMelbaMonitor(const std::shared_ptr<NVXDASHClientStateMelbaMonitor>& monitor);

 private:
  explicit NVXDASHClientState(std::shared_ptr<Preferences> defaults);

  void store(const char* key, Value value) NVX_REQUIRES(_lock);
  void synchronize() NVX_REQUIRES(_lock);
  void dropTokens(uint64_t keptTokens) NVX_REQUIRES(_lock);

  mutable ReentrantMutex _lock;
  uint64_t _userCookie NVX_GUARDED_BY(_lock) = 0;
  std::optional<std::string> _clientCohort NVX_GUARDED_BY(_lock);
  std::optional<std::string> _legalCountry NVX_GUARDED_BY(_lock);
  Ref<NVXx_ZLCOatcakeTokenProto> _oatcakeToken NVX_GUARDED_BY(_lock);
  std::optional<std::string> _melbaCookie NVX_GUARDED_BY(_lock);
  const std::shared_ptr<Preferences> _defaults;
  dash::CookieStore _cookieStore NVX_GUARDED_BY(_lock);
  std::weak_ptr<NVXDASHClientStateMelbaMonitor> _melbaMonitor NVX_GUARDED_BY(_lock);
};
using NVXDASHClientStateRef = std::shared_ptr<NVXDASHClientState>;

}  // namespace nvxcore
