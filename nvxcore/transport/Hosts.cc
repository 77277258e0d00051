#include "nvxcore/transport/internal/Hosts.h"

#include <algorithm>

namespace nvxcore {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

}  // namespace

std::string lowercased(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lower);
  return result;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

bool IsLocalhost(std::string_view host) {
  return equalsIgnoringCase(host, "localhost") || host == "::1" || host == "127.0.0.1";
}

}  // namespace nvxcore
