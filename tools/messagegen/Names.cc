#include "tools/messagegen/Names.h"

#include <algorithm>
#include <iterator>

#include "tools/messagegen/ReservedWords.h"
#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

namespace {

/// Of what accessors forward to.
constexpr std::string_view kInternalPrefix = "pb_";

template <size_t count>
bool contains(const std::string_view (&words)[count], std::string_view word) {
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

}  // namespace

std::string camelCase(std::string_view name, bool capitalFirst) {
  std::string result;
  bool raise = capitalFirst;
  char before = '\0';
  for (char c : name) {
    if (c == '_') {
      raise = raise || !result.empty();
    } else if (isDigit(c)) {
      result += c;
      raise = true;
    } else {
      const bool keeps = isUpper(c) && isLower(before);
      result += raise || keeps ? toUpper(c) : toLower(c);
      raise = false;
    }
    before = c;
  }
  if (!result.empty() && isDigit(result[0])) result.insert(0, "_");
  return result;
}

std::string prefixedAccessor(std::string_view prefix, std::string_view accessor) {
  std::string result(prefix);
  if (!accessor.empty()) result += toUpper(accessor[0]);
  if (accessor.size() > 1) result += accessor.substr(1);
  return result;
}

bool isReservedWord(std::string_view name) { return contains(kReservedWords, name); }

bool isMessageOperation(std::string_view name) { return contains(kMessageOperations, name); }

bool accessorCollides(std::string_view accessor) {
  return isReservedWord(accessor) || isMessageOperation(accessor) ||
         isMessageOperation(prefixedAccessor("set", accessor)) ||
         isMessageOperation(prefixedAccessor("has", accessor)) ||
         isMessageOperation(prefixedAccessor("setHas", accessor)) ||
         accessor.substr(0, kInternalPrefix.size()) == kInternalPrefix;
}

bool extensionAccessorCollides(std::string_view accessor) {
  return isReservedWord(accessor) || isMessageOperation(accessor) || contains(kRootOperations, accessor) ||
         accessor.substr(0, kInternalPrefix.size()) == kInternalPrefix;
}

const std::string& textFormatName(const Field& field) {
  return field.type == FieldType::Group ? field.typeName.text : field.name.text;
}

std::string accessorFor(const Field& field) {
  const std::string base = camelCase(textFormatName(field), false);
  if (base.empty()) return base;
  const std::string suffix = field.isRepeated() ? "Array" : "";
  return accessorCollides(base + suffix) ? base + "_p" + suffix : base + suffix;
}

std::string extensionAccessorFor(const Field& field) {
  const std::string base = camelCase(textFormatName(field), false);
  if (base.empty()) return base;
  return extensionAccessorCollides(base) ? base + "_p" : base;
}

std::string rebuiltTextFormatName(std::string_view accessor, const Field& field) {
  const auto cut = [&](std::string_view ending) {
    if (accessor.size() >= ending.size() && accessor.substr(accessor.size() - ending.size()) == ending) {
      accessor.remove_suffix(ending.size());
    }
  };
  if (field.isRepeated()) cut("Array");
  cut("_p");
  std::string result;
  if (field.type == FieldType::Group) {
    result = accessor;
    if (!result.empty()) result[0] = toUpper(result[0]);
    return result;
  }
  for (size_t i = 0; i < accessor.size(); ++i) {
    if (i > 0 && isUpper(accessor[i])) {
      result += '_';
      result += toLower(accessor[i]);
    } else {
      result += accessor[i];
    }
  }
  return result;
}

std::string rebuiltEnumValueName(std::string_view emittedName) {
  std::string result;
  for (size_t i = 0; i < emittedName.size(); ++i) {
    if (i > 0 && isUpper(emittedName[i])) result += '_';
    result += toUpper(emittedName[i]);
  }
  return result;
}

}  // namespace nvxcore::messagegen
