#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class NVXx_HTKStringEncoding;
using NVXx_HTKStringEncodingRef = std::shared_ptr<NVXx_HTKStringEncoding>;

inline constexpr char NVXx_HTKStringEncodingErrorDomain[] = "com.ovrasoft.HTKStringEncodingErrorDomain";
/// User-info: the index of the character.
inline constexpr char NVXx_HTKStringEncodingBadCharacterIndexKey[] = "HTKStringEncodingBadCharacterIndexKey";

/// Text to be decoded is no ASCII, or an encoded one would not be.
inline constexpr int64_t kHTKStringEncodingErrorNotASCII = 1024;
/// A string to be encoded is no UTF-8.
inline constexpr int64_t kHTKStringEncodingErrorNotUTF8 = 1025;
inline constexpr int64_t kHTKStringEncodingErrorUnknownCharacter = 1026;
inline constexpr int64_t kHTKStringEncodingErrorCharacterAfterPadding = 1027;
inline constexpr int64_t kHTKStringEncodingErrorTrailingBits = 1028;

/// Bytes as text in a base that is a power of two (RFC 4648, and others by alphabet). Configured by one
/// thread; afterwards any number may use it. Keep it: making one is work.
///
/// Where `error` is given, it tells of a failure, and is emptied otherwise.
class NVXCORE_EXPORT NVXx_HTKStringEncoding {
 public:
  NVXx_HTKStringEncoding() = delete;

  /// "01"
  static NVXx_HTKStringEncodingRef binaryStringEncoding();
  /// Encodes in upper case, decodes both.
  static NVXx_HTKStringEncodingRef hexStringEncoding();
  // Those of RFC 4648 pad with "=".
  static NVXx_HTKStringEncodingRef rfc4648Base32StringEncoding();
  static NVXx_HTKStringEncodingRef rfc4648Base32HexStringEncoding();
  /// Takes either case, and letters that look like a digit for it.
  static NVXx_HTKStringEncodingRef crockfordBase32StringEncoding();
  static NVXx_HTKStringEncodingRef rfc4648Base64StringEncoding();
  static NVXx_HTKStringEncodingRef rfc4648Base64WebsafeStringEncoding();

  /// With an alphabet of one's own, without padding. Nothing unless it is ASCII, 2 to 128 characters and a
  /// power of two of them, none twice.
  static NVXx_HTKStringEncodingRef stringEncodingWithString(std::string_view alphabet);
  static NVXx_HTKStringEncodingRef initWithString(std::string_view alphabet);

  /// Walks the text: a character that stands for a value makes it the current one, any other is decoded as
  /// the current one from then on.
  void addDecodeSynonyms(std::string_view synonyms);
  /// Decoding passes over these.
  void ignoreCharacters(std::string_view characters);
  /// Encoding fills the last group up. False at first.
  bool doPad() const { return doPad_; }
  void setDoPad(bool doPad) { doPad_ = doPad; }
  /// Decoding knows it as padding from then on.
  void setPaddingChar(char character);

  /// Nothing only where the padding that it takes is no ASCII.
  std::optional<std::string> encode(const Data& data, Error* error = nullptr) const;
  /// The string's UTF-8; nothing where it is none.
  std::optional<std::string> encodeString(std::string_view string, Error* error = nullptr) const;
  /// Nothing where the text is bad. Padding is neither demanded nor counted, but only padding and characters
  /// that are passed over may follow it.
  Data decode(std::string_view text, Error* error = nullptr) const;
  /// As `decode`, and nothing, without an error, where the bytes are no UTF-8.
  std::optional<std::string> stringByDecoding(std::string_view text, Error* error = nullptr) const;

  std::string description() const;

 private:
  explicit NVXx_HTKStringEncoding(std::string_view alphabet);
  static NVXx_HTKStringEncodingRef padded(std::string_view alphabet);
  std::optional<std::string> encodeBytes(const uint8_t* bytes, size_t length, Error* error) const;

  static constexpr int32_t kUnknownChar = -1;
  static constexpr int32_t kPaddingChar = -2;
  static constexpr int32_t kIgnoredChar = -3;

  Data charMapData_;
  const uint8_t* charMap_;
  std::array<int32_t, 128> reverseCharMap_;
  int32_t shift_;
  int32_t mask_;
  bool doPad_ = false;
  char paddingChar_ = 0;
  int32_t padLen_;
};

}  // namespace nvxcore
