// What one POST says of its client: the cookie in its head, its client properties, where it claims to be.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/geoserver/messages/WireMessage.h"

namespace nvxcore::geoserver {

enum class CookieStanding {
  none,     // 0 in the head
  known,    // one that this server issued, or was told of
  unknown,  // another
};

struct ClientIdentity {
  CookieStanding cookie = CookieStanding::none;
  bool asksForCookie = false;
  // Of the client-properties request, when there was one that could be read.
  std::optional<WireMessage> properties;
  // Of the X-Geo field, in its order.
  std::vector<WireMessage> locationDescriptors;

  bool gzipEnabled() const { return properties && properties->flag("gzip_enabled"); }
};

// The descriptors of an X-Geo field: "w ", the descriptor in web-safe Base64 without padding, and so on, with
// one blank between any two. Throws WireError, and says which of them is wrong, when it is anything else.
std::vector<WireMessage> locationDescriptors(std::string_view fieldValue);

}  // namespace nvxcore::geoserver
