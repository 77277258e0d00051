// What a decoded POST says of its client, and what is wrong with it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/ClientIdentity.h"
#include "tools/geoserver/HeaderList.h"
#include "tools/geoserver/IdentityOffice.h"
#include "tools/geoserver/RequestTypes.h"

namespace nvxcore::geoserver {

struct PostReading {
  ClientIdentity identity;
  std::vector<std::string> faults;
};

PostReading readPost(const Post& post, std::string_view body, const HeaderList& headers,
                     const RequestTypes& types, const IdentityOffice& office);

}  // namespace nvxcore::geoserver
