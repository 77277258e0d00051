#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/HTTPChallenge.h"
#include "nvxcore/platform/HTTPCookie.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/URLRequest.h"
#include "nvxcore/platform/URLResponse.h"

/// The HTTP session service: it carries out one prepared transfer at a time for a task and reports its
/// events. It holds no policy: whether to retry, to follow a redirect, to limit or to cache is decided above
/// it.
namespace nvxcore {

class HTTPSession;
class HTTPSessionTask;
using HTTPSessionRef = std::shared_ptr<HTTPSession>;
using HTTPSessionTaskRef = std::shared_ptr<HTTPSessionTask>;

inline constexpr int kTLSProtocol12 = 8;

/// Settings of a session. A session copies them when it is made.
struct NVXCORE_EXPORT HTTPSessionConfiguration {
  /// No store outlives the process.
  static std::shared_ptr<HTTPSessionConfiguration> ephemeral();
  /// For a session that outlives the process where the platform has such; an ordinary one with an identifier
  /// elsewhere.
  static std::shared_ptr<HTTPSessionConfiguration> background(std::string identifier);

  std::string identifier;                                ///< Empty unless made by `background`.
  int tlsMinimumSupportedProtocol = kTLSProtocol12;      ///< No lower one is ever spoken.
  std::shared_ptr<HTTPCookieStorage> httpCookieStorage;  ///< Read and written by transfers; none when empty.
  HTTPHeaders additionalHeaders;                         ///< Sent where the request does not have them.
  std::string proxy;   ///< URL of a proxy; empty for none. The environment is not asked.
  std::string caFile;  ///< PEM file of trusted certificates; empty for the system's.
  std::string caDirectory;
  size_t maximumConnectionsPerHost = 0;  ///< 0: no limit here.
  bool allowsHTTP2 = true;               ///< Over TLS, where the server has it.
  bool allowsPlainHTTP =
      true;  ///< False refuses "http" with kURLErrorAppTransportSecurityRequiresSecureConnection.
  bool allowsCellularAccess = true;
  /// Decoded bytes of a reply beyond which its task fails with kURLErrorDataLengthExceedsMaximum. What goes
  /// to a file is not limited.
  int64_t maximumReplyLength = int64_t{256} << 20;
};
using HTTPSessionConfigurationRef = std::shared_ptr<HTTPSessionConfiguration>;

enum class ResponseDisposition { Cancel = 0, Allow = 1, BecomeDownload = 2 };

struct CachedURLResponse {
  URLResponse response;
  Data data;
};

/// Answers that an event asks for. Each may be called on any thread; the first call counts. One that is
/// destroyed without having been called cancels its task.
using ResponseDispositionHandler = std::function<void(ResponseDisposition)>;
/// Nothing refuses the redirect: the 3xx reply is then the reply.
using RedirectHandler = std::function<void(std::optional<URLRequest>)>;
using ChallengeHandler = std::function<void(AuthChallengeDisposition, URLCredentialRef)>;
using BodyStreamHandler = std::function<void(std::shared_ptr<InputStream>)>;
using CachedResponseHandler = std::function<void(std::optional<CachedURLResponse>)>;

enum class TaskState { Running = 0, Suspended = 1, Canceling = 2, Completed = 3 };
enum class TaskKind { Data, Upload, Download };

/// One transfer. All operations may be called on any thread.
class NVXCORE_EXPORT HTTPSessionTask {
 public:
  virtual ~HTTPSessionTask() = default;
  virtual TaskKind kind() const = 0;
  virtual uint64_t taskIdentifier() const = 0;
  /// Starts the transfer. A task that was never resumed sends no event, but for its completion when it is
  /// cancelled.
  virtual void resume() = 0;
  /// Ends the transfer with kURLErrorCancelled, unless it has ended. No event but the completion begins
  /// afterwards.
  virtual void cancel() = 0;
  /// As `cancel`. Of a download task that can be resumed (a GET whose reply has a strong ETag or a date of
  /// last change, and no content coding), `handler` gets the bytes for `downloadTaskWithResumeData`, else
  /// nothing. Called once, on a thread of the service, before the completion is sent.
  virtual void cancelByProducingResumeData(std::function<void(Data)> handler) = 0;
  virtual TaskState state() const = 0;
  virtual URLResponse response() const = 0;
  virtual URLRequest originalRequest() const = 0;
  /// The one being carried out: differs after a redirect.
  virtual URLRequest currentRequest() const = 0;
  virtual int64_t countOfBytesSent() const = 0;
  virtual int64_t countOfBytesReceived() const = 0;
  virtual std::string taskDescription() const = 0;
  virtual void setTaskDescription(std::string description) = 0;
  /// 0 to 1. False when this kind of task takes none.
  virtual bool setPriority(float priority) = 0;
};

/// Takes the events of a session: all of them on its delegate queue, one after another. For each task that
/// was resumed or cancelled there is one `taskDidCompleteWithError`, and no event of the task after it; of a
/// data task that has become a download task, that one has it.
///
/// An event that asks for an answer holds the transfer up until it is given; little of the reply is read
/// ahead. A reply that is there at once is told in one turn of the queue.
class NVXCORE_EXPORT HTTPSessionDelegate {
 public:
  virtual ~HTTPSessionDelegate() = default;
  virtual void taskWillPerformHTTPRedirection(const HTTPSessionTaskRef& task, const URLResponse& response,
                                              const URLRequest& newRequest,
                                              RedirectHandler completionHandler) = 0;
  virtual void taskDidReceiveChallenge(const HTTPSessionTaskRef& task,
                                       const AuthenticationChallenge& challenge,
                                       ChallengeHandler completionHandler) = 0;
  virtual void taskNeedNewBodyStream(const HTTPSessionTaskRef& task, BodyStreamHandler completionHandler) = 0;
  virtual void taskDidSendBodyData(const HTTPSessionTaskRef& task, int64_t bytesSent, int64_t totalBytesSent,
                                   int64_t totalBytesExpectedToSend) = 0;
  /// Without an error when the transfer went to its end, whatever its status.
  virtual void taskDidCompleteWithError(const HTTPSessionTaskRef& task, const Error& error) = 0;
  virtual void dataTaskDidReceiveResponse(const HTTPSessionTaskRef& task, const URLResponse& response,
                                          ResponseDispositionHandler completionHandler) = 0;
  virtual void dataTaskDidBecomeDownloadTask(const HTTPSessionTaskRef& dataTask,
                                             const HTTPSessionTaskRef& downloadTask) = 0;
  /// At most 1 MiB of a task waits to be taken by this event; the transfer pauses meanwhile.
  virtual void dataTaskDidReceiveData(const HTTPSessionTaskRef& task, const Data& data) = 0;
  /// From services that cache replies; the default one does not.
  virtual void dataTaskWillCacheResponse(const HTTPSessionTaskRef& task,
                                         const CachedURLResponse& proposedResponse,
                                         CachedResponseHandler completionHandler) = 0;
  /// The file at `location` goes when this returns, unless it was moved away.
  virtual void downloadTaskDidFinishDownloadingToURL(const HTTPSessionTaskRef& task, const URL& location) = 0;
  /// `totalBytesExpectedToWrite` is -1 when unknown.
  virtual void downloadTaskDidWriteData(const HTTPSessionTaskRef& task, int64_t bytesWritten,
                                        int64_t totalBytesWritten, int64_t totalBytesExpectedToWrite) = 0;
  virtual void downloadTaskDidResumeAtOffset(const HTTPSessionTaskRef& task, int64_t fileOffset,
                                             int64_t expectedTotalBytes) = 0;
  virtual void sessionDidFinishEventsForBackgroundURLSession(const HTTPSessionRef& session) = 0;
  /// The last event of a session.
  virtual void sessionDidBecomeInvalidWithError(const HTTPSessionRef& session, const Error& error) = 0;
};

/// A pool of connections and its tasks. Holds its delegate until it is invalid. All operations may be called
/// on any thread. A task is made suspended; a session that is invalidated makes none.
class NVXCORE_EXPORT HTTPSession : public std::enable_shared_from_this<HTTPSession> {
 public:
  struct Tasks {
    std::vector<HTTPSessionTaskRef> data, upload, download;
  };

  virtual ~HTTPSession() = default;
  virtual std::shared_ptr<HTTPSessionDelegate> delegate() const = 0;
  virtual QueueRef delegateQueue() const = 0;
  virtual HTTPSessionTaskRef dataTaskWithRequest(const URLRequest& request) = 0;
  virtual HTTPSessionTaskRef uploadTaskWithRequestFromFile(const URLRequest& request, const URL& fileURL) = 0;
  virtual HTTPSessionTaskRef uploadTaskWithRequestFromData(const URLRequest& request, const Data& body) = 0;
  /// The stream is asked for through `taskNeedNewBodyStream`. It is opened, pulled and closed on a queue of
  /// its own.
  virtual HTTPSessionTaskRef uploadTaskWithStreamedRequest(const URLRequest& request) = 0;
  virtual HTTPSessionTaskRef downloadTaskWithRequest(const URLRequest& request) = 0;
  /// No task for bytes that are not resume data.
  virtual HTTPSessionTaskRef downloadTaskWithResumeData(const Data& resumeData) = 0;
  /// The tasks that have not completed; the handler is called on the delegate queue.
  virtual void getTasksWithCompletionHandler(std::function<void(Tasks)> completionHandler) = 0;
  /// Makes the session invalid once its tasks have ended.
  virtual void finishTasksAndInvalidate() = 0;
};

/// Makes sessions. The host may put its own HTTP client here.
class NVXCORE_EXPORT HTTPSessionService {
 public:
  virtual ~HTTPSessionService() = default;
  /// `delegateQueue` must be serial. Any thread.
  virtual HTTPSessionRef sessionWithConfiguration(const HTTPSessionConfiguration& configuration,
                                                  std::shared_ptr<HTTPSessionDelegate> delegate,
                                                  QueueRef delegateQueue) = 0;
  /// The most threads that it may have at one time.
  virtual size_t maximumThreadCount() const { return 0; }
};

}  // namespace nvxcore
