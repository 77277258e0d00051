#include "tools/geoserver/BuiltInHandlers.h"

#include <gtest/gtest.h>

#include "support/CurlClient.h"
#include "tools/geoserver/GeoServer.h"

namespace nvxcore::geoserver {
namespace {

TEST(BuiltInHandlersTest, RangesFollowTheRules) {
  GeoServer server;
  CurlClient client(server);
  struct Case {
    const char* range;
    const char* condition;
    long status;
    size_t begin;
    size_t end;
  };
  const Case cases[] = {
      {"bytes=10-19", "", 206, 10, 20},
      {"bytes=90-", "", 206, 90, 100},
      {"bytes=-7", "", 206, 93, 100},
      {"bytes=-700", "", 206, 0, 100},
      {"bytes=99-500", "", 206, 99, 100},
      {"bytes=100-", "", 416, 0, 0},
      {"bytes=-0", "", 416, 0, 0},
      {"bytes=20-10", "", 200, 0, 100},
      {"bytes=1-2,5-6", "", 200, 0, 100},
      {"lines=1-2", "", 200, 0, 100},
      {"bytes=5-9", "If-Range: \"bytes-100\"", 206, 5, 10},
      {"bytes=5-9", "If-Range: Sat, 01 Jan 2022 00:00:00 GMT", 206, 5, 10},
      {"bytes=5-9", "If-Range: \"older\"", 200, 0, 100},
  };
  for (const Case& c : cases) {
    CurlRequest request{.path = "/bytes/100"};
    request.headers = {std::string("Range: ") + c.range};
    if (*c.condition) request.headers.push_back(c.condition);
    const CurlReply reply = client.run(request);
    EXPECT_EQ(reply.status, c.status) << c.range;
    if (c.status == 416) {
      EXPECT_NE(reply.headers.find("Content-Range: bytes */100"), std::string::npos);
    } else {
      EXPECT_EQ(reply.body, patternBytes(c.begin, c.end - c.begin)) << c.range;
    }
  }
}

TEST(BuiltInHandlersTest, EachPathAnswersAsItsNameSays) {
  GeoServer server;
  CurlClient client(server);
  for (const char* coding : {"gzip", "deflate", "br"}) {
    const CurlReply reply = client.run(
        {.path = std::string("/encoded/") + coding + "/100000", .acceptEncoding = "gzip, deflate, br"});
    EXPECT_EQ(reply.code, CURLE_OK) << coding;
    EXPECT_EQ(reply.body, repeatedText(100000)) << coding;
  }
  const CurlReply echo = client.run({.path = "/echo", .body = "some body", .headers = {"Content-Type: a/b"}});
  EXPECT_EQ(echo.body, "some body");
  for (const char* field : {"Content-Type: a/b\r\n", "X-Echo-Method: POST\r\n", "X-Echo-Length: 9\r\n"}) {
    EXPECT_NE(echo.headers.find(field), std::string::npos) << field;
  }
  EXPECT_NE(client.run({.path = "/headers", .headers = {"X-Mine: 5"}}).body.find("X-Mine: 5\n"),
            std::string::npos);
  const CurlReply redirect = client.run({.path = "/redirect/307?to=http%3A%2F%2Fx%2Fy"});
  EXPECT_EQ(redirect.status, 307);
  EXPECT_NE(redirect.headers.find("Location: http://x/y\r\n"), std::string::npos);
  EXPECT_NE(client.run({.path = "/cookies/set?a=1&b=x+y"}).headers.find("Set-Cookie: b=x y; Path=/\r\n"),
            std::string::npos);
  EXPECT_EQ(client.run({.path = "/drip?bytes=5&everyMs=1"}).body, patternBytes(0, 5));
  EXPECT_EQ(client.run({.path = "/delay/1"}).status, 200);
  EXPECT_EQ(client.run({.path = "/basic-auth/me/secret"}).status, 401);
  EXPECT_EQ(
      client.run({.path = "/basic-auth/me/secret", .headers = {"Authorization: Basic bWU6c2VjcmV0"}}).status,
      200);
  for (const char* bad : {"/status/x", "/status/99", "/bytes/99999999999", "/bytes", "/encoded/rot13/5",
                          "/redirect/302", "/basic-auth/me", "/drip?bytes=-1"}) {
    EXPECT_EQ(client.run({.path = bad}).status, 400) << bad;
  }
  EXPECT_EQ(client.run({.path = "/statusx/200"}).status, 404);
}

}  // namespace
}  // namespace nvxcore::geoserver
