// Header fields of a request or a reply, in the order in which they stand on the wire.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nvxcore::geoserver {

// A value type; any thread. Names keep the spelling they were given and are looked up without case.
class HeaderList {
 public:
  using Field = std::pair<std::string, std::string>;

  HeaderList() = default;
  HeaderList(std::initializer_list<Field> fields) : _fields(fields) {}

  // Appends a field, also when one of that name is there already.
  void add(std::string_view name, std::string_view value) { _fields.emplace_back(name, value); }
  // Replaces every field of that name by one, which takes the place of the first.
  void set(std::string_view name, std::string_view value);
  void remove(std::string_view name);

  bool has(std::string_view name) const { return find(name) != nullptr; }
  // The value of the first field of that name; empty when there is none.
  std::string_view value(std::string_view name) const;
  // Whether one of the comma-separated members of the fields of that name is `token`, without case.
  bool hasToken(std::string_view name, std::string_view token) const;

  std::vector<Field>::const_iterator begin() const { return _fields.begin(); }
  std::vector<Field>::const_iterator end() const { return _fields.end(); }
  size_t size() const { return _fields.size(); }
  bool empty() const { return _fields.empty(); }
  void clear() { _fields.clear(); }

 private:
  const std::string* find(std::string_view name) const;

  std::vector<Field> _fields;
};

// Whether two strings are equal when ASCII letters are compared without case.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace nvxcore::geoserver
