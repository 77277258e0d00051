#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

#include "nvxcore/connection/DASHDataInputProvider.h"
#include "nvxcore/connection/java_data/JavaDataInput.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherTypes.h"

namespace nvxcore {

/// Lets the reader of a reply wait for the end of its transfer.
class NVXCORE_EXPORT NVXDASHStreamingCompletionContext {
 public:
  virtual ~NVXDASHStreamingCompletionContext() = default;
  /// False when `timeout` seconds passed first.
  virtual bool waitForCompletionWithTimeout(TimeInterval timeout) = 0;
  /// True once the fetch was stopped from outside, so that reads fail for that reason.
  virtual bool wasStopped() const = 0;
};

/// The reply of a POST: it is read on a worker of its own from its first chunk on, while the rest is still
/// arriving. Chunks and the end of the fetch come on the fetcher's callback queue.
class NVXCORE_EXPORT NVXDASHStreamingReply : public NVXDASHStreamingCompletionContext,
                                             public std::enable_shared_from_this<NVXDASHStreamingReply> {
 public:
  /// Called once, on a worker that may block, with an error when the transfer failed before a byte could be
  /// read.
  using Handler = std::function<void(utils::JavaDataInput* input, const Error& error,
                                     NVXDASHStreamingCompletionContext& completionContext)>;

  static std::shared_ptr<NVXDASHStreamingReply> initWithDispatchGroup(
      std::shared_ptr<DispatchGroup> dispatchGroup, const FetcherRef& fetcher);
  NVXDASHStreamingReply() = delete;

  /// Begins the fetch.
  void startWithHandler(Handler handler);
  void startWithError(const Error& error);
  void accumulateFetchedData(const Data& chunk);
  bool waitForCompletionWithTimeout(TimeInterval timeout) override;
  bool wasStopped() const override { return _wasStopped; }

 private:
  class EndWatch;

  NVXDASHStreamingReply(std::shared_ptr<DispatchGroup> dispatchGroup, const FetcherRef& fetcher);
  void fetchEnded(const Error& error);
  void fetchStopped();

  const std::shared_ptr<DispatchGroup> _dispatchGroup;
  const std::weak_ptr<NVXx_HTKSessionFetcher> _owningFetcher;
  Handler _handler;
  DASHDataInputProvider _provider;
  Semaphore _completionSemaphore{0};
  std::atomic<bool> _wasStopped{false};
  // Touched on the fetcher's callback queue only.
  bool _started = false;
  bool _done = false;
  bool _sawError = false;
  size_t _dataLength = 0;
};

}  // namespace nvxcore
