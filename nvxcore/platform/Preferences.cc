#include "nvxcore/platform/Preferences.h"

namespace nvxcore {

std::optional<std::string> Preferences::stringForKey(std::string_view key) {
  const Value value = objectForKey(key);
  return value.string() ? std::optional<std::string>(*value.string()) : std::nullopt;
}

Data Preferences::dataForKey(std::string_view key) { return objectForKey(key).data(); }

}  // namespace nvxcore
