#include "nvxcore/connection/NVXDASHClientState.h"

#include <utility>

#include "nvxcore/connection/NVXDASHClientDescription.h"
#include "nvxcore/foundation/base/NVXUserDefaults.h"
#include "nvxcore/message/schema/client_properties.pb.h"

namespace nvxcore {

namespace {

constexpr char kCohortKey[] = "NVXAtlasUserClientCohort";
constexpr char kLegalCountryKey[] = "kNVXAtlasUserClientLegalCountry";
constexpr char kMelbaCookieKey[] = "NVXAtlasUserClientMelbaCookie";
constexpr char kOatcakeTokenKey[] = "NVXAtlasUserClientOatcakeToken";

Value valueOf(const std::optional<std::string>& text) { return text ? Value(*text) : Value(); }

}  // namespace

const NVXDASHClientStateRef& NVXDASHClientState::defaultState() {
  // Never destroyed: it may be asked while the process leaves.
  static const auto& state =
      *new NVXDASHClientStateRef(initWithDefaults(NVXUserDefaults::sharedUserDefaults()));
  return state;
}

NVXDASHClientStateRef NVXDASHClientState::initWithDefaults(std::shared_ptr<Preferences> defaults) {
  return NVXDASHClientStateRef(new NVXDASHClientState(std::move(defaults)));
}

NVXDASHClientState::NVXDASHClientState() : NVXDASHClientState(nullptr) {}

NVXDASHClientState::NVXDASHClientState(std::shared_ptr<Preferences> defaults)
    : _defaults(std::move(defaults)), _cookieStore(_defaults) {
  if (!_defaults) return;
  _userCookie = _cookieStore.LoadCookie();
  _clientCohort = _defaults->stringForKey(kCohortKey);
  _legalCountry = _defaults->stringForKey(kLegalCountryKey);
  _melbaCookie = _defaults->stringForKey(kMelbaCookieKey);
  if (const Data token = _defaults->dataForKey(kOatcakeTokenKey); !token.empty()) {
    Error ignored;
    _oatcakeToken = NVXx_ZLCOatcakeTokenProto::parseFromData(token, &ignored);
    if (ignored) _oatcakeToken = nullptr;
  }
}

NVXDASHClientState::~NVXDASHClientState() = default;

uint64_t NVXDASHClientState::userCookie() const {
  ReentrantLock lock(_lock);
  return _userCookie;
}

std::optional<std::string> NVXDASHClientState::clientCohort() const {
  ReentrantLock lock(_lock);
  return _clientCohort;
}

std::optional<std::string> NVXDASHClientState::legalCountry() const {
  ReentrantLock lock(_lock);
  return _legalCountry;
}

Ref<NVXx_ZLCOatcakeTokenProto> NVXDASHClientState::oatcakeToken() const {
  ReentrantLock lock(_lock);
  return _oatcakeToken;
}

std::optional<std::string> NVXDASHClientState::melbaCookie() const {
  ReentrantLock lock(_lock);
  return _melbaCookie;
}

void NVXDASHClientState::updateUserCookie(uint64_t userCookie) {
  ReentrantLock lock(_lock);
  if (userCookie != 0 && _userCookie == 0) _userCookie = _cookieStore.SaveCookie(userCookie);
}

void NVXDASHClientState::setMelbaCookie(std::optional<std::string> melbaCookie) {
  ReentrantLock lock(_lock);
  _melbaCookie = melbaCookie;
  store(kMelbaCookieKey, valueOf(melbaCookie));
  synchronize();
  if (const auto monitor = _melbaMonitor.lock()) monitor->clientState(*this, melbaCookie);
}

void NVXDASHClientState::updateFromZLCClientPropertiesResponseProto(
    const NVXx_ZLCClientPropertiesResponseProto& response, bool skipUserState) {
  std::shared_ptr<NVXDASHClientStateMelbaMonitor> monitor;
  std::optional<std::string> melbaCookie;
  {
    ReentrantLock lock(_lock);
    if (!skipUserState && response.hasNewCohort()) {
      _clientCohort = response.newCohort();
      store(kCohortKey, valueOf(_clientCohort));
    }
    if (!skipUserState && response.hasOatcakeToken()) {
      _oatcakeToken = response.oatcakeToken().deepCopy();
      store(kOatcakeTokenKey, _oatcakeToken->data());
    }
    if (response.hasNewMelbaNidCookie()) {
      melbaCookie = _melbaCookie = response.newMelbaNidCookie();
      store(kMelbaCookieKey, valueOf(melbaCookie));
      monitor = _melbaMonitor.lock();
    }
    if (response.hasNewLegalCountry()) {
      _legalCountry = response.newLegalCountry();
      store(kLegalCountryKey, valueOf(_legalCountry));
    }
    synchronize();
  }
  if (monitor) monitor->clientState(*this, melbaCookie);
}

void NVXDASHClientState::synchronizeToClientTokenOptions(uint64_t options) {
  ReentrantLock lock(_lock);
  dropTokens(options);
}

void NVXDASHClientState::clearZLCServerTokens() {
  ReentrantLock lock(_lock);
  _cookieStore.DeleteCookie();
  _userCookie = 0;
  store(kLegalCountryKey, Value());
  _legalCountry.reset();
  dropTokens(0);
}

std::shared_ptr<NVXDASHClientStateMelbaMonitor> NVXDASHClientState::melbaMonitor() const {
  ReentrantLock lock(_lock);
  return _melbaMonitor.lock();
}

void NVXDASHClientState::setMelbaMonitor(const std::shared_ptr<NVXDASHClientStateMelbaMonitor>& monitor) {
  ReentrantLock lock(_lock);
  _melbaMonitor = monitor;
}

void NVXDASHClientState::store(const char* key, Value value) {
  if (_defaults) _defaults->setObject(std::move(value), key);
}

void NVXDASHClientState::synchronize() {
  if (_defaults) _defaults->synchronize();
}

void NVXDASHClientState::dropTokens(uint64_t keptTokens) {
  if (!(keptTokens & kNVXZLCTokenOatcake)) {
    _oatcakeToken = nullptr;
    store(kOatcakeTokenKey, Value());
  }
  if (!(keptTokens & kNVXZLCTokenMelbaCookie)) {
    _melbaCookie.reset();
    store(kMelbaCookieKey, Value());
  }
  synchronize();
}

}  // namespace nvxcore
