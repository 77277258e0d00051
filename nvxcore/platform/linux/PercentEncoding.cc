#include "nvxcore/platform/linux/PercentEncoding.h"

namespace nvxcore {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f') return (c | 0x20) - 'a' + 10;
  return -1;
}

}  // namespace

std::string percentDecoded(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
      result += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
      i += 2;
    } else {
      result += text[i];
    }
  }
  return result;
}

}  // namespace nvxcore
