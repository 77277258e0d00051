#include "tools/geoserver/HeaderList.h"

#include <algorithm>

namespace nvxcore::geoserver {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

const std::string* HeaderList::find(std::string_view name) const {
  for (const Field& field : _fields) {
    if (equalsIgnoringCase(field.first, name)) return &field.second;
  }
  return nullptr;
}

std::string_view HeaderList::value(std::string_view name) const {
  const std::string* found = find(name);
  return found ? std::string_view(*found) : std::string_view();
}

bool HeaderList::hasToken(std::string_view name, std::string_view token) const {
  for (const Field& field : _fields) {
    if (!equalsIgnoringCase(field.first, name)) continue;
    std::string_view rest = field.second;
    while (!rest.empty()) {
      const size_t comma = std::min(rest.find(','), rest.size());
      if (equalsIgnoringCase(trimmed(rest.substr(0, comma)), token)) return true;
      rest.remove_prefix(std::min(comma + 1, rest.size()));
    }
  }
  return false;
}

void HeaderList::set(std::string_view name, std::string_view value) {
  const auto same = [name](const Field& field) { return equalsIgnoringCase(field.first, name); };
  const auto first = std::find_if(_fields.begin(), _fields.end(), same);
  if (first == _fields.end()) return add(name, value);
  *first = Field(name, value);
  _fields.erase(std::remove_if(first + 1, _fields.end(), same), _fields.end());
}

void HeaderList::remove(std::string_view name) {
  std::erase_if(_fields, [name](const Field& field) { return equalsIgnoringCase(field.first, name); });
}

}  // namespace nvxcore::geoserver
