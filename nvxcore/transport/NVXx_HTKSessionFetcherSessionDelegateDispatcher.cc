#include "nvxcore/transport/NVXx_HTKSessionFetcherSessionDelegateDispatcher.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "nvxcore/foundation/base/NVXLog.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

namespace nvxcore {

using Dispatcher = NVXx_HTKSessionFetcherSessionDelegateDispatcher;

std::shared_ptr<Dispatcher> Dispatcher::initWithParentService(
    std::weak_ptr<NVXx_HTKSessionFetcherService> parentService, TimeInterval sessionDiscardInterval) {
  return std::shared_ptr<Dispatcher>(new Dispatcher(std::move(parentService), sessionDiscardInterval));
}

Dispatcher::NVXx_HTKSessionFetcherSessionDelegateDispatcher(
    std::weak_ptr<NVXx_HTKSessionFetcherService> parentService, TimeInterval sessionDiscardInterval)
    : _parentService(std::move(parentService)), _discardInterval(sessionDiscardInterval) {}

Dispatcher::~NVXx_HTKSessionFetcherSessionDelegateDispatcher() { destroyDiscardTimer(); }

HTTPSessionRef Dispatcher::session() const {
  Lock lock(_lock);
  return _session;
}

void Dispatcher::setSession(HTTPSessionRef session) {
  Lock lock(_lock);
  _session.swap(session);
}

TimeInterval Dispatcher::discardInterval() const {
  Lock lock(_lock);
  return _discardInterval;
}

void Dispatcher::setDiscardInterval(TimeInterval seconds) {
  Lock lock(_lock);
  _discardInterval = seconds;
}

std::shared_ptr<Timer> Dispatcher::discardTimer() const {
  Lock lock(_lock);
  return _discardTimer;
}

void Dispatcher::abandon() {
  destroyDiscardTimer();
  HTTPSessionRef session;
  {
    Lock lock(_lock);
    session.swap(_session);
  }
  // The map stays: the events of tasks under way still come here.
  if (session) session->finishTasksAndInvalidate();
}

void Dispatcher::startSessionUsage() { destroyDiscardTimer(); }

void Dispatcher::setFetcherForTask(FetcherRef fetcher, const HTTPSessionTaskRef& task) {
  if (!fetcher) return;
  {
    Lock lock(_lock);
    _taskToFetcherMap[task.get()] = Entry{task, std::move(fetcher)};
  }
  destroyDiscardTimer();
}

void Dispatcher::removeFetcher(const FetcherRef& fetcher) {
  std::vector<Entry> removed;
  bool isIdle;
  {
    Lock lock(_lock);
    for (auto it = _taskToFetcherMap.begin(); it != _taskToFetcherMap.end();) {
      if (it->second.fetcher == fetcher) {
        removed.push_back(std::move(it->second));
        it = _taskToFetcherMap.erase(it);
      } else {
        ++it;
      }
    }
    isIdle = _taskToFetcherMap.empty();
  }
  if (isIdle) startDiscardTimer();
}

FetcherRef Dispatcher::fetcherForTask(const HTTPSessionTaskRef& task) const {
  Lock lock(_lock);
  auto it = _taskToFetcherMap.find(task.get());
  return it == _taskToFetcherMap.end() ? nullptr : it->second.fetcher;
}

void Dispatcher::removeTaskFromMap(const HTTPSessionTaskRef& task) {
  Entry removed;
  Lock lock(_lock);
  auto it = _taskToFetcherMap.find(task.get());
  if (it == _taskToFetcherMap.end()) return;
  removed = std::move(it->second);
  _taskToFetcherMap.erase(it);
}

std::string Dispatcher::description() const {
  Lock lock(_lock);
  const std::string session =
      _session ? formattedString("%p", static_cast<void*>(_session.get())) : "<no session>";
  const std::string tasks =
      _taskToFetcherMap.empty() ? "<no tasks>" : formattedString("%zu tasks", _taskToFetcherMap.size());
  return formattedString("NVXx_HTKSessionFetcherSessionDelegateDispatcher %p %s %s",
                         static_cast<const void*>(this), session.c_str(), tasks.c_str());
}

// Timers are made and ended outside the lock: the main loop may be the host's.
void Dispatcher::startDiscardTimer() {
  constexpr double kToleranceShare = 0.1;
  const TimeInterval interval = discardInterval();
  if (interval <= 0) return destroyDiscardTimer();
  std::shared_ptr<Timer> timer =
      Timer::schedule(interval, interval * kToleranceShare, false,
                      [weakSelf = weak_from_this()](const std::shared_ptr<Timer>& fired) {
                        if (auto self = weakSelf.lock()) self->discardTimerFired(fired);
                      });
  {
    Lock lock(_lock);
    // A task that came meanwhile keeps the session; its own end will start the timer.
    if (_taskToFetcherMap.empty()) _discardTimer.swap(timer);
  }
  if (timer) timer->invalidate();
}

void Dispatcher::destroyDiscardTimer() {
  std::shared_ptr<Timer> timer;
  {
    Lock lock(_lock);
    timer.swap(_discardTimer);
  }
  if (timer) timer->invalidate();
}

void Dispatcher::discardTimerFired(const std::shared_ptr<Timer>& timer) {
  std::shared_ptr<NVXx_HTKSessionFetcherService> parent;
  {
    Lock lock(_lock);
    if (_taskToFetcherMap.empty()) parent = _parentService.lock();
  }
  // Takes the service's semaphore, so never under the lock.
  if (parent) parent->resetSessionForDispatcherDiscardTimer(timer);
}

void Dispatcher::taskWillPerformHTTPRedirection(const HTTPSessionTaskRef& task, const URLResponse& response,
                                                const URLRequest& newRequest,
                                                RedirectHandler completionHandler) {
  if (FetcherRef fetcher = fetcherForTask(task)) {
    fetcher->taskWillPerformHTTPRedirection(task, response, newRequest, std::move(completionHandler));
  }
}

void Dispatcher::taskDidReceiveChallenge(const HTTPSessionTaskRef& task,
                                         const AuthenticationChallenge& challenge,
                                         ChallengeHandler completionHandler) {
  if (FetcherRef fetcher = fetcherForTask(task)) {
    fetcher->taskDidReceiveChallenge(task, challenge, std::move(completionHandler));
  }
}

void Dispatcher::taskNeedNewBodyStream(const HTTPSessionTaskRef& task, BodyStreamHandler completionHandler) {
  if (FetcherRef fetcher = fetcherForTask(task))
    fetcher->taskNeedNewBodyStream(task, std::move(completionHandler));
}

void Dispatcher::taskDidSendBodyData(const HTTPSessionTaskRef& task, int64_t bytesSent,
                                     int64_t totalBytesSent, int64_t totalBytesExpectedToSend) {
  if (FetcherRef fetcher = fetcherForTask(task)) {
    fetcher->taskDidSendBodyData(task, bytesSent, totalBytesSent, totalBytesExpectedToSend);
  }
}

void Dispatcher::taskDidCompleteWithError(const HTTPSessionTaskRef& task, const Error& error) {
  FetcherRef fetcher = fetcherForTask(task);
  removeTaskFromMap(task);
  if (fetcher) fetcher->taskDidCompleteWithError(task, error);
}

void Dispatcher::dataTaskDidReceiveResponse(const HTTPSessionTaskRef& task, const URLResponse& response,
                                            ResponseDispositionHandler completionHandler) {
  if (FetcherRef fetcher = fetcherForTask(task)) {
    fetcher->dataTaskDidReceiveResponse(task, response, std::move(completionHandler));
  }
}

void Dispatcher::dataTaskDidBecomeDownloadTask(const HTTPSessionTaskRef& dataTask,
                                               const HTTPSessionTaskRef& downloadTask) {
  FetcherRef fetcher = fetcherForTask(dataTask);
  if (!fetcher) return;
  removeTaskFromMap(dataTask);
  setFetcherForTask(fetcher, downloadTask);
  fetcher->dataTaskDidBecomeDownloadTask(dataTask, downloadTask);
}

void Dispatcher::dataTaskDidReceiveData(const HTTPSessionTaskRef& task, const Data& data) {
  if (FetcherRef fetcher = fetcherForTask(task)) fetcher->dataTaskDidReceiveData(task, data);
}

void Dispatcher::dataTaskWillCacheResponse(const HTTPSessionTaskRef& task,
                                           const CachedURLResponse& proposedResponse,
                                           CachedResponseHandler completionHandler) {
  if (FetcherRef fetcher = fetcherForTask(task)) {
    fetcher->dataTaskWillCacheResponse(task, proposedResponse, std::move(completionHandler));
  }
}

void Dispatcher::downloadTaskDidFinishDownloadingToURL(const HTTPSessionTaskRef& task, const URL& location) {
  if (FetcherRef fetcher = fetcherForTask(task))
    fetcher->downloadTaskDidFinishDownloadingToURL(task, location);
}

void Dispatcher::downloadTaskDidWriteData(const HTTPSessionTaskRef& task, int64_t bytesWritten,
                                          int64_t totalBytesWritten, int64_t totalBytesExpectedToWrite) {
  if (FetcherRef fetcher = fetcherForTask(task)) {
    fetcher->downloadTaskDidWriteData(task, bytesWritten, totalBytesWritten, totalBytesExpectedToWrite);
  }
}

void Dispatcher::downloadTaskDidResumeAtOffset(const HTTPSessionTaskRef& task, int64_t fileOffset,
                                               int64_t expectedTotalBytes) {
  if (FetcherRef fetcher = fetcherForTask(task)) {
    fetcher->downloadTaskDidResumeAtOffset(task, fileOffset, expectedTotalBytes);
  }
}

void Dispatcher::sessionDidFinishEventsForBackgroundURLSession(const HTTPSessionRef&) {}

void Dispatcher::sessionDidBecomeInvalidWithError(const HTTPSessionRef& session, const Error&) {
  std::vector<Entry> live;
  {
    HTTPSessionRef dropped;
    Lock lock(_lock);
    dropped.swap(_session);
    for (const auto& [task, entry] : _taskToFetcherMap) {
      if (entry.fetcher->session() == session) live.push_back(entry);
    }
  }
  // In the order in which the tasks were made, so that results repeat.
  std::sort(live.begin(), live.end(), [](const Entry& a, const Entry& b) {
    return a.task->taskIdentifier() < b.task->taskIdentifier();
  });
  const Error cancelled(kURLErrorDomain, kURLErrorCancelled);
  for (const Entry& entry : live) taskDidCompleteWithError(entry.task, cancelled);
  NotificationCenter::defaultCenter().post(
      {NVXx_kHTKSessionFetcherServiceSessionBecameInvalidNotification,
       _parentService.lock(),
       {{NVXx_kHTKSessionFetcherServiceSessionKey, Value::object(session)}}});
}

}  // namespace nvxcore
