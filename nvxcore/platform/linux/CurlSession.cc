#include "nvxcore/platform/linux/CurlSession.h"

#include <utility>

#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/platform/linux/CurlConnectionPool.h"

namespace nvxcore {

CurlSession::CurlSession(std::shared_ptr<CurlConnectionPool> pool,
                         std::shared_ptr<HTTPSessionDelegate> delegate, QueueRef delegateQueue)
    : _pool(std::move(pool)), _delegateQueue(std::move(delegateQueue)), _delegate(std::move(delegate)) {}

CurlSession::~CurlSession() { _pool->close(); }

const HTTPSessionConfiguration& CurlSession::configuration() const { return _pool->configuration(); }

std::shared_ptr<HTTPSessionDelegate> CurlSession::delegate() const {
  Lock lock(_lock);
  return _delegate;
}

std::shared_ptr<HTTPTask> CurlSession::makeTask(TaskKind kind, const URLRequest& request,
                                                HTTPTask::BodySource bodySource, const URL& bodyFile) {
  uint64_t identifier;
  {
    Lock lock(_lock);
    if (_isInvalidated) return nullptr;
    identifier = ++_lastIdentifier;
  }
  auto task = makePooled<HTTPTask>(self(), kind, identifier, request, bodySource, bodyFile);
  Lock lock(_lock);
  // The session may have ended meanwhile, and nobody would hear of the task.
  if (_hasEnded) return nullptr;
  _tasks[identifier].task = task;
  return task;
}

HTTPSessionTaskRef CurlSession::dataTaskWithRequest(const URLRequest& request) {
  return makeTask(TaskKind::Data, request, HTTPTask::BodySource::Request);
}

HTTPSessionTaskRef CurlSession::uploadTaskWithRequestFromFile(const URLRequest& request, const URL& fileURL) {
  return makeTask(TaskKind::Upload, request, HTTPTask::BodySource::File, fileURL);
}

HTTPSessionTaskRef CurlSession::uploadTaskWithRequestFromData(const URLRequest& request, const Data& body) {
  URLRequest withBody = request;
  withBody.body = body;
  withBody.bodyStream = nullptr;
  return makeTask(TaskKind::Upload, withBody, HTTPTask::BodySource::Request);
}

HTTPSessionTaskRef CurlSession::uploadTaskWithStreamedRequest(const URLRequest& request) {
  return makeTask(TaskKind::Upload, request, HTTPTask::BodySource::AskedStream);
}

HTTPSessionTaskRef CurlSession::downloadTaskWithRequest(const URLRequest& request) {
  return makeTask(TaskKind::Download, request, HTTPTask::BodySource::Request);
}

HTTPSessionTaskRef CurlSession::downloadTaskWithResumeData(const Data& resumeData) {
  std::unique_ptr<ResumeData> part = ResumeData::decoded(resumeData);
  if (!part) return nullptr;
  const std::shared_ptr<HTTPTask> task =
      makeTask(TaskKind::Download, part->request, HTTPTask::BodySource::Request);
  if (task) task->continueFrom(std::move(part));
  return task;
}

void CurlSession::taskWillRun(std::shared_ptr<HTTPTask> task) {
  const uint64_t identifier = task->taskIdentifier();
  Lock lock(_lock);
  _tasks[identifier].running = std::move(task);
}

void CurlSession::taskHasEnded(uint64_t identifier) {
  Member gone;
  bool ends;
  {
    Lock lock(_lock);
    if (auto node = _tasks.extract(identifier)) gone = std::move(node.mapped());
    ends = takeEnd();
  }
  if (ends) becomeInvalid();
}

void CurlSession::getTasksWithCompletionHandler(std::function<void(Tasks)> completionHandler) {
  if (!completionHandler) return;
  std::vector<std::shared_ptr<HTTPTask>> found;
  {
    Lock lock(_lock);
    for (const auto& [identifier, member] : _tasks) {
      std::shared_ptr<HTTPTask> task = member.task.lock();
      if (!task) continue;
      found.push_back(std::move(task));
    }
  }
  Tasks tasks;
  for (const auto& task : found) {
    HTTPSessionTaskRef reported = task->reported();
    auto& list = reported->kind() == TaskKind::Data     ? tasks.data
                 : reported->kind() == TaskKind::Upload ? tasks.upload
                                                        : tasks.download;
    list.push_back(std::move(reported));
  }
  _delegateQueue->post([handler = std::move(completionHandler), tasks = std::move(tasks)]() mutable {
    handler(std::move(tasks));
  });
}

void CurlSession::finishTasksAndInvalidate() {
  bool ends;
  {
    Lock lock(_lock);
    _isInvalidated = true;
    ends = takeEnd();
  }
  if (ends) becomeInvalid();
}

bool CurlSession::takeEnd() {
  std::erase_if(_tasks, [](const auto& item) { return item.second.task.expired(); });
  return _isInvalidated && _tasks.empty() && !std::exchange(_hasEnded, true);
}

void CurlSession::becomeInvalid() {
  _pool->close();
  _delegateQueue->post([self = self()] {
    if (const auto delegate = self->delegate()) delegate->sessionDidBecomeInvalidWithError(self, {});
    std::shared_ptr<HTTPSessionDelegate> dropped;
    Lock lock(self->_lock);
    dropped.swap(self->_delegate);
  });
}

}  // namespace nvxcore
