// The request types that the connection and the library's own callers send.
#pragma once

#include <memory>

#include "tools/geoserver/IdentityOffice.h"
#include "tools/geoserver/RequestTypes.h"

namespace nvxcore::geoserver {

// The user cookie (no payload; its answer is a 64-bit cookie), client properties, and user events, which are
// taken and answered with a message without fields.
void registerStandardTypes(RequestTypes& types, std::shared_ptr<IdentityOffice> office);

}  // namespace nvxcore::geoserver
