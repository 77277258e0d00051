#pragma once

#include <string>
#include <string_view>

namespace nvxcore {

/// ASCII letters in lower case, the rest as it stands.
std::string lowercased(std::string_view text);
bool equalsIgnoringCase(std::string_view a, std::string_view b);

/// "localhost" in any case, or exactly "::1" or "127.0.0.1".
bool IsLocalhost(std::string_view host);

}  // namespace nvxcore
