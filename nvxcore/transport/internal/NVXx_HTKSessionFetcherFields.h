#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nvxcore/foundation/base/BackgroundGrant.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/internal/DownloadBuffer.h"

namespace nvxcore {

struct NVXx_HTKSessionFetcher::Fields : Pooled {
  mutable Mutex lock;

  std::shared_ptr<URLRequest> _request NVX_GUARDED_BY(lock);
  bool _useUploadTask NVX_GUARDED_BY(lock) = false;
  URL _bodyFileURL NVX_GUARDED_BY(lock);
  FetcherBodyStreamProvider _bodyStreamProvider NVX_GUARDED_BY(lock);
  HTTPSessionRef _session NVX_GUARDED_BY(lock);
  /// This fetcher owns the session, and must invalidate it when done.
  bool _shouldInvalidateSession NVX_GUARDED_BY(lock) = false;
  /// An owned session whose invalidation waits for the cancelled task to complete.
  HTTPSessionRef _sessionNeedingInvalidation NVX_GUARDED_BY(lock);
  HTTPSessionConfigurationRef _configuration NVX_GUARDED_BY(lock);
  HTTPSessionTaskRef _sessionTask NVX_GUARDED_BY(lock);
  std::string _taskDescription NVX_GUARDED_BY(lock);
  float _taskPriority NVX_GUARDED_BY(lock) = -1.0f;
  /// The last response, kept when the task is gone.
  URLResponse _response NVX_GUARDED_BY(lock);
  bool _userRequestedBackgroundSession NVX_GUARDED_BY(lock) = false;
  bool _usingBackgroundSession NVX_GUARDED_BY(lock) = false;
  DownloadBuffer _downloadedData NVX_GUARDED_BY(lock);
  /// Failure while placing a downloaded file.
  Error _downloadFinishedError NVX_GUARDED_BY(lock);
  Data _downloadResumeData NVX_GUARDED_BY(lock);
  URL _destinationFileURL NVX_GUARDED_BY(lock);
  int64_t _downloadedLength NVX_GUARDED_BY(lock) = 0;
  URLCredentialRef _credential NVX_GUARDED_BY(lock);
  URLCredentialRef _proxyCredential NVX_GUARDED_BY(lock);
  bool _isStopNotificationNeeded NVX_GUARDED_BY(lock) = false;
  bool _isUsingTestBlock NVX_GUARDED_BY(lock) = false;
  Value _userData NVX_GUARDED_BY(lock);
  Dictionary _properties NVX_GUARDED_BY(lock);
  /// Empty once the callbacks were released: what comes late is dropped.
  QueueRef _callbackQueue NVX_GUARDED_BY(lock);
  QueueRef _delegateQueue NVX_GUARDED_BY(lock);
  /// Every queued callback is in it, so that waits can see them.
  DispatchGroup _callbackGroup;
  AuthorizerRef _authorizer NVX_GUARDED_BY(lock);
  FetcherServiceProtocolRef _service NVX_GUARDED_BY(lock);
  std::optional<std::string> _serviceHost NVX_GUARDED_BY(lock);
  int64_t _servicePriority NVX_GUARDED_BY(lock) = 0;
  /// Set by every stop and failure, never cleared.
  bool _hasStoppedFetching NVX_GUARDED_BY(lock) = false;
  /// Set by `stopFetching`, never cleared.
  bool _userStoppedFetching NVX_GUARDED_BY(lock) = false;
  bool _isRetryEnabled NVX_GUARDED_BY(lock) = false;
  uint64_t _retryCount NVX_GUARDED_BY(lock) = 0;
  TimeInterval _maxRetryInterval NVX_GUARDED_BY(lock) = -1.0;
  TimeInterval _minRetryInterval NVX_GUARDED_BY(lock) = 1.0;
  double _retryFactor NVX_GUARDED_BY(lock) = 0;
  TimeInterval _lastRetryInterval NVX_GUARDED_BY(lock) = 0;
  /// When the first begin was asked for, as a moment of `nextFetchMoment`; 0 before.
  int64_t _initialBeginFetchDate NVX_GUARDED_BY(lock) = 0;
  /// When the first task was set up.
  std::optional<Date> _initialRequestDate NVX_GUARDED_BY(lock);
  std::string _comment NVX_GUARDED_BY(lock);
  std::string _log NVX_GUARDED_BY(lock);
  bool _canShareSession NVX_GUARDED_BY(lock) = false;
  bool _allowLocalhostRequest NVX_GUARDED_BY(lock) = false;
  bool _allowInvalidServerCertificates NVX_GUARDED_BY(lock) = false;
  bool _skipBackgroundTask NVX_GUARDED_BY(lock) = false;
  FetcherConfigurationBlock _configurationBlock NVX_GUARDED_BY(lock);
  FetcherCompletionHandler _completionHandler NVX_GUARDED_BY(lock);
  Data _bodyData NVX_GUARDED_BY(lock);
  int64_t _bodyLength NVX_GUARDED_BY(lock) = kUnknownTransferSize;
  FetcherAccumulateDataBlock _accumulateDataBlock NVX_GUARDED_BY(lock);
  FetcherReceivedProgressBlock _receivedProgressBlock NVX_GUARDED_BY(lock);
  FetcherProgressBlock _downloadProgressBlock NVX_GUARDED_BY(lock);
  FetcherResumeDataBlock _resumeDataBlock NVX_GUARDED_BY(lock);
  FetcherDidReceiveResponseBlock _didReceiveResponseBlock NVX_GUARDED_BY(lock);
  FetcherChallengeBlock _challengeBlock NVX_GUARDED_BY(lock);
  FetcherWillRedirectBlock _willRedirectBlock NVX_GUARDED_BY(lock);
  FetcherProgressBlock _sendProgressBlock NVX_GUARDED_BY(lock);
  FetcherWillCacheURLResponseBlock _willCacheURLResponseBlock NVX_GUARDED_BY(lock);
  FetcherRetryBlock _retryBlock NVX_GUARDED_BY(lock);
  std::vector<std::string> _allowedInsecureSchemes NVX_GUARDED_BY(lock);
  std::shared_ptr<HTTPCookieStorage> _cookieStorage NVX_GUARDED_BY(lock);
  FetcherTestBlock _testBlock NVX_GUARDED_BY(lock);
  /// Execution time in the background, while the transfer is under way.
  std::shared_ptr<BackgroundGrant> _backgroundGrant NVX_GUARDED_BY(lock);

  // Process-wide state of the class.
  struct Shared {
    Mutex lock;
    FetcherTestBlock globalTestBlock NVX_GUARDED_BY(lock);
    std::shared_ptr<BackgroundTasks> substituteUIApplication NVX_GUARDED_BY(lock);
  };
  static Shared& shared();
  static std::shared_ptr<BackgroundTasks> fetcherUIApplication();
};

/// True when the application's information dictionary allows arbitrary loads, so that the scheme is the
/// fetcher's to check.
bool appAllowsInsecureRequests();

/// A random interval of at least 1 and below 2 seconds.
TimeInterval randomRetryInterval();

}  // namespace nvxcore
