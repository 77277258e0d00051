// The fetcher's settings and the caller's values. Each is read and written under the lock; what it held
// before is destroyed after the lock was given up, since that may be the caller's code.

#include <utility>

#include "nvxcore/foundation/base/NVXLog.h"
#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/transport/NVXx_HTKSessionCookieStorage.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/internal/NVXx_HTKSessionFetcherFields.h"

namespace nvxcore {

#define NVX_GETTER(type, getter, field)         \
  type NVXx_HTKSessionFetcher::getter() const { \
    Lock lock(_fields->lock);                   \
    return _fields->field;                      \
  }
#define NVX_SETTER(type, setter, field)             \
  void NVXx_HTKSessionFetcher::setter(type value) { \
    type previous = std::move(value);               \
    Lock lock(_fields->lock);                       \
    std::swap(previous, _fields->field);            \
  }
#define NVX_PROPERTY(type, getter, setter, field) \
  NVX_GETTER(type, getter, field)                 \
  NVX_SETTER(type, setter, field)

NVX_PROPERTY(Data, bodyData, setBodyData, _bodyData)
NVX_PROPERTY(URL, bodyFileURL, setBodyFileURL, _bodyFileURL)
NVX_PROPERTY(FetcherBodyStreamProvider, bodyStreamProvider, setBodyStreamProvider, _bodyStreamProvider)
NVX_PROPERTY(bool, useUploadTask, setUseUploadTask, _useUploadTask)
NVX_PROPERTY(URL, destinationFileURL, setDestinationFileURL, _destinationFileURL)
NVX_PROPERTY(Data, downloadResumeData, setDownloadResumeData, _downloadResumeData)
NVX_GETTER(int64_t, downloadedLength, _downloadedLength)
NVX_GETTER(QueueRef, callbackQueue, _callbackQueue)
NVX_GETTER(QueueRef, sessionDelegateQueue, _delegateQueue)
NVX_GETTER(FetcherCompletionHandler, completionHandler, _completionHandler)
NVX_PROPERTY(FetcherAccumulateDataBlock, accumulateDataBlock, setAccumulateDataBlock, _accumulateDataBlock)
NVX_SETTER(FetcherReceivedProgressBlock, setReceivedProgressBlock, _receivedProgressBlock)
NVX_SETTER(FetcherProgressBlock, setDownloadProgressBlock, _downloadProgressBlock)
NVX_SETTER(FetcherProgressBlock, setSendProgressBlock, _sendProgressBlock)
NVX_SETTER(FetcherResumeDataBlock, setResumeDataBlock, _resumeDataBlock)
NVX_SETTER(FetcherDidReceiveResponseBlock, setDidReceiveResponseBlock, _didReceiveResponseBlock)
NVX_SETTER(FetcherChallengeBlock, setChallengeBlock, _challengeBlock)
NVX_SETTER(FetcherWillRedirectBlock, setWillRedirectBlock, _willRedirectBlock)
NVX_SETTER(FetcherWillCacheURLResponseBlock, setWillCacheURLResponseBlock, _willCacheURLResponseBlock)
NVX_PROPERTY(FetcherRetryBlock, retryBlock, setRetryBlock, _retryBlock)
NVX_SETTER(FetcherConfigurationBlock, setConfigurationBlock, _configurationBlock)
NVX_SETTER(FetcherTestBlock, setTestBlock, _testBlock)
NVX_GETTER(HTTPSessionRef, session, _session)
NVX_GETTER(HTTPSessionTaskRef, sessionTask, _sessionTask)
NVX_GETTER(bool, canShareSession, _canShareSession)
NVX_PROPERTY(HTTPSessionConfigurationRef, configuration, setConfiguration, _configuration)
NVX_PROPERTY(std::shared_ptr<HTTPCookieStorage>, cookieStorage, setCookieStorage, _cookieStorage)
NVX_GETTER(AuthorizerRef, authorizer, _authorizer)
NVX_PROPERTY(URLCredentialRef, credential, setCredential, _credential)
NVX_PROPERTY(URLCredentialRef, proxyCredential, setProxyCredential, _proxyCredential)
NVX_PROPERTY(std::vector<std::string>, allowedInsecureSchemes, setAllowedInsecureSchemes,
             _allowedInsecureSchemes)
NVX_PROPERTY(bool, allowLocalhostRequest, setAllowLocalhostRequest, _allowLocalhostRequest)
NVX_PROPERTY(bool, allowInvalidServerCertificates, setAllowInvalidServerCertificates,
             _allowInvalidServerCertificates)
NVX_GETTER(bool, isRetryEnabled, _isRetryEnabled)
NVX_GETTER(TimeInterval, maxRetryInterval, _maxRetryInterval)
NVX_GETTER(TimeInterval, minRetryInterval, _minRetryInterval)
NVX_PROPERTY(double, retryFactor, setRetryFactor, _retryFactor)
NVX_GETTER(uint64_t, retryCount, _retryCount)
NVX_PROPERTY(FetcherServiceProtocolRef, service, setService, _service)
NVX_PROPERTY(std::optional<std::string>, serviceHost, setServiceHost, _serviceHost)
NVX_PROPERTY(int64_t, servicePriority, setServicePriority, _servicePriority)
NVX_PROPERTY(bool, useBackgroundSession, setUseBackgroundSession, _userRequestedBackgroundSession)
NVX_GETTER(bool, isUsingBackgroundSession, _usingBackgroundSession)
NVX_PROPERTY(bool, skipBackgroundTask, setSkipBackgroundTask, _skipBackgroundTask)
NVX_PROPERTY(std::string, taskDescription, setTaskDescription, _taskDescription)
NVX_PROPERTY(float, taskPriority, setTaskPriority, _taskPriority)
NVX_PROPERTY(Value, userData, setUserData, _userData)
NVX_PROPERTY(Dictionary, properties, setProperties, _properties)
NVX_PROPERTY(std::string, comment, setComment, _comment)
NVX_PROPERTY(std::string, log, setLog, _log)

#undef NVX_PROPERTY
#undef NVX_SETTER
#undef NVX_GETTER

NVXx_HTKSessionFetcher::Fields::Shared& NVXx_HTKSessionFetcher::Fields::shared() {
  static auto* shared = new Shared;
  return *shared;
}

std::shared_ptr<BackgroundTasks> NVXx_HTKSessionFetcher::Fields::fetcherUIApplication() {
  {
    Lock lock(shared().lock);
    if (shared().substituteUIApplication) return shared().substituteUIApplication;
  }
  return Platform::current().backgroundTasks;
}

void NVXx_HTKSessionFetcher::setGlobalTestBlock(FetcherTestBlock block) {
  Lock lock(Fields::shared().lock);
  Fields::shared().globalTestBlock.swap(block);
}

void NVXx_HTKSessionFetcher::setSubstituteUIApplication(std::shared_ptr<BackgroundTasks> application) {
  Lock lock(Fields::shared().lock);
  Fields::shared().substituteUIApplication.swap(application);
}

bool NVXx_HTKSessionFetcher::isFetching() const {
  Lock lock(_fields->lock);
  return _fields->_initialBeginFetchDate && !_fields->_hasStoppedFetching;
}

URLResponse NVXx_HTKSessionFetcher::response() const {
  HTTPSessionTaskRef task;
  URLResponse kept;
  {
    Lock lock(_fields->lock);
    task = _fields->_sessionTask;
    kept = _fields->_response;
  }
  URLResponse current = task ? task->response() : URLResponse();
  return current ? current : kept;
}

int NVXx_HTKSessionFetcher::statusCode() const { return response().statusCode(); }

HTTPHeaders NVXx_HTKSessionFetcher::responseHeaders() const { return response().headers(); }

std::optional<URLRequest> NVXx_HTKSessionFetcher::request() const {
  Lock lock(_fields->lock);
  return _fields->_request ? std::optional<URLRequest>(*_fields->_request) : std::nullopt;
}

void NVXx_HTKSessionFetcher::setRequest(const URLRequest& request) {
  if (isFetching()) return;
  setMutableRequest(std::make_shared<URLRequest>(request));
}

std::shared_ptr<URLRequest> NVXx_HTKSessionFetcher::mutableRequest() const {
  Lock lock(_fields->lock);
  return _fields->_request;
}

void NVXx_HTKSessionFetcher::setMutableRequest(std::shared_ptr<URLRequest> request) {
  Lock lock(_fields->lock);
  _fields->_request.swap(request);
}

void NVXx_HTKSessionFetcher::updateMutableRequest(std::shared_ptr<URLRequest> request) {
  setMutableRequest(std::move(request));
}

void NVXx_HTKSessionFetcher::setRequestValue(std::optional<std::string_view> value, std::string_view field) {
  if (!isFetching()) updateRequestValue(value, field);
}

void NVXx_HTKSessionFetcher::updateRequestValue(std::optional<std::string_view> value,
                                                std::string_view field) {
  Lock lock(_fields->lock);
  if (_fields->_request) _fields->_request->headers.set(field, value);
}

int64_t NVXx_HTKSessionFetcher::bodyLength() {
  URL file;
  {
    Lock lock(_fields->lock);
    if (_fields->_bodyLength == kUnknownTransferSize && _fields->_bodyData) {
      _fields->_bodyLength = static_cast<int64_t>(_fields->_bodyData.length());
    }
    if (_fields->_bodyLength != kUnknownTransferSize || !_fields->_bodyFileURL) return _fields->_bodyLength;
    file = _fields->_bodyFileURL;
  }
  const int64_t length = fileSize(file).value_or(kUnknownTransferSize);
  Lock lock(_fields->lock);
  // The transfer may have ended meanwhile, and tell better.
  if (_fields->_bodyLength == kUnknownTransferSize) _fields->_bodyLength = length;
  return _fields->_bodyLength;
}

Data NVXx_HTKSessionFetcher::downloadedData() const {
  Lock lock(_fields->lock);
  return _fields->_downloadedData.data();
}

void NVXx_HTKSessionFetcher::setDownloadedData(Data data) {
  DownloadBuffer buffer;
  buffer.assign(std::move(data));
  Lock lock(_fields->lock);
  std::swap(buffer, _fields->_downloadedData);
}

void NVXx_HTKSessionFetcher::setCallbackQueue(QueueRef queue) {
  if (!queue) queue = Queue::main();
  Lock lock(_fields->lock);
  _fields->_callbackQueue.swap(queue);
}

void NVXx_HTKSessionFetcher::setSessionDelegateQueue(QueueRef queue) {
  if (isFetching()) return;
  if (!queue) queue = Queue::main();
  Lock lock(_fields->lock);
  _fields->_delegateQueue.swap(queue);
}

void NVXx_HTKSessionFetcher::setAuthorizer(AuthorizerRef authorizer) {
  if (isFetching()) return;
  Lock lock(_fields->lock);
  _fields->_authorizer.swap(authorizer);
}

void NVXx_HTKSessionFetcher::setRetryEnabled(bool enabled) {
  Lock lock(_fields->lock);
  if (enabled && !_fields->_isRetryEnabled) {
    _fields->_minRetryInterval = randomRetryInterval();
    _fields->_maxRetryInterval = -1.0;
    _fields->_retryFactor = 2.0;
    _fields->_lastRetryInterval = 0;
  }
  _fields->_isRetryEnabled = enabled;
}

void NVXx_HTKSessionFetcher::setMaxRetryInterval(TimeInterval seconds) {
  Lock lock(_fields->lock);
  _fields->_maxRetryInterval = seconds > 0 ? seconds : -1.0;
}

void NVXx_HTKSessionFetcher::setMinRetryInterval(TimeInterval seconds) {
  Lock lock(_fields->lock);
  _fields->_minRetryInterval = seconds > 0 ? seconds : randomRetryInterval();
}

std::shared_ptr<HTTPCookieStorage> NVXx_HTKSessionFetcher::staticCookieStorage() {
  static auto* storage =
      new std::shared_ptr<HTTPCookieStorage>(std::make_shared<NVXx_HTKSessionCookieStorage>());
  return *storage;
}

void NVXx_HTKSessionFetcher::setCookieStorageMethod(int64_t method) {
  constexpr int64_t kUnchanged = 1, kSystemDefault = 2, kFetcher = 3;
  static auto* processStorage =
      new std::shared_ptr<HTTPCookieStorage>(std::make_shared<NVXx_HTKSessionCookieStorage>());
  switch (method) {
    case kUnchanged:
      return;
    case kSystemDefault:
      return setCookieStorage(*processStorage);
    case kFetcher:
      return setCookieStorage(std::make_shared<NVXx_HTKSessionCookieStorage>());
    default:
      return setCookieStorage(nullptr);
  }
}

void NVXx_HTKSessionFetcher::setProperty(Value value, std::string_view key) {
  Dictionary previous;
  Lock lock(_fields->lock);
  previous = _fields->_properties;
  if (value) {
    _fields->_properties.set(key, std::move(value));
  } else {
    _fields->_properties.remove(key);
  }
}

Value NVXx_HTKSessionFetcher::propertyForKey(std::string_view key) const {
  Lock lock(_fields->lock);
  return _fields->_properties.get(key);
}

void NVXx_HTKSessionFetcher::addPropertiesFromDictionary(const Dictionary& properties) {
  Dictionary previous;
  Lock lock(_fields->lock);
  previous = _fields->_properties;
  for (const auto& [key, value] : properties) _fields->_properties.set(key, value);
}

std::string NVXx_HTKSessionFetcher::description() const {
  std::string text;
  {
    Lock lock(_fields->lock);
    if (_fields->_request) text = _fields->_request->url.absoluteString();
    if (text.empty()) text = _fields->_downloadResumeData ? "<download resume data>" : "<no request>";
  }
  return formattedString("%s %p (%s)", "NVXx_HTKSessionFetcher", static_cast<const void*>(this),
                         text.c_str());
}

}  // namespace nvxcore
