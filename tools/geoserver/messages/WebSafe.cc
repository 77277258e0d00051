#include "tools/geoserver/messages/WebSafe.h"

#include <cstdint>

namespace nvxcore::geoserver {
namespace {

std::optional<uint32_t> sextet(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '-') return 62;
  if (c == '_') return 63;
  return std::nullopt;
}

}  // namespace

std::optional<std::string> webSafeDecoded(std::string_view text) {
  if (text.size() % 4 == 1) return std::nullopt;
  std::string bytes;
  uint32_t bits = 0;
  int held = 0;
  for (const char c : text) {
    const auto value = sextet(c);
    if (!value) return std::nullopt;
    bits = bits << 6 | *value;
    held += 6;
    if (held < 8) continue;
    held -= 8;
    bytes.push_back(static_cast<char>(bits >> held));
    bits &= (1u << held) - 1;
  }
  if (bits) return std::nullopt;
  return bytes;
}

}  // namespace nvxcore::geoserver
