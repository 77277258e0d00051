#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Characters, told apart without the locale.
namespace nvxcore::messagegen {

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }
inline bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
inline bool isLower(char c) { return c >= 'a' && c <= 'z'; }
inline bool isLetter(char c) { return isUpper(c) || isLower(c) || c == '_'; }
inline bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
inline char toUpper(char c) { return isLower(c) ? static_cast<char>(c - 'a' + 'A') : c; }
inline char toLower(char c) { return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; }
inline unsigned hexValue(char c) {
  return static_cast<unsigned>(isDigit(c) ? c - '0' : (isUpper(c) ? c - 'A' : c - 'a') + 10);
}

/// True for a letter or "_" that letters, digits and "_" follow.
bool isIdentifier(std::string_view text);

/// Length of the well-formed UTF-8 sequence at the start of `text`, or 0 where there is none.
size_t utf8SequenceLength(std::string_view text);
bool isUTF8(std::string_view text);
void appendUTF8(uint32_t codePoint, std::string& to);

}  // namespace nvxcore::messagegen
