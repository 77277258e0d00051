#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Date.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/HTTPHeaders.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/URLResponse.h"
#include "nvxcore/platform/Value.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

class ValuesTest : public NVXTest {};

TEST_F(ValuesTest, DataTellsNothingFromNoBytesAndSharesItsBuffer) {
  const Data nothing, empty = Data::copy("", 0), text = Data::copy("abcdef");
  EXPECT_FALSE(nothing);
  EXPECT_TRUE(empty);
  EXPECT_NE(nothing, empty);
  EXPECT_EQ(Data::take(MutableData()), empty);
  EXPECT_EQ(Data::copy("abcdef"), text);
  EXPECT_FALSE(nothing.slice(0, 1));
  const Data middle = text.slice(2, 3);
  EXPECT_EQ(middle.view(), "cde");
  EXPECT_EQ(middle.bytes(), text.bytes() + 2);
  EXPECT_EQ(text.slice(4, SIZE_MAX).view(), "ef");
  EXPECT_EQ(text.slice(SIZE_MAX, SIZE_MAX), empty);
  EXPECT_NE(middle.compacted().bytes(), middle.bytes());
}

TEST_F(ValuesTest, ForeignBytesAreReleasedOnceWithTheLastOfManySlices) {
  std::string bytes(1 << 20, 'x');
  int released = 0;
  Data data = Data::wrap(bytes.data(), bytes.size(), [&] { ++released; });
  // A chain of a million links would be destroyed link within link.
  while (data.length() > 1) data = data.slice(1, SIZE_MAX);
  EXPECT_EQ(released, 0);
  data = Data();
  EXPECT_EQ(released, 1);
}

TEST_F(ValuesTest, MutableDataGrowsAlsoFromItsOwnBytesAndIsGivenAway) {
  MutableData bytes;
  bytes.append("0123456789abcdef");
  for (int i = 0; i < 8; ++i) bytes.append(bytes.view());
  ASSERT_EQ(bytes.length(), 4096u);
  EXPECT_EQ(bytes.view().substr(4080), "0123456789abcdef");
  const MutableData copy = bytes;
  bytes.setLength(3);
  EXPECT_EQ(copy.length(), 4096u);
  std::memcpy(bytes.extend(2), "XY", 2);
  const uint8_t* where = bytes.bytes();
  const Data taken = Data::take(std::move(bytes));
  EXPECT_EQ(taken.view(), "012XY");
  EXPECT_EQ(taken.bytes(), where);
  EXPECT_THROW(MutableData(copy).extend(SIZE_MAX - 8), std::bad_alloc);
}

TEST_F(ValuesTest, ValuesReadAsBoolsAndNumbers) {
  constexpr int64_t kMost = std::numeric_limits<int64_t>::max(), kLeast = std::numeric_limits<int64_t>::min();
  const double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    Value value;
    bool truth;
    int64_t integer;
    double number;
  } cases[] = {
      {Value(), false, 0, 0},
      {true, true, 1, 1},
      {-7, true, -7, -7},
      {UINT64_MAX, true, kMost, 18446744073709551616.0},
      {1.9, true, 1, 1.9},
      {-1e300, true, kLeast, -1e300},
      {std::nan(""), true, 0, std::nan("")},
      {" \t12x", true, 12, 12},
      {"+12.5e1", true, 12, 125},
      {"+-5", false, 0, 0},
      {"-99999999999999999999", true, kLeast, -1e20},
      {"1e999", true, 1, kInfinity},
      {"-1e999", true, -1, -kInfinity},
      {"1e-999", true, 1, 0},
      {"yes", true, 0, 0},
      {"True", true, 0, 0},
      {"no", false, 0, 0},
      {"000", false, 0, 0},
      {"-001", true, -1, -1},
      {"0y", false, 0, 0},
      {"", false, 0, 0},
      {Date(), false, 0, 0},
  };
  for (const auto& c : cases) {
    const std::string name = c.value.string() ? *c.value.string() : std::to_string(c.number);
    EXPECT_EQ(c.value.boolValue(), c.truth) << name;
    EXPECT_EQ(c.value.integerValue(), c.integer) << name;
    const double number = c.value.doubleValue();
    EXPECT_TRUE(std::isnan(c.number) ? std::isnan(number) : number == c.number) << name << " is " << number;
  }
  EXPECT_EQ(Value::object(std::string("x")).objectAs<std::string>(), "x");
  EXPECT_EQ(Value::object(1).objectAs<std::string>(), "");
  EXPECT_FALSE(Value("x").data());
}

TEST_F(ValuesTest, DictionariesKeepTheOrderOfTheFirstSettingAndErrorsTheirCauses) {
  Dictionary inner{{"b", 1}, {"a", 2}, {"b", 3}};
  inner.set("c", 4);
  inner.remove("a");
  std::string keys;
  for (const auto& [key, value] : inner) keys += key + std::to_string(value.integerValue());
  EXPECT_EQ(keys, "b3c4");
  Dictionary outer{{"inner", inner}};
  inner.set("b", 9);
  EXPECT_EQ(outer.get("inner").dictionary()->get("b").integerValue(), 3);
  EXPECT_FALSE(outer.get("missing"));

  const Error cause("posix", 2), error("files", 4, {{kUnderlyingErrorKey, cause}, {"why", "gone"}});
  EXPECT_FALSE(Error());
  EXPECT_TRUE(Error("", 0));
  EXPECT_TRUE(error.is("files", 4) && !error.is("files", 5) && !error.is("posix", 4));
  EXPECT_EQ(error.description(), "files 4, NSUnderlyingError: (posix 2), why: gone");
}

TEST_F(ValuesTest, StreamsEndAndAClosedOneHasNoBytes) {
  uint8_t buffer[8] = {};
  const auto stream = InputStream::streamWithData(Data::copy("12345"));
  stream->open();
  EXPECT_EQ(stream->read(buffer, 3), 3);
  EXPECT_EQ(stream->read(buffer, 8), 2);
  EXPECT_EQ(stream->read(buffer, 8), 0);
  stream->close();
  EXPECT_EQ(stream->read(buffer, 8), 0);
  const auto file = InputStream::streamWithURL(URL::fileURLWithPath("/no/such/file"));
  file->open();
  EXPECT_LT(file->read(buffer, 8), 0);
  EXPECT_TRUE(file->streamError().is(kCocoaErrorDomain, kFileReadNoSuchFileError));
  const auto unopened = InputStream::streamWithURL(URL::fileURLWithPath("/proc/self/exe"));
  EXPECT_LT(unopened->read(buffer, 8), 0);
  EXPECT_TRUE(unopened->streamError());
  unopened->open();
  unopened->open();
  EXPECT_EQ(unopened->read(buffer, 4), 4);
}

TEST_F(ValuesTest, HeaderFieldsCompareWithoutCaseAndResponsesReadThem) {
  HTTPHeaders headers{{"etag", "1"}, {"Set-Cookie", "a"}, {"set-cookie", "b"}};
  EXPECT_EQ(headers.value("SET-COOKIE"), "a, b");
  EXPECT_EQ(headers.valueForExactName("set-cookie"), "b");
  headers.set("SET-cookie", "c");
  headers.set("ETag", std::nullopt);
  EXPECT_EQ(headers, (HTTPHeaders{{"SET-cookie", "c"}}));
  // A copy shares until one of the two changes, also by a piece of itself.
  HTTPHeaders copy = headers;
  copy.set(copy.begin()->first, copy.begin()->second + "d");
  headers.add("Via", headers.begin()->second);
  EXPECT_EQ(copy, (HTTPHeaders{{"SET-cookie", "cd"}}));
  EXPECT_EQ(headers, (HTTPHeaders{{"SET-cookie", "c"}, {"Via", "c"}}));
  headers.set("Via", std::nullopt);
  EXPECT_EQ(HTTPHeaders::canonicalName("x-FORWARDED-for"), "X-Forwarded-For");
  EXPECT_EQ(HTTPHeaders::canonicalName("www-AUTHENTICATE"), "WWW-Authenticate");
  const struct {
    const char *type, *length, *coding, *media;
    int64_t expected;
  } cases[] = {
      {" Text/HTML ; charset=x", "5", nullptr, "text/html", 5},
      {";x", "5, 5", "identity", "", 5},
      {"a/b", "5, 6", nullptr, "a/b", -1},
      {"a/b", "-5", nullptr, "a/b", -1},
      {"a/b", "99999999999999999999", nullptr, "a/b", -1},
      {"a/b", "5", "gzip", "a/b", -1},
      {" \t", "5,", nullptr, "", -1},
      {"a/b", "", nullptr, "a/b", -1},
  };
  for (const auto& c : cases) {
    HTTPHeaders fields{{"content-type", c.type}, {"content-length", c.length}};
    if (c.coding) fields.add("Content-Encoding", c.coding);
    const URLResponse response = URLResponse::http(URL(), 200, "HTTP/1.1", fields);
    EXPECT_EQ(response.mimeType(), c.media) << c.type;
    EXPECT_EQ(response.expectedContentLength(), c.expected) << c.length;
  }
  EXPECT_EQ(URLResponse().statusCode(), 0);
  EXPECT_FALSE(URLResponse::withURL(URL(), "a/b", 1).isHTTP());
}

}  // namespace
}  // namespace nvxcore::testing
