// Content codings that a server can send.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nvxcore::geoserver {

// `coding` is gzip, deflate (the zlib format of RFC 9110, 8.4.1.2) or br; nothing for any other.
std::optional<std::string> encoded(std::string_view coding, std::string_view bytes);

// What a gzip or zlib stream holds; nothing when it is damaged, ends early, has bytes behind its end, or
// holds more than `atMost` bytes.
std::optional<std::string> inflated(std::string_view bytes, size_t atMost);

}  // namespace nvxcore::geoserver
