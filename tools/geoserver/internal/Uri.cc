#include "tools/geoserver/internal/Uri.h"

#include <algorithm>
#include <charconv>

namespace nvxcore::geoserver {

std::string percentDecoded(std::string_view text, bool plusIsBlank) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    unsigned value = 0;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(text.data() + i + 1, text.data() + i + 3, value, 16).ptr == text.data() + i + 3) {
      out.push_back(static_cast<char>(value));
      i += 2;
    } else {
      out.push_back(plusIsBlank && text[i] == '+' ? ' ' : text[i]);
    }
  }
  return out;
}

std::vector<std::pair<std::string, std::string>> queryFields(std::string_view query) {
  std::vector<std::pair<std::string, std::string>> fields;
  while (!query.empty()) {
    const size_t length = std::min(query.find('&'), query.size());
    const std::string_view field = query.substr(0, length);
    const size_t equals = std::min(field.find('='), field.size());
    if (!field.empty()) {
      fields.emplace_back(percentDecoded(field.substr(0, equals), true),
                          percentDecoded(field.substr(std::min(equals + 1, field.size())), true));
    }
    query.remove_prefix(std::min(length + 1, query.size()));
  }
  return fields;
}

std::optional<std::string> queryField(std::string_view query, std::string_view name) {
  for (auto& [fieldName, value] : queryFields(query)) {
    if (fieldName == name) return std::move(value);
  }
  return std::nullopt;
}

std::vector<std::string> pathParts(std::string_view path) {
  std::vector<std::string> parts;
  while (!path.empty()) {
    path.remove_prefix(1);
    const size_t length = std::min(path.find('/'), path.size());
    parts.push_back(percentDecoded(path.substr(0, length)));
    path.remove_prefix(length);
  }
  return parts;
}

std::optional<uint64_t> number(std::string_view text) {
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace nvxcore::geoserver
