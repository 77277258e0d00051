#include "tools/geoserver/internal/HttpParser.h"

#include <gtest/gtest.h>

#include <vector>

namespace nvxcore::geoserver {
namespace {

constexpr size_t kMaxHead = 1000;
constexpr uint64_t kMaxBody = 10000;

// What a parser makes of input that arrives in these pieces, as one text.
std::string parsed(const std::vector<std::string_view>& pieces) {
  HttpParser parser(kMaxHead, kMaxBody);
  std::string told;
  for (std::string_view piece : pieces) {
    for (;;) {
      const HttpParser::Event event = parser.next(piece);
      if (event == HttpParser::Event::needsMore) break;
      if (event == HttpParser::Event::error) return told + "error " + std::to_string(parser.errorStatus());
      if (event == HttpParser::Event::head) {
        const RequestHead& head = parser.head();
        told += head.method + " " + head.target + " " + head.version;
        for (const auto& [name, value] : head.headers) told += "|" + name + "=" + value;
        told += "|";
      } else if (event == HttpParser::Event::body) {
        told += parser.bodyPiece();
      } else {
        for (const auto& [name, value] : parser.trailers()) told += "|" + name + "=" + value;
        told += "; ";
        parser.reset();
      }
    }
  }
  return told;
}

TEST(HttpParserTest, GivesTheSameHoweverTheInputIsCut) {
  const std::string input =
      "\r\nPOST /a?b=c HTTP/1.1\r\nHost: x\r\nContent-Length:  5 \r\nX-Y:\r\n\r\nhello"
      "POST /b HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: "
      "Chunked\r\n\r\n3;ext=1\r\nabc\r\n0A\r\n0123456789\r\n0\r\nT: v\r\n\r\n"
      "GET /c HTTP/1.0\n\n";
  const std::string expected =
      "POST /a?b=c HTTP/1.1|Host=x|Content-Length=5|X-Y=|hello; "
      "POST /b HTTP/1.1|Host=x|Transfer-Encoding=Chunked|abc0123456789|T=v; "
      "GET /c HTTP/1.0|; ";
  EXPECT_EQ(parsed({input}), expected);
  const std::string_view view = input;
  for (size_t i = 0; i <= view.size(); ++i)
    EXPECT_EQ(parsed({view.substr(0, i), view.substr(i)}), expected) << i;
  std::vector<std::string_view> single;
  for (size_t i = 0; i < view.size(); ++i) single.push_back(view.substr(i, 1));
  EXPECT_EQ(parsed(single), expected);
}

TEST(HttpParserTest, RefusesWhatCouldBeReadInTwoWays) {
  const std::string start = "POST / HTTP/1.1\r\nHost: x\r\n";
  struct Case {
    std::string input;
    int status;
  };
  const Case cases[] = {
      {"nonsense\r\n\r\n", 400},
      {"GET  HTTP/1.1\r\n\r\n", 400},
      {"G@T / HTTP/1.1\r\nHost: x\r\n\r\n", 400},
      {"GET /a b HTTP/1.1\r\nHost: x\r\n\r\n", 400},
      {"GET / HTTP/2.0\r\nHost: x\r\n\r\n", 505},
      {"GET / HTTP/1.1\r\n\r\n", 400},
      {start + "Bad Name: 1\r\n\r\n", 400},
      {start + "Name : 1\r\n\r\n", 400},
      {start + "A: 1\r\n folded\r\n\r\n", 400},
      {start + "no colon\r\n\r\n", 400},
      {start + std::string("A: \0\r\n\r\n", 8), 400},
      {start + "Content-Length: -1\r\n\r\n", 400},
      {start + "Content-Length: 1x\r\n\r\n", 400},
      {start + "Content-Length: 99999999999999999999\r\n\r\n", 400},
      {start + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n", 400},
      {start + "Content-Length: 10001\r\n\r\n", 413},
      {start + "Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n", 400},
      {start + "Transfer-Encoding: gzip, chunked\r\n\r\n", 501},
      {start + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n", 400},
      {start + "Transfer-Encoding: chunked\r\n\r\n\r\n", 400},
      {start + "Transfer-Encoding: chunked\r\n\r\n-1\r\n", 400},
      {start + "Transfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFF\r\n", 400},
      {start + "Transfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFF\r\n", 413},
      {start + "Transfer-Encoding: chunked\r\n\r\n1\r\nab\r\n", 400},
      {start + "A: " + std::string(kMaxHead, 'a'), 431},
      {start + "Transfer-Encoding: chunked\r\n\r\n" + std::string(kMaxHead + 1, '1'), 431},
  };
  for (const Case& c : cases) {
    const std::string told = parsed({c.input});
    EXPECT_TRUE(told.ends_with("error " + std::to_string(c.status))) << c.input << " gave " << told;
  }
  EXPECT_TRUE(parsed({start + "Content-Length: 2\r\nContent-Length: 2\r\n\r\nok"}).ends_with("|ok; "));
}

}  // namespace
}  // namespace nvxcore::geoserver
