#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nvxcore::testing {

/// A second reader of the wire format, as plain as can be: straight from the rules, a byte at a time, and
/// stopped after so many steps. It shares nothing with the one that it stands beside.
namespace plain {

enum class Kind { Varint32, Varint64, Fixed32, Fixed64, Bytes, Text, Message, Group };

struct Field {
  Kind kind;
  bool isRepeated;
  bool isPacked;
  int message;  // of Message and Group
  bool isMessageSetItem;
};

struct Class {
  bool isMessageSet;
  std::map<uint32_t, Field> fields;
  std::map<uint32_t, Field> extensions;
};

struct Values {
  std::map<uint32_t, int> scalars;  // how many of a number
  std::map<uint32_t, std::vector<Values>> messages;
  std::map<uint32_t, std::map<int, int>> unknown;  // by number and wire type
  std::map<uint32_t, std::vector<Values>> unknownGroups;
  size_t count() const;
};

struct Outcome {
  bool ended;
  std::string failure;  // name and reason; empty for success
  uint64_t position;
  bool movedBack;
  size_t count;
};

Outcome read(const std::vector<Class>& schema, int message, std::string_view bytes, bool knowsExtensions,
             size_t steps);

}  // namespace plain
}  // namespace nvxcore::testing
