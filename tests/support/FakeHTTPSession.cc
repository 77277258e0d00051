#include "tests/support/FakeHTTPSession.h"

#include <fstream>
#include <utility>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/URLErrors.h"

namespace nvxcore::testing {

FakeHTTPTask::FakeHTTPTask(std::shared_ptr<FakeHTTPSession> session, TaskKind kind, URLRequest request,
                           uint64_t number)
    : _session(std::move(session)), _kind(kind), _request(std::move(request)), _number(number) {}

void FakeHTTPTask::post(std::function<void(HTTPSessionDelegate&)> event) {
  std::shared_ptr<HTTPSessionDelegate> delegate = _session->delegate();
  _session->_delegateQueue->post([delegate, event = std::move(event)] {
    if (delegate) event(*delegate);
  });
}

void FakeHTTPTask::sendResponse(int status, HTTPHeaders headers) {
  URLResponse response = URLResponse::http(_request.url, status, "HTTP/1.1", std::move(headers));
  {
    Lock lock(_lock);
    if (_state == TaskState::Completed) return;
    _response = response;
  }
  post([self = shared_from_this(), response](HTTPSessionDelegate& delegate) {
    delegate.dataTaskDidReceiveResponse(self, response, [self](ResponseDisposition disposition) {
      Lock lock(self->_lock);
      self->_disposition = disposition;
    });
  });
}

void FakeHTTPTask::sendData(std::string_view bytes) {
  if (state() == TaskState::Completed) return;
  post([self = shared_from_this(), data = Data::copy(bytes)](HTTPSessionDelegate& delegate) {
    delegate.dataTaskDidReceiveData(self, data);
  });
}

void FakeHTTPTask::sendProgress(int64_t bytes, int64_t total, int64_t expected) {
  post([self = shared_from_this(), bytes, total, expected](HTTPSessionDelegate& delegate) {
    delegate.taskDidSendBodyData(self, bytes, total, expected);
  });
}

void FakeHTTPTask::writeDownload(std::string_view bytes, int64_t expected) {
  const URL file = uniqueTemporaryFile("fake-download");
  writeFile(file, Data::copy(bytes));
  const auto length = static_cast<int64_t>(bytes.size());
  post([self = shared_from_this(), file, length, expected](HTTPSessionDelegate& delegate) {
    delegate.downloadTaskDidWriteData(self, length, length, expected);
    delegate.downloadTaskDidFinishDownloadingToURL(self, file);
    removeFile(file);
  });
}

void FakeHTTPTask::challenge(AuthenticationChallenge challenge) {
  post([self = shared_from_this(), challenge](HTTPSessionDelegate& delegate) {
    delegate.taskDidReceiveChallenge(self, challenge,
                                     [self](AuthChallengeDisposition disposition, const URLCredentialRef&) {
                                       Lock lock(self->_lock);
                                       self->_challengeAnswer = disposition;
                                     });
  });
}

void FakeHTTPTask::redirect(int status, const URL& to) {
  URLRequest next = _request;
  next.url = to;
  const URLResponse response =
      URLResponse::http(_request.url, status, "HTTP/1.1", {{"Location", to.absoluteString()}});
  {
    Lock lock(_lock);
    _response = response;
  }
  post([self = shared_from_this(), response, next](HTTPSessionDelegate& delegate) {
    delegate.taskWillPerformHTTPRedirection(self, response, next,
                                            [self](const std::optional<URLRequest>& request) {
                                              Lock lock(self->_lock);
                                              self->_redirectWasRefused = !request;
                                            });
  });
}

void FakeHTTPTask::complete(const Error& error) {
  {
    Lock lock(_lock);
    if (std::exchange(_state, TaskState::Completed) == TaskState::Completed) return;
  }
  post([self = shared_from_this(), error](HTTPSessionDelegate& delegate) {
    delegate.taskDidCompleteWithError(self, error);
  });
  _session->taskEnded();
}

void FakeHTTPTask::pullBody(std::function<void(Data)> done) {
  post([self = shared_from_this(), done](HTTPSessionDelegate& delegate) {
    delegate.taskNeedNewBodyStream(self, [self, done](const std::shared_ptr<InputStream>& stream) {
      if (!stream) return done(Data());
      self->_session->_bodyQueue->post([self, done, stream] {
        MutableData bytes;
        uint8_t buffer[64];
        int64_t count;
        while ((count = stream->read(buffer, sizeof buffer)) > 0)
          bytes.append(buffer, static_cast<size_t>(count));
        if (count < 0) return self->complete(stream->streamError());
        {
          Lock lock(self->_lock);
          self->_bytesSent = static_cast<int64_t>(bytes.length());
        }
        self->_session->_delegateQueue->post([done, data = Data::take(std::move(bytes))] { done(data); });
      });
    });
  });
}

bool FakeHTTPTask::wasResumed() const {
  Lock lock(_lock);
  return _wasResumed;
}

bool FakeHTTPTask::wasCancelled() const {
  Lock lock(_lock);
  return _wasCancelled;
}

std::optional<ResponseDisposition> FakeHTTPTask::disposition() const {
  Lock lock(_lock);
  return _disposition;
}

std::optional<AuthChallengeDisposition> FakeHTTPTask::challengeAnswer() const {
  Lock lock(_lock);
  return _challengeAnswer;
}

bool FakeHTTPTask::redirectWasRefused() const {
  Lock lock(_lock);
  return _redirectWasRefused;
}

float FakeHTTPTask::priority() const {
  Lock lock(_lock);
  return _priority;
}

void FakeHTTPTask::resume() {
  {
    Lock lock(_lock);
    if (_state != TaskState::Suspended) return;
    _state = TaskState::Running;
    _wasResumed = true;
  }
  if (_session->_service.onResume) _session->_service.onResume(shared_from_this());
}

void FakeHTTPTask::cancel() {
  {
    Lock lock(_lock);
    if (_state == TaskState::Completed) return;
    _state = TaskState::Canceling;
    _wasCancelled = true;
  }
  complete(Error(kURLErrorDomain, kURLErrorCancelled));
}

void FakeHTTPTask::cancelByProducingResumeData(std::function<void(Data)> handler) {
  Queue::global()->post([handler = std::move(handler), data = resumeDataToProduce] { handler(data); });
  cancel();
}

TaskState FakeHTTPTask::state() const {
  Lock lock(_lock);
  return _state;
}

URLResponse FakeHTTPTask::response() const {
  Lock lock(_lock);
  return _response;
}

int64_t FakeHTTPTask::countOfBytesSent() const {
  Lock lock(_lock);
  return _bytesSent;
}

std::string FakeHTTPTask::taskDescription() const {
  Lock lock(_lock);
  return _description;
}

void FakeHTTPTask::setTaskDescription(std::string description) {
  Lock lock(_lock);
  _description.swap(description);
}

bool FakeHTTPTask::setPriority(float priority) {
  Lock lock(_lock);
  _priority = priority;
  return true;
}

FakeHTTPSession::FakeHTTPSession(FakeHTTPSessionService& service,
                                 HTTPSessionConfiguration sessionConfiguration,
                                 std::shared_ptr<HTTPSessionDelegate> delegate, QueueRef delegateQueue)
    : configuration(std::move(sessionConfiguration)),
      _service(service),
      _delegateQueue(std::move(delegateQueue)) {
  Lock lock(_lock);
  _delegate = std::move(delegate);
}

bool FakeHTTPSession::wasInvalidated() const {
  Lock lock(_lock);
  return _wasInvalidated;
}

void FakeHTTPSession::becomeInvalid() {
  {
    Lock lock(_lock);
    _wasInvalidated = true;
  }
  dropDelegate();
}

void FakeHTTPSession::taskEnded() {
  {
    Lock lock(_lock);
    if (--_liveTasks > 0 || !_wasInvalidated) return;
  }
  dropDelegate();
}

std::shared_ptr<HTTPSessionDelegate> FakeHTTPSession::delegate() const {
  Lock lock(_lock);
  return _delegate;
}

FakeHTTPTaskRef FakeHTTPSession::makeTask(TaskKind kind, const URLRequest& request) {
  if (_service.makesNoTask) return nullptr;
  auto self = std::static_pointer_cast<FakeHTTPSession>(shared_from_this());
  {
    Lock lock(_lock);
    if (_wasInvalidated) return nullptr;
    ++_liveTasks;
  }
  Lock lock(_service._lock);
  auto task = std::make_shared<FakeHTTPTask>(self, kind, request, ++_service._taskCount);
  _service._tasks.push_back(task);
  return task;
}

HTTPSessionTaskRef FakeHTTPSession::dataTaskWithRequest(const URLRequest& request) {
  return makeTask(TaskKind::Data, request);
}

HTTPSessionTaskRef FakeHTTPSession::uploadTaskWithRequestFromFile(const URLRequest& request,
                                                                  const URL& fileURL) {
  FakeHTTPTaskRef task = makeTask(TaskKind::Upload, request);
  if (task) task->bodyFile = fileURL;
  return task;
}

HTTPSessionTaskRef FakeHTTPSession::uploadTaskWithRequestFromData(const URLRequest& request,
                                                                  const Data& body) {
  URLRequest withBody = request;
  withBody.body = body;
  return makeTask(TaskKind::Upload, withBody);
}

HTTPSessionTaskRef FakeHTTPSession::uploadTaskWithStreamedRequest(const URLRequest& request) {
  return makeTask(TaskKind::Upload, request);
}

HTTPSessionTaskRef FakeHTTPSession::downloadTaskWithRequest(const URLRequest& request) {
  return makeTask(TaskKind::Download, request);
}

HTTPSessionTaskRef FakeHTTPSession::downloadTaskWithResumeData(const Data& resumeData) {
  FakeHTTPTaskRef task = makeTask(TaskKind::Download, URLRequest());
  if (task) task->givenResumeData = resumeData;
  return task;
}

void FakeHTTPSession::getTasksWithCompletionHandler(std::function<void(Tasks)> completionHandler) {
  _delegateQueue->post([completionHandler = std::move(completionHandler)] { completionHandler(Tasks()); });
}

void FakeHTTPSession::finishTasksAndInvalidate() {
  {
    Lock lock(_lock);
    if (std::exchange(_wasInvalidated, true) || _liveTasks > 0) return;
  }
  dropDelegate();
}

void FakeHTTPSession::dropDelegate() {
  std::shared_ptr<HTTPSessionDelegate> delegate;
  {
    Lock lock(_lock);
    delegate.swap(_delegate);
  }
  _delegateQueue->post([self = shared_from_this(), delegate] {
    if (delegate) delegate->sessionDidBecomeInvalidWithError(self, Error());
  });
}

HTTPSessionRef FakeHTTPSessionService::sessionWithConfiguration(const HTTPSessionConfiguration& configuration,
                                                                std::shared_ptr<HTTPSessionDelegate> delegate,
                                                                QueueRef delegateQueue) {
  if (makesNoSession) return nullptr;
  auto session =
      std::make_shared<FakeHTTPSession>(*this, configuration, std::move(delegate), std::move(delegateQueue));
  Lock lock(_lock);
  _sessions.push_back(session);
  return session;
}

std::vector<FakeHTTPTaskRef> FakeHTTPSessionService::tasks() const {
  Lock lock(_lock);
  return _tasks;
}

FakeHTTPTaskRef FakeHTTPSessionService::lastTask() const {
  Lock lock(_lock);
  return _tasks.empty() ? nullptr : _tasks.back();
}

void FakeHTTPSessionService::forgetTasks() {
  std::vector<FakeHTTPTaskRef> tasks;
  Lock lock(_lock);
  _tasks.swap(tasks);
}

std::vector<std::shared_ptr<FakeHTTPSession>> FakeHTTPSessionService::sessions() const {
  Lock lock(_lock);
  return _sessions;
}

}  // namespace nvxcore::testing
