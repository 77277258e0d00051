// What the head of each POST says of the client: who it is, where it is, what it can do.

#include <algorithm>
#include <exception>
#include <utility>

#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/connection/NVXDASHProtobufferRequest.h"
#include "nvxcore/foundation/base/NVXReportError.h"
#include "nvxcore/foundation/device/NVXDeviceCellularInfo.h"
#include "nvxcore/message/schema/client_properties.pb.h"
#include "nvxcore/message/schema/location_descriptor.pb.h"

namespace nvxcore {

namespace {

constexpr int32_t kUserCookieRequestID = 15;
constexpr int32_t kClientPropertiesRequestID = 62;
constexpr int32_t kMapTileCacheType = 1;

using Descriptors = std::vector<Ref<NVXx_LOCULocationDescriptor>>;

bool areEqual(const Descriptors& a, const Descriptors& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const auto& x, const auto& y) { return x->isEqual(y.get()); });
}

/// Keeps a connection's group of POSTs open, so that whoever waits for it also waits for what an answer sets
/// off.
class GroupMembership {
 public:
  explicit GroupMembership(std::shared_ptr<DispatchGroup> group) : _group(std::move(group)) {
    _group->enter();
  }
  GroupMembership(const GroupMembership&) = delete;
  GroupMembership& operator=(const GroupMembership&) = delete;
  ~GroupMembership() { _group->leave(); }

 private:
  const std::shared_ptr<DispatchGroup> _group;
};

}  // namespace

// Where the client is.

Descriptors NVXDASHConnectionImpl::locationDescriptors() {
  Lock lock(_lock);
  return _locationDescriptors;
}

void NVXDASHConnectionImpl::setLocationDescriptors(Descriptors descriptors) {
  descriptors.erase(std::remove(descriptors.begin(), descriptors.end(), nullptr), descriptors.end());
  Lock lock(_lock);
  if (areEqual(_locationDescriptors, descriptors)) return;
  _locationDescriptors.swap(descriptors);
  _defaultXGeoVersion = issueNewXGeoVersion();
}

std::string NVXDASHConnectionImpl::xGeoHeaderValueForGroupID(const NVXDASHRequestGroupIDRef& groupID) {
  Lock lock(_lock);
  NVXDASHLocationOverrides overrides;
  if (const NVXDASHRequestGroup* group = groupID ? requestGroupForID(*groupID) : nullptr) {
    for (const NVXDASHConnectionRequestRef& request : group->requests) {
      if (!request->hasLocationDescriptorOverrides()) continue;
      for (auto& entry : request->locationDescriptorOverridesByProducer()) {
        const bool isKnown = std::any_of(overrides.begin(), overrides.end(),
                                         [&](const auto& seen) { return seen.first == entry.first; });
        if (!isKnown) overrides.push_back(std::move(entry));
      }
    }
  }
  Descriptors descriptors = _locationDescriptors;
  for (Ref<NVXx_LOCULocationDescriptor>& descriptor : descriptors) {
    const auto found = std::find_if(overrides.begin(), overrides.end(),
                                    [&](const auto& entry) { return entry.first == descriptor->producer(); });
    if (found == overrides.end()) continue;
    // The stored one is shared, and stays as it is.
    descriptor = descriptor->deepCopy();
    descriptor->mergeFrom(*found->second);
    overrides.erase(found);
  }
  for (auto& entry : overrides) descriptors.push_back(std::move(entry.second));
  return XGeoHeaderValueFromLocationDescriptors(descriptors);
}

std::string NVXDASHConnectionImpl::XGeoHeaderValueFromLocationDescriptors(const Descriptors& descriptors) {
  std::string value;
  for (const Ref<NVXx_LOCULocationDescriptor>& descriptor : descriptors) {
    std::string item;
    try {
      item = _websafeBase64Encoder->encode(descriptor->data()).value_or("");
    } catch (const std::exception& thrown) {
      softReport("Exception trying to serialize: %s", thrown.what());
    }
    if (item.empty()) continue;
    if (!value.empty()) value += ' ';
    value.append("w ").append(item);
  }
  return value;
}

// Who the client is.

std::string NVXDASHConnectionImpl::legalCountry() {
  std::string country = _clientState->legalCountry().value_or("");
  if (!country.empty()) return country;
  country = NVXDeviceCellularInfo::SIMCountryCode().value_or("");
  for (char& letter : country) {
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
  return country;
}

void NVXDASHConnectionImpl::updateWaitingForCookies() {
  const uint64_t tokens = _clientDescription->enabledZLCTokens();
  const bool isWaiting = _clientState->userCookie() == 0 ||
                         ((tokens & kNVXZLCTokenOatcake) && !_clientState->oatcakeToken()) ||
                         ((tokens & kNVXZLCTokenMelbaCookie) && !_clientState->melbaCookie());
  Lock lock(_lock);
  _waitingForCookies = isWaiting;
}

void NVXDASHConnectionImpl::startWhatStillWaitsForCookies() {
  {
    Lock lock(_lock);
    if (!_waitingForCookies || _pendingRequestGroups.empty()) return;
  }
  // The handler of the client properties may have run while its POST was still in the air, and brought no
  // identity. It is on the main queue by now, so that this comes behind it and asks for no second one.
  Queue::main()->post([self = shared_from_this(), membership = std::make_shared<GroupMembership>(
                                                      _postGroup)] { self->startConnectionsIfNeeded(); });
}

NVXDASHConnectionRequestRef NVXDASHConnectionImpl::userCookieRequest() {
  return NVXDASHBlocksRequest::requestWithID(
      kUserCookieRequestID, Data(), [state = _clientState](utils::JavaDataInput* input) {
        const auto cookie = static_cast<uint64_t>(input->ReadLong());
        Queue::main()->post([state, cookie] { state->updateUserCookie(cookie); });
        return true;
      });
}

NVXDASHConnectionRequestRef NVXDASHConnectionImpl::clientPropertiesRequest(bool suppressingUserState) {
  // The main queue runs in order: the cookie that came with this answer is in place when the handler runs.
  auto request = NVXDASHProtobufferRequest::requestWithID<NVXx_ZLCClientPropertiesResponseProto>(
      kClientPropertiesRequestID, clientPropertiesProtoSuppressingUserState(suppressingUserState),
      Queue::main(),
      [self = shared_from_this(), suppressingUserState,
       membership = std::make_shared<GroupMembership>(_postGroup)](
          const Ref<NVXx_ZLCClientPropertiesResponseProto>& response, const Error&) {
        if (response)
          self->_clientState->updateFromZLCClientPropertiesResponseProto(*response, suppressingUserState);
        self->updateWaitingForCookies();
        self->startConnectionsIfNeeded();
      });
  return request;
}

Ref<NVXx_ZLCClientPropertiesRequestProto> NVXDASHConnectionImpl::clientPropertiesProtoSuppressingUserState(
    bool suppress) {
  const NVXDASHClientDescription& client = *_clientDescription;
  Ref<NVXx_ZLCClientPropertiesRequestProto> proto = NVXx_ZLCClientPropertiesRequestProto::message();
  if (const auto cohort = _clientState->clientCohort(); cohort && !cohort->empty()) proto->setCohort(*cohort);
  if (const std::string country = legalCountry(); !country.empty()) proto->setLegalCountry(country);
  proto->setGzipEnabled(true);
  proto->setCourierEnabled(true);
  proto->setApplicationName(client.bundleID());
  proto->setVoiceSearchEnabled(_voiceSearchEnabled);
  proto->setMapTileCacheType(ZLCClientPropertiesRequestProto_MapTileCacheType(kMapTileCacheType));
  if (client.SDKAppVersion()) proto->setApiApplicationVersion(*client.SDKAppVersion());
  if (client.basedOnZLCVersion()) proto->setBasedOnZlcVersion(*client.basedOnZLCVersion());
  if (Ref<NVXx_PBMutableArray> experiments = experimentIDs(); experiments && experiments->count() > 0)
    proto->setExperimentIdArray(std::move(experiments));
  if (client.APIKey()) {
    proto->iosApiAppFingerprint().setApiKey(*client.APIKey());
    proto->setEnterpriseApi(client.enterpriseSDK());
  }
  proto->iosApiAppFingerprint().setBundleId(client.bundleID());
  if (client.enabledZLCTokens() & kNVXZLCTokenMelbaCookie) {
    proto->setMelbaCookieEnabled(true);
    if (const auto melba = _clientState->melbaCookie()) proto->setMelbaNidCookie(*melba);
  }
  if (suppress) return proto;
  if (client.enabledZLCTokens() & kNVXZLCTokenOatcake) {
    proto->setOatcakeTokenEnabled(true);
    Ref<NVXx_ZLCOatcakeTokenProto> token = _clientState->oatcakeToken();
    proto->setOatcakeToken(token ? std::move(token) : NVXx_ZLCOatcakeTokenProto::message());
  }
  proto->setHasLocationFix(_hasLocationFix);
  proto->setScreenPixelDensity(ZLCClientPropertiesRequestProto_ScreenPixelDensity(client.screenDensity()));
  proto->pixelDensity().setIosScreenScale(
      ZLCClientInformation_PixelDensity_IosScreenScale(client.screenScale()));
  proto->setNavigationUsage(ZLCClientPropertiesRequestProto_NavigationUsage(_navUsage.load()));
  proto->setOsVersion(client.osVersion());
  proto->setVoiceCellularDevice(_hasCellularVoice);
  proto->setDataCellularDevice(_hasCellularData);
  return proto;
}

Ref<NVXx_PBMutableArray> NVXDASHConnectionImpl::experimentIDs() {
  Lock lock(_lock);
  return _experimentIDs ? _experimentIDs->mutableCopy() : nullptr;
}

void NVXDASHConnectionImpl::setExperimentIDs(const NVXx_PBMutableArray* experimentIDs) {
  Ref<NVXx_PBMutableArray> copy = experimentIDs ? experimentIDs->mutableCopy() : nullptr;
  Lock lock(_lock);
  std::swap(_experimentIDs, copy);
}

}  // namespace nvxcore
