#include <gtest/gtest.h>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/URLResponse.h"
#include "nvxcore/platform/linux/PreparedRequest.h"

namespace nvxcore::testing {
namespace {

TEST(HTTPHeadersTest, LookUpWithoutCaseAndJoinInOrder) {
  HTTPHeaders headers{{"Set-Cookie", "a=1"}, {"X-One", "1"}, {"set-cookie", "b=2"}};
  EXPECT_EQ(headers.value("SET-COOKIE"), "a=1, b=2");
  EXPECT_EQ(headers.valueForExactName("set-cookie"), "b=2");
  EXPECT_EQ(headers.value("X-Two"), std::nullopt);
  headers.set("SET-cookie", "c=3");
  EXPECT_EQ(headers, (HTTPHeaders{{"SET-cookie", "c=3"}, {"X-One", "1"}}));
  headers.set("x-one", std::nullopt);
  EXPECT_FALSE(headers.contains("X-One"));
  headers.set("New", "");
  EXPECT_EQ(headers.value("new"), "");
}

TEST(HTTPHeadersTest, HaveAUsualSpelling) {
  for (const auto& [name, spelling] : {std::pair{"content-type", "Content-Type"},
                                       {"ETAG", "ETag"},
                                       {"www-authenticate", "WWW-Authenticate"},
                                       {"x-geo", "X-Geo"},
                                       {"x-2nd-thing", "X-2nd-Thing"},
                                       {"-odd--", "-Odd--"},
                                       {"", ""}})
    EXPECT_EQ(HTTPHeaders::canonicalName(name), spelling);
}

TEST(URLResponseTest, TakesTypeAndLengthFromTheFields) {
  const struct {
    HTTPHeaders headers;
    const char* type;
    int64_t length;
  } cases[] = {
      {{{"Content-Type", " Text/HTML ; charset=x"}, {"content-length", "12"}}, "text/html", 12},
      {{{"Content-Length", "12"}, {"Content-Length", "12"}}, "", 12},
      {{{"Content-Length", "12, 13"}}, "", -1},
      {{{"Content-Length", "-12"}}, "", -1},
      {{{"Content-Length", "12x"}}, "", -1},
      {{{"Content-Length", ""}}, "", -1},
      {{{"Content-Length", "99999999999999999999"}}, "", -1},
      {{{"Content-Length", "12"}, {"Content-Encoding", "gzip"}}, "", -1},
      {{{"Content-Length", "12"}, {"Content-Encoding", "identity"}}, "", 12},
      {{}, "", -1},
  };
  for (const auto& each : cases) {
    const URLResponse response =
        URLResponse::http(URL::withString("http://h/"), 200, "HTTP/1.1", each.headers);
    EXPECT_EQ(response.mimeType(), each.type);
    EXPECT_EQ(response.expectedContentLength(), each.length);
  }
  const HTTPHeaders coded{{"Content-Length", "12"}, {"Content-Encoding", "gzip"}};
  EXPECT_EQ(URLResponse::http({}, 200, "HTTP/1.1", coded, false).expectedContentLength(), 12);
  EXPECT_FALSE(URLResponse());
  EXPECT_EQ(URLResponse().statusCode(), 0);
  EXPECT_EQ(URLResponse().expectedContentLength(), -1);
}

TEST(PreparedRequestTest, GoesOutInASCII) {
  const auto prepared = [](const char* url) {
    return PreparedRequest(URLRequest(URL::withString(url)), {}, "", HTTPSessionConfiguration());
  };
  const PreparedRequest request = prepared("http://a.example/\u00fc/../x?q=\u00e9#part");
  EXPECT_EQ(request.urlText, "http://a.example/%c3%bc/../x?q=%c3%a9");
  EXPECT_EQ(request.host, "a.example");
  EXPECT_EQ(request.port, 80);
  // Nothing is looked up for an address.
  for (const char* url : {"https://127.0.0.1/", "https://[::1]/", "https://LOCALHOST/"})
    EXPECT_EQ(prepared(url).host, "") << url;
  EXPECT_EQ(prepared("https://a.example:8443/").port, 8443);
}

std::string allOf(InputStream& stream) {
  std::string all;
  uint8_t buffer[3];
  stream.open();
  for (int64_t count; (count = stream.read(buffer, sizeof(buffer))) > 0;)
    all.append(reinterpret_cast<char*>(buffer), static_cast<size_t>(count));
  stream.close();
  return all;
}

TEST(InputStreamTest, ReadsDataAndFiles) {
  EXPECT_EQ(allOf(*InputStream::streamWithData(Data::copy("seven b"))), "seven b");
  EXPECT_EQ(allOf(*InputStream::streamWithData({})), "");
  const URL file = uniqueTemporaryFile("nvxcore-http-test");
  EXPECT_FALSE(writeFile(file, Data::copy("in a file")));
  EXPECT_EQ(allOf(*InputStream::streamWithURL(file)), "in a file");
  removeFile(file);
  const auto missing = InputStream::streamWithURL(file);
  EXPECT_EQ(allOf(*missing), "");
  EXPECT_TRUE(missing->streamError().is(kCocoaErrorDomain, kFileReadNoSuchFileError));
}

}  // namespace
}  // namespace nvxcore::testing
