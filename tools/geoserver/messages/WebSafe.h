// The web-safe Base64 alphabet without padding (RFC 4648, 5 and 3.2).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nvxcore::geoserver {

// Strict: nothing for other characters, padding, a length that no bytes have, or bits behind the last byte
// that are not zero.
std::optional<std::string> webSafeDecoded(std::string_view text);

}  // namespace nvxcore::geoserver
