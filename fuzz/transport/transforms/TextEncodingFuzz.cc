// Text encodings: any bytes come back; any text decodes as the plain rules say, or fails as they say. The
// first byte chooses the encoding.

#include <optional>
#include <string>
#include <utility>

#include "fuzz/support/FuzzInput.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/transforms/NVXx_HTKStringEncoding.h"

namespace {

using namespace nvxcore;

struct Rules {
  NVXx_HTKStringEncodingRef encoding;
  std::string alphabet;
  bool pads, ignoresBlanks;
  int shift;

  int values[128];

  int valueOf(char c) const { return values[static_cast<unsigned char>(c)]; }
};

Rules make(uint8_t choice) {
  Rules rules;
  const int shift = 1 + choice % 7;
  rules.shift = shift;
  rules.pads = choice & 0x40;
  rules.ignoresBlanks = choice & 0x80;
  // Every second character, then those between, without "=" and the blank for the smaller ones.
  for (int c = 33; c < 127; c += 2) rules.alphabet += static_cast<char>(c);
  for (int c = 34; c < 127; c += 2) rules.alphabet += static_cast<char>(c);
  std::erase(rules.alphabet, '=');
  for (int c = 1; rules.alphabet.size() < 128; ++c) {
    if (c != ' ' && (c < 33 || c == 127)) rules.alphabet += static_cast<char>(c);
    if (c == 127) rules.alphabet += std::string(1, '\0') + "= ";
  }
  rules.alphabet.resize(size_t{1} << shift);
  for (int c = 0; c < 128; ++c) {
    const size_t at = rules.alphabet.find(static_cast<char>(c));
    rules.values[c] = at == std::string::npos ? -1 : static_cast<int>(at);
  }
  rules.encoding = NVXx_HTKStringEncoding::initWithString(rules.alphabet);
  NVX_MUST_HOLD(rules.encoding);
  if (shift == 7) rules.pads = rules.ignoresBlanks = false;
  if (rules.pads) {
    rules.encoding->setPaddingChar('=');
    rules.encoding->setDoPad(true);
  }
  if (rules.ignoresBlanks) rules.encoding->ignoreCharacters(" \n");
  return rules;
}

const Rules& rulesFor(uint8_t choice) {
  static std::optional<Rules> all[256];
  if (!all[choice]) all[choice] = make(choice);
  return *all[choice];
}

/// Bit by bit; the code and the index of a failure, or 0.
std::pair<int64_t, int64_t> decodePlainly(const Rules& rules, std::string_view text, std::string& bytes) {
  for (const char c : text)
    if (c & 0x80) return {kHTKStringEncodingErrorNotASCII, -1};
  std::string bits;
  bits.reserve(text.size() * 7);
  bool sawPadding = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (rules.ignoresBlanks && (text[i] == ' ' || text[i] == '\n')) continue;
    if (rules.pads && text[i] == '=') {
      sawPadding = true;
      continue;
    }
    const int value = rules.valueOf(text[i]);
    if (value < 0) return {kHTKStringEncodingErrorUnknownCharacter, static_cast<int64_t>(i)};
    if (sawPadding) return {kHTKStringEncodingErrorCharacterAfterPadding, static_cast<int64_t>(i)};
    for (int bit = rules.shift - 1; bit >= 0; --bit) bits += static_cast<char>(value >> bit & 1);
  }
  size_t at = 0;
  for (; bits.size() - at >= 8; at += 8) {
    int byte = 0;
    for (size_t bit = 0; bit < 8; ++bit) byte = byte << 1 | bits[at + bit];
    bytes += static_cast<char>(byte);
  }
  if (bits.find('\1', at) != std::string::npos) return {kHTKStringEncodingErrorTrailingBits, -1};
  return {0, -1};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const Rules& rules = rulesFor(data[0]);
  const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);

  const std::string text = *rules.encoding->encode(Data::copy(input));
  NVX_MUST_HOLD(rules.encoding->decode(text).view() == input);

  Error error;
  const Data decoded = rules.encoding->decode(input, &error);
  std::string expected;
  const auto [code, index] = decodePlainly(rules, input, expected);
  NVX_MUST_HOLD(error.code() == code && !decoded == (code != 0));
  if (code) {
    const Value* found = error.userInfo().find(NVXx_HTKStringEncodingBadCharacterIndexKey);
    NVX_MUST_HOLD((found ? found->integerValue() : -1) == index);
  } else {
    NVX_MUST_HOLD(decoded.view() == expected);
    const auto again = rules.encoding->stringByDecoding(input, &error);
    NVX_MUST_HOLD(!error && (!again || *again == expected));
    if (again) NVX_MUST_HOLD(rules.encoding->encodeString(*again) == rules.encoding->encode(decoded));
  }
  return 0;
}
