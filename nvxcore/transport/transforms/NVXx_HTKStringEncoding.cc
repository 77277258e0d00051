#include "nvxcore/transport/transforms/NVXx_HTKStringEncoding.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <utility>

#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/internal/UTF8.h"
#include "nvxcore/transport/transforms/internal/TextLoops.h"

namespace nvxcore {

namespace {

void fail(Error* error, int64_t code) {
  if (error) *error = Error(NVXx_HTKStringEncodingErrorDomain, code);
}

void failAt(Error* error, int64_t code, size_t index) {
  if (error) {
    *error =
        Error(NVXx_HTKStringEncodingErrorDomain, code, {{NVXx_HTKStringEncodingBadCharacterIndexKey, index}});
  }
}

constexpr bool isASCII(char character) { return static_cast<uint8_t>(character) < 128; }

}  // namespace

NVXx_HTKStringEncoding::NVXx_HTKStringEncoding(std::string_view alphabet)
    : charMapData_(Data::copy(alphabet)),
      charMap_(charMapData_.bytes()),
      shift_(std::countr_zero(alphabet.size())),
      mask_((1 << shift_) - 1),
      padLen_(std::lcm(8, shift_) / shift_) {
  reverseCharMap_.fill(kUnknownChar);
  for (size_t i = 0; i < alphabet.size(); ++i) reverseCharMap_[charMap_[i]] = static_cast<int32_t>(i);
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::initWithString(std::string_view alphabet) {
  if (alphabet.size() < 2 || alphabet.size() > 128 || !std::has_single_bit(alphabet.size())) return {};
  if (!std::all_of(alphabet.begin(), alphabet.end(), isASCII)) return {};
  std::array<bool, 128> seen{};
  for (const char character : alphabet) {
    if (std::exchange(seen[static_cast<uint8_t>(character)], true)) return {};
  }
  return NVXx_HTKStringEncodingRef(new NVXx_HTKStringEncoding(alphabet));
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::stringEncodingWithString(std::string_view alphabet) {
  return initWithString(alphabet);
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::padded(std::string_view alphabet) {
  NVXx_HTKStringEncodingRef encoding = initWithString(alphabet);
  encoding->setPaddingChar('=');
  encoding->setDoPad(true);
  return encoding;
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::binaryStringEncoding() { return initWithString("01"); }

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::hexStringEncoding() {
  NVXx_HTKStringEncodingRef encoding = initWithString("0123456789ABCDEF");
  encoding->addDecodeSynonyms("AaBbCcDdEeFf");
  return encoding;
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::rfc4648Base32StringEncoding() {
  return padded("ABCDEFGHIJKLMNOPQRSTUVWXYZ234567");
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::rfc4648Base32HexStringEncoding() {
  return padded("0123456789ABCDEFGHIJKLMNOPQRSTUV");
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::crockfordBase32StringEncoding() {
  NVXx_HTKStringEncodingRef encoding = initWithString("0123456789ABCDEFGHJKMNPQRSTVWXYZ");
  encoding->addDecodeSynonyms("0oO1iIlLAaBbCcDdEeFfGgHhJjKkMmNnPpQqRrSsTtVvWwXxYyZz");
  return encoding;
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::rfc4648Base64StringEncoding() {
  return padded("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

NVXx_HTKStringEncodingRef NVXx_HTKStringEncoding::rfc4648Base64WebsafeStringEncoding() {
  return padded("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_");
}

void NVXx_HTKStringEncoding::addDecodeSynonyms(std::string_view synonyms) {
  int32_t current = kUnknownChar;
  for (const char character : synonyms) {
    if (!isASCII(character)) continue;  // Text with it is refused before any look-up.
    int32_t& value = reverseCharMap_[static_cast<uint8_t>(character)];
    if (value >= 0) {
      current = value;
    } else {
      value = current;
    }
  }
}

void NVXx_HTKStringEncoding::ignoreCharacters(std::string_view characters) {
  for (const char character : characters) {
    if (isASCII(character)) reverseCharMap_[static_cast<uint8_t>(character)] = kIgnoredChar;
  }
}

void NVXx_HTKStringEncoding::setPaddingChar(char character) {
  paddingChar_ = character;
  if (isASCII(character)) reverseCharMap_[static_cast<uint8_t>(character)] = kPaddingChar;
}

std::optional<std::string> NVXx_HTKStringEncoding::encode(const Data& data, Error* error) const {
  return encodeBytes(data.bytes(), data.length(), error);
}

std::optional<std::string> NVXx_HTKStringEncoding::encodeString(std::string_view string, Error* error) const {
  if (!isUTF8(string)) {
    fail(error, kHTKStringEncodingErrorNotUTF8);
    return std::nullopt;
  }
  return encodeBytes(reinterpret_cast<const uint8_t*>(string.data()), string.size(), error);
}

std::optional<std::string> NVXx_HTKStringEncoding::encodeBytes(const uint8_t* bytes, size_t length,
                                                               Error* error) const {
  if (error) *error = Error();
  const auto bits = static_cast<size_t>(shift_);
  const size_t characters = (length / bits) * 8 + ((length % bits) * 8 + bits - 1) / bits;
  const auto group = static_cast<size_t>(padLen_);
  const size_t padding = doPad_ ? (group - characters % group) % group : 0;
  if (padding && !isASCII(paddingChar_)) {
    fail(error, kHTKStringEncodingErrorNotASCII);
    return std::nullopt;
  }

  std::string text(characters + padding, paddingChar_);
  char* out = text.data();
  const uint8_t* end = bytes + length;
  if (shift_ == 6) {
    htkEncodeSixBits(bytes, end, charMap_, out);
  } else if (shift_ == 4) {
    htkEncodeFourBits(bytes, end, charMap_, out);
  }
  uint32_t buffer = 0;
  int32_t held = 0;
  for (; bytes != end; ++bytes) {
    buffer = buffer << 8 | *bytes;
    for (held += 8; held >= shift_;) {
      held -= shift_;
      *out++ = static_cast<char>(charMap_[buffer >> held & static_cast<uint32_t>(mask_)]);
    }
  }
  if (held) *out = static_cast<char>(charMap_[buffer << (shift_ - held) & static_cast<uint32_t>(mask_)]);
  return text;
}

Data NVXx_HTKStringEncoding::decode(std::string_view text, Error* error) const {
  if (error) *error = Error();
  if (!htkIsASCII(text)) {
    fail(error, kHTKStringEncodingErrorNotASCII);
    return {};
  }
  const auto* begin = reinterpret_cast<const uint8_t*>(text.data());
  const uint8_t* end = begin + text.size();
  const uint8_t* at = begin;
  const auto bits = static_cast<size_t>(shift_);
  MutableData data(text.size() / 8 * bits + text.size() % 8 * bits / 8);
  uint8_t* out = data.bytes();
  // What is regular goes fast; the plain walk finds whatever else there is.
  if (shift_ == 6) {
    htkDecodeSixBits(at, end, reverseCharMap_.data(), out);
  } else if (shift_ == 4) {
    htkDecodeFourBits(at, end, reverseCharMap_.data(), out);
  }
  uint32_t buffer = 0;
  int32_t held = 0;
  bool sawPadding = false;
  for (; at != end; ++at) {
    const int32_t value = reverseCharMap_[*at];
    if (value == kIgnoredChar) continue;
    if (value == kPaddingChar) {
      sawPadding = true;
      continue;
    }
    const auto index = static_cast<size_t>(at - begin);
    if (value < 0) {
      failAt(error, kHTKStringEncodingErrorUnknownCharacter, index);
      return {};
    }
    if (sawPadding) {
      failAt(error, kHTKStringEncodingErrorCharacterAfterPadding, index);
      return {};
    }
    buffer = buffer << shift_ | static_cast<uint32_t>(value);
    held += shift_;
    if (held >= 8) {
      held -= 8;
      *out++ = static_cast<uint8_t>(buffer >> held);
    }
  }
  if (held && (buffer & ((1u << held) - 1))) {
    fail(error, kHTKStringEncodingErrorTrailingBits);
    return {};
  }
  data.setLength(static_cast<size_t>(out - data.bytes()));
  return Data::take(std::move(data));
}

std::optional<std::string> NVXx_HTKStringEncoding::stringByDecoding(std::string_view text,
                                                                    Error* error) const {
  const Data data = decode(text, error);
  if (!data || !isUTF8(data.view())) return std::nullopt;
  return data.string();
}

std::string NVXx_HTKStringEncoding::description() const {
  return "<Base" + std::to_string(1 << shift_) + " StringEncoder: " + Value(charMapData_).description() + ">";
}

}  // namespace nvxcore
