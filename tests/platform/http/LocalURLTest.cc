#include <sys/stat.h>

#include "nvxcore/platform/Files.h"
#include "tests/platform/http/support/HTTPTest.h"

namespace nvxcore::testing {
namespace {

class LocalURLTest : public HTTPTest {};

TEST_F(LocalURLTest, ADataURLHoldsItsReply) {
  const struct {
    const char* url;
    const char* type;
    const char* body;
  } cases[] = {
      {"data:,hello%20there", "text/plain", "hello there"},
      {"data:text/html;charset=utf-8,%3Cb%3e#part", "text/html", "<b>"},
      {"data:application/x;base64,aGk%3D", "application/x", "hi"},
      {"DATA:;base64,aGk", "text/plain", "hi"},
      {"data:,", "text/plain", ""},
  };
  for (const auto& each : cases) {
    const TaskRecord record = finished(get(each.url));
    EXPECT_FALSE(record.error) << each.url;
    EXPECT_EQ(record.response.mimeType(), each.type);
    EXPECT_EQ(record.response.expectedContentLength(), static_cast<int64_t>(std::string(each.body).size()));
    EXPECT_FALSE(record.response.isHTTP());
    EXPECT_EQ(record.body, each.body);
  }
  for (const char* bad : {"data:nothing", "data:;base64,a", "data:;base64,a%3D%3D%3Db", "data:;base64,*aaa"})
    EXPECT_EQ(finished(get(bad)).error.code(), kURLErrorBadURL) << bad;
}

TEST_F(LocalURLTest, AFileURLIsReadAtTheHostsPace) {
  const URL file = uniqueTemporaryFile("nvxcore-http-test");
  const std::string contents(5 << 20, 'c');
  EXPECT_FALSE(writeFile(file, Data::copy(contents)));
  const auto task = get(file.absoluteString());
  EXPECT_TRUE(finished(task).body == contents);
  EXPECT_TRUE(
      finished(started(session().downloadTaskWithRequest(request(file.absoluteString())))).fileContents ==
      contents);
  for (const std::string& url : {file.absoluteString(), std::string("data:,x")}) {
    const auto upload = session().uploadTaskWithRequestFromData(request(url, "POST"), Data::copy("x"));
    EXPECT_EQ(finished(started(upload)).error.code(), kURLErrorUnsupportedURL);
  }
  removeFile(file);
  EXPECT_EQ(finished(get(file.absoluteString())).error.code(), kURLErrorFileDoesNotExist);
  EXPECT_EQ(finished(get("file:///tmp")).error.code(), kURLErrorFileIsDirectory);
}

}  // namespace
}  // namespace nvxcore::testing
