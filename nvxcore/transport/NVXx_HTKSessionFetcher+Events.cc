// What happens on each event of a transfer.

#include <atomic>
#include <utility>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/internal/NVXx_HTKSessionFetcherFields.h"

namespace nvxcore {

// An event that overlaps a stop must not bring the task back: its completion may never come here.
void NVXx_HTKSessionFetcher::setSessionTask(const HTTPSessionTaskRef& task) {
  Lock lock(_fields->lock);
  if (!_fields->_userStoppedFetching) _fields->_sessionTask = task;
}

void NVXx_HTKSessionFetcher::taskWillPerformHTTPRedirection(const HTTPSessionTaskRef& task,
                                                            const URLResponse&, const URLRequest&,
                                                            RedirectHandler completionHandler) {
  setSessionTask(task);
  // A refused redirect leaves the 3xx reply as the reply.
  completionHandler(std::nullopt);
}

void NVXx_HTKSessionFetcher::taskDidReceiveChallenge(const HTTPSessionTaskRef& task,
                                                     const AuthenticationChallenge& challenge,
                                                     ChallengeHandler completionHandler) {
  setSessionTask(task);
  FetcherChallengeBlock block;
  {
    Lock lock(_fields->lock);
    block = _fields->_challengeBlock;
  }
  if (!block) return completionHandler(AuthChallengeDisposition::PerformDefaultHandling, nullptr);
  invokeOnCallbackQueueAfterUserStopped(
      true, [self = shared_from_this(), block = std::move(block), challenge,
             answer = std::move(completionHandler)] { block(self, challenge, answer); });
}

void NVXx_HTKSessionFetcher::taskNeedNewBodyStream(const HTTPSessionTaskRef& task,
                                                   BodyStreamHandler completionHandler) {
  setSessionTask(task);
  FetcherBodyStreamProvider provider = bodyStreamProvider();
  if (!provider) return completionHandler(nullptr);
  HandOffScope handOff;
  invokeOnCallbackQueueUnlessStopped(
      [provider = std::move(provider), answer = std::move(completionHandler)] { provider(answer); });
}

void NVXx_HTKSessionFetcher::taskDidSendBodyData(const HTTPSessionTaskRef& task, int64_t bytesSent,
                                                 int64_t totalBytesSent, int64_t totalBytesExpectedToSend) {
  setSessionTask(task);
  {
    Lock lock(_fields->lock);
    if (!_fields->_sendProgressBlock) return;
  }
  invokeOnCallbackQueueUnlessStopped(
      [self = shared_from_this(), bytesSent, totalBytesSent, totalBytesExpectedToSend] {
        FetcherProgressBlock block;
        {
          Lock lock(self->_fields->lock);
          block = self->_fields->_sendProgressBlock;
        }
        if (block) block(bytesSent, totalBytesSent, totalBytesExpectedToSend);
      });
}

void NVXx_HTKSessionFetcher::dataTaskDidReceiveResponse(const HTTPSessionTaskRef& task,
                                                        const URLResponse& response,
                                                        ResponseDispositionHandler completionHandler) {
  setSessionTask(task);
  ResponseDispositionHandler proceed = [self = shared_from_this(), answer = std::move(completionHandler),
                                        isAnswered = makePooled<std::atomic<bool>>(false)](
                                           ResponseDisposition disposition) {
    // A second answer would take away what has come since the first.
    if (isAnswered->exchange(true)) return;
    DownloadBuffer dropped;
    {
      Lock lock(self->_fields->lock);
      const int64_t oldLength = std::exchange(self->_fields->_downloadedLength, 0);
      if (self->_fields->_downloadedData.data()) {
        std::swap(dropped, self->_fields->_downloadedData);
        self->_fields->_downloadedData.begin();
      }
      if (disposition == ResponseDisposition::Allow && oldLength > 0 && self->_fields->_accumulateDataBlock) {
        // The consumer is to drop what it has. Queued under the lock, so that it comes before the new body.
        self->queueAccumulated(Data());
      }
    }
    answer(disposition);
  };
  FetcherDidReceiveResponseBlock block;
  {
    Lock lock(_fields->lock);
    block = _fields->_didReceiveResponseBlock;
  }
  if (!block) return proceed(ResponseDisposition::Allow);
  invokeOnCallbackQueueAfterUserStopped(
      true, [block = std::move(block), response, proceed = std::move(proceed)] { block(response, proceed); });
}

void NVXx_HTKSessionFetcher::queueAccumulated(Data piece) NVX_NO_THREAD_SAFETY_ANALYSIS {
  FetcherAccumulateDataBlock block = _fields->_accumulateDataBlock;
  invokeOnCallbackQueue(_fields->_callbackQueue, false,
                        [block = std::move(block), piece = std::move(piece)] { block(piece); });
}

void NVXx_HTKSessionFetcher::dataTaskDidBecomeDownloadTask(const HTTPSessionTaskRef&,
                                                           const HTTPSessionTaskRef& downloadTask) {
  setSessionTask(downloadTask);
}

void NVXx_HTKSessionFetcher::dataTaskDidReceiveData(const HTTPSessionTaskRef& task, const Data& data) {
  const int64_t length = static_cast<int64_t>(data.length());
  setSessionTask(task);
  if (length == 0) return;
  HandOffScope handOff;
  Lock lock(_fields->lock);
  if (_fields->_accumulateDataBlock) {
    _fields->_downloadedLength += length;
    return queueAccumulated(data);
  }
  if (_fields->_userStoppedFetching) return;
  _fields->_downloadedData.append(data);
  _fields->_downloadedLength = static_cast<int64_t>(_fields->_downloadedData.length());
  if (!_fields->_receivedProgressBlock) return;
  invokeOnCallbackQueue(_fields->_callbackQueue, false, [self = shared_from_this(), length] {
    FetcherReceivedProgressBlock block;
    int64_t total;
    {
      Lock held(self->_fields->lock);
      block = self->_fields->_receivedProgressBlock;
      total = self->_fields->_downloadedLength;
    }
    if (block) block(length, total);
  });
}

void NVXx_HTKSessionFetcher::dataTaskWillCacheResponse(const HTTPSessionTaskRef&,
                                                       const CachedURLResponse& proposedResponse,
                                                       CachedResponseHandler completionHandler) {
  FetcherWillCacheURLResponseBlock block;
  {
    Lock lock(_fields->lock);
    block = _fields->_willCacheURLResponseBlock;
  }
  if (!block) return completionHandler(proposedResponse);
  invokeOnCallbackQueueAfterUserStopped(
      true, [block = std::move(block), proposedResponse, answer = std::move(completionHandler)] {
        block(proposedResponse, answer);
      });
}

void NVXx_HTKSessionFetcher::downloadTaskDidWriteData(const HTTPSessionTaskRef& task, int64_t bytesWritten,
                                                      int64_t totalBytesWritten,
                                                      int64_t totalBytesExpectedToWrite) {
  setSessionTask(task);
  {
    Lock lock(_fields->lock);
    if (!_fields->_downloadProgressBlock) return;
  }
  if (totalBytesExpectedToWrite < totalBytesWritten) totalBytesExpectedToWrite = kUnknownTransferSize;
  invokeOnCallbackQueueUnlessStopped(
      [self = shared_from_this(), bytesWritten, totalBytesWritten, totalBytesExpectedToWrite] {
        FetcherProgressBlock block;
        {
          Lock lock(self->_fields->lock);
          block = self->_fields->_downloadProgressBlock;
        }
        if (block) block(bytesWritten, totalBytesWritten, totalBytesExpectedToWrite);
      });
}

void NVXx_HTKSessionFetcher::downloadTaskDidResumeAtOffset(const HTTPSessionTaskRef& task, int64_t, int64_t) {
  setSessionTask(task);
}

void NVXx_HTKSessionFetcher::downloadTaskDidFinishDownloadingToURL(const HTTPSessionTaskRef& task,
                                                                   const URL& location) {
  setSessionTask(task);
  const int status = statusCode();
  const URL destination = destinationFileURL();
  const int64_t length = fileSize(location).value_or(0);
  Error failure;
  if (destination) {
    removeFile(destination);
    if (status >= 200 && status <= 399) {
      failure = createDirectoryWithIntermediates(destination.deletingLastPathComponent());
      if (!failure) failure = moveFile(location, destination);
    }
  }
  Lock lock(_fields->lock);
  _fields->_downloadedLength = length;
  if (failure) _fields->_downloadFinishedError = failure;
}

void NVXx_HTKSessionFetcher::taskDidCompleteWithError(const HTTPSessionTaskRef& task, const Error& error) {
  setSessionTask(task);
  const int status = statusCode();
  Error failure = error;
  HTTPSessionRef sessionToInvalidate;
  bool isSimulated;
  {
    Lock lock(_fields->lock);
    isSimulated = _fields->_isUsingTestBlock;
    if (isSimulated) _fields->_sessionTask.reset();
    if (!failure) failure = _fields->_downloadFinishedError;
    if (!isSimulated && !failure && status < 300) _fields->_bodyLength = task->countOfBytesSent();
    // Also after a success: a cancel may have come too late.
    sessionToInvalidate.swap(_fields->_sessionNeedingInvalidation);
  }
  if (sessionToInvalidate) sessionToInvalidate->finishTasksAndInvalidate();
  // A simulated fetch finishes by itself.
  if (!isSimulated) finishWithError(std::move(failure));
}

void NVXx_HTKSessionFetcher::sessionDidFinishEventsForBackgroundURLSession(const HTTPSessionRef&) {}

void NVXx_HTKSessionFetcher::sessionDidBecomeInvalidWithError(const HTTPSessionRef& session, const Error&) {
  HTTPSessionRef dropped;
  Lock lock(_fields->lock);
  if (_fields->_session == session) _fields->_session.swap(dropped);
}

}  // namespace nvxcore
