#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "nvxcore/platform/HTTPSession.h"

namespace nvxcore::testing {

/// What one task has told.
struct TaskRecord {
  HTTPSessionTaskRef task;          ///< Held, so that no other takes its address.
  std::vector<std::string> events;  ///< Their names, in order; data and progress once for a run of them.
  URLResponse response;
  std::string body;
  int64_t bytesSent = 0, totalSent = 0, expectedToSend = 0;
  int64_t bytesWritten = 0, totalWritten = 0, expectedToWrite = 0;
  int64_t resumedAt = -1, resumedTotal = 0;
  std::string fileContents;
  std::string fileLocation;
  std::vector<std::string> redirects;
  std::vector<AuthenticationChallenge> challenges;
  int completions = 0;
  Error error;
  HTTPSessionTaskRef becameDownload;

  bool saw(const std::string& event) const;
};

/// Answers events as a host without wishes would, unless a test gives it an answer of its own, and keeps what
/// they said. It checks that events come one at a time, on the delegate queue, and none after a completion.
class RecordingDelegate final : public HTTPSessionDelegate {
 public:
  using TaskKey = const HTTPSessionTask*;

  // Set these before tasks run.
  std::function<void(const HTTPSessionTaskRef&, ResponseDispositionHandler)> onResponse;
  std::function<void(const URLRequest&, RedirectHandler)> onRedirect;
  std::function<void(const AuthenticationChallenge&, ChallengeHandler)> onChallenge;
  std::function<void(BodyStreamHandler)> onStream;
  std::function<void(const HTTPSessionTaskRef&, const Data&)> onData;
  std::function<void(const URL&)> onFile;
  QueueRef queue;

  /// What the task has told so far.
  TaskRecord record(const HTTPSessionTaskRef& task) const;
  /// Waits, and says whether it came about within some seconds of real time.
  bool waitUntil(const HTTPSessionTaskRef& task,
                 const std::function<bool(const TaskRecord&)>& condition) const;
  /// The record once the task has completed; fails the test when it does not.
  TaskRecord finished(const HTTPSessionTaskRef& task) const;
  bool waitUntilInvalid(size_t sessions = 1) const;

  void taskWillPerformHTTPRedirection(const HTTPSessionTaskRef& task, const URLResponse& response,
                                      const URLRequest& newRequest,
                                      RedirectHandler completionHandler) override;
  void taskDidReceiveChallenge(const HTTPSessionTaskRef& task, const AuthenticationChallenge& challenge,
                               ChallengeHandler completionHandler) override;
  void taskNeedNewBodyStream(const HTTPSessionTaskRef& task, BodyStreamHandler completionHandler) override;
  void taskDidSendBodyData(const HTTPSessionTaskRef& task, int64_t bytesSent, int64_t totalBytesSent,
                           int64_t totalBytesExpectedToSend) override;
  void taskDidCompleteWithError(const HTTPSessionTaskRef& task, const Error& error) override;
  void dataTaskDidReceiveResponse(const HTTPSessionTaskRef& task, const URLResponse& response,
                                  ResponseDispositionHandler completionHandler) override;
  void dataTaskDidBecomeDownloadTask(const HTTPSessionTaskRef& dataTask,
                                     const HTTPSessionTaskRef& downloadTask) override;
  void dataTaskDidReceiveData(const HTTPSessionTaskRef& task, const Data& data) override;
  void dataTaskWillCacheResponse(const HTTPSessionTaskRef& task, const CachedURLResponse& proposedResponse,
                                 CachedResponseHandler completionHandler) override;
  void downloadTaskDidFinishDownloadingToURL(const HTTPSessionTaskRef& task, const URL& location) override;
  void downloadTaskDidWriteData(const HTTPSessionTaskRef& task, int64_t bytesWritten,
                                int64_t totalBytesWritten, int64_t totalBytesExpectedToWrite) override;
  void downloadTaskDidResumeAtOffset(const HTTPSessionTaskRef& task, int64_t fileOffset,
                                     int64_t expectedTotalBytes) override;
  void sessionDidFinishEventsForBackgroundURLSession(const HTTPSessionRef& session) override;
  void sessionDidBecomeInvalidWithError(const HTTPSessionRef& session, const Error& error) override;

 private:
  void note(const HTTPSessionTaskRef& task, const char* event,
            const std::function<void(TaskRecord&)>& change);

  mutable std::mutex _mutex;
  mutable std::condition_variable _changed;
  std::map<TaskKey, TaskRecord> _records;
  std::set<HTTPSessionRef> _invalid;
};

}  // namespace nvxcore::testing
