#include "nvxcore/platform/HTTPHeaders.h"

#include <algorithm>

namespace nvxcore {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }
char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c; }

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

/// Names whose usual spelling is not a capital at the start of each word.
constexpr std::string_view kIrregularNames[] = {
    "ETag", "WWW-Authenticate", "Content-MD5",     "MIME-Version", "TE", "DNT",
    "P3P",  "X-UA-Compatible",  "X-XSS-Protection"};

template <class Same>
std::optional<std::string> joined(const std::vector<HTTPHeaders::Field>& fields, Same same) {
  std::optional<std::string> result;
  for (const auto& [fieldName, value] : fields) {
    if (!same(fieldName)) continue;
    if (!result) {
      result = value;
    } else {
      result->append(", ").append(value);
    }
  }
  return result;
}

}  // namespace

std::optional<std::string> HTTPHeaders::value(std::string_view name) const {
  return joined(_fields, [name](const std::string& fieldName) { return sameName(fieldName, name); });
}

std::optional<std::string> HTTPHeaders::valueForExactName(std::string_view name) const {
  return joined(_fields, [name](const std::string& fieldName) { return fieldName == name; });
}

bool HTTPHeaders::contains(std::string_view name) const {
  return std::any_of(_fields.begin(), _fields.end(),
                     [name](const Field& field) { return sameName(field.first, name); });
}

void HTTPHeaders::set(std::string_view name, std::optional<std::string_view> value) {
  auto same = [name](const Field& field) { return sameName(field.first, name); };
  auto first = std::find_if(_fields.begin(), _fields.end(), same);
  if (!value) {
    _fields.erase(std::remove_if(first, _fields.end(), same), _fields.end());
  } else if (first == _fields.end()) {
    add(name, *value);
  } else {
    *first = Field(name, *value);
    _fields.erase(std::remove_if(first + 1, _fields.end(), same), _fields.end());
  }
}

void HTTPHeaders::add(std::string_view name, std::string_view value) { _fields.emplace_back(name, value); }

void HTTPHeaders::continueLast(std::string_view value) {
  if (!_fields.empty()) _fields.back().second.append(" ").append(value);
}

std::string HTTPHeaders::canonicalName(std::string_view name) {
  for (std::string_view irregular : kIrregularNames) {
    if (sameName(irregular, name)) return std::string(irregular);
  }
  std::string result(name);
  bool atStart = true;
  for (char& c : result) {
    c = atStart ? upper(c) : lower(c);
    atStart = c == '-';
  }
  return result;
}

}  // namespace nvxcore
