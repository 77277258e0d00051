#include "nvxcore/connection/NVXDASHConnectionRequest.h"

namespace nvxcore {

NVXDASHConnectionRequest::~NVXDASHConnectionRequest() = default;

void NVXDASHConnectionRequest::asyncRequestFailed(const Error&, const NVXDASHConnectionRef&) {}

}  // namespace nvxcore
