#include "tools/geoserver/WireCodec.h"

#include <gtest/gtest.h>

#include "support/RawClient.h"
#include "tools/geoserver/Exchange.h"

namespace nvxcore::geoserver {
namespace {

std::string written(std::string_view utf8) {
  std::string out;
  WireWriter(out).writeUtf(utf8);
  return out;
}

TEST(WireCodecTest, StringsHaveTheModifiedForm) {
  struct Case {
    std::string utf8;
    std::string wire;
  };
  const Case cases[] = {
      {"", std::string("\0\0", 2)},
      {"en", std::string("\0\2en", 4)},
      {std::string("\0", 1), std::string("\0\2\xC0\x80", 4)},
      {"\xC3\xA9", std::string("\0\2\xC3\xA9", 4)},
      {"\xE2\x82\xAC", std::string("\0\3\xE2\x82\xAC", 5)},
      {"\xF0\x9F\x98\x80", std::string("\0\6\xED\xA0\xBD\xED\xB8\x80", 8)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(written(c.utf8), c.wire);
    EXPECT_EQ(WireReader(c.wire).readUtf(), c.utf8);
  }
  EXPECT_EQ(written(std::string(65535, 'x')).size(), 65537u);
  EXPECT_THROW(written(std::string(65536, 'x')), WireError);
}

TEST(WireCodecTest, BadOrMissingBytesThrowAndDoNotMove) {
  const std::string bad[] = {
      std::string("\0\1\xF0", 3),                      // a lead byte of four
      std::string("\0\1\x80", 3),                      // a continuation on its own
      std::string("\0\1\xC3", 3),                      // cut short by the length
      std::string("\0\2\xC3\x28", 4),                  // no continuation
      std::string("\0\3\xED\xA0\xBD", 5),              // a high surrogate on its own
      std::string("\0\3\xED\xB8\x80", 5),              // a low one
      std::string("\0\6\xED\xA0\xBD\xED\xA0\xBD", 8),  // two high ones
      std::string("\0\5abcd", 6),                      // cut short by the end
      std::string("\0", 1),
  };
  for (const std::string& bytes : bad) {
    WireReader reader(bytes);
    EXPECT_THROW(reader.readUtf(), WireError);
    EXPECT_EQ(reader.position(), 0u);
  }
  WireReader seven("1234567");
  EXPECT_THROW(seven.readLong(), WireError);
  EXPECT_EQ(seven.position(), 0u);
  WireReader negative(std::string_view("\xFF\xFF\xFF\xFFrest", 8));
  EXPECT_THROW(negative.readCountedBytes(), WireError);
  EXPECT_EQ(negative.position(), 0u);
}

TEST(WireCodecTest, ABodyCutAnywhereIsDecodedUpToThere) {
  const RequestTypes types;
  const std::string body = postBody(3, 10);
  const size_t head = postBody(0, 0).size();
  const size_t request = 2 + 4 + 10;
  for (size_t length = 0; length < body.size(); ++length) {
    const Post post = decodePost(std::string_view(body).substr(0, length), types);
    const bool between = length >= head && (length - head) % request == 0;
    EXPECT_EQ(post.error.empty(), between) << length;
    EXPECT_EQ(post.requests.size(), length < head ? 0 : (length - head) / request) << length;
  }
  EXPECT_NE(decodePost(std::string("\0\x17", 2), types).error.find("version 23"), std::string::npos);
}

}  // namespace
}  // namespace nvxcore::geoserver
