#include "nvxcore/connection/NVXDASHStreamingReply.h"

#include <atomic>
#include <utility>

#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"

namespace nvxcore {

/// Sees to it that the reply hears of the end of its fetch. A fetch that is stopped from outside drops its
/// handlers and calls none; the reply then ends as cancelled.
class NVXDASHStreamingReply::EndWatch {
 public:
  EndWatch(std::shared_ptr<NVXDASHStreamingReply> reply, QueueRef callbackQueue)
      : _reply(std::move(reply)), _callbackQueue(std::move(callbackQueue)) {}
  ~EndWatch() {
    if (_ended) return;
    _callbackQueue->post([reply = std::move(_reply)] { reply->fetchStopped(); });
  }
  void ended(const Error& error) {
    _ended = true;
    _reply->fetchEnded(error);
  }

 private:
  std::shared_ptr<NVXDASHStreamingReply> _reply;
  QueueRef _callbackQueue;
  std::atomic<bool> _ended{false};
};

std::shared_ptr<NVXDASHStreamingReply> NVXDASHStreamingReply::initWithDispatchGroup(
    std::shared_ptr<DispatchGroup> dispatchGroup, const FetcherRef& fetcher) {
  return std::shared_ptr<NVXDASHStreamingReply>(new NVXDASHStreamingReply(std::move(dispatchGroup), fetcher));
}

NVXDASHStreamingReply::NVXDASHStreamingReply(std::shared_ptr<DispatchGroup> dispatchGroup,
                                             const FetcherRef& fetcher)
    : _dispatchGroup(std::move(dispatchGroup)), _owningFetcher(fetcher) {}

void NVXDASHStreamingReply::startWithHandler(Handler handler) {
  _handler = std::move(handler);
  FetcherRef fetcher = _owningFetcher.lock();
  if (!fetcher) return;
  QueueRef callbackQueue = fetcher->callbackQueue();
  auto watch = std::make_shared<EndWatch>(shared_from_this(), callbackQueue ? callbackQueue : Queue::main());
  fetcher->setAccumulateDataBlock(
      [self = shared_from_this()](const Data& chunk) { self->accumulateFetchedData(chunk); });
  fetcher->beginFetchWithCompletionHandler(
      [watch = std::move(watch)](const Data&, const Error& error) { watch->ended(error); });
}

void NVXDASHStreamingReply::accumulateFetchedData(const Data& chunk) {
  if (_sawError) return;
  _dataLength += chunk.length();
  _provider.AddData(chunk);
  if (_started) return;
  Error error;
  FetcherRef fetcher = _owningFetcher.lock();
  const int status = fetcher ? fetcher->statusCode() : 0;
  if (status >= 300) {
    Dictionary userInfo;
    if (!chunk.empty()) userInfo.set(NVXx_kHTKSessionFetcherStatusDataKey, chunk);
    error = Error(NVXx_kHTKSessionFetcherStatusDomain, status, std::move(userInfo));
  }
  startWithError(error);
}

void NVXDASHStreamingReply::fetchStopped() {
  _wasStopped = true;
  fetchEnded(Error(kURLErrorDomain, kURLErrorCancelled));
}

void NVXDASHStreamingReply::fetchEnded(const Error& error) {
  if (_done) return;
  _done = true;
  if (error) {
    _sawError = true;
    _provider.SetGotError();
  }
  _provider.DoneAdding();
  if (!_started) startWithError(error);
  _completionSemaphore.signal();
}

void NVXDASHStreamingReply::startWithError(const Error& error) {
  if (_started) return;
  _started = true;
  HandOffScope handOff;
  Queue::blocking()->post(*_dispatchGroup,
                          [self = shared_from_this(), handler = std::exchange(_handler, nullptr), error] {
                            utils::JavaDataInput input(&self->_provider);
                            if (handler) handler(&input, error, *self);
                          });
}

bool NVXDASHStreamingReply::waitForCompletionWithTimeout(TimeInterval timeout) {
  return _completionSemaphore.wait(timeout);
}

}  // namespace nvxcore
