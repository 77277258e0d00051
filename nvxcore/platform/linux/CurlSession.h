#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/ThreadAnnotations.h"
#include "nvxcore/platform/linux/HTTPTask.h"

namespace nvxcore {

class CurlConnectionPool;

/// A session: it makes tasks, keeps those that run, and ends with the last of them once it is invalidated.
class CurlSession final : public HTTPSession {
 public:
  CurlSession(std::shared_ptr<CurlConnectionPool> pool, std::shared_ptr<HTTPSessionDelegate> delegate,
              QueueRef delegateQueue);
  ~CurlSession() override;

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

  // For its tasks; any thread.

  const std::shared_ptr<CurlConnectionPool>& pool() const { return _pool; }
  const HTTPSessionConfiguration& configuration() const;
  /// Keeps the task until it has ended.
  void taskWillRun(std::shared_ptr<HTTPTask> task);
  /// After the last event of the task, on the delegate queue.
  void taskHasEnded(uint64_t identifier);

 private:
  /// A task that does not run belongs to its host alone.
  struct Member {
    std::weak_ptr<HTTPTask> task;
    std::shared_ptr<HTTPTask> running;
  };

  std::shared_ptr<HTTPTask> makeTask(TaskKind kind, const URLRequest& request,
                                     HTTPTask::BodySource bodySource, const URL& bodyFile = {});
  /// True once, when the session is invalidated and has no task left.
  bool takeEnd() NVX_REQUIRES(_lock);
  void becomeInvalid();
  std::shared_ptr<CurlSession> self() { return std::static_pointer_cast<CurlSession>(shared_from_this()); }

  const std::shared_ptr<CurlConnectionPool> _pool;
  const QueueRef _delegateQueue;

  mutable Mutex _lock;
  std::shared_ptr<HTTPSessionDelegate> _delegate NVX_GUARDED_BY(_lock);
  std::map<uint64_t, Member> _tasks NVX_GUARDED_BY(_lock);
  uint64_t _lastIdentifier NVX_GUARDED_BY(_lock) = 0;
  bool _isInvalidated NVX_GUARDED_BY(_lock) = false;
  bool _hasEnded NVX_GUARDED_BY(_lock) = false;
};

}  // namespace nvxcore
