#include "nvxcore/platform/URL.h"

#include <string>

#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

class URLTest : public NVXTest {};

TEST_F(URLTest, TellsThePartsAsTheyStand) {
  const URL url = URL::withString("HtTp://us%40er:pw@Example.COM:8080/a%20b/c;d/?q=1&r#frag?x");
  ASSERT_TRUE(url);
  EXPECT_EQ(url.scheme(), "HtTp");
  EXPECT_EQ(url.user(), "us%40er");
  EXPECT_EQ(url.password(), "pw");
  EXPECT_EQ(url.host(), "Example.COM");
  EXPECT_EQ(url.port(), 8080);
  EXPECT_EQ(url.path(), "/a b/c;d/");
  EXPECT_EQ(url.encodedPath(), "/a%20b/c;d/");
  EXPECT_EQ(url.query(), "q=1&r");
  EXPECT_EQ(url.fragment(), "frag?x");
  const URL v6 = URL::withString("http://[::1]/");
  EXPECT_EQ(v6.host(), "::1");
  EXPECT_EQ(v6.port(), std::nullopt);
  const URL data = URL::withString("data:text/plain,a%2");
  EXPECT_EQ(data.scheme(), "data");
  EXPECT_EQ(data.path(), "text/plain,a%2");
  EXPECT_TRUE(URL::withString("http:///x").host().empty());
  EXPECT_EQ(URL::withString("//h/p").path(), "//h/p");
  EXPECT_EQ(URL::withString("a:b"), URL::withString("a:b"));
  EXPECT_NE(URL::withString("a:b"), URL());
}

TEST_F(URLTest, RefusesWhatIsNone) {
  for (const char* text : {"", " http://h/", "http://h/a b", "http://h/\n", "http://h:65536/", "http://h:8x/",
                           "http://[::1/", "http://a@b@c/", "http://%00/", "http://a\\b/", "\x7f"}) {
    EXPECT_FALSE(URL::withString(text)) << text;
  }
}

// The examples of RFC 3986, 5.4, and what else servers send in a "Location".
TEST_F(URLTest, ResolvesReferences) {
  const struct {
    const char *base, *reference, *target;
  } cases[] = {
      {"", "g:h", "g:h"},
      {"", "g", "http://a/b/c/g"},
      {"", "./g", "http://a/b/c/g"},
      {"", "g/", "http://a/b/c/g/"},
      {"", "/g", "http://a/g"},
      {"", "//g", "http://g"},
      {"", "?y", "http://a/b/c/d;p?y"},
      {"", "g?y", "http://a/b/c/g?y"},
      {"", "#s", "http://a/b/c/d;p?q#s"},
      {"", "g?y#s", "http://a/b/c/g?y#s"},
      {"", ";x", "http://a/b/c/;x"},
      {"", "", "http://a/b/c/d;p?q"},
      {"", ".", "http://a/b/c/"},
      {"", "..", "http://a/b/"},
      {"", "../g", "http://a/b/g"},
      {"", "../..", "http://a/"},
      {"", "../../../g", "http://a/g"},
      {"", "/../g", "http://a/g"},
      {"", "g.", "http://a/b/c/g."},
      {"", "..g", "http://a/b/c/..g"},
      {"", "./g/.", "http://a/b/c/g/"},
      {"", "g;x=1/../y", "http://a/b/c/y"},
      {"", "g?y/../x", "http://a/b/c/g?y/../x"},
      {"", "g#s/../x", "http://a/b/c/g#s/../x"},
      {"http://h", "g", "http://h/g"},
      {"http://h?q", "#f", "http://h?q#f"},
      {"http://h/a", "b c\xc3\xbc", "http://h/b%20c%C3%BC"},
      {"http://h/a", "HTTPS://o:1/./x/../y", "HTTPS://o:1/y"},
      {"file:///a/b", "#z", "file:///a/b#z"},
      {"data:x,y", "http://o/p", "http://o/p"},
      {"s:/a", ".//b", "s:/.//b"},
      {"http://h/a", "//h:99999/", ""},
  };
  for (const auto& c : cases) {
    const URL base = URL::withString(*c.base ? c.base : "http://a/b/c/d;p?q");
    EXPECT_EQ(base.resolving(c.reference).absoluteString(), c.target) << c.base << " + " << c.reference;
  }
  EXPECT_EQ(URL().resolving("http://h/").absoluteString(), "http://h/");
}

TEST_F(URLTest, FilePathsGoThereAndBack) {
  for (const char* path : {"/", "/a b/%25#?;\xc3\xbc", "/a//b/"}) {
    const URL url = URL::fileURLWithPath(path);
    EXPECT_TRUE(url.isFileURL());
    EXPECT_EQ(url.fileSystemPath(), path);
  }
  EXPECT_TRUE(URL::fileURLWithPath("x").fileSystemPath().ends_with("/x"));
  EXPECT_EQ(URL::withString("FILE:/x").fileSystemPath(), "/x");
  EXPECT_EQ(URL::withString("http://h/x").fileSystemPath(), "");
  // The system would see "/a" only.
  EXPECT_EQ(URL::withString("file:///a%00b").fileSystemPath(), "");
}

TEST_F(URLTest, ComponentsAreAddedAndTakenOff) {
  const struct {
    const char *url, *appended, *folder, *last;
  } cases[] = {
      {"file:///a/b", "file:///a/b/n%20w", "file:///a/", "b"},
      {"file:///a/b/", "file:///a/b/n%20w", "file:///a/", "b"},
      {"file:///", "file:///n%20w", "file:///", "/"},
      {"http://h?q#f", "http://h/n%20w?q#f", "http://h?q#f", ""},
      {"http://h/x?q", "http://h/x/n%20w?q", "http://h/", "x"},
  };
  for (const auto& c : cases) {
    const URL url = URL::withString(c.url);
    EXPECT_EQ(url.appendingPathComponent("n w").absoluteString(), c.appended);
    EXPECT_EQ(url.deletingLastPathComponent().absoluteString(), c.folder);
    EXPECT_EQ(url.lastPathComponent(), c.last);
  }
  EXPECT_EQ(URL::withString("http://h/").withScheme("https").absoluteString(), "https://h/");
}

}  // namespace
}  // namespace nvxcore::testing
