// The end of a fetch: finishing, failing to begin, stopping, and the queue of callbacks.

#include <utility>

#include "nvxcore/foundation/base/NVXQueues.h"
#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/internal/Deadline.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/internal/NVXx_HTKSessionFetcherFields.h"

namespace nvxcore {

void NVXx_HTKSessionFetcher::failToBeginFetchWithError(const Error& error) {
  const Error reported =
      error ? error : Error(NVXx_kHTKSessionFetcherErrorDomain, kHTKSessionFetcherErrorInvalidState);
  FetcherServiceProtocolRef service;
  {
    Lock lock(_fields->lock);
    _fields->_hasStoppedFetching = true;
    service = _fields->_service;
  }
  invokeFetchCallbacksOnCallbackQueue(Data(), reported);
  releaseCallbacks();
  if (service) service->fetcherDidStop(shared_from_this());
  AuthorizerRef authorizer;
  HTTPSessionRef unused;
  {
    Lock lock(_fields->lock);
    _fields->_authorizer.swap(authorizer);
    // Of a second begin, the session is at work for the first.
    if (_fields->_shouldInvalidateSession && !_fields->_sessionTask) unused.swap(_fields->_session);
  }
  if (unused) unused->finishTasksAndInvalidate();
}

void NVXx_HTKSessionFetcher::finishWithError(Error error) {
  const int status = statusCode();
  const URL destination = destinationFileURL();
  Data data;
  if (error || status > 299) {
    FetcherResumeDataBlock resumeDataBlock;
    QueueRef callbackQueue;
    {
      Lock lock(_fields->lock);
      if (!_fields->_downloadedData.empty()) data = _fields->_downloadedData.data();
      if (error) resumeDataBlock.swap(_fields->_resumeDataBlock);
      callbackQueue = _fields->_callbackQueue;
    }
    if (!error) {
      Dictionary userInfo;
      if (data) userInfo.set(NVXx_kHTKSessionFetcherStatusDataKey, data);
      error = Error(NVXx_kHTKSessionFetcherStatusDomain, status, std::move(userInfo));
    } else if (resumeDataBlock) {
      if (Data resumeData = error.userInfo().get(kURLSessionDownloadTaskResumeData).data()) {
        invokeOnCallbackQueue(callbackQueue, true,
                              [resumeDataBlock, resumeData] { resumeDataBlock(resumeData); });
      }
    }
  } else {
    error = placeDownloadedData(destination);
    Lock lock(_fields->lock);
    data = _fields->_downloadedData.data();
  }
  sendStopNotificationIfNeeded();
  {
    HandOffScope handOff;
    invokeFetchCallbacksOnCallbackQueue(std::move(data), std::move(error));
  }
  stopFetchReleasingCallbacks(true);
}

Error NVXx_HTKSessionFetcher::placeDownloadedData(const URL& destination) {
  Data body;
  if (destination) {
    Lock lock(_fields->lock);
    body = _fields->_downloadedData.data();
  }
  if (body.empty()) return {};
  removeFile(destination);
  Error failure = createDirectoryWithIntermediates(destination.deletingLastPathComponent());
  if (!failure) failure = writeFileAtomically(destination, body);
  DownloadBuffer dropped;
  Lock lock(_fields->lock);
  if (failure) {
    _fields->_downloadFinishedError = failure;
  } else {
    std::swap(dropped, _fields->_downloadedData);
  }
  return failure;
}

void NVXx_HTKSessionFetcher::invokeFetchCallbacksOnCallbackQueue(Data data, Error error) {
  FetcherCompletionHandler handler;
  {
    Lock lock(_fields->lock);
    handler = _fields->_completionHandler;
  }
  if (!handler) return;
  invokeOnCallbackQueueUnlessStopped([self = shared_from_this(), handler = std::move(handler),
                                      data = std::move(data), error = std::move(error)] {
    handler(data, error);
    Dictionary userInfo;
    if (data) userInfo.set(NVXx_kHTKSessionFetcherCompletionDataKey, data);
    if (error) userInfo.set(NVXx_kHTKSessionFetcherCompletionErrorKey, error);
    self->postNotificationOnMainThread(NVXx_kHTKSessionFetcherCompletionInvokedNotification,
                                       std::move(userInfo), false);
  });
}

void NVXx_HTKSessionFetcher::stopFetching() {
  {
    Lock lock(_fields->lock);
    _fields->_userStoppedFetching = true;
  }
  stopFetchReleasingCallbacks(true);
}

void NVXx_HTKSessionFetcher::stopFetchReleasingCallbacks(bool release) {
  const FetcherRef self = shared_from_this();
  FetcherServiceProtocolRef service;
  AuthorizerRef authorizer;
  std::optional<URLRequest> request;
  HTTPSessionTaskRef task;
  FetcherResumeDataBlock resumeDataBlock;
  QueueRef callbackQueue;
  HTTPSessionRef sessionToInvalidate;
  bool cancels = false;
  {
    Lock lock(_fields->lock);
    _fields->_hasStoppedFetching = true;
    service = _fields->_service;
    authorizer = _fields->_authorizer;
    if (authorizer && _fields->_request) request = *_fields->_request;
    callbackQueue = _fields->_callbackQueue;
    task = std::move(_fields->_sessionTask);
    _fields->_sessionTask.reset();
    if (task) {
      if (!_fields->_isUsingTestBlock) _fields->_response = task->response();
      cancels = task->state() != TaskState::Completed;
      if (cancels && task->kind() == TaskKind::Download) resumeDataBlock.swap(_fields->_resumeDataBlock);
    }
    if (_fields->_session && _fields->_shouldInvalidateSession) {
      HTTPSessionRef& keeper = cancels ? _fields->_sessionNeedingInvalidation : sessionToInvalidate;
      keeper = std::move(_fields->_session);
      _fields->_session.reset();
    }
  }
  if (cancels && resumeDataBlock) {
    _fields->_callbackGroup.enter();
    task->cancelByProducingResumeData([self, callbackQueue, resumeDataBlock](Data resumeData) {
      self->invokeOnCallbackQueue(callbackQueue, true,
                                  [resumeDataBlock, resumeData] { resumeDataBlock(resumeData); });
      self->_fields->_callbackGroup.leave();
    });
  } else if (cancels) {
    task->cancel();
  }
  if (sessionToInvalidate) sessionToInvalidate->finishTasksAndInvalidate();
  sendStopNotificationIfNeeded();
  if (authorizer && request) {
    HandOffScope::settle();
    authorizer->stopAuthorizationForRequest(*request);
  }
  if (release) {
    releaseCallbacks();
    AuthorizerRef dropped;
    Lock lock(_fields->lock);
    _fields->_authorizer.swap(dropped);
  }
  if (service) service->fetcherDidStop(self);
  endBackgroundTask();
}

void NVXx_HTKSessionFetcher::releaseCallbacks() {
  // Declared before the lock, so that what the handlers hold is destroyed after it.
  struct {
    QueueRef callbackQueue;
    FetcherCompletionHandler completion;
    FetcherConfigurationBlock configuration;
    FetcherDidReceiveResponseBlock didReceiveResponse;
    FetcherChallengeBlock challenge;
    FetcherWillRedirectBlock willRedirect;
    FetcherProgressBlock sendProgress;
    FetcherReceivedProgressBlock receivedProgress;
    FetcherProgressBlock downloadProgress;
    FetcherAccumulateDataBlock accumulateData;
    FetcherWillCacheURLResponseBlock willCache;
    FetcherRetryBlock retry;
    FetcherTestBlock test;
    FetcherResumeDataBlock resumeData;
  } held;
  Lock lock(_fields->lock);
  held.callbackQueue.swap(_fields->_callbackQueue);
  held.completion.swap(_fields->_completionHandler);
  held.configuration.swap(_fields->_configurationBlock);
  held.didReceiveResponse.swap(_fields->_didReceiveResponseBlock);
  held.challenge.swap(_fields->_challengeBlock);
  held.willRedirect.swap(_fields->_willRedirectBlock);
  held.sendProgress.swap(_fields->_sendProgressBlock);
  held.receivedProgress.swap(_fields->_receivedProgressBlock);
  held.downloadProgress.swap(_fields->_downloadProgressBlock);
  held.accumulateData.swap(_fields->_accumulateDataBlock);
  held.willCache.swap(_fields->_willCacheURLResponseBlock);
  held.retry.swap(_fields->_retryBlock);
  held.test.swap(_fields->_testBlock);
  held.resumeData.swap(_fields->_resumeDataBlock);
}

void NVXx_HTKSessionFetcher::sendStopNotificationIfNeeded() {
  {
    Lock lock(_fields->lock);
    if (!std::exchange(_fields->_isStopNotificationNeeded, false)) return;
  }
  postNotificationOnMainThread(NVXx_kHTKSessionFetcherStoppedNotification, {}, false);
}

void NVXx_HTKSessionFetcher::postNotificationOnMainThread(const char* name, Dictionary userInfo,
                                                          bool requireAsync) {
  NotificationCenter& center = NotificationCenter::defaultCenter();
  if (!center.hasObserver(name)) return;
  Notification notification{name, shared_from_this(), std::move(userInfo)};
  const QueueRef main = Queue::main();
  if (main->isCurrent() && !requireAsync) return center.post(notification);
  main->post(
      [notification = std::move(notification)] { NotificationCenter::defaultCenter().post(notification); });
}

void NVXx_HTKSessionFetcher::beginBackgroundTask() {
  {
    Lock lock(_fields->lock);
    if (_fields->_skipBackgroundTask || _fields->_userRequestedBackgroundSession) return;
  }
  std::shared_ptr<BackgroundGrant> grant =
      BackgroundGrant::begin(Fields::fetcherUIApplication(), "HTKSessionFetcher");
  Lock lock(_fields->lock);
  _fields->_backgroundGrant.swap(grant);
}

void NVXx_HTKSessionFetcher::endBackgroundTask() {
  std::shared_ptr<BackgroundGrant> grant;
  {
    Lock lock(_fields->lock);
    grant.swap(_fields->_backgroundGrant);
  }
  if (grant) grant->end();
}

void NVXx_HTKSessionFetcher::invokeOnCallbackQueue(const QueueRef& queue, bool afterUserStopped, Task block) {
  if (!queue) return;
  queue->post(_fields->_callbackGroup,
              [self = shared_from_this(), block = std::move(block), afterUserStopped]() mutable {
                if (!afterUserStopped && self->isStoppedForCallbacks()) return;
                block();
              });
}

void NVXx_HTKSessionFetcher::invokeOnCallbackQueueUnlessStopped(Task block) {
  invokeOnCallbackQueueAfterUserStopped(false, std::move(block));
}

void NVXx_HTKSessionFetcher::invokeOnCallbackQueueAfterUserStopped(bool afterUserStopped, Task block) {
  invokeOnCallbackQueue(callbackQueue(), afterUserStopped, std::move(block));
}

bool NVXx_HTKSessionFetcher::isStoppedForCallbacks() {
  FetcherServiceProtocolRef service;
  int64_t begun;
  {
    Lock lock(_fields->lock);
    if (_fields->_userStoppedFetching) return true;
    service = _fields->_service;
    begun = _fields->_initialBeginFetchDate;
  }
  const int64_t stoppedAll = service ? service->stoppedAllFetchersDate() : 0;
  return stoppedAll && begun <= stoppedAll;
}

bool NVXx_HTKSessionFetcher::waitForCompletionWithTimeout(TimeInterval timeout) {
  constexpr TimeInterval kGroupWait = 0.1;
  constexpr TimeInterval kTurn = 0.001;
  Threading& threading = *Platform::current().threading;
  const int64_t deadline = deadlineAfter(threading.monotonicNanos(), timeout);
  const QueueRef main = Queue::main();
  std::unique_ptr<Parker> parker;
  for (;;) {
    bool over;
    bool onMainQueue;
    HTTPSessionTaskRef task;
    {
      Lock lock(_fields->lock);
      over = !_fields->_completionHandler;
      task = _fields->_sessionTask;
      onMainQueue = !_fields->_callbackQueue || _fields->_callbackQueue == main;
    }
    if (over && task) over = task->state() == TaskState::Completed;
    const bool turns = main->isCurrent() && onMainQueue;
    if (over && _fields->_callbackGroup.wait(turns ? 0 : kGroupWait)) return true;
    if (threading.monotonicNanos() >= deadline) return false;
    if (turns) {
      Platform::current().mainLoop->turn(kTurn);
    } else {
      if (!parker) parker = threading.makeParker();
      parker->parkUntil(deadlineAfter(threading.monotonicNanos(), kTurn));
    }
  }
}

}  // namespace nvxcore
