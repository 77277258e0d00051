#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"

#include <algorithm>
#include <atomic>
#include <random>
#include <utility>

#include "nvxcore/foundation/base/NVXDateProvider.h"
#include "nvxcore/foundation/base/NVXLog.h"
#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/transport/internal/Hosts.h"
#include "nvxcore/transport/internal/NVXx_HTKSessionFetcherFields.h"

namespace nvxcore {

/// What kind of transfer a request leads to.
struct NVXx_HTKSessionFetcher::TaskPlan {
  std::optional<URLRequest> request;
  Data resumeData;
  bool toFile = false;
  bool needsUploadTask = false;
  URL bodyFile;
  bool hasBodyStream = false;
  Data bodyData;
  bool isGet = true;
  bool isFileTransfer() const { return resumeData || toFile; }
};

namespace {

Error beginError(HTKSessionFetcherErrorCode code, const URL& url) {
  return Error(
      NVXx_kHTKSessionFetcherErrorDomain, code,
      {{kURLErrorFailingURLStringErrorKey, url ? url.absoluteString() : std::string("(missing URL)")}});
}

constexpr TimeInterval kRetryCeilingForGet = 60.0;
constexpr TimeInterval kRetryCeilingForOthers = 600.0;

}  // namespace

int64_t nextFetchMoment() {
  static std::atomic<int64_t> last{0};
  const int64_t now = Platform::current().threading->wallClockNanos();
  int64_t previous = last.load();
  int64_t moment;
  do {
    moment = std::max(now, previous + 1);
  } while (!last.compare_exchange_weak(previous, moment));
  return moment;
}

TimeInterval randomRetryInterval() {
  thread_local std::minstd_rand generator{std::random_device{}()};
  return std::uniform_int_distribution<int>(0, 65534)(generator) / 65535.0 + 1.0;
}

bool appAllowsInsecureRequests() {
  // The facts are constant while they are in force, so what they say is found out once. Those that were asked
  // are held, or others could come to lie at their address.
  struct Answer {
    std::shared_ptr<ApplicationFacts> facts;
    bool allows = false;
  };
  static auto* mutex = new Mutex;
  static auto* known = new Answer;
  const std::shared_ptr<ApplicationFacts> facts = Platform::current().application;
  {
    Lock lock(*mutex);
    if (known->facts == facts) return known->allows;
  }
  const Dictionary info = facts->infoDictionary();
  const Dictionary* security = info.get("NSAppTransportSecurity").dictionary();
  Answer answer{facts, security && security->get("NSAllowsArbitraryLoads").boolValue()};
  Lock lock(*mutex);
  std::swap(*known, answer);
  return known->allows;
}

FetcherRef NVXx_HTKSessionFetcher::fetcherWithRequest(const URLRequest& request) {
  return initWithRequest(request);
}

FetcherRef NVXx_HTKSessionFetcher::fetcherWithURL(const URL& url) { return initWithRequest(URLRequest(url)); }

FetcherRef NVXx_HTKSessionFetcher::fetcherWithURLString(std::string_view urlString) {
  return fetcherWithURL(URL::withString(urlString));
}

FetcherRef NVXx_HTKSessionFetcher::fetcherWithDownloadResumeData(Data resumeData) {
  FetcherRef fetcher = initWithRequest(std::nullopt);
  fetcher->setComment("Resuming download");
  fetcher->setDownloadResumeData(std::move(resumeData));
  return fetcher;
}

FetcherRef NVXx_HTKSessionFetcher::initWithRequest(std::optional<URLRequest> request,
                                                   HTTPSessionConfigurationRef configuration) {
  return FetcherRef(new NVXx_HTKSessionFetcher(std::move(request), std::move(configuration)));
}

NVXx_HTKSessionFetcher::NVXx_HTKSessionFetcher(std::optional<URLRequest> request,
                                               HTTPSessionConfigurationRef configuration)
    : _fields(std::make_unique<Fields>()) {
  Lock lock(_fields->lock);
  if (request) {
    if (request->body) _fields->_bodyLength = static_cast<int64_t>(request->body.length());
    _fields->_request = makePooled<URLRequest>(std::move(*request));
  }
  _fields->_configuration = std::move(configuration);
  _fields->_callbackQueue = Queue::main();
  _fields->_delegateQueue = Queue::main();
  _fields->_minRetryInterval = randomRetryInterval();
}

NVXx_HTKSessionFetcher::~NVXx_HTKSessionFetcher() = default;

void NVXx_HTKSessionFetcher::beginFetchWithCompletionHandler(FetcherCompletionHandler handler) {
  {
    Lock lock(_fields->lock);
    _fields->_completionHandler.swap(handler);
  }
  beginFetchMayDelay(true, true);
}

void NVXx_HTKSessionFetcher::beginFetchWithDelegate(
    std::shared_ptr<void> target, std::function<void(const FetcherRef&, Data, Error)> didFinishSelector) {
  FetcherCompletionHandler handler;
  if (target && didFinishSelector) {
    // The handler goes when the fetch is over, so the circle through the fetcher ends by itself.
    handler = [self = shared_from_this(), target = std::move(target),
               finished = std::move(didFinishSelector)](Data data, Error error) {
      finished(self, std::move(data), std::move(error));
    };
  }
  beginFetchWithCompletionHandler(std::move(handler));
}

void NVXx_HTKSessionFetcher::beginFetchMayDelay(bool mayDelay, bool /*mayAuthorize*/) {
  const FetcherRef self = shared_from_this();
  URL url;
  {
    Lock lock(_fields->lock);
    if (_fields->_request) url = _fields->_request->url;
    if (!_fields->_initialBeginFetchDate) _fields->_initialBeginFetchDate = nextFetchMoment();
  }
  if (endsAsStopped()) return;
  if (Error error = checkMayBegin(url)) return failToBeginFetchWithError(error);
  if (Error error = obtainSession(url)) return failToBeginFetchWithError(error);

  FetcherServiceProtocolRef service;
  DownloadBuffer dropped;
  bool mayWait;
  {
    Lock lock(_fields->lock);
    std::swap(dropped, _fields->_downloadedData);
    _fields->_downloadedLength = 0;
    service = _fields->_service;
    mayWait = mayDelay && _fields->_servicePriority != kServicePriorityNeverDelay;
  }
  if (mayWait && service && !service->fetcherShouldBeginFetching(self)) {
    endsAsStopped();
    return;
  }
  const TaskPlan plan = planTask();
  const HTTPSessionTaskRef task = makeTask(plan);
  if (!task) {
    return failToBeginFetchWithError(beginError(kHTKSessionFetcherErrorTaskCreationFailed, url));
  }
  std::string description;
  float priority;
  {
    Lock lock(_fields->lock);
    _fields->_sessionTask = task;
    if (!plan.isFileTransfer() && !_fields->_accumulateDataBlock) _fields->_downloadedData.begin();
    description = _fields->_taskDescription;
    priority = _fields->_taskPriority;
  }
  task->setTaskDescription(std::move(description));
  if (priority >= 0) task->setPriority(priority);
  startTask(task);
}

// A stop that came while the fetch was being set up did not see all of it, so it is done over. Any later one
// does.
bool NVXx_HTKSessionFetcher::endsAsStopped() {
  {
    Lock lock(_fields->lock);
    if (!_fields->_userStoppedFetching) return false;
  }
  stopFetchReleasingCallbacks(true);
  return true;
}

Error NVXx_HTKSessionFetcher::checkMayBegin(const URL& url) {
  URL bodyFile;
  {
    Lock lock(_fields->lock);
    if (_fields->_sessionTask) return beginError(kHTKSessionFetcherErrorInvalidState, url);
    if (!url && !_fields->_downloadResumeData) return beginError(kHTKSessionFetcherErrorInvalidState, url);
    _fields->_usingBackgroundSession = _fields->_userRequestedBackgroundSession;
    bodyFile = _fields->_bodyFileURL;
  }
  if (bodyFile) {
    if (Error error = checkFileIsReachable(bodyFile)) {
      NVXCLog("Body file is unreachable: %s\n  %s", bodyFile.fileSystemPath().c_str(),
              error.description().c_str());
      return error;
    }
  }
  if (url && url.scheme() == "data") {
    Lock lock(_fields->lock);
    _fields->_userRequestedBackgroundSession = false;
    _fields->_usingBackgroundSession = false;
    return {};
  }
  return url && appAllowsInsecureRequests() ? checkScheme(url) : Error();
}

Error NVXx_HTKSessionFetcher::checkScheme(const URL& url) {
  const std::string& scheme = url.scheme();
  if (equalsIgnoringCase(scheme, "https")) return {};
  bool allowed = false;
  {
    Lock lock(_fields->lock);
    for (const std::string& insecure : _fields->_allowedInsecureSchemes) {
      allowed = allowed || (!scheme.empty() && equalsIgnoringCase(insecure, scheme));
    }
    const bool local = (url.host().empty() && url.isFileURL()) || IsLocalhost(url.host());
    if (!allowed && local) allowed = _fields->_allowLocalhostRequest;
  }
  if (allowed) return {};
  NVXCLog("Insecure fetch disallowed for %s", url.absoluteString().c_str());
  return beginError(kHTKSessionFetcherErrorInsecureRequest, url);
}

Error NVXx_HTKSessionFetcher::obtainSession(const URL& url) {
  FetcherServiceProtocolRef service;
  {
    Lock lock(_fields->lock);
    if (!_fields->_cookieStorage) _fields->_cookieStorage = staticCookieStorage();
    _fields->_canShareSession = !_fields->_usingBackgroundSession;
    if (_fields->_session) return {};
    if (_fields->_canShareSession) service = _fields->_service;
  }
  if (service) {
    // From an empty answer on everybody else waits for the session that is made here.
    HTTPSessionRef shared = service->sessionForFetcherCreation(shared_from_this());
    if (shared) {
      Lock lock(_fields->lock);
      _fields->_session = std::move(shared);
      return {};
    }
  }
  struct Report {
    FetcherServiceProtocolRef service;
    FetcherRef fetcher;
    ~Report() {
      if (service) service->fetcherDidCreateSession(fetcher);
    }
  } report{nullptr, shared_from_this()};
  {
    Lock lock(_fields->lock);
    report.service = _fields->_service;
  }
  // What throws here is host code, and often on a queue that nobody could catch it on.
  try {
    makeSession();
    return {};
  } catch (const std::exception& thrown) {
    NVXCLog("No session could be made for %s: %s", description().c_str(), thrown.what());
  } catch (...) {
    NVXCLog("No session could be made for %s", description().c_str());
  }
  return beginError(kHTKSessionFetcherErrorInvalidState, url);
}

void NVXx_HTKSessionFetcher::makeSession() {
  const FetcherRef self = shared_from_this();
  HTTPSessionConfigurationRef configuration;
  FetcherConfigurationBlock configure;
  FetcherServiceProtocolRef service;
  QueueRef delegateQueue;
  bool canShare;
  {
    Lock lock(_fields->lock);
    if (_fields->_configuration) {
      // Others may make a session of the caller's at this moment.
      _fields->_configuration = std::make_shared<HTTPSessionConfiguration>(*_fields->_configuration);
    } else {
      _fields->_configuration = HTTPSessionConfiguration::ephemeral();
      _fields->_configuration->tlsMinimumSupportedProtocol = kTLSProtocol12;
      if (_fields->_usingBackgroundSession) _fields->_canShareSession = false;
    }
    configuration = _fields->_configuration;
    configuration->httpCookieStorage = _fields->_cookieStorage;
    configure = _fields->_configurationBlock;
    service = _fields->_service;
    delegateQueue = _fields->_delegateQueue;
    canShare = _fields->_canShareSession;
  }
  if (configure) configure(self, *configuration);
  std::shared_ptr<HTTPSessionDelegate> delegate = service && canShare ? service->sessionDelegate() : nullptr;
  const bool isDelegate = !delegate;
  if (isDelegate) delegate = self;
  HTTPSessionRef session = Platform::current().httpSessionService->sessionWithConfiguration(
      *configuration, std::move(delegate), std::move(delegateQueue));
  Lock lock(_fields->lock);
  _fields->_session = std::move(session);
  if (isDelegate && _fields->_session) _fields->_shouldInvalidateSession = true;
}

NVXx_HTKSessionFetcher::DroppedSession NVXx_HTKSessionFetcher::dropSharedSession() {
  DroppedSession dropped;
  Lock lock(_fields->lock);
  if (!_fields->_canShareSession) return dropped;
  dropped.session.swap(_fields->_session);
  dropped.isOwn = std::exchange(_fields->_shouldInvalidateSession, false);
  return dropped;
}

NVXx_HTKSessionFetcher::DroppedSession::~DroppedSession() {
  if (session && isOwn) session->finishTasksAndInvalidate();
}

NVXx_HTKSessionFetcher::TaskPlan NVXx_HTKSessionFetcher::planTask() {
  Lock lock(_fields->lock);
  TaskPlan plan;
  URLRequest* request = _fields->_request.get();
  plan.needsUploadTask = _fields->_useUploadTask || _fields->_bodyFileURL || _fields->_bodyStreamProvider;
  plan.bodyFile = _fields->_bodyFileURL;
  plan.hasBodyStream = static_cast<bool>(_fields->_bodyStreamProvider);
  plan.bodyData = _fields->_bodyData;
  plan.resumeData = _fields->_downloadResumeData;
  if (request) {
    const std::optional<std::string> override = request->headers.value("X-HTTP-Method-Override");
    const std::string method = override ? *override : request->method;
    plan.isGet = method == "GET" || (!override && method.empty());
    if (plan.bodyData || plan.hasBodyStream || request->bodyStream) {
      if (plan.isGet) request->method = "POST";
      plan.isGet = false;
      if (!plan.needsUploadTask && plan.bodyData) request->body = plan.bodyData;
    }
    plan.toFile = request->url.scheme() != "data" && _fields->_destinationFileURL;
    plan.request = *request;
    if (_fields->_isRetryEnabled && _fields->_maxRetryInterval <= 0) {
      const bool isRead = plan.isGet || method == "HEAD";
      _fields->_maxRetryInterval = isRead ? kRetryCeilingForGet : kRetryCeilingForOthers;
    }
  }
  return plan;
}

HTTPSessionTaskRef NVXx_HTKSessionFetcher::makeTask(const TaskPlan& plan) {
  HTTPSessionRef session;
  {
    Lock lock(_fields->lock);
    session = _fields->_session;
  }
  const char* operation;
  std::string detail;
  HTTPSessionTaskRef task;
  if (plan.resumeData) {
    if (session) task = session->downloadTaskWithResumeData(plan.resumeData);
    if (!task) {
      NVXCLog("Failed downloadTaskWithResumeData for %p, resume data %zu bytes",
              static_cast<void*>(session.get()), plan.resumeData.length());
    }
    return task;
  }
  const URLRequest& request = *plan.request;
  if (plan.toFile) {
    operation = "downloadTaskWithRequest";
    if (session) task = session->downloadTaskWithRequest(request);
  } else if (!plan.needsUploadTask) {
    operation = "dataTaskWithRequest";
    if (session) task = session->dataTaskWithRequest(request);
  } else if (plan.bodyFile) {
    operation = "uploadTaskWithRequest";
    if (session) task = session->uploadTaskWithRequestFromFile(request, plan.bodyFile);
    if (!task) detail = formattedString(", file %s", plan.bodyFile.fileSystemPath().c_str());
  } else if (plan.hasBodyStream) {
    operation = "uploadTaskWithStreamedRequest";
    if (session) task = session->uploadTaskWithStreamedRequest(request);
  } else {
    operation = "uploadTaskWithRequest";
    if (!plan.bodyData) NVXCLog("Upload task needs body data, %s", request.url.absoluteString().c_str());
    if (session) task = session->uploadTaskWithRequestFromData(request, plan.bodyData);
    if (!task) detail = formattedString(", body data %zu bytes", plan.bodyData.length());
  }
  if (!task) {
    NVXCLog("Failed %s for %p, %s%s", operation, static_cast<void*>(session.get()),
            request.url.absoluteString().c_str(), detail.c_str());
  }
  return task;
}

void NVXx_HTKSessionFetcher::startTask(const HTTPSessionTaskRef& task) {
  FetcherTestBlock globalTestBlock;
  {
    Lock lock(Fields::shared().lock);
    globalTestBlock = Fields::shared().globalTestBlock;
  }
  bool isSimulated;
  {
    Lock lock(_fields->lock);
    if (!_fields->_testBlock) _fields->_testBlock = std::move(globalTestBlock);
    isSimulated = _fields->_isUsingTestBlock = static_cast<bool>(_fields->_testBlock);
  }
  beginBackgroundTask();
  sendStopNotificationIfNeeded();
  FetcherServiceProtocolRef service;
  {
    Lock lock(_fields->lock);
    if (!_fields->_initialRequestDate) _fields->_initialRequestDate = NVXSystemDateProvider().currentDate();
    _fields->_isStopNotificationNeeded = true;
    service = _fields->_service;
  }
  postNotificationOnMainThread(NVXx_kHTKSessionFetcherStartedNotification, {}, false);
  if (service) service->fetcherDidBeginFetching(shared_from_this());
  if (endsAsStopped()) return;
  if (isSimulated) {
    simulateFetchForTestBlock();
  } else {
    task->resume();
  }
}

}  // namespace nvxcore
