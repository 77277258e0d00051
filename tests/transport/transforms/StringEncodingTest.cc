#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/transforms/NVXx_HTKStringEncoding.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

class StringEncodingTest : public NVXTest {};

using Encoding = NVXx_HTKStringEncoding;

std::string upTo(char last) {
  std::string characters;
  for (int c = 0; c <= last; ++c) characters += static_cast<char>(c);
  return characters;
}

int64_t badIndex(const Error& error) {
  const Value* index = error.userInfo().find(NVXx_HTKStringEncodingBadCharacterIndexKey);
  return index ? index->integerValue() : -1;
}

TEST_F(StringEncodingTest, EncodesAsPublished) {
  // RFC 4648, section 10.
  const struct {
    NVXx_HTKStringEncodingRef encoding;
    std::vector<const char*> texts;
  } rows[] = {
      {Encoding::rfc4648Base64StringEncoding(),
       {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"}},
      {Encoding::rfc4648Base64WebsafeStringEncoding(),
       {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"}},
      {Encoding::rfc4648Base32StringEncoding(),
       {"", "MY======", "MZXQ====", "MZXW6===", "MZXW6YQ=", "MZXW6YTB", "MZXW6YTBOI======"}},
      {Encoding::rfc4648Base32HexStringEncoding(),
       {"", "CO======", "CPNG====", "CPNMU===", "CPNMUOG=", "CPNMUOJ1", "CPNMUOJ1E8======"}},
      {Encoding::hexStringEncoding(), {"", "66", "666F", "666F6F", "666F6F62", "666F6F6261", "666F6F626172"}},
      {Encoding::binaryStringEncoding(), {"", "01100110", "0110011001101111"}},
      {Encoding::crockfordBase32StringEncoding(),
       {"", "CR", "CSQG", "CSQPY", "CSQPYRG", "CSQPYRK1", "CSQPYRK1E8"}},
  };
  const std::string foobar = "foobar";
  for (const auto& row : rows) {
    for (size_t length = 0; length < row.texts.size(); ++length) {
      const std::string plain = foobar.substr(0, length), text = row.texts[length];
      EXPECT_EQ(row.encoding->encodeString(plain), text);
      EXPECT_EQ(row.encoding->stringByDecoding(text), plain) << text;
      EXPECT_EQ(row.encoding->stringByDecoding(text.substr(0, text.find('='))), plain) << text;
    }
  }
  const Data last = Data::copy("\xFB\xEF\xFF");
  EXPECT_EQ(Encoding::rfc4648Base64StringEncoding()->encode(last), "++//");
  EXPECT_EQ(Encoding::rfc4648Base64WebsafeStringEncoding()->encode(last), "--__");
  EXPECT_EQ(Encoding::hexStringEncoding()->description(),
            "<Base16 StringEncoder: <30313233343536373839414243444546>>");
}

/// By the definition: the bits in a row, cut into groups, the last one filled with zeros.
std::string bitByBit(std::string_view bytes, const std::string& alphabet, size_t shift) {
  std::string bits;
  for (const char c : bytes)
    for (int i = 7; i >= 0; --i) bits += (c >> i & 1) ? '1' : '0';
  while (bits.size() % shift) bits += '0';
  std::string text;
  for (size_t at = 0; at < bits.size(); at += shift)
    text += alphabet[std::stoul(bits.substr(at, shift), nullptr, 2)];
  return text;
}

TEST_F(StringEncodingTest, EveryBaseAndLengthIsAsTheDefinitionSays) {
  std::mt19937 random(11);
  for (size_t shift = 1; shift <= 7; ++shift) {
    // From the highest characters down, so that no alphabet is a usual one.
    std::string alphabet;
    for (size_t i = 0; i < size_t{1} << shift; ++i) alphabet += static_cast<char>(127 - i);
    const auto encoding = Encoding::stringEncodingWithString(alphabet);
    ASSERT_TRUE(encoding);
    for (size_t length = 0; length < 150; ++length) {
      std::string bytes;
      while (bytes.size() < length) bytes += static_cast<char>(random());
      const std::string text = *encoding->encode(Data::copy(bytes));
      ASSERT_EQ(text, bitByBit(bytes, alphabet, shift)) << shift << " bits, " << length;
      Error error;
      ASSERT_EQ(encoding->decode(text, &error).view(), bytes);
      ASSERT_FALSE(error);
    }
    encoding->setPaddingChar('=');
    encoding->setDoPad(true);
    const size_t group = std::vector<size_t>{0, 8, 4, 8, 2, 8, 4, 8}[shift];
    for (size_t length = 1; length < 20; ++length)
      EXPECT_EQ(encoding->encode(Data::copy(std::string(length, 'x')))->size() % group, 0u);
  }
}

TEST_F(StringEncodingTest, RefusesAlphabetsThatCannotBeToldApart) {
  for (const std::string& alphabet :
       {std::string(""), std::string("a"), std::string("abc"), std::string("aa"), std::string("abcdefga"),
        std::string("a\x80"), upTo(127) + upTo(127)})
    EXPECT_FALSE(Encoding::initWithString(alphabet)) << alphabet.size();
  EXPECT_TRUE(Encoding::initWithString(upTo(127)));
}

TEST_F(StringEncodingTest, SaysWhatIsWrongWithATextAndWhere) {
  const auto hex = Encoding::hexStringEncoding(), base64 = Encoding::rfc4648Base64StringEncoding();
  const auto base32 = Encoding::rfc4648Base32StringEncoding(),
             crockford = Encoding::crockfordBase32StringEncoding();
  const struct {
    const NVXx_HTKStringEncodingRef& encoding;
    const char* text;
    int64_t code, index;
  } cases[] = {
      {hex, "aBx0", kHTKStringEncodingErrorUnknownCharacter, 2},
      {hex, "0011223344556677 ", kHTKStringEncodingErrorUnknownCharacter, 16},
      {hex, "x0\xC3\xA9", kHTKStringEncodingErrorNotASCII, -1},
      {hex, "1", kHTKStringEncodingErrorTrailingBits, -1},
      {base64, "Zg=v", kHTKStringEncodingErrorCharacterAfterPadding, 3},
      {base64, "Zm9vZm9v=Zg==", kHTKStringEncodingErrorCharacterAfterPadding, 9},
      {base64, "=*", kHTKStringEncodingErrorUnknownCharacter, 1},
      {base64, "Zh==", kHTKStringEncodingErrorTrailingBits, -1},
      {base32, "MZ======", kHTKStringEncodingErrorTrailingBits, -1},
      {base32, "my======", kHTKStringEncodingErrorUnknownCharacter, 0},
      {crockford, "0U", kHTKStringEncodingErrorUnknownCharacter, 1},
  };
  for (const auto& c : cases) {
    Error error;
    EXPECT_FALSE(c.encoding->decode(c.text, &error)) << c.text;
    EXPECT_TRUE(error.is(NVXx_HTKStringEncodingErrorDomain, c.code)) << c.text << ": " << error.description();
    EXPECT_EQ(badIndex(error), c.index) << c.text;
    EXPECT_FALSE(c.encoding->decode(c.text)) << c.text;
  }
  Error error("before", 1);
  EXPECT_EQ(hex->decode("aB", &error), hex->decode("AB"));
  EXPECT_FALSE(error);
  EXPECT_EQ(crockford->decode("oO0iIlL1", &error), crockford->decode("00011111"));
  // One "=" too few, too many: nobody counts.
  for (const char* text : {"Zg", "Zg=", "Zg==", "Zg======"})
    EXPECT_EQ(base64->stringByDecoding(text, &error), "f");

  EXPECT_FALSE(base64->stringByDecoding("/w==", &error));
  EXPECT_FALSE(error);
  EXPECT_FALSE(base64->encodeString("\xFF", &error));
  EXPECT_TRUE(error.is(NVXx_HTKStringEncodingErrorDomain, kHTKStringEncodingErrorNotUTF8));
}

TEST_F(StringEncodingTest, PassesOverWhatItIsToldToAndPadsOnlyWithASCII) {
  const auto base64 = Encoding::rfc4648Base64StringEncoding();
  base64->ignoreCharacters("\r\n ");
  EXPECT_EQ(base64->stringByDecoding("Zm9v\r\nYm Fy\n\n"), "foobar");
  EXPECT_EQ(base64->stringByDecoding("Zg =\n= "), "f");
  base64->setDoPad(false);
  EXPECT_EQ(base64->encodeString("f"), "Zg");
  base64->setDoPad(true);
  base64->setPaddingChar('\xFF');
  Error error;
  EXPECT_FALSE(base64->encodeString("f", &error));
  EXPECT_TRUE(error.is(NVXx_HTKStringEncodingErrorDomain, kHTKStringEncodingErrorNotASCII));
  EXPECT_EQ(base64->encodeString("foo", &error), "Zm9v");
  EXPECT_FALSE(error);
}

}  // namespace
}  // namespace nvxcore::testing
