#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "nvxcore/platform/Export.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherTypes.h"

namespace nvxcore {

/// What a fetcher asks of the service that it belongs to. Any thread.
class NVXCORE_EXPORT HTKSessionFetcherServiceProtocol {
 public:
  virtual ~HTKSessionFetcherServiceProtocol() = default;
  /// False when the fetcher has to wait; the service has then taken its session (`dropSharedSession`), and
  /// begins it later.
  virtual bool fetcherShouldBeginFetching(const FetcherRef& fetcher) = 0;
  /// Must follow a `sessionForFetcherCreation` that gave nothing, on the same thread, whether or not a
  /// session was made.
  virtual void fetcherDidCreateSession(const FetcherRef& fetcher) = 0;
  virtual void fetcherDidBeginFetching(const FetcherRef& fetcher) = 0;
  virtual void fetcherDidStop(const FetcherRef& fetcher) = 0;
  virtual FetcherRef fetcherWithRequest(const URLRequest& request) = 0;
  virtual bool isDelayingFetcher(const FetcherRef& fetcher) = 0;
  virtual HTTPSessionRef session() = 0;
  /// The shared session, or nothing: then the caller must make one, and all others wait for that.
  virtual HTTPSessionRef sessionForFetcherCreation(const FetcherRef& fetcher) = 0;
  virtual std::shared_ptr<HTTPSessionDelegate> sessionDelegate() = 0;
  /// When all fetchers were last stopped, as a moment of `nextFetchMoment`; 0 when they never were.
  virtual int64_t stoppedAllFetchersDate() = 0;
  virtual QueueRef callbackQueue() = 0;
  virtual void setCallbackQueue(QueueRef queue) = 0;
  virtual bool reuseSession() = 0;
  virtual void setReuseSession(bool reuse) = 0;
  virtual QueueRef delegateQueue() = 0;
};
using FetcherServiceProtocolRef = std::shared_ptr<HTKSessionFetcherServiceProtocol>;

}  // namespace nvxcore
