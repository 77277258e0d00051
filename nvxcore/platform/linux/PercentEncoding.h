#pragma once

#include <string>
#include <string_view>

namespace nvxcore {

/// The text with its percent escapes decoded (RFC 3986, 2.1). What is no escape stays as it is.
std::string percentDecoded(std::string_view text);

}  // namespace nvxcore
