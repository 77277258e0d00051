#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/internal/Pooled.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace nvxcore {

namespace {

int64_t clampToInt64(double value) {
  if (!(value == value)) return 0;
  if (value >= 9223372036854775807.0) return std::numeric_limits<int64_t>::max();
  if (value <= -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(value);
}

std::string_view withoutLeadingBlanks(std::string_view text) {
  const size_t start = text.find_first_not_of(" \t\n\r\f\v");
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

/// `text` from the number at its start: without blanks before it, and without a plus sign.
std::string_view numberText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  return text;
}

/// What a text that no double has room for stands for: nought, or the infinity of its sign.
double outOfRangeNumber(std::string_view text) {
  const double sign = text.starts_with('-') ? -1.0 : 1.0;
  const size_t exponent = text.find_first_of("eE");
  const bool isTiny = exponent == std::string_view::npos ? text.find_first_of("123456789") > text.find('.')
                                                         : text.substr(exponent + 1).starts_with('-');
  return sign * (isTiny ? 0.0 : std::numeric_limits<double>::infinity());
}

/// The fewest digits from 15 on that read back as the same number.
std::string doubleText(double value) {
  char text[32];
  for (int digits = 15;; ++digits) {
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general, digits);
    double again = 0;
    std::from_chars(text, result.ptr, again);
    if (digits == 17 || !(again != value)) return std::string(text, result.ptr);
  }
}

std::string dataText(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (const char c : bytes) {
    text += kDigits[static_cast<uint8_t>(c) >> 4];
    text += kDigits[c & 0xF];
  }
  return text + ">";
}

}  // namespace

Value::Value(Dictionary value) : _value(makePooled<const Dictionary>(std::move(value))) {}

const Dictionary* Value::dictionary() const {
  auto* held = std::get_if<std::shared_ptr<const Dictionary>>(&_value);
  return held ? held->get() : nullptr;
}

bool Value::boolValue() const {
  if (auto* value = std::get_if<bool>(&_value)) return *value;
  if (auto* value = std::get_if<int64_t>(&_value)) return *value != 0;
  if (auto* value = std::get_if<uint64_t>(&_value)) return *value != 0;
  if (auto* value = std::get_if<double>(&_value)) return *value != 0;
  if (auto* value = std::get_if<std::string>(&_value)) {
    std::string_view text = withoutLeadingBlanks(*value);
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
    const size_t first = text.find_first_not_of('0');
    if (first == std::string_view::npos) return false;
    const char c = text[first];
    if (c >= '1' && c <= '9') return true;
    return first == 0 && (c == 'Y' || c == 'y' || c == 'T' || c == 't');
  }
  return false;
}

int64_t Value::integerValue() const {
  if (auto* value = std::get_if<bool>(&_value)) return *value;
  if (auto* value = std::get_if<int64_t>(&_value)) return *value;
  if (auto* value = std::get_if<uint64_t>(&_value)) {
    return *value > uint64_t{std::numeric_limits<int64_t>::max()} ? std::numeric_limits<int64_t>::max()
                                                                  : static_cast<int64_t>(*value);
  }
  if (auto* value = std::get_if<double>(&_value)) return clampToInt64(*value);
  if (auto* value = std::get_if<std::string>(&_value)) {
    const std::string_view text = numberText(*value);
    int64_t number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) {
      return text.front() == '-' ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    }
    return number;
  }
  return 0;
}

uint64_t Value::unsignedIntegerValue() const {
  if (auto* value = std::get_if<uint64_t>(&_value)) return *value;
  if (kind() == Kind::Signed || kind() == Kind::Bool) {
    return static_cast<uint64_t>(std::max<int64_t>(integerValue(), 0));
  }
  const double value = doubleValue();
  if (!(value > 0)) return 0;
  return value >= 18446744073709551615.0 ? std::numeric_limits<uint64_t>::max()
                                         : static_cast<uint64_t>(value);
}

double Value::doubleValue() const {
  if (auto* value = std::get_if<double>(&_value)) return *value;
  if (auto* value = std::get_if<uint64_t>(&_value)) return static_cast<double>(*value);
  if (auto* value = std::get_if<std::string>(&_value)) {
    const std::string_view text = numberText(*value);
    double number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) number = outOfRangeNumber({text.data(), end});
    return number;
  }
  return static_cast<double>(integerValue());
}

std::string Value::description() const {
  if (auto* value = std::get_if<bool>(&_value)) return *value ? "1" : "0";
  if (auto* value = std::get_if<int64_t>(&_value)) return std::to_string(*value);
  if (auto* value = std::get_if<uint64_t>(&_value)) return std::to_string(*value);
  if (auto* value = std::get_if<double>(&_value)) return doubleText(*value);
  if (auto* value = std::get_if<std::string>(&_value)) return *value;
  if (auto* value = std::get_if<Date>(&_value)) return doubleText(value->timeIntervalSince1970());
  if (auto* value = std::get_if<Data>(&_value)) return *value ? dataText(value->view()) : "(null)";
  if (auto* value = std::get_if<URL>(&_value)) return value->absoluteString();
  if (auto* value = std::get_if<Error>(&_value)) return value->description();
  if (const Dictionary* entries = dictionary()) {
    std::string text = "{";
    for (const auto& [key, value] : *entries) text += key + " = " + value.description() + "; ";
    return text + "}";
  }
  return std::holds_alternative<std::any>(_value) ? "(object)" : "(null)";
}

}  // namespace nvxcore
