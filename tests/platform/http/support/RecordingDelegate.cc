#include "tests/platform/http/support/RecordingDelegate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace nvxcore::testing {

namespace {

constexpr std::chrono::seconds kPatience(10);

}  // namespace

bool TaskRecord::saw(const std::string& event) const {
  return std::find(events.begin(), events.end(), event) != events.end();
}

void RecordingDelegate::note(const HTTPSessionTaskRef& task, const char* event,
                             const std::function<void(TaskRecord&)>& change) {
  std::lock_guard lock(_mutex);
  if (queue && !queue->isCurrent()) ADD_FAILURE() << event << " off the delegate queue";
  TaskRecord& record = _records[task.get()];
  record.task = task;
  if (record.completions) ADD_FAILURE() << event << " after the completion";
  if (record.events.empty() || record.events.back() != event) record.events.emplace_back(event);
  change(record);
  _changed.notify_all();
}

TaskRecord RecordingDelegate::record(const HTTPSessionTaskRef& task) const {
  std::lock_guard lock(_mutex);
  const auto found = _records.find(task.get());
  return found == _records.end() ? TaskRecord() : found->second;
}

bool RecordingDelegate::waitUntil(const HTTPSessionTaskRef& task,
                                  const std::function<bool(const TaskRecord&)>& condition) const {
  std::unique_lock lock(_mutex);
  return _changed.wait_for(lock, kPatience, [&] {
    const auto found = _records.find(task.get());
    return found != _records.end() && condition(found->second);
  });
}

TaskRecord RecordingDelegate::finished(const HTTPSessionTaskRef& task) const {
  EXPECT_TRUE(waitUntil(task, [](const TaskRecord& record) { return record.completions > 0; }));
  return record(task);
}

bool RecordingDelegate::waitUntilInvalid(size_t sessions) const {
  std::unique_lock lock(_mutex);
  return _changed.wait_for(lock, kPatience, [&] { return _invalid.size() >= sessions; });
}

void RecordingDelegate::taskWillPerformHTTPRedirection(const HTTPSessionTaskRef& task, const URLResponse&,
                                                       const URLRequest& newRequest,
                                                       RedirectHandler completionHandler) {
  note(task, "redirect",
       [&](TaskRecord& record) { record.redirects.push_back(newRequest.url.absoluteString()); });
  if (onRedirect) return onRedirect(newRequest, std::move(completionHandler));
  completionHandler(newRequest);
}

void RecordingDelegate::taskDidReceiveChallenge(const HTTPSessionTaskRef& task,
                                                const AuthenticationChallenge& challenge,
                                                ChallengeHandler completionHandler) {
  note(task, "challenge", [&](TaskRecord& record) { record.challenges.push_back(challenge); });
  if (onChallenge) return onChallenge(challenge, std::move(completionHandler));
  completionHandler(AuthChallengeDisposition::PerformDefaultHandling, nullptr);
}

void RecordingDelegate::taskNeedNewBodyStream(const HTTPSessionTaskRef& task,
                                              BodyStreamHandler completionHandler) {
  note(task, "stream", [](TaskRecord&) {});
  if (onStream) return onStream(std::move(completionHandler));
  completionHandler(nullptr);
}

void RecordingDelegate::taskDidSendBodyData(const HTTPSessionTaskRef& task, int64_t bytesSent,
                                            int64_t totalBytesSent, int64_t totalBytesExpectedToSend) {
  note(task, "sent", [&](TaskRecord& record) {
    record.bytesSent += bytesSent;
    record.totalSent = totalBytesSent;
    record.expectedToSend = totalBytesExpectedToSend;
  });
}

void RecordingDelegate::taskDidCompleteWithError(const HTTPSessionTaskRef& task, const Error& error) {
  note(task, "complete", [&](TaskRecord& record) {
    ++record.completions;
    record.error = error;
  });
}

void RecordingDelegate::dataTaskDidReceiveResponse(const HTTPSessionTaskRef& task,
                                                   const URLResponse& response,
                                                   ResponseDispositionHandler completionHandler) {
  note(task, "response", [&](TaskRecord& record) { record.response = response; });
  if (onResponse) return onResponse(task, std::move(completionHandler));
  completionHandler(ResponseDisposition::Allow);
}

void RecordingDelegate::dataTaskDidBecomeDownloadTask(const HTTPSessionTaskRef& dataTask,
                                                      const HTTPSessionTaskRef& downloadTask) {
  note(dataTask, "became", [&](TaskRecord& record) { record.becameDownload = downloadTask; });
}

void RecordingDelegate::dataTaskDidReceiveData(const HTTPSessionTaskRef& task, const Data& data) {
  note(task, "data", [&](TaskRecord& record) { record.body.append(data.view()); });
  if (onData) onData(task, data);
}

void RecordingDelegate::dataTaskWillCacheResponse(const HTTPSessionTaskRef&,
                                                  const CachedURLResponse& proposedResponse,
                                                  CachedResponseHandler completionHandler) {
  completionHandler(proposedResponse);
}

void RecordingDelegate::downloadTaskDidFinishDownloadingToURL(const HTTPSessionTaskRef& task,
                                                              const URL& location) {
  note(task, "file", [&](TaskRecord& record) {
    record.fileLocation = location.fileSystemPath();
    std::ifstream file(record.fileLocation, std::ios::binary);
    record.fileContents.assign(std::istreambuf_iterator<char>(file), {});
  });
  if (onFile) onFile(location);
}

void RecordingDelegate::downloadTaskDidWriteData(const HTTPSessionTaskRef& task, int64_t bytesWritten,
                                                 int64_t totalBytesWritten,
                                                 int64_t totalBytesExpectedToWrite) {
  note(task, "written", [&](TaskRecord& record) {
    record.bytesWritten += bytesWritten;
    record.totalWritten = totalBytesWritten;
    record.expectedToWrite = totalBytesExpectedToWrite;
  });
}

void RecordingDelegate::downloadTaskDidResumeAtOffset(const HTTPSessionTaskRef& task, int64_t fileOffset,
                                                      int64_t expectedTotalBytes) {
  note(task, "resumed", [&](TaskRecord& record) {
    record.resumedAt = fileOffset;
    record.resumedTotal = expectedTotalBytes;
  });
}

void RecordingDelegate::sessionDidFinishEventsForBackgroundURLSession(const HTTPSessionRef&) {}

void RecordingDelegate::sessionDidBecomeInvalidWithError(const HTTPSessionRef& session, const Error&) {
  EXPECT_FALSE(session->dataTaskWithRequest(URLRequest()));
  std::lock_guard lock(_mutex);
  EXPECT_TRUE(_invalid.insert(session).second);
  _changed.notify_all();
}

}  // namespace nvxcore::testing
