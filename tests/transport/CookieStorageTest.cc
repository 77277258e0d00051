#include "nvxcore/transport/NVXx_HTKSessionCookieStorage.h"

#include <string>
#include <vector>

#include "nvxcore/foundation/base/NVXDateProvider.h"
#include "nvxcore/platform/DeviceFacts.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/NVXx_HTKUserAgent.h"
#include "tests/transport/FetcherHarness.h"

namespace nvxcore::testing {
namespace {

using Storage = NVXx_HTKSessionCookieStorage;

HTTPCookie cookie(const std::string& name, const std::string& domain, const std::string& path = "/",
                  bool isSecure = false, std::optional<Date> expires = {}) {
  return HTTPCookie({.name = name,
                     .value = "v",
                     .domain = domain,
                     .path = path,
                     .isSecure = isSecure,
                     .isHTTPOnly = false,
                     .expiresDate = expires,
                     .properties = {}});
}

class CookieStorageTest : public FetcherTest {
 protected:
  explicit CookieStorageTest(std::shared_ptr<ManualTime> manual = std::make_shared<ManualTime>())
      : FetcherTest(manual), time(std::move(manual)) {}
  std::string names(const std::optional<std::vector<HTTPCookie>>& cookies) {
    std::string text;
    for (const HTTPCookie& found : cookies.value_or(std::vector<HTTPCookie>())) text += found.name();
    return text;
  }
  std::string lookUp(const char* url) { return names(storage.cookiesForURL(URL::withString(url))); }
  Date in(TimeInterval seconds) { return NVXSystemDateProvider().dateWithTimeIntervalSinceNow(seconds); }

  const std::shared_ptr<ManualTime> time;
  Storage storage;
};

TEST_F(CookieStorageTest, FindsByDomainPathAndScheme) {
  storage.setCookies({cookie("a", ".example.com"), cookie("b", "WWW.Example.com"),
                      cookie("c", "example.com", "/a"), cookie("d", "example.com", "/", true),
                      cookie("e", "localhost"), cookie("f", "127.0.0.1"), cookie("g", "localhost.local"),
                      cookie("h", "::1"), cookie("i", "example.com", "/x%20y"),
                      cookie("j", "example.com", "/x y")});
  const struct {
    const char *url, *names;
  } cases[] = {
      {"http://example.com/", "a"},
      {"http://www.EXAMPLE.com", "ab"},
      {"http://notexample.com/", ""},
      {"http://example.com/a/b", "ac"},
      {"http://example.com/ab", "ac"},
      {"http://example.com/b/a", "a"},
      {"HTTPS://example.com/", "ad"},
      {"http://www.example.com.au/", ""},
      {"http://com/", ""},
      {"http://LOCALHOST:8/", "efgh"},
      {"http://127.0.0.1/", "efgh"},
      {"http://[::1]/", "efgh"},
      {"http://127.0.0.2/", ""},
      {"http://x.localhost/", "e"},
      {"file:///a", ""},
      {"http:///a", ""},
      {"data:,x", ""},
      {"http://example.com/x%20y/z", "aij"},
  };
  for (const auto& c : cases) EXPECT_EQ(lookUp(c.url), c.names) << c.url;
  EXPECT_FALSE(storage.cookiesForURL(URL::withString("http://com/")));
  EXPECT_FALSE(storage.cookiesForURL(URL()));
}

TEST_F(CookieStorageTest, ReplacesIgnoresAndForgets) {
  for (const HTTPCookie& useless : {cookie("", "d"), cookie("n", ""), cookie("n", "d", "")})
    storage.setCookie(useless);
  EXPECT_TRUE(storage.cookies().empty());
  storage.setCookies(
      {cookie("a", "h"), cookie("b", "h", "/", false, in(5)), cookie("a", "h", "/x"), cookie("a", "H")});
  const HTTPCookie newer = cookie("a", "h");
  storage.setCookie(newer);
  EXPECT_EQ(names(storage.cookies()), "baaa");
  EXPECT_EQ(storage.cookies().back(), newer);
  // One of the past takes its twin away.
  storage.setCookie(cookie("a", "H", "/", false, in(-1)));
  EXPECT_EQ(names(storage.cookies()), "baa");
  storage.deleteCookie(cookie("a", "h", "/x"));
  storage.deleteCookie(cookie("z", "h"));
  EXPECT_EQ(names(storage.cookies()), "ba");
  time->advance(5);
  EXPECT_EQ(lookUp("http://h/"), "ba");  // Not yet in the past.
  time->advance(0.001);
  EXPECT_EQ(lookUp("http://h/"), "a");
  HTTPCookie::Parts parts{.name = "p",
                          .value = "",
                          .domain = "h",
                          .path = "/",
                          .isSecure = false,
                          .isHTTPOnly = false,
                          .expiresDate = {},
                          .properties = {{"NSHTTPCookieExpires", in(-1)}}};
  EXPECT_TRUE(Storage::hasCookieExpired(HTTPCookie(parts)));
  parts.properties = {{"NSHTTPCookieExpires", "1970"}};
  EXPECT_FALSE(Storage::hasCookieExpired(HTTPCookie(parts)));
  storage.removeAllCookies();
  EXPECT_TRUE(storage.cookies().empty());
}

TEST_F(CookieStorageTest, ThePolicyDecidesWhatIsTaken) {
  const std::vector<HTTPCookie> one{cookie("a", "h")};
  const URL url = URL::withString("http://www.xhost/"), main = URL::withString("http://host/");
  storage.setCookieAcceptPolicy(HTTPCookieAcceptPolicy::Never);
  storage.setCookie(one[0]);
  storage.setCookies(one);
  storage.setCookies(one, url, main);
  EXPECT_TRUE(storage.cookies().empty());
  storage.setCookieAcceptPolicy(HTTPCookieAcceptPolicy::OnlyFromMainDocumentDomain);
  storage.setCookies(one, url, URL());
  storage.setCookies(one, main, url);
  FakeHTTPSession session(*http, {}, nullptr, queue);
  const FetcherRef fetcher = makeFetcher("https://h/");
  begin(fetcher);
  storage.storeCookies(one, *task());
  EXPECT_TRUE(storage.cookies().empty());
  storage.setCookies(one, url, main);  // The letters are the same at the end.
  EXPECT_EQ(names(storage.cookies()), "a");
  storage.removeAllCookies();
  storage.setCookieAcceptPolicy(HTTPCookieAcceptPolicy::Always);
  storage.storeCookies(one, *task());
  storage.getCookiesForTask(*task(), [&](const auto& found) { EXPECT_EQ(names(found), "a"); });
  storage.getCookiesForTask(*task(), nullptr);
  fetcher->stopFetching();
  scope.settle();
}

class Device : public DeviceFacts {
 public:
  std::string model() const override { return "My (Phone)"; }
  std::string systemVersion() const override { return "1.2 (3)"; }
  std::string machine() const override { return hardware; }
  std::string hardware;
};

TEST_F(CookieStorageTest, TheUserAgentIsComposedOfCleanedParts) {
  EXPECT_EQ(
      NVXx_HTKFetcherCleanedUserAgentString("a b,c\t(<>@;:\\\"/[]?={}\n)\xc3\xa9\xe2\x80\xa8\xc2\xa0\xc2"),
      "a_b_c\xc3\xa9\xc2");
  EXPECT_EQ(NVXx_HTKFetcherCleanedUserAgentString({}), "");
  auto application = [](const char* identifier, Dictionary info) {
    ApplicationDescription description;
    description.bundleIdentifier = identifier;
    description.processName = "my process";
    description.infoDictionary = std::move(info);
    const auto facts = applicationFactsWithDescription(std::move(description));
    return NVXx_HTKFetcherApplicationIdentifier(facts.get());
  };
  const char* shortVersion = "CFBundleShortVersionString";
  EXPECT_EQ(application("x.named", {{"HTKUserAgentID", "My (App)"}, {"CFBundleVersion", "1"}}), "My (App)/1");
  EXPECT_EQ(application("x.ver sion", {{shortVersion, "1, 2"}, {"CFBundleVersion", "9"}}), "x.ver_sion/1__2");
  EXPECT_EQ(application("x.bare", {{"HTKUserAgentID", ""}, {shortVersion, ""}}), "x.bare");
  EXPECT_EQ(application("", {{"CFBundleVersion", "7"}}), "proc_my_process/7");
  EXPECT_EQ(application("x.bare", {{"CFBundleVersion", "kept"}}), "x.bare");
  for (const auto& [hardware, cleaned] : {std::pair{"", "unk"}, {"()", "unk"}, {"x86 64", "x86_64"}}) {
    const auto device = std::make_shared<Device>();
    device->hardware = hardware;
    PlatformScope inner{Platform{.device = device}};
    EXPECT_EQ(NVXx_HTKFetcherSystemVersionString(), std::string("My_Phone/1.2 (3) hw/") + cleaned);
  }
}

}  // namespace
}  // namespace nvxcore::testing
