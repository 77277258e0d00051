#include "tools/geoserver/ConversationLog.h"

#include <gtest/gtest.h>

#include "support/PostBuilder.h"

namespace nvxcore::geoserver {
namespace {

// What stands behind the first line, which has times in it.
std::string behindFirstLine(const std::string& text) { return text.substr(text.find('\n') + 1); }

class ConversationLogTest : public ::testing::Test {
 protected:
  static ServerOptions options() {
    ServerOptions options;
    options.keepReplies = true;
    options.compression.fromBytes = 60;
    options.compression.format = Compression::Format::zlib;
    return options;
  }

  Exchange exchangeOf(const PostBuilder& post, std::string_view fields = {}) {
    PostReply(server, post, fields);
    EXPECT_TRUE(server.waitForEndedCount(++sent, kPatience));
    return server.exchanges().back();
  }

  GeoServer server{options()};
  uint64_t sent = 0;
};

TEST_F(ConversationLogTest, APostIsShownWhole) {
  WireMessage resource(schemas::resourceRequest);
  resource.add("url", std::string(100, 'u')).add({77, WireType::varint, 5, {}});
  PostBuilder post(3);
  post.request(15).message(62, clientProperties(true)).message(39, resource).message(kEchoType, "\x01z");
  post.message(39, "\x0A");
  const Exchange exchange = exchangeOf(post, "X-Geo: w EAw w IgFh\r\n");
  const std::string url(100, 'u');
  // How far it packs is zlib's own affair.
  const std::string packed = std::to_string(exchange.answerEnds[2] - exchange.answerEnds[1] - 2);
  const std::string lines =
      "     15 user cookie               0 bytes ->        8 bytes\n"
      "     62 client properties         6 bytes ->       17 bytes\n"
      "     39 resource                109 bytes -> " +
      std::string(8 - packed.size(), ' ') + packed +
      " bytes, compressed\n"
      "    239 echo                      6 bytes ->        6 bytes\n"
      "     39 resource                  5 bytes ->        4 bytes\n";
  const std::string troubles =
      "  unknown cookie 0x0000000000000003\n"
      "  client fault: request 5 (39 resource): message ends within a field\n";
  EXPECT_EQ(behindFirstLine(server.describe(exchange, LogLevel::brief)), lines + troubles);
  const std::string verbose = behindFirstLine(server.describe(exchange, LogLevel::verbose));
  EXPECT_EQ(
      verbose,
      "  Host: test\n"
      "  X-Geo: w EAw w IgFh\n"
      "  Content-Length: " +
          std::to_string(post.bytes().size()) +
          "\n"
          "  version 24, cookie 0x0000000000000003 (unknown), language \"en\", platform \"linux:test\", "
          "software \"1.0\", channel \"channel\"\n"
          "  X-Geo descriptor 1\n"
          "      producer: 12\n"
          "  X-Geo descriptor 2\n"
          "      loc: \"a\"\n"
          "     15 user cookie               0 bytes ->        8 bytes\n"
          "    answer\n"
          "      0x1122334455667788\n"
          "     62 client properties         6 bytes ->       17 bytes\n"
          "      gzip_enabled: true\n"
          "    answer\n"
          "      new_cohort: \"development\"\n"
          "     39 resource                109 bytes -> " +
          std::string(8 - packed.size(), ' ') + packed +
          " bytes, compressed\n"
          "      url: \"" +
          url +
          "\"\n"
          "      77: 5\n"
          "    answer\n"
          "      Response {\n"
          "        url: \"" +
          url +
          "\"\n"
          "        response_code: 404\n"
          "        hash: 0x0000000000000000\n"
          "        content_type: \"text/plain\"\n"
          "      }\n"
          "    239 echo                      6 bytes ->        6 bytes\n"
          "      \"\\000\\000\\000\\002\\001z\"\n"
          "    answer\n"
          "      \"\\000\\000\\000\\002\\001z\"\n"
          "     39 resource                  5 bytes ->        4 bytes\n"
          "      # message ends within a field: \"\\000\\000\\000\\001\\n\"\n"
          "    answer\n" +
          troubles);
}

TEST_F(ConversationLogTest, FaultyAndForeignExchangesAreShownToo) {
  server.enqueue(faults::badCompression(1));
  const PostBuilder post =
      PostBuilder().request(15).message(62, clientProperties(false)).message(39, "\x22\x01u");
  std::string text = server.describe(exchangeOf(post), LogLevel::verbose);
  EXPECT_NE(text.find("10 bytes, compressed, spoiled\n"), std::string::npos) << text;
  EXPECT_NE(text.find("# compressed message can't be inflated: \"\\377\\377\\377\\372x\\234"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("response_code: 404"), std::string::npos) << text;

  server.enqueue(faults::truncated(14));
  text = server.describe(exchangeOf(post), LogLevel::verbose);
  EXPECT_NE(text.find(" 8 bytes\n"), std::string::npos) << text;
  EXPECT_NE(text.find(" 0 bytes, not sent\n"), std::string::npos) << text;

  server.enqueue(faults::status(503, "busy"));
  text = server.describe(exchangeOf(post), LogLevel::verbose);
  EXPECT_NE(text.find("-> 503"), std::string::npos) << text;
  EXPECT_EQ(text.find("answer\n"), std::string::npos) << text;

  RawClient client(server.port());
  client.send(getRequest("/status/404"));
  client.readReply();
  ASSERT_TRUE(server.waitForEndedCount(++sent, kPatience));
  EXPECT_EQ(behindFirstLine(server.describe(server.exchanges().back(), LogLevel::verbose)), "  Host: test\n");

  GeoServer forgetful;
  PostReply(forgetful, post);
  ASSERT_TRUE(forgetful.waitForEndedCount(1, kPatience));
  text = forgetful.describe(forgetful.exchanges().back(), LogLevel::verbose);
  EXPECT_NE(text.find("user cookie               0 bytes\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("answer\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace nvxcore::geoserver
