#include "nvxcore/transport/transforms/NVXx_HTKURLArguments.h"

#include <cstdint>
#include <utility>

#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/internal/UTF8.h"

namespace nvxcore {

namespace {

bool isKept(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

std::string NVXx_htk_stringByEscapingForURLArgument(std::string_view string) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string escaped;
  escaped.reserve(string.size());
  for (const char c : string) {
    if (isKept(c)) {
      escaped += c;
    } else {
      escaped += '%';
      escaped += kDigits[static_cast<uint8_t>(c) >> 4];
      escaped += kDigits[c & 0xF];
    }
  }
  return escaped;
}

std::optional<std::string> NVXx_htk_stringByUnescapingFromURLArgument(std::string_view string) {
  std::string plain;
  plain.reserve(string.size());
  for (size_t i = 0; i < string.size(); ++i) {
    if (string[i] == '+') {
      plain += ' ';
    } else if (string[i] != '%') {
      plain += string[i];
    } else {
      if (string.size() - i < 3) return std::nullopt;
      const int high = hexValue(string[i + 1]), low = hexValue(string[i + 2]);
      if (high < 0 || low < 0) return std::nullopt;
      plain += static_cast<char>(high << 4 | low);
      i += 2;
    }
  }
  if (!isUTF8(plain)) return std::nullopt;
  return plain;
}

Dictionary NVXx_htk_dictionaryWithHttpArgumentsString(std::string_view argString) {
  const auto unescaped = [](std::string_view text) {
    return NVXx_htk_stringByUnescapingFromURLArgument(text).value_or(std::string());
  };
  Dictionary dictionary;
  while (!argString.empty()) {
    const size_t end = argString.find('&');
    const std::string_view piece = argString.substr(0, end);
    argString.remove_prefix(end == std::string_view::npos ? argString.size() : end + 1);
    if (piece.empty()) continue;
    const size_t equals = piece.find('=');
    const std::string key = unescaped(piece.substr(0, equals));
    if (dictionary.contains(key)) continue;
    dictionary.set(key,
                   equals == std::string_view::npos ? std::string() : unescaped(piece.substr(equals + 1)));
  }
  return dictionary;
}

std::string NVXx_htk_httpArgumentsString(const Dictionary& dictionary) {
  std::string arguments;
  for (const auto& [key, value] : dictionary) {
    if (!arguments.empty()) arguments += '&';
    arguments += NVXx_htk_stringByEscapingForURLArgument(key);
    arguments += '=';
    arguments += NVXx_htk_stringByEscapingForURLArgument(value.description());
  }
  return arguments;
}

}  // namespace nvxcore
