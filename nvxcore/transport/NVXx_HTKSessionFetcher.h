#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/HTKFetcherAuthorizationProtocol.h"
#include "nvxcore/transport/HTKSessionFetcherServiceProtocol.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherTypes.h"

namespace nvxcore {

/// One logical fetch of one URL request: it chooses the kind of transfer, hands every event to the caller on
/// one callback queue in a guaranteed order, finishes exactly once, and can be stopped at any stage.
///
/// All operations may be called on any thread unless they say otherwise. What they hand over must be set
/// before the fetch begins. Handlers are called on the callback queue, never under a lock, and are dropped
/// when the fetch is over; for one attempt in this order: redirect, challenge, response, upload progress
/// (also before the response), data or download progress, cache, completion. After `stopFetching` has
/// returned on the callback queue no completion, data or progress handler begins.
class NVXCORE_EXPORT NVXx_HTKSessionFetcher : public HTTPSessionDelegate,
                                              public std::enable_shared_from_this<NVXx_HTKSessionFetcher> {
 public:
  static FetcherRef fetcherWithRequest(const URLRequest& request);
  static FetcherRef fetcherWithURL(const URL& url);
  static FetcherRef fetcherWithURLString(std::string_view urlString);
  static FetcherRef fetcherWithDownloadResumeData(Data resumeData);
  /// `configuration` is for a session of the fetcher's own; empty for one that the fetcher makes itself.
  static FetcherRef initWithRequest(std::optional<URLRequest> request,
                                    HTTPSessionConfigurationRef configuration = {});

  NVXx_HTKSessionFetcher(const NVXx_HTKSessionFetcher&) = delete;
  NVXx_HTKSessionFetcher& operator=(const NVXx_HTKSessionFetcher&) = delete;
  ~NVXx_HTKSessionFetcher() override;

  /// Begins, now or when the service has room for the host. `handler` is called once with the body, unless it
  /// went elsewhere, and the error; never after `stopFetching`. With an error an empty body is nothing.
  void beginFetchWithCompletionHandler(FetcherCompletionHandler handler);
  /// As above, for a target that the fetcher holds until it drops its handlers.
  void beginFetchWithDelegate(std::shared_ptr<void> target,
                              std::function<void(const FetcherRef&, Data, Error)> didFinishSelector);
  /// For the service: begins a fetch that it has held back.
  void beginFetchMayDelay(bool mayDelay, bool mayAuthorize);
  /// A session that a fetcher has let go of; one of its own ends with this.
  struct NVXCORE_EXPORT DroppedSession {
    DroppedSession() = default;
    DroppedSession(DroppedSession&&) = default;
    DroppedSession& operator=(DroppedSession&&) = default;
    ~DroppedSession();
    HTTPSessionRef session;
    bool isOwn = false;
  };
  /// For the service: lets go of the session of a fetch that has to wait, before anybody can begin it anew.
  [[nodiscard]] DroppedSession dropSharedSession();
  /// Ends the fetch at whatever stage it is; the completion handler is not called. Harmless when repeated.
  void stopFetching();
  bool isFetching() const;
  /// Waits until the fetch is over and its handlers have run, for at most `timeout` seconds; true when it is.
  /// Turns the main loop when it is called on the main thread with the main queue as callback queue.
  bool waitForCompletionWithTimeout(TimeInterval timeout);

  URLResponse response() const;
  /// 0 while there is no HTTP response. May be called in handlers.
  int statusCode() const;
  /// Empty without a response.
  HTTPHeaders responseHeaders() const;

  std::optional<URLRequest> request() const;
  /// Ignored while `isFetching`.
  void setRequest(const URLRequest& request);
  /// The request as it will be sent, for changes before the fetch begins.
  std::shared_ptr<URLRequest> mutableRequest() const;
  void setMutableRequest(std::shared_ptr<URLRequest> request);
  void updateMutableRequest(std::shared_ptr<URLRequest> request);
  /// An empty value removes the field. Ignored while `isFetching`.
  void setRequestValue(std::optional<std::string_view> value, std::string_view field);
  void updateRequestValue(std::optional<std::string_view> value, std::string_view field);

  // The body: the first of these that is set counts, after the request's own. A body makes a POST of a GET.
  Data bodyData() const;
  void setBodyData(Data data);
  URL bodyFileURL() const;
  void setBodyFileURL(URL file);
  FetcherBodyStreamProvider bodyStreamProvider() const;
  /// Asked on the callback queue for the stream when the transfer wants it.
  void setBodyStreamProvider(FetcherBodyStreamProvider provider);
  bool useUploadTask() const;
  void setUseUploadTask(bool use);
  /// -1 while it is not known; after a transfer that ended well, the bytes sent.
  int64_t bodyLength();

  // Where the reply goes. A file at the destination is replaced.
  URL destinationFileURL() const;
  void setDestinationFileURL(URL file);
  Data downloadResumeData() const;
  void setDownloadResumeData(Data resumeData);
  Data downloadedData() const;
  void setDownloadedData(Data data);
  int64_t downloadedLength() const;

  /// Serial. Empty means the main queue, which it is at first; nothing once the handlers were dropped.
  QueueRef callbackQueue() const;
  void setCallbackQueue(QueueRef queue);
  /// Serial; where the session's events arrive. Ignored while `isFetching`.
  QueueRef sessionDelegateQueue() const;
  void setSessionDelegateQueue(QueueRef queue);

  FetcherCompletionHandler completionHandler() const;
  FetcherAccumulateDataBlock accumulateDataBlock() const;
  /// With it the fetcher keeps no body: each piece goes to `block`, and the received-progress block is not
  /// called.
  void setAccumulateDataBlock(FetcherAccumulateDataBlock block);
  void setReceivedProgressBlock(FetcherReceivedProgressBlock block);
  void setDownloadProgressBlock(FetcherProgressBlock block);
  void setSendProgressBlock(FetcherProgressBlock block);
  void setResumeDataBlock(FetcherResumeDataBlock block);
  void setDidReceiveResponseBlock(FetcherDidReceiveResponseBlock block);
  void setChallengeBlock(FetcherChallengeBlock block);
  void setWillRedirectBlock(FetcherWillRedirectBlock block);
  void setWillCacheURLResponseBlock(FetcherWillCacheURLResponseBlock block);
  void setRetryBlock(FetcherRetryBlock block);
  FetcherRetryBlock retryBlock() const;
  void setConfigurationBlock(FetcherConfigurationBlock block);
  void setTestBlock(FetcherTestBlock block);
  /// Answers every fetch of the process that has no test block of its own. For tests.
  static void setGlobalTestBlock(FetcherTestBlock block);

  HTTPSessionRef session() const;
  HTTPSessionTaskRef sessionTask() const;
  bool canShareSession() const;
  HTTPSessionConfigurationRef configuration() const;
  void setConfiguration(HTTPSessionConfigurationRef configuration);
  std::shared_ptr<HTTPCookieStorage> cookieStorage() const;
  void setCookieStorage(std::shared_ptr<HTTPCookieStorage> storage);
  /// 1 changes nothing, 2 is the store that the process shares, 3 a new private one, any other the class's
  /// own.
  void setCookieStorageMethod(int64_t method);
  static std::shared_ptr<HTTPCookieStorage> staticCookieStorage();

  /// Taken only before the fetch begins.
  AuthorizerRef authorizer() const;
  void setAuthorizer(AuthorizerRef authorizer);
  URLCredentialRef credential() const;
  void setCredential(URLCredentialRef credential);
  URLCredentialRef proxyCredential() const;
  void setProxyCredential(URLCredentialRef credential);
  std::vector<std::string> allowedInsecureSchemes() const;
  void setAllowedInsecureSchemes(std::vector<std::string> schemes);
  bool allowLocalhostRequest() const;
  void setAllowLocalhostRequest(bool allow);
  bool allowInvalidServerCertificates() const;
  void setAllowInvalidServerCertificates(bool allow);

  bool isRetryEnabled() const;
  /// Switching it on puts the intervals back to their defaults.
  void setRetryEnabled(bool enabled);
  TimeInterval maxRetryInterval() const;
  void setMaxRetryInterval(TimeInterval seconds);
  TimeInterval minRetryInterval() const;
  /// 0 or less draws one between 1 and 2 seconds.
  void setMinRetryInterval(TimeInterval seconds);
  double retryFactor() const;
  void setRetryFactor(double factor);
  uint64_t retryCount() const;

  FetcherServiceProtocolRef service() const;
  void setService(FetcherServiceProtocolRef service);
  /// The host under which the service counts this fetcher; nothing when it does not.
  std::optional<std::string> serviceHost() const;
  void setServiceHost(std::optional<std::string> host);
  /// Lower ones begin first.
  int64_t servicePriority() const;
  void setServicePriority(int64_t priority);
  bool useBackgroundSession() const;
  void setUseBackgroundSession(bool use);
  bool isUsingBackgroundSession() const;
  bool skipBackgroundTask() const;
  void setSkipBackgroundTask(bool skip);
  std::string taskDescription() const;
  void setTaskDescription(std::string description);
  /// 0 to 1; a negative one is not handed to the task.
  float taskPriority() const;
  void setTaskPriority(float priority);
  /// Takes the place of the application's background tasks; empty restores them. For tests.
  static void setSubstituteUIApplication(std::shared_ptr<BackgroundTasks> application);

  // The caller's own values.
  Value userData() const;
  void setUserData(Value value);
  Dictionary properties() const;
  void setProperties(Dictionary properties);
  /// A value of the kind "nothing" removes the key.
  void setProperty(Value value, std::string_view key);
  Value propertyForKey(std::string_view key) const;
  void addPropertiesFromDictionary(const Dictionary& properties);
  std::string comment() const;
  void setComment(std::string comment);
  std::string log() const;
  void setLog(std::string log);
  std::string description() const;

  // Events of the session, on its delegate queue.
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

 protected:
  NVXx_HTKSessionFetcher(std::optional<URLRequest> request, HTTPSessionConfigurationRef configuration);

 private:
  struct Fields;
  struct TaskPlan;

  Error checkMayBegin(const URL& url);
  Error checkScheme(const URL& url);
  Error obtainSession(const URL& url);
  void makeSession();
  bool endsAsStopped();
  TaskPlan planTask();
  HTTPSessionTaskRef makeTask(const TaskPlan& plan);
  void startTask(const HTTPSessionTaskRef& task);
  void beginBackgroundTask();
  void endBackgroundTask();
  void setSessionTask(const HTTPSessionTaskRef& task);
  /// Expects the lock.
  void queueAccumulated(Data piece);

  void failToBeginFetchWithError(const Error& error);
  void finishWithError(Error error);
  Error placeDownloadedData(const URL& destination);
  void invokeFetchCallbacksOnCallbackQueue(Data data, Error error);
  void stopFetchReleasingCallbacks(bool release);
  void releaseCallbacks();
  void sendStopNotificationIfNeeded();
  void postNotificationOnMainThread(const char* name, Dictionary userInfo, bool requireAsync);

  void invokeOnCallbackQueue(const QueueRef& queue, bool afterUserStopped, Task block);
  void invokeOnCallbackQueueUnlessStopped(Task block);
  void invokeOnCallbackQueueAfterUserStopped(bool afterUserStopped, Task block);
  bool isStoppedForCallbacks();

  void simulateFetchForTestBlock();
  void simulationResponded(const URLResponse& response, const Data& data, Error error);
  void simulateDataCallbacks(const Data& bodyData, const URLResponse& response, const Data& responseData,
                             Error error);
  void simulateByteTransferReport(size_t dataLength, const FetcherProgressBlock& report);

  std::unique_ptr<Fields> _fields;
};

/// A moment for the comparison of begin and stop-all: later calls answer a larger number, also when a clock
/// stands still.
int64_t nextFetchMoment();

/// Reads `stream`, which is opened and closed for it, to its end in reads of 512 bytes. Nothing, and the
/// stream's error, when it fails. Blocks.
NVXCORE_EXPORT Data NVXx_HTKDataFromInputStream(InputStream& stream, Error* error);

}  // namespace nvxcore
