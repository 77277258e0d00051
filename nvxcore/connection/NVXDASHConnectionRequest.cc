#include "nvxcore/connection/NVXDASHConnectionRequest.h"

#include <algorithm>

#include "nvxcore/message/schema/location_descriptor.pb.h"

namespace nvxcore {

NVXDASHConnectionRequest::NVXDASHConnectionRequest(int32_t requestID) : _requestID(requestID) {}
NVXDASHConnectionRequest::~NVXDASHConnectionRequest() = default;

void NVXDASHConnectionRequest::asyncRequestFailed(const Error&, const NVXDASHConnectionRef&) {}

void NVXDASHConnectionRequest::addLocationDescriptorOverride(Ref<NVXx_LOCULocationDescriptor> descriptor) {
  if (!descriptor) return;
  auto& overrides = _locationDescriptorOverridesByProducer;
  if (!overrides) overrides = std::make_unique<NVXDASHLocationOverrides>();
  const int32_t producer = descriptor->producer();
  const auto found = std::find_if(overrides->begin(), overrides->end(),
                                  [&](const auto& entry) { return entry.first == producer; });
  if (found == overrides->end()) {
    overrides->emplace_back(producer, std::move(descriptor));
  } else {
    found->second = std::move(descriptor);
  }
}

NVXDASHLocationOverrides NVXDASHConnectionRequest::locationDescriptorOverridesByProducer() const {
  return _locationDescriptorOverridesByProducer ? *_locationDescriptorOverridesByProducer
                                                : NVXDASHLocationOverrides();
}

}  // namespace nvxcore
