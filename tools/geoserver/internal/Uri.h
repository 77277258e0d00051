// Picking apart the path and query of a request's target.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nvxcore::geoserver {

// Percent escapes decoded; with `plusIsBlank` also '+' as in form fields.
std::string percentDecoded(std::string_view text, bool plusIsBlank = false);
// The fields of a query, decoded, in their order.
std::vector<std::pair<std::string, std::string>> queryFields(std::string_view query);
std::optional<std::string> queryField(std::string_view query, std::string_view name);
// The parts of a path between its slashes, decoded; "/a/b" has two.
std::vector<std::string> pathParts(std::string_view path);
// A decimal number that is the whole text.
std::optional<uint64_t> number(std::string_view text);

}  // namespace nvxcore::geoserver
