#include "tools/messagegen/Text.h"

namespace nvxcore::messagegen {

bool isIdentifier(std::string_view text) {
  if (text.empty() || !isLetter(text[0])) return false;
  for (char c : text) {
    if (!isLetter(c) && !isDigit(c)) return false;
  }
  return true;
}

size_t utf8SequenceLength(std::string_view text) {
  const auto at = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const auto continues = [&](size_t i) { return (at(i) & 0xC0) == 0x80; };
  const unsigned lead = at(0);
  if (text.empty()) return 0;
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4 || !continues(1)) return 0;
  if (lead < 0xE0) return 2;
  if (!continues(2) || (lead == 0xE0 && at(1) < 0xA0) || (lead == 0xED && at(1) > 0x9F)) return 0;
  if (lead < 0xF0) return 3;
  if (!continues(3) || (lead == 0xF0 && at(1) < 0x90) || (lead == 0xF4 && at(1) > 0x8F)) return 0;
  return 4;
}

bool isUTF8(std::string_view text) {
  while (!text.empty()) {
    const size_t length = utf8SequenceLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

void appendUTF8(uint32_t codePoint, std::string& to) {
  const auto put = [&](uint32_t byte) { to += static_cast<char>(byte); };
  if (codePoint < 0x80) return put(codePoint);
  if (codePoint < 0x800) {
    put(0xC0 | codePoint >> 6);
  } else {
    if (codePoint < 0x10000) {
      put(0xE0 | codePoint >> 12);
    } else {
      put(0xF0 | codePoint >> 18);
      put(0x80 | (codePoint >> 12 & 0x3F));
    }
    put(0x80 | (codePoint >> 6 & 0x3F));
  }
  put(0x80 | (codePoint & 0x3F));
}

}  // namespace nvxcore::messagegen
