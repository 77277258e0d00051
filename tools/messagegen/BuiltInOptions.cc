#include <algorithm>
#include <set>

#include "tools/messagegen/Names.h"
#include "tools/messagegen/Resolver.h"
#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

namespace {

constexpr std::string_view kBuiltIn = "nvxcore.";

/// `(nvxcore.accessor)` and `packed`: as the tables of known options name them. Empty for an option of
/// somebody else's.
std::string knownName(const Option& option) {
  const OptionNamePart& first = option.name.front();
  std::string_view text = first.name.text;
  if (first.isExtension) {
    if (text.substr(0, 1) == ".") text.remove_prefix(1);
    if (text.substr(0, kBuiltIn.size()) != kBuiltIn) return "";
  }
  return std::string(text);
}

}  // namespace

bool isBuiltInOption(const Option& option) {
  return option.name.front().isExtension && knownName(option).substr(0, kBuiltIn.size()) == kBuiltIn;
}

std::vector<const Option*> Resolver::applyOptions(const std::vector<Option>& options, std::string_view level,
                                                  const std::map<std::string, Apply>& known,
                                                  std::string_view repeatable) {
  std::vector<const Option*> others;
  std::set<std::string> seen;
  for (const Option& option : options) {
    const std::string name = knownName(option);
    const auto found = known.find(name);
    if (found == known.end()) {
      if (isBuiltInOption(option)) {
        std::string list;
        for (const auto& [one, apply] : known) {
          if (one.substr(0, kBuiltIn.size()) == kBuiltIn) list += (list.empty() ? "" : ", ") + one;
        }
        error(option.at(), "expected a built-in option of " + std::string(level) + " (" +
                               (list.empty() ? "there is none" : list) + "), found " + inQuotes(name));
      } else {
        others.push_back(&option);
      }
      continue;
    }
    if (option.name.size() > 1) {
      error(option.name[1].name.at, "expected \"=\" after " + inQuotes(name) + ", which has no parts");
    } else if (!seen.insert(name).second && name != repeatable) {
      error(option.at(), "expected the option " + inQuotes(name) + " once");
    } else {
      found->second(option);
    }
  }
  return others;
}

std::string Resolver::stringValue(const Option& option) {
  if (option.value.kind == OptionValue::Kind::String) return option.value.text;
  error(option.value.at, "expected a string in quotes");
  return "";
}

std::string Resolver::nameValue(const Option& option, bool mayBeEmpty) {
  std::string name = stringValue(option);
  if (option.value.kind != OptionValue::Kind::String) return name;
  if (name.empty() && mayBeEmpty) return name;
  if (!isIdentifier(name) || name.size() > Lexer::kLongestIdentifier) {
    error(option.value.at, "expected a name of letters, digits and \"_\", found " + inQuotes(name));
    return "";
  }
  return name;
}

/// `"host.places"` is host::places.
std::string Resolver::namespaceValue(const Option& option) {
  const std::string text = stringValue(option);
  std::string result;
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find('.', start), text.size());
    const std::string part = text.substr(start, end - start);
    if (!isIdentifier(part) || isReservedWord(part) || text.size() > Lexer::kLongestIdentifier) {
      error(option.value.at,
            "expected names joined by \".\", none of them a word of C++, found " + inQuotes(text));
      return "nvxcore";
    }
    result += (result.empty() ? "" : "::") + part;
    start = end + 1;
  }
  return result;
}

bool Resolver::boolValue(const Option& option) {
  const OptionValue& value = option.value;
  if (value.kind == OptionValue::Kind::Identifier && !value.negative) {
    if (value.text == "true") return true;
    if (value.text == "false") return false;
  }
  error(value.at, "expected \"true\" or \"false\"");
  return false;
}

int64_t Resolver::integerValue(const OptionValue& value, std::string_view what, int64_t least, int64_t most) {
  if (value.kind == OptionValue::Kind::Integer && !value.overflow && value.integer <= INT64_MAX) {
    const int64_t number = static_cast<int64_t>(value.integer) * (value.negative ? -1 : 1);
    if (number >= least && number <= most) return number;
  }
  error(value.at,
        "expected " + std::string(what) + " from " + std::to_string(least) + " to " + std::to_string(most));
  return least;
}

void Resolver::languageOptions(const std::vector<const Option*>& options, std::string_view level,
                               const std::vector<std::string_view>& names) {
  for (const Option* option : options) {
    const OptionNamePart& first = option->name.front();
    // What others have defined is theirs to check.
    if (first.isExtension) continue;
    if (std::find(names.begin(), names.end(), first.name.text) == names.end()) {
      std::string list;
      for (std::string_view name : names) list.append(list.empty() ? "" : ", ").append(name);
      error(option->at(), "expected an option of " + std::string(level) + " (" + list + "), found " +
                              inQuotes(first.name.text));
    }
  }
}

void Resolver::retire(Message& message, const Option& option) {
  Retired retired;
  retired.at = option.at();
  if (option.value.kind != OptionValue::Kind::Aggregate) {
    return error(option.value.at, "expected { number: ... } or { number: ... has_index: ... }");
  }
  for (const AggregateField& field : option.value.fields) {
    const bool isNumber = field.name.text == "number";
    if (field.isExtension || (!isNumber && field.name.text != "has_index")) {
      error(field.name.at, "expected \"number\" or \"has_index\", found " + inQuotes(field.name.text));
    } else if (field.values.size() != 1 || (isNumber ? retired.number != 0 : retired.hasIndex >= 0)) {
      error(field.name.at, "expected one value");
    } else if (isNumber) {
      retired.at = field.values[0].at;
      retired.number = integerValue(field.values[0], "a field number", 1, kMaximumFieldNumber);
    } else {
      retired.hasIndexAt = field.values[0].at;
      retired.hasIndex = integerValue(field.values[0], "a has-index", 0, kLargestHasIndex);
    }
  }
  if (retired.number == 0) return error(option.value.at, "expected the retired \"number\"");
  message.retired.push_back(retired);
}

/// `"1 to 6, 9 to 31, -1"`.
void Resolver::validNumbers(Enum& enumeration, const Option& option) {
  const std::string text = stringValue(option);
  if (option.value.kind != OptionValue::Kind::String) return;
  const Position at = option.value.at;
  Diagnostics scratch;
  Lexer lexer(text, scratch.addFile(""), scratch);
  Token token = lexer.next();
  const auto number = [&](int64_t& value) {
    const bool negative = token.is("-");
    if (negative) token = lexer.next();
    value = static_cast<int64_t>(token.integer) * (negative ? -1 : 1);
    const bool fits = token.kind == Token::Kind::Integer && !token.overflow && token.integer <= UINT32_MAX &&
                      value >= INT32_MIN && value <= INT32_MAX;
    token = lexer.next();
    return fits;
  };
  while (true) {
    Range range;
    range.at = at;
    bool good = number(range.first);
    range.last = range.first;
    if (good && token.is("to")) {
      token = lexer.next();
      good = number(range.last) && range.last >= range.first;
    }
    const bool more = token.is(",");
    // What follows need not say that there are no values.
    if (!good) range.last = range.first;
    enumeration.valid.push_back(range);
    if (!good || scratch.failed() || (!more && token.kind != Token::Kind::End)) {
      return error(at, "expected ranges of 32-bit numbers as in \"1 to 6, 9\", found " + inQuotes(text));
    }
    if (!more) break;
    token = lexer.next();
  }
  std::sort(enumeration.valid.begin(), enumeration.valid.end(),
            [](const Range& a, const Range& b) { return a.first < b.first; });
  for (size_t i = 1; i < enumeration.valid.size(); ++i) {
    if (enumeration.valid[i].first <= enumeration.valid[i - 1].last) {
      return error(at, "expected ranges that do not overlap: " + std::to_string(enumeration.valid[i].first) +
                           " stands in two");
    }
  }
}

}  // namespace nvxcore::messagegen
