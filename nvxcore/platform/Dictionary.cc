#include "nvxcore/platform/Dictionary.h"

#include <algorithm>

#include "nvxcore/platform/Value.h"

namespace nvxcore {

Dictionary::Dictionary() = default;
Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  for (const Entry& entry : entries) set(entry.first, entry.second);
}
Dictionary::Dictionary(const Dictionary&) = default;
Dictionary::Dictionary(Dictionary&&) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary&) = default;
Dictionary& Dictionary::operator=(Dictionary&&) noexcept = default;
Dictionary::~Dictionary() = default;

size_t Dictionary::size() const { return _entries.size(); }

const Value* Dictionary::find(std::string_view key) const {
  auto it =
      std::find_if(_entries.begin(), _entries.end(), [&](const Entry& entry) { return entry.first == key; });
  return it == _entries.end() ? nullptr : &it->second;
}

const Value& Dictionary::get(std::string_view key) const {
  static const Value nothing;
  const Value* value = find(key);
  return value ? *value : nothing;
}

void Dictionary::set(std::string_view key, Value value) {
  if (const Value* present = find(key)) {
    *const_cast<Value*>(present) = std::move(value);
  } else {
    add(key, std::move(value));
  }
}

void Dictionary::add(std::string_view key, Value value) {
  _entries.emplace_back(std::string(key), std::move(value));
}

void Dictionary::remove(std::string_view key) {
  std::erase_if(_entries, [&](const Entry& entry) { return entry.first == key; });
}

const Dictionary::Entry* Dictionary::begin() const { return _entries.data(); }
const Dictionary::Entry* Dictionary::end() const { return _entries.data() + _entries.size(); }

}  // namespace nvxcore
