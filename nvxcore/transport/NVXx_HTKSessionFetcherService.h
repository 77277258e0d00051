#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/transport/HTKFetcherAuthorizationProtocol.h"
#include "nvxcore/transport/HTKSessionFetcherServiceProtocol.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherTypes.h"

namespace nvxcore {

class NVXx_HTKSessionFetcherSessionDelegateDispatcher;

/// Makes fetchers that share settings and one session, lets a number of them run against a host at one time,
/// and holds the others back by priority. All operations may be called on any thread.
class NVXCORE_EXPORT NVXx_HTKSessionFetcherService
    : public HTKSessionFetcherServiceProtocol,
      public std::enable_shared_from_this<NVXx_HTKSessionFetcherService> {
 public:
  /// What each new fetcher is given. The first callback queue is the main one; the delegate queue is the
  /// service's own.
  struct Settings {
    QueueRef callbackQueue;
    QueueRef delegateQueue;
    FetcherChallengeBlock challengeBlock;
    URLCredentialRef credential;
    URLCredentialRef proxyCredential;
    std::shared_ptr<HTTPCookieStorage> cookieStorage;
    int64_t cookieStorageMethod = -1;  ///< Applied when it is not negative.
    std::vector<std::string> allowedInsecureSchemes;
    bool allowLocalhostRequest = false;
    bool allowInvalidServerCertificates = false;
    HTTPSessionConfigurationRef configuration;
    FetcherConfigurationBlock configurationBlock;
    bool retryEnabled = false;
    FetcherRetryBlock retryBlock;
    TimeInterval maxRetryInterval = 0;
    TimeInterval minRetryInterval = 0;
    Dictionary properties;
    bool skipBackgroundTask = false;
    std::string userAgent;  ///< For requests without a "User-Agent".
    FetcherTestBlock testBlock;
  };
  using FetchersByHost = std::vector<std::pair<std::string, std::vector<FetcherRef>>>;
  using FetcherMaker = std::function<FetcherRef(std::optional<URLRequest>, HTTPSessionConfigurationRef)>;

  static std::shared_ptr<NVXx_HTKSessionFetcherService> init();
  /// A service that answers every fetch with the given data and error, without a network: status 500 with an
  /// error, else 200. For tests.
  static std::shared_ptr<NVXx_HTKSessionFetcherService> mockFetcherServiceWithFakedData(Data fakedData,
                                                                                        Error fakedError);
  ~NVXx_HTKSessionFetcherService() override;

  FetcherRef fetcherWithRequest(const URLRequest& request) override;
  /// As above, with a fetcher that `fetcherClass` makes.
  FetcherRef fetcherWithRequest(const URLRequest& request, const FetcherMaker& fetcherClass);
  FetcherRef fetcherWithURL(const URL& url);
  FetcherRef fetcherWithURLString(std::string_view urlString);

  /// A copy of the settings, and their change for fetchers that are made from then on. `change` is called
  /// anew when another thread has changed them meanwhile.
  Settings settings() const;
  void updateSettings(const std::function<void(Settings&)>& change);
  QueueRef callbackQueue() override;
  void setCallbackQueue(QueueRef queue) override;
  QueueRef delegateQueue() override;
  QueueRef sessionDelegateQueue() { return delegateQueue(); }
  void setSessionDelegateQueue(QueueRef queue);
  std::string userAgent() const;
  void setUserAgent(std::string userAgent);

  AuthorizerRef authorizer() const;
  void setAuthorizer(AuthorizerRef authorizer);

  /// 10 at first; 0 is no limit.
  uint64_t maxRunningFetchersPerHost() const { return _maxRunningFetchersPerHost; }
  void setMaxRunningFetchersPerHost(uint64_t count) { _maxRunningFetchersPerHost = count; }
  size_t numberOfRunningFetchers() const;
  size_t numberOfDelayedFetchers() const;
  size_t numberOfFetchers() const;
  FetchersByHost runningFetchersByHost() const;
  FetchersByHost delayedFetchersByHost() const;
  /// The running ones, then the delayed ones.
  std::vector<FetcherRef> issuedFetchers() const;
  std::vector<FetcherRef> issuedFetchersWithRequestURL(const URL& url) const;
  bool isDelayingFetcher(const FetcherRef& fetcher) override;

  /// Stops all fetchers, the delayed ones first. Callbacks of theirs that are already queued are dropped.
  void stopAllFetchers();
  int64_t stoppedAllFetchersDate() override { return _stoppedAllFetchersDate; }
  /// The next fetcher gets a new session; the old one finishes its tasks.
  void resetSession();
  bool reuseSession() override;
  void setReuseSession(bool reuse) override;
  /// Seconds after which an idle session is given up, 60 at first; 0 or less never.
  TimeInterval unusedSessionTimeout() const;
  void setUnusedSessionTimeout(TimeInterval seconds);
  /// For tests: waits until all fetchers are over and their callbacks have run. Turns the main loop on the
  /// main thread.
  bool waitForCompletionOfAllFetchersWithTimeout(TimeInterval timeout);

  bool fetcherShouldBeginFetching(const FetcherRef& fetcher) override;
  void fetcherDidCreateSession(const FetcherRef& fetcher) override;
  void fetcherDidBeginFetching(const FetcherRef& fetcher) override;
  void fetcherDidStop(const FetcherRef& fetcher) override;
  HTTPSessionRef session() override;
  HTTPSessionRef sessionForFetcherCreation(const FetcherRef& fetcher) override;
  std::shared_ptr<HTTPSessionDelegate> sessionDelegate() override;
  /// For the dispatcher: gives the session up, unless `timer` is no longer the one that runs.
  void resetSessionForDispatcherDiscardTimer(const std::shared_ptr<Timer>& timer);

 private:
  using Dispatcher = NVXx_HTKSessionFetcherSessionDelegateDispatcher;

  NVXx_HTKSessionFetcherService();
  std::shared_ptr<Dispatcher> dispatcher() const;
  std::shared_ptr<Dispatcher> makeDispatcher() NVX_REQUIRES(_lock);
  /// Answers the dispatcher to be abandoned outside the lock.
  std::shared_ptr<Dispatcher> resetSessionInternal() NVX_REQUIRES(_lock);
  void startFetchers(std::vector<FetcherRef> fetchers);
  void detachAuthorizer(const AuthorizerRef& authorizer);
  std::vector<FetcherRef> takeFetchersToStart(const std::string& host) NVX_REQUIRES(_lock);

  mutable Mutex _lock;
  FetchersByHost _delayedFetchersByHost NVX_GUARDED_BY(_lock);
  FetchersByHost _runningFetchersByHost NVX_GUARDED_BY(_lock);
  std::atomic<uint64_t> _maxRunningFetchersPerHost{10};
  /// Present exactly when sessions are reused.
  std::shared_ptr<Dispatcher> _delegateDispatcher NVX_GUARDED_BY(_lock);
  /// Taken before the lock, never after it. Held from an empty `sessionForFetcherCreation` to
  /// `fetcherDidCreateSession`.
  Semaphore _sessionCreationSemaphore{1};
  /// The fetcher that is bound to make the shared session.
  const NVXx_HTKSessionFetcher* _creatingFetcher NVX_GUARDED_BY(_lock) = nullptr;
  Settings _settings NVX_GUARDED_BY(_lock);
  uint64_t _settingsVersion NVX_GUARDED_BY(_lock) = 0;
  AuthorizerRef _authorizer NVX_GUARDED_BY(_lock);
  /// Present only while somebody waits for all fetchers.
  std::optional<std::vector<FetcherRef>> _stoppedFetchersToWaitFor NVX_GUARDED_BY(_lock);
  std::atomic<int64_t> _stoppedAllFetchersDate{0};
  TimeInterval _unusedSessionTimeout NVX_GUARDED_BY(_lock) = 60.0;
};

}  // namespace nvxcore
