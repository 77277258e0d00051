#include "nvxcore/platform/HTTPCookie.h"

#include <optional>
#include <string>
#include <vector>

#include "nvxcore/platform/Value.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

const Date kNow = Date::withTimeIntervalSince1970(1'000'000'000);

std::vector<HTTPCookie> parse(const char* field, const char* url = "http://www.example.com/a/b/c") {
  return HTTPCookie::cookiesWithResponseHeaders({{"set-COOKIE", field}}, URL::withString(url), kNow);
}

class HTTPCookieTest : public NVXTest {};

TEST_F(HTTPCookieTest, ReadsFieldsAndRefusesOthers) {
  const struct {
    const char *field, *text;
  } cases[] = {
      {"n=v", "n=v www.example.com /a/b"},
      {" n = v=w ; Secure;HttpOnly; Path=/x ", "n=v=w www.example.com /x secure httponly"},
      {"n=; Domain=Example.com; Path=x", "n= .example.com /a/b"},
      {"n=v; domain=.example.COM; domain=", "n=v .example.com /a/b"},
      {"n=v; domain=.", "n=v www.example.com /a/b"},
      {"n=v; domain=other.com", ""},
      {"n=v; domain=ple.com", ""},
      {"n=v; domain=com", ""},
      {"n=v; domain=a.www.example.com", ""},
      {"=v", ""},
      {"n", ""},
      {"", ""},
      {"n=v\r\nX: y", ""},
      {"n=v; path=/\x01", ""},
  };
  for (const auto& c : cases) {
    std::string text;
    for (const HTTPCookie& cookie : parse(c.field)) {
      text += cookie.name() + "=" + cookie.value() + " " + cookie.domain() + " " + cookie.path();
      text += cookie.isSecure() ? " secure" : "";
      text += cookie.isHTTPOnly() ? " httponly" : "";
    }
    EXPECT_EQ(text, c.text) << c.field;
  }
  // Addresses, and hosts without a dot, have no domain below them.
  EXPECT_EQ(parse("n=v; domain=10.0.0.1", "http://10.0.0.1/")[0].domain(), "10.0.0.1");
  EXPECT_TRUE(parse("n=v; domain=0.0.1", "http://10.0.0.1/").empty());
  EXPECT_EQ(parse("n=v; domain=localhost", "http://localhost/x")[0].domain(), "localhost");
  EXPECT_EQ(parse("n=v", "http://h")[0].path(), "/");
  const auto both = HTTPCookie::cookiesWithResponseHeaders({{"Set-Cookie", "a=1"}, {"Set-Cookie", "b=2"}},
                                                           URL::withString("http://h/"), kNow);
  EXPECT_EQ(HTTPCookie::requestHeaderValue(both), "a=1; b=2");
  EXPECT_EQ(HTTPCookie::requestHeaderValue({}), "");
}

TEST_F(HTTPCookieTest, ReadsDatesHoweverTheyAreWrittenAndRefusesThoseOfNoCalendar) {
  constexpr double kNever = -1;
  const struct {
    const char* date;
    double seconds;  // since 1970
  } cases[] = {
      {"Wed, 09 Jun 2021 10:18:14 GMT", 1623233894},
      {"Wednesday, 09-Jun-21 10:18:14 GMT", 1623233894},
      {"Wed Jun  9 10:18:14 2021", 1623233894},
      {"10:18:14 2021 june 9th", 1623233894},
      {"9 Jun 2021 10:18:14.5", 1623233894},
      {"29 feb 2000 0:0:0", 951782400},
      {"1 jan 70 00:00:00", 0},
      {"1 jan 69 00:00:00", 3124224000},
      {"31 dec 9999 23:59:59", 253402300799},
      {"1 jan 1601 00:00:00", -11644473600},
      {"29 feb 1900 0:0:0", kNever},
      {"31 jun 2021 0:0:0", kNever},
      {"0 jun 2021 0:0:0", kNever},
      {"1 jun 1600 0:0:0", kNever},
      {"1 jun 2021 24:00:00", kNever},
      {"1 jun 2021 0:60:0", kNever},
      {"1 jun 2021 0:0:60", kNever},
      {"1 jun 2021", kNever},
      {"1 jun 99999 0:0:0", kNever},
      {"001 jun 2021 0:0:0", kNever},
      {"99999999999999999999 jun 2021 0:0:0", kNever},
      {"1 ju 2021 0:0:0", kNever},
      {"\xff\xfe:::-;=,", kNever},
      {"", kNever},
  };
  for (const auto& c : cases) {
    const auto cookies = parse((std::string("n=v; expires=") + c.date).c_str());
    ASSERT_EQ(cookies.size(), 1u) << c.date;
    const std::optional<Date> date = cookies[0].expiresDate();
    ASSERT_EQ(date.has_value(), c.seconds != kNever) << c.date;
    EXPECT_EQ(date ? date->timeIntervalSince1970() : kNever, c.seconds) << c.date;
  }
}

TEST_F(HTTPCookieTest, MaxAgeComesBeforeExpiryWhereverItStands) {
  const struct {
    const char* attributes;
    double age;  // seconds after kNow
  } cases[] = {
      {"max-age=60; expires=Wed, 09 Jun 2021 10:18:14 GMT", 60},
      {"expires=Wed, 09 Jun 2021 10:18:14 GMT; Max-Age=60", 60},
      {"max-age=0", -1},
      {"max-age=-99999999999999999999", -1},
      {"max-age=99999999999999999999", 1099511627776},
  };
  for (const auto& c : cases) {
    const auto cookies = parse((std::string("n=v; ") + c.attributes).c_str());
    EXPECT_EQ(cookies[0].expiresDate()->timeIntervalSinceDate(kNow), c.age) << c.attributes;
  }
  for (const char* none : {"max-age=", "max-age=1x", "max-age=+5", "max-age=-"}) {
    EXPECT_FALSE(parse((std::string("n=v; ") + none).c_str())[0].expiresDate()) << none;
  }
}

}  // namespace
}  // namespace nvxcore::testing
