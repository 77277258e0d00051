#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "nvxcore/platform/linux/HTTPTask.h"

namespace nvxcore {

/// The download task that a data task has become: the same transfer under another kind.
class BecomeDownloadTask final : public HTTPSessionTask {
 public:
  explicit BecomeDownloadTask(std::shared_ptr<HTTPTask> task) : _task(std::move(task)) {}

  TaskKind kind() const override { return TaskKind::Download; }
  uint64_t taskIdentifier() const override { return _task->taskIdentifier(); }
  void resume() override { _task->resume(); }
  void cancel() override { _task->cancel(); }
  void cancelByProducingResumeData(std::function<void(Data)> handler) override {
    _task->cancelByProducingResumeData(std::move(handler));
  }
  TaskState state() const override { return _task->state(); }
  URLResponse response() const override { return _task->response(); }
  URLRequest originalRequest() const override { return _task->originalRequest(); }
  URLRequest currentRequest() const override { return _task->currentRequest(); }
  int64_t countOfBytesSent() const override { return _task->countOfBytesSent(); }
  int64_t countOfBytesReceived() const override { return _task->countOfBytesReceived(); }
  std::string taskDescription() const override { return _task->taskDescription(); }
  void setTaskDescription(std::string description) override {
    _task->setTaskDescription(std::move(description));
  }
  bool setPriority(float priority) override { return _task->setPriority(priority); }

 private:
  const std::shared_ptr<HTTPTask> _task;
};

}  // namespace nvxcore
