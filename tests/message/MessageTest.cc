#include "tests/message/MessageTest.h"

#include <fstream>
#include <iterator>

namespace nvxcore::testing {

std::string fromHex(std::string_view hex) {
  std::string bytes;
  int high = -1;
  for (const char c : hex) {
    const int digit = c >= '0' && c <= '9'   ? c - '0'
                      : c >= 'A' && c <= 'F' ? c - 'A' + 10
                      : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                             : -1;
    if (digit < 0) continue;
    if (high < 0) {
      high = digit;
    } else {
      bytes += static_cast<char>(high << 4 | digit);
      high = -1;
    }
  }
  return bytes;
}

std::string toHex(std::string_view bytes) {
  const char* const digits = "0123456789ABCDEF";
  std::string hex;
  for (const char c : bytes) {
    if (!hex.empty()) hex += ' ';
    hex += digits[static_cast<uint8_t>(c) >> 4];
    hex += digits[static_cast<uint8_t>(c) & 15];
  }
  return hex;
}

std::string thrownBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const Exception& exception) {
    return exception.name() + ": " + exception.reason();
  }
  return {};
}

std::string goldenBytes(std::string_view name) {
  std::ifstream file(std::string(NVXCORE_GOLDEN_DIR "/") + std::string(name));
  EXPECT_TRUE(file) << "no file " << name;
  std::string hex;
  for (std::string line; std::getline(file, line);) hex += line.substr(0, line.find('#'));
  return fromHex(hex);
}

}  // namespace nvxcore::testing
