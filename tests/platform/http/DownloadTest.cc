#include <filesystem>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/linux/ResumeData.h"
#include "tests/platform/http/support/HTTPTest.h"
#include "tools/geoserver/BuiltInHandlers.h"

namespace nvxcore::testing {
namespace {

using geoserver::builtInReply;
using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::patternBytes;
using geoserver::ReplyPlan;

class DownloadTest : public HTTPTest {
 protected:
  HTTPSessionTaskRef download(std::string_view url) {
    return started(session().downloadTaskWithRequest(request(url)));
  }
  static Data resumeDataOf(const TaskRecord& record) {
    return record.error.userInfo().get(kURLSessionDownloadTaskResumeData).data();
  }
  /// A download of /bytes/300000 that breaks off after 120,000 bytes.
  TaskRecord brokenDownload() {
    server.setScript(
        [](const Exchange& exchange) { return builtInReply(exchange)->thenBytes(120'000).thenClose(); });
    const TaskRecord record = finished(download(server.url("/bytes/300000")));
    server.setScript(nullptr);
    return record;
  }
  static std::string partOf(const Data& resumeData) {
    const auto part = ResumeData::decoded(resumeData);
    return part ? part->file().fileSystemPath() : std::string();
  }
  GeoServer server;
};

TEST_F(DownloadTest, BringsAFileThatGoesUnlessItIsMoved) {
  const TaskRecord record = finished(download(server.url("/bytes/3000000")));
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.events, (std::vector<std::string>{"written", "file", "complete"}));
  EXPECT_TRUE(record.fileContents == patternBytes(0, 3'000'000));
  EXPECT_EQ(record.bytesWritten, 3'000'000);
  EXPECT_EQ(record.totalWritten, 3'000'000);
  EXPECT_EQ(record.expectedToWrite, 3'000'000);
  EXPECT_FALSE(std::filesystem::exists(record.fileLocation));

  const URL kept = uniqueTemporaryFile("nvxcore-http-test");
  delegate->onFile = [&](const URL& location) { EXPECT_FALSE(moveFile(location, kept)); };
  EXPECT_FALSE(finished(download(server.url("/bytes/10"))).error);
  EXPECT_EQ(fileSize(kept), 10);
  removeFile(kept);
}

TEST_F(DownloadTest, OfNothingIsAnEmptyFile) {
  const TaskRecord record = finished(download(server.url("/bytes/0")));
  EXPECT_EQ(record.events, (std::vector<std::string>{"file", "complete"}));
  EXPECT_EQ(record.fileContents, "");
}

TEST_F(DownloadTest, GivesTheFileOfAnyStatus) {
  const TaskRecord record = finished(download(server.url("/status/404")));
  EXPECT_FALSE(record.error);
  EXPECT_EQ(record.task->response().statusCode(), 404);
  EXPECT_EQ(record.fileContents, "status 404\n");
}

TEST_F(DownloadTest, IsOfCourseNotWrittenWithARedirectsBody) {
  server.handle("/from", [](const Exchange&) {
    return ReplyPlan::withBody(302, "text/plain", "go elsewhere").withHeader("Location", "/bytes/5");
  });
  EXPECT_EQ(finished(download(server.url("/from"))).fileContents, patternBytes(0, 5));
}

TEST_F(DownloadTest, ADataTaskCanBecomeOne) {
  delegate->onResponse = [](const HTTPSessionTaskRef&, ResponseDispositionHandler handler) {
    handler(ResponseDisposition::BecomeDownload);
  };
  const auto task = get(server.url("/bytes/300000"));
  EXPECT_TRUE(
      delegate->waitUntil(task, [](const TaskRecord& record) { return record.becameDownload != nullptr; }));
  const HTTPSessionTaskRef became = delegate->record(task).becameDownload;
  EXPECT_EQ(became->kind(), TaskKind::Download);
  const TaskRecord record = finished(became);
  EXPECT_TRUE(record.fileContents == patternBytes(0, 300'000));
  EXPECT_EQ(delegate->record(task).events, (std::vector<std::string>{"response", "became"}));
  EXPECT_EQ(task->state(), TaskState::Completed);
}

TEST_F(DownloadTest, GoesOnWhereItBrokeOff) {
  const TaskRecord broken = brokenDownload();
  EXPECT_EQ(broken.error.code(), kURLErrorNetworkConnectionLost);
  const auto task = started(session().downloadTaskWithResumeData(resumeDataOf(broken)));
  const TaskRecord record = finished(task);
  EXPECT_FALSE(record.error) << record.error.description();
  EXPECT_EQ(record.events, (std::vector<std::string>{"resumed", "written", "file", "complete"}));
  EXPECT_EQ(record.resumedAt, broken.totalWritten);
  EXPECT_EQ(record.resumedTotal, 300'000);
  EXPECT_EQ(record.totalWritten, 300'000);
  EXPECT_EQ(record.bytesWritten, 300'000 - record.resumedAt);
  EXPECT_TRUE(record.fileContents == patternBytes(0, 300'000));
  EXPECT_EQ(server.exchanges().back().headers.value("Range"),
            "bytes=" + std::to_string(record.resumedAt) + "-");
  // The part has been used up.
  EXPECT_EQ(session().downloadTaskWithResumeData(resumeDataOf(broken)), nullptr);
}

TEST_F(DownloadTest, BeginsAnewWhenItHasChanged) {
  const TaskRecord broken = brokenDownload();
  server.setScript([](const Exchange&) { return ReplyPlan::withBody(200, "a/b", "quite another thing"); });
  const TaskRecord record = finished(started(session().downloadTaskWithResumeData(resumeDataOf(broken))));
  EXPECT_EQ(record.events, (std::vector<std::string>{"written", "file", "complete"}));
  EXPECT_EQ(record.fileContents, "quite another thing");
}

TEST_F(DownloadTest, BeginsAnewWhenItsPartLiesBeyondTheEnd) {
  const TaskRecord broken = brokenDownload();
  server.setScript([](const Exchange& exchange) {
    if (exchange.headers.has("Range")) return ReplyPlan::withBody(416, "text/plain", "no such range");
    return ReplyPlan::withBody(200, "a/b", "short");
  });
  EXPECT_EQ(finished(started(session().downloadTaskWithResumeData(resumeDataOf(broken)))).fileContents,
            "short");
}

TEST_F(DownloadTest, KeepsItsPartWhenGoingOnFails) {
  const TaskRecord broken = brokenDownload();
  server.enqueue(ReplyPlan().thenReset());
  const TaskRecord again = finished(started(session().downloadTaskWithResumeData(resumeDataOf(broken))));
  EXPECT_EQ(again.error.code(), kURLErrorNetworkConnectionLost);
  EXPECT_TRUE(finished(started(session().downloadTaskWithResumeData(resumeDataOf(again)))).fileContents ==
              patternBytes(0, 300'000));
}

TEST_F(DownloadTest, WithoutAValidatorItCannotGoOn) {
  for (const char* tag : {"", "W/\"weak\""}) {
    server.setScript([tag](const Exchange& exchange) {
      ReplyPlan plan = *builtInReply(exchange);
      plan.withoutHeader("ETag").withoutHeader("Last-Modified");
      if (*tag) plan.withHeader("ETag", tag);
      return plan.thenBytes(120'000).thenClose();
    });
    const TaskRecord record = finished(download(server.url("/bytes/300000")));
    EXPECT_EQ(record.error.code(), kURLErrorNetworkConnectionLost);
    EXPECT_FALSE(resumeDataOf(record));
  }
}

TEST_F(DownloadTest, CancellingCanKeepWhatIsThere) {
  server.setScript(
      [](const Exchange& exchange) { return builtInReply(exchange)->thenBytes(120'000).thenStall("on"); });
  const auto task = download(server.url("/bytes/300000"));
  EXPECT_TRUE(
      delegate->waitUntil(task, [](const TaskRecord& record) { return record.totalWritten == 120'000; }));
  Semaphore given(0);
  Data resumeData;
  task->cancelByProducingResumeData([&](Data data) {
    EXPECT_FALSE(delegate->record(task).completions);
    resumeData = std::move(data);
    given.signal();
  });
  given.wait();
  EXPECT_EQ(finished(task).error.code(), kURLErrorCancelled);
  server.setScript(nullptr);
  EXPECT_TRUE(finished(started(session().downloadTaskWithResumeData(resumeData))).fileContents ==
              patternBytes(0, 300'000));
}

TEST_F(DownloadTest, EveryCancellationAnswersOnce) {
  std::atomic<int> answers{0};
  const auto count = [&](const Data& data) {
    EXPECT_FALSE(data);
    ++answers;
  };
  const auto done = get(server.url("/echo"));
  finished(done);
  done->cancelByProducingResumeData(count);
  const auto fresh = session().downloadTaskWithRequest(request(server.url("/bytes/5")));
  fresh->cancelByProducingResumeData(count);
  fresh->cancelByProducingResumeData(count);
  EXPECT_EQ(finished(fresh).error.code(), kURLErrorCancelled);
  server.handle("/wait", [](const Exchange&) { return ReplyPlan::withStatus(200).thenStall(); });
  const auto running = get(server.url("/wait"));
  running->cancelByProducingResumeData(count);
  EXPECT_EQ(finished(running).error.code(), kURLErrorCancelled);
  EXPECT_TRUE(eventually([&] { return answers == 4; }));
}

TEST_F(DownloadTest, ACancelledOneLeavesNoFile) {
  const auto filesLeft = [] {
    const std::string prefix = "nvxcore-download-" + std::to_string(::getpid()) + "-";
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::temp_directory_path()))
      count += entry.path().filename().string().starts_with(prefix);
    return count;
  };
  server.setScript(
      [](const Exchange& exchange) { return builtInReply(exchange)->thenBytes(120'000).thenStall("on"); });
  const auto task = download(server.url("/bytes/300000"));
  EXPECT_TRUE(
      delegate->waitUntil(task, [](const TaskRecord& record) { return record.totalWritten == 120'000; }));
  EXPECT_EQ(filesLeft(), 1);
  task->cancel();
  finished(task);
  EXPECT_EQ(filesLeft(), 0);
}

TEST_F(DownloadTest, BytesThatAreNoResumeDataMakeNoTask) {
  const TaskRecord broken = brokenDownload();
  const Data good = resumeDataOf(broken);
  ASSERT_TRUE(good);
  for (size_t length = 0; length < good.length(); ++length)
    EXPECT_EQ(session().downloadTaskWithResumeData(good.slice(0, length)), nullptr) << length;
  // What it names must be a file of this kind, as it was left.
  auto part = ResumeData::decoded(good);
  ASSERT_TRUE(part);
  const auto refused = [&](auto change) {
    ResumeData other = *part;
    change(other);
    return session().downloadTaskWithResumeData(other.encoded()) == nullptr;
  };
  EXPECT_TRUE(refused([](ResumeData& data) { data.fileName = "../etc/passwd"; }));
  EXPECT_TRUE(refused([](ResumeData& data) { data.fileName = ResumeData::newFileName(); }));
  EXPECT_TRUE(refused([](ResumeData& data) { data.offset = data.offset - 1; }));
  EXPECT_TRUE(refused([](ResumeData& data) { data.offset = -1; }));
  EXPECT_TRUE(refused([](ResumeData& data) { data.validator = "\"a\"\r\nX: y"; }));
  EXPECT_TRUE(refused([](ResumeData& data) { data.request.url = URL::withString("file:///etc/passwd"); }));
  std::filesystem::remove(partOf(good));
  EXPECT_EQ(session().downloadTaskWithResumeData(good), nullptr);
}

}  // namespace
}  // namespace nvxcore::testing
