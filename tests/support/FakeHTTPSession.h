#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore::testing {

class FakeHTTPSession;
class FakeHTTPSessionService;

/// A transfer that a test plays by hand. Its events go to the session's delegate in the order of the calls.
class FakeHTTPTask : public HTTPSessionTask, public std::enable_shared_from_this<FakeHTTPTask> {
 public:
  FakeHTTPTask(std::shared_ptr<FakeHTTPSession> session, TaskKind kind, URLRequest request, uint64_t number);

  // What the server does. Nothing of it reaches a task that has completed.
  void sendResponse(int status, HTTPHeaders headers = {});
  void sendData(std::string_view bytes);
  void sendProgress(int64_t bytes, int64_t total, int64_t expected);
  void writeDownload(std::string_view bytes, int64_t expected);
  void challenge(AuthenticationChallenge challenge);
  void redirect(int status, const URL& to);
  void complete(const Error& error = {});
  /// Asks for the body's stream, reads it whole, and then calls `done` with its bytes, on the delegate queue.
  void pullBody(std::function<void(Data)> done);

  bool wasResumed() const;
  bool wasCancelled() const;
  /// What the delegate answered to the last response, challenge and redirect; empty when it has not.
  std::optional<ResponseDisposition> disposition() const;
  std::optional<AuthChallengeDisposition> challengeAnswer() const;
  bool redirectWasRefused() const;
  float priority() const;
  Data resumeDataToProduce;
  URL bodyFile;
  Data givenResumeData;

  TaskKind kind() const override { return _kind; }
  uint64_t taskIdentifier() const override { return _number; }
  void resume() override;
  void cancel() override;
  void cancelByProducingResumeData(std::function<void(Data)> handler) override;
  TaskState state() const override;
  URLResponse response() const override;
  URLRequest originalRequest() const override { return _request; }
  URLRequest currentRequest() const override { return _request; }
  int64_t countOfBytesSent() const override;
  int64_t countOfBytesReceived() const override { return 0; }
  std::string taskDescription() const override;
  void setTaskDescription(std::string description) override;
  bool setPriority(float priority) override;

 private:
  void post(std::function<void(HTTPSessionDelegate&)> event);

  const std::shared_ptr<FakeHTTPSession> _session;
  const TaskKind _kind;
  const URLRequest _request;
  const uint64_t _number;
  mutable Mutex _lock;
  TaskState _state NVX_GUARDED_BY(_lock) = TaskState::Suspended;
  bool _wasResumed NVX_GUARDED_BY(_lock) = false;
  bool _wasCancelled NVX_GUARDED_BY(_lock) = false;
  URLResponse _response NVX_GUARDED_BY(_lock);
  std::optional<ResponseDisposition> _disposition NVX_GUARDED_BY(_lock);
  std::optional<AuthChallengeDisposition> _challengeAnswer NVX_GUARDED_BY(_lock);
  bool _redirectWasRefused NVX_GUARDED_BY(_lock) = false;
  int64_t _bytesSent NVX_GUARDED_BY(_lock) = 0;
  std::string _description NVX_GUARDED_BY(_lock);
  float _priority NVX_GUARDED_BY(_lock) = -1;
};
using FakeHTTPTaskRef = std::shared_ptr<FakeHTTPTask>;

class FakeHTTPSession : public HTTPSession {
 public:
  FakeHTTPSession(FakeHTTPSessionService& service, HTTPSessionConfiguration configuration,
                  std::shared_ptr<HTTPSessionDelegate> delegate, QueueRef delegateQueue);

  const HTTPSessionConfiguration configuration;
  bool wasInvalidated() const;
  /// As when the system takes the session away: at once, whatever its tasks do.
  void becomeInvalid();

  std::shared_ptr<HTTPSessionDelegate> delegate() const override;
  QueueRef delegateQueue() const override { return _delegateQueue; }
  HTTPSessionTaskRef dataTaskWithRequest(const URLRequest& request) override;
  HTTPSessionTaskRef uploadTaskWithRequestFromFile(const URLRequest& request, const URL& fileURL) override;
  HTTPSessionTaskRef uploadTaskWithRequestFromData(const URLRequest& request, const Data& body) override;
  HTTPSessionTaskRef uploadTaskWithStreamedRequest(const URLRequest& request) override;
  HTTPSessionTaskRef downloadTaskWithRequest(const URLRequest& request) override;
  HTTPSessionTaskRef downloadTaskWithResumeData(const Data& resumeData) override;
  void getTasksWithCompletionHandler(std::function<void(Tasks)> completionHandler) override;
  void finishTasksAndInvalidate() override;

 private:
  friend class FakeHTTPTask;
  FakeHTTPTaskRef makeTask(TaskKind kind, const URLRequest& request);
  void taskEnded();
  /// Tells the delegate, and lets it go.
  void dropDelegate();

  FakeHTTPSessionService& _service;
  const QueueRef _delegateQueue;
  /// Bodies are pulled one after another, so that what a test sees of them repeats.
  const QueueRef _bodyQueue = Queue::serial("fake.bodies");
  mutable Mutex _lock;
  std::shared_ptr<HTTPSessionDelegate> _delegate NVX_GUARDED_BY(_lock);
  bool _wasInvalidated NVX_GUARDED_BY(_lock) = false;
  int _liveTasks NVX_GUARDED_BY(_lock) = 0;
};

/// Makes sessions whose tasks are played by `onResume`, or by the test through `tasks`. Must outlive them.
class FakeHTTPSessionService : public HTTPSessionService {
 public:
  /// Called on the thread that resumes, for each task.
  std::function<void(const FakeHTTPTaskRef&)> onResume;
  /// When set, no session or no task is made.
  bool makesNoSession = false;
  bool makesNoTask = false;

  HTTPSessionRef sessionWithConfiguration(const HTTPSessionConfiguration& configuration,
                                          std::shared_ptr<HTTPSessionDelegate> delegate,
                                          QueueRef delegateQueue) override;
  std::vector<FakeHTTPTaskRef> tasks() const;
  FakeHTTPTaskRef lastTask() const;
  /// For long runs: lets go of the tasks made so far.
  void forgetTasks();
  std::vector<std::shared_ptr<FakeHTTPSession>> sessions() const;

 private:
  friend class FakeHTTPSession;
  mutable Mutex _lock;
  std::vector<FakeHTTPTaskRef> _tasks NVX_GUARDED_BY(_lock);
  uint64_t _taskCount NVX_GUARDED_BY(_lock) = 0;
  std::vector<std::shared_ptr<FakeHTTPSession>> _sessions NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore::testing
