#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

class Value;

/// Values under text keys, in the order in which the keys were first set. One thread at a time.
class NVXCORE_EXPORT Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;

  Dictionary();
  Dictionary(std::initializer_list<Entry> entries);
  Dictionary(const Dictionary&);
  Dictionary(Dictionary&&) noexcept;
  Dictionary& operator=(const Dictionary&);
  Dictionary& operator=(Dictionary&&) noexcept;
  ~Dictionary();

  size_t size() const;
  bool empty() const { return size() == 0; }
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  /// Null when there is none; valid until the next change.
  const Value* find(std::string_view key) const;
  /// A value of the kind "nothing" when there is none.
  const Value& get(std::string_view key) const;
  void set(std::string_view key, Value value);
  /// As `set`, for a key that is known not to be there: takes no time to look for it.
  void add(std::string_view key, Value value);
  void remove(std::string_view key);

  const Entry* begin() const;
  const Entry* end() const;

 private:
  std::vector<Entry> _entries;
};

}  // namespace nvxcore
