// The request types that the connection and the library's own callers send.
#pragma once

#include <memory>

#include "tools/geoserver/ContentFolder.h"
#include "tools/geoserver/IdentityOffice.h"
#include "tools/geoserver/RequestTypes.h"

namespace nvxcore::geoserver {

// The user cookie (no payload; its answer is a 64-bit cookie), client properties, resources and client
// parameters from the folder, and user events, which are taken and answered with a message without fields.
void registerStandardTypes(RequestTypes& types, std::shared_ptr<IdentityOffice> office,
                           std::shared_ptr<const ContentFolder> folder);

}  // namespace nvxcore::geoserver
