#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/transforms/NVXx_HTKURLArguments.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

class URLArgumentsTest : public NVXTest {};

TEST_F(URLArgumentsTest, EscapesAllThatAnArgumentCannotHoldAndComesBack) {
  EXPECT_EQ(NVXx_htk_stringByEscapingForURLArgument("a b+c%\xC3\xA9\"<\n~-._"),
            "a%20b%2Bc%25%C3%A9%22%3C%0A~-._");
  EXPECT_EQ(NVXx_htk_stringByEscapingForURLArgument("!*'();:@&=+$,/?%#[]"),
            "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D");
  std::string all;
  for (int c = 0; c < 128; ++c) all += static_cast<char>(c);
  all += "\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(NVXx_htk_stringByUnescapingFromURLArgument(NVXx_htk_stringByEscapingForURLArgument(all)), all);
}

TEST_F(URLArgumentsTest, UnescapesBlanksAndUTF8OrNothing) {
  const struct {
    const char* text;
    std::optional<std::string> plain;
  } cases[] = {{"a+b%20c", "a b c"},          {"%2B", "+"},
               {"%e2%82%AC", "\xE2\x82\xAC"}, {"", ""},
               {"%", std::nullopt},           {"a%2", std::nullopt},
               {"%g0", std::nullopt},         {"%0g", std::nullopt},
               {"%+1", std::nullopt},         {"%C3%28", std::nullopt},
               {"%FF", std::nullopt},         {"%25", "%"}};
  for (const auto& c : cases)
    EXPECT_EQ(NVXx_htk_stringByUnescapingFromURLArgument(c.text), c.plain) << c.text;
}

TEST_F(URLArgumentsTest, ArgumentsBecomeADictionaryAndBack) {
  const struct {
    const char* text;
    const char* again;
  } cases[] = {
      {"a=1&a=2", "a=1"},
      {"a&b=", "a=&b="},
      {"&&a=1&&b=2&", "a=1&b=2"},
      {"", ""},
      {"a=b=c", "a=b%3Dc"},
      {"%zz=1&k=%zz", "=1&k="},
      {"=v", "=v"},
      {"a+b=c%20d", "a%20b=c%20d"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(NVXx_htk_httpArgumentsString(NVXx_htk_dictionaryWithHttpArgumentsString(c.text)), c.again)
        << c.text;

  const Dictionary values{{"n", -7},
                          {"u", UINT64_MAX},
                          {"d", 0.1},
                          {"w", 1e8},
                          {"q", 1.0 / 3},
                          {"t", true},
                          {"b", Data::copy("\x01\xAB")},
                          {"l", URL::withString("http://a/?b")}};
  EXPECT_EQ(NVXx_htk_httpArgumentsString(values),
            "n=-7&u=18446744073709551615&d=0.1&w=100000000&q=0.3333333333333333&t=1&b=%3C01ab%3E&"
            "l=http%3A%2F%2Fa%2F%3Fb");
}

}  // namespace
}  // namespace nvxcore::testing
