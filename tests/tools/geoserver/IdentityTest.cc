// What the server makes of the head of a POST: cookie, client properties, X-Geo.
#include <gtest/gtest.h>

#include <set>

#include "support/CurlClient.h"
#include "support/PostBuilder.h"

namespace nvxcore::geoserver {
namespace {

const MessageSchema& kResponse = schemas::clientPropertiesResponse;

// The bytes of a POST, field by field: version, cookie, language, platform, software version, channel, then
// the user cookie, client properties that are no message, and a resource request that is none.
const std::string kPost = fromHex(
    "0018 0000000000000000 0002 656E 0005 696F733A78 0003 312E30 0001 63"
    "000F  003E 00000005 C1C2C3C4C5  0027 00000003 AABBCC");

TEST(IdentityTest, GoldenPostAndReply) {
  ServerOptions options;
  options.identity.cohort = "";
  GeoServer server(options);
  // An answer of two bytes, compressed to ten.
  server.registerRequestType(
      39, [](WireReader& reader) { reader.readCountedBytes(); },
      [](std::string_view, const Exchange&, WireWriter& answer) {
        writeSubdata(answer, "aa", {0, Compression::Format::zlib}, true);
      });
  RawClient client(server.port());
  // Properties that can't be read get an answer without fields.
  client.send(postRequest(kPost));
  EXPECT_EQ(bodyOf(client.readReply()), fromHex("0018  000F 1122334455667788  003E 00000000"
                                                "0027 FFFFFFF6 789C4B4C0400012500C3"));
  ASSERT_TRUE(server.waitForEndedCount(1, kPatience));
  const Exchange exchange = server.exchanges().back();
  const PostHeader& head = exchange.post.header;
  EXPECT_EQ(head.language + " " + head.platform + " " + head.softwareVersion + " " + head.distributionChannel,
            "en ios:x 1.0 c");
  EXPECT_EQ(exchange.post.error, "");
  EXPECT_EQ(exchange.clientFaults,
            std::vector<std::string>{"request 2 (62 client properties): message ends within a field"});
  EXPECT_FALSE(exchange.identity.properties);
  EXPECT_TRUE(exchange.identity.asksForCookie);
  EXPECT_EQ(exchange.identity.cookie, CookieStanding::none);

  // Good ones of the same length, and the plain answer of two bytes.
  std::string good = kPost;
  good.replace(good.find("\xC1\xC2"), 5, fromHex("32 01 5A 20 01"));
  client.send(postRequest(good));
  EXPECT_EQ(bodyOf(client.readReply()), fromHex("0018  000F 1122334455667789  003E 00000002 0A00"
                                                "0027 FFFFFFF6 789C4B4C0400012500C3"));
  ASSERT_TRUE(server.waitForEndedCount(2, kPatience));
  EXPECT_EQ(server.exchanges().back().identity.properties->text("legal_country"), "Z");
  EXPECT_TRUE(server.exchanges().back().clientFaults.empty());
}

TEST(IdentityTest, CookiesAreUniqueAndRemembered) {
  for (const bool seeded : {false, true}) {
    ServerOptions options;
    if (seeded) options.identity.cookieSeed = 5;
    options.identity.firstCookie = -1;  // 0 comes next, and is left out
    GeoServer server(options), same(options);
    std::set<int64_t> cookies;
    int64_t last = 0;
    for (int i = 0; i < 4; ++i) {
      PostReply reply(server, PostBuilder().request(15).request(15));
      cookies.insert(reply.cookie());
      cookies.insert(last = reply.cookie());
      EXPECT_TRUE(reply.atEnd());
    }
    EXPECT_EQ(cookies.size(), 8u);
    EXPECT_FALSE(cookies.contains(0));
    EXPECT_EQ(server.issuedCookies().size(), 8u);
    EXPECT_EQ(PostReply(same, PostBuilder().request(15)).cookie(), server.issuedCookies().front());

    PostReply(server, PostBuilder(last));
    PostReply(server, PostBuilder(424242));
    server.rememberCookie(424242);
    PostReply(server, PostBuilder(424242));
    ASSERT_TRUE(server.waitForEndedCount(7, kPatience));
    const auto exchanges = server.exchanges();
    EXPECT_EQ(exchanges[4].identity.cookie, CookieStanding::known);
    EXPECT_EQ(exchanges[5].identity.cookie, CookieStanding::unknown);
    EXPECT_EQ(exchanges[6].identity.cookie, CookieStanding::known);
    EXPECT_EQ(server.counters().unknownCookies, 1u);
  }
}

TEST(IdentityTest, PropertiesAreAnsweredWithWhatTheClientLacks) {
  ServerOptions options;
  options.identity.cohort = "blue";
  options.identity.legalCountry = "DE";
  options.identity.currentTimeMillis = [] { return uint64_t{1700000000123}; };
  GeoServer server(options);
  const auto ask = [&](const WireMessage& properties) {
    PostReply reply(server, PostBuilder().message(62, properties));
    return reply.message(62, kResponse);
  };
  WireMessage bare = ask(clientProperties(false));
  EXPECT_EQ(bare.text("new_cohort"), "blue");
  EXPECT_EQ(bare.text("new_legal_country"), "DE");
  EXPECT_FALSE(bare.has("oatcake_token"));
  EXPECT_FALSE(bare.has("new_melba_nid_cookie"));

  WireMessage asking = clientProperties(false);
  asking.add("cohort", "red")
      .add("legal_country", "DE")
      .add("oatcake_token_enabled", 1)
      .add("oatcake_token", "");
  WireMessage issued = ask(asking);
  EXPECT_EQ(issued.text("new_cohort"), "blue");
  EXPECT_FALSE(issued.has("new_legal_country"));
  EXPECT_NE(issued.message("oatcake_token").text("nid"), "");
  EXPECT_EQ(issued.message("oatcake_token").number("issue_timestamp"), 1700000000123u);

  WireMessage returning = clientProperties(false);
  returning.add("cohort", "blue").add("legal_country", "DE").add("oatcake_token_enabled", 1);
  returning.add("oatcake_token", issued.message("oatcake_token"));
  EXPECT_EQ(ask(returning).serialised(), "");

  WireMessage melba = clientProperties(false);
  melba.add("melba_cookie_enabled", 1);
  const std::string cookie = ask(melba).text("new_melba_nid_cookie");
  EXPECT_NE(cookie, "");
  EXPECT_NE(ask(melba).text("new_melba_nid_cookie"), cookie);
  melba.add("melba_nid_cookie", cookie);
  EXPECT_FALSE(ask(melba).has("new_melba_nid_cookie"));
}

// Two descriptors by hand: producer 12 and radius 1; a loc in text that is no ASCII.
TEST(IdentityTest, DescriptorsOfXGeoAreKept) {
  for (const bool http2 : {false, true}) {
    ServerOptions options;
    options.tls = http2;
    GeoServer server(options);
    CurlClient client(server);
    client.run({.body = PostBuilder().bytes(), .headers = {"X-Geo: w EAw9AACAPw w IgLDqQ"}});
    ASSERT_TRUE(server.waitForEndedCount(1, kPatience));
    const Exchange exchange = server.exchanges().back();
    EXPECT_EQ(exchange.version, http2 ? "HTTP/2" : "HTTP/1.1");
    EXPECT_TRUE(exchange.clientFaults.empty());
    ASSERT_EQ(exchange.identity.locationDescriptors.size(), 2u);
    EXPECT_EQ(exchange.identity.locationDescriptors[0].number("producer"), 12u);
    EXPECT_EQ(exchange.identity.locationDescriptors[0].real("radius"), 1.0f);
    EXPECT_EQ(exchange.identity.locationDescriptors[1].text("loc"), "\xC3\xA9");
  }
}

TEST(IdentityTest, MalformedXGeoIsTheClientsFault) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "descriptor 1: no \"w \" in front"},
      {"EAw", "descriptor 1: no \"w \" in front"},
      {"w", "descriptor 1: no \"w \" in front"},
      {"W EAw", "descriptor 1: no \"w \" in front"},
      {"w  EAw", "descriptor 1: empty"},
      {"w EAw,w EAw", "descriptor 1: no web-safe Base64 without padding"},
      {"w EAw=", "descriptor 1: no web-safe Base64 without padding"},
      {"w EA+", "descriptor 1: no web-safe Base64 without padding"},
      {"w EAw EAw", "descriptor 2: no \"w \" in front"},
      {"w EAw  w EAw", "descriptor 2: no \"w \" in front"},
      {"w EAw w EA", "descriptor 2: message ends within a field"},
      {"w IgH_", "descriptor 1: loc is no UTF-8"},
  };
  GeoServer server;
  uint64_t sent = 0;
  for (const auto& [value, fault] : cases) {
    const PostReply reply(server, PostBuilder().message(kEchoType, "x"),
                          "X-Geo: " + std::string(value) + "\r\n");
    EXPECT_EQ(reply.body(), fromHex("0018 00EF 00000001 78")) << value;
    ASSERT_TRUE(server.waitForEndedCount(++sent, kPatience));
    const Exchange exchange = server.exchanges().back();
    EXPECT_EQ(exchange.clientFaults, std::vector<std::string>{"X-Geo: " + std::string(fault)}) << value;
    EXPECT_TRUE(exchange.identity.locationDescriptors.empty());
  }
  PostReply(server, PostBuilder(), "X-Geo: w EAw\r\nX-Geo: w EAw\r\n");
  ASSERT_TRUE(server.waitForEndedCount(++sent, kPatience));
  EXPECT_EQ(server.exchanges().back().clientFaults, std::vector<std::string>{"more than one X-Geo field"});
  EXPECT_EQ(server.counters().clientFaults, sent);
}

}  // namespace
}  // namespace nvxcore::geoserver
