#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherTypes.h"

namespace nvxcore {

class NVXx_HTKSessionFetcherService;

/// Posted on the delegate queue with the service as object, when a shared session has become invalid; the
/// session stands under the key.
inline constexpr char NVXx_kHTKSessionFetcherServiceSessionBecameInvalidNotification[] =
    "kHTKSessionFetcherServiceSessionBecameInvalidNotification";
inline constexpr char NVXx_kHTKSessionFetcherServiceSessionKey[] = "kHTKSessionFetcherServiceSessionKey";

/// The delegate of a session that many fetchers share: it owns the session, hands each event to the fetcher
/// of the task, and gives the session up when no task was active for the discard interval. Any thread; events
/// on the delegate queue.
class NVXCORE_EXPORT NVXx_HTKSessionFetcherSessionDelegateDispatcher
    : public HTTPSessionDelegate,
      public std::enable_shared_from_this<NVXx_HTKSessionFetcherSessionDelegateDispatcher> {
 public:
  /// An interval of 0 seconds or less keeps the session for ever.
  static std::shared_ptr<NVXx_HTKSessionFetcherSessionDelegateDispatcher> initWithParentService(
      std::weak_ptr<NVXx_HTKSessionFetcherService> parentService, TimeInterval sessionDiscardInterval);
  NVXx_HTKSessionFetcherSessionDelegateDispatcher() = delete;
  ~NVXx_HTKSessionFetcherSessionDelegateDispatcher() override;

  HTTPSessionRef session() const;
  void setSession(HTTPSessionRef session);
  TimeInterval discardInterval() const;
  void setDiscardInterval(TimeInterval seconds);
  std::shared_ptr<Timer> discardTimer() const;

  /// Lets the session finish its tasks and go.
  void abandon();
  /// Somebody is about to use the session: the discard timer goes.
  void startSessionUsage();
  void setFetcherForTask(FetcherRef fetcher, const HTTPSessionTaskRef& task);
  /// Takes the fetcher out; the discard timer starts when none is left.
  void removeFetcher(const FetcherRef& fetcher);
  FetcherRef fetcherForTask(const HTTPSessionTaskRef& task) const;
  void removeTaskFromMap(const HTTPSessionTaskRef& task);
  std::string description() const;

  void taskWillPerformHTTPRedirection(const HTTPSessionTaskRef& task, const URLResponse& response,
                                      const URLRequest& newRequest,
                                      RedirectHandler completionHandler) override;
  void taskDidReceiveChallenge(const HTTPSessionTaskRef& task, const AuthenticationChallenge& challenge,
                               ChallengeHandler completionHandler) override;
  void taskNeedNewBodyStream(const HTTPSessionTaskRef& task, BodyStreamHandler completionHandler) override;
  void taskDidSendBodyData(const HTTPSessionTaskRef& task, int64_t bytesSent, int64_t totalBytesSent,
                           int64_t totalBytesExpectedToSend) override;
  void taskDidCompleteWithError(const HTTPSessionTaskRef& task, const Error& error) override;
  void dataTaskDidReceiveResponse(const HTTPSessionTaskRef& task, const URLResponse& response,
                                  ResponseDispositionHandler completionHandler) override;
  void dataTaskDidBecomeDownloadTask(const HTTPSessionTaskRef& dataTask,
                                     const HTTPSessionTaskRef& downloadTask) override;
  void dataTaskDidReceiveData(const HTTPSessionTaskRef& task, const Data& data) override;
  void dataTaskWillCacheResponse(const HTTPSessionTaskRef& task, const CachedURLResponse& proposedResponse,
                                 CachedResponseHandler completionHandler) override;
  void downloadTaskDidFinishDownloadingToURL(const HTTPSessionTaskRef& task, const URL& location) override;
  void downloadTaskDidWriteData(const HTTPSessionTaskRef& task, int64_t bytesWritten,
                                int64_t totalBytesWritten, int64_t totalBytesExpectedToWrite) override;
  void downloadTaskDidResumeAtOffset(const HTTPSessionTaskRef& task, int64_t fileOffset,
                                     int64_t expectedTotalBytes) override;
  void sessionDidFinishEventsForBackgroundURLSession(const HTTPSessionRef& session) override;
  void sessionDidBecomeInvalidWithError(const HTTPSessionRef& session, const Error& error) override;

 private:
  struct Entry {
    HTTPSessionTaskRef task;
    FetcherRef fetcher;
  };

  NVXx_HTKSessionFetcherSessionDelegateDispatcher(std::weak_ptr<NVXx_HTKSessionFetcherService> parentService,
                                                  TimeInterval sessionDiscardInterval);
  void startDiscardTimer();
  void destroyDiscardTimer();
  void discardTimerFired(const std::shared_ptr<Timer>& timer);

  const std::weak_ptr<NVXx_HTKSessionFetcherService> _parentService;
  mutable Mutex _lock;
  HTTPSessionRef _session NVX_GUARDED_BY(_lock);
  std::unordered_map<const HTTPSessionTask*, Entry> _taskToFetcherMap NVX_GUARDED_BY(_lock);
  /// Runs only while no task is active.
  std::shared_ptr<Timer> _discardTimer NVX_GUARDED_BY(_lock);
  TimeInterval _discardInterval NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore
