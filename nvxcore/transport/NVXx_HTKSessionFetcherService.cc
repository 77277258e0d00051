#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

#include <algorithm>
#include <limits>

#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherSessionDelegateDispatcher.h"
#include "nvxcore/transport/NVXx_HTKUserAgent.h"

namespace nvxcore {

std::shared_ptr<NVXx_HTKSessionFetcherService> NVXx_HTKSessionFetcherService::init() {
  std::shared_ptr<NVXx_HTKSessionFetcherService> service(new NVXx_HTKSessionFetcherService);
  Lock lock(service->_lock);
  service->_delegateDispatcher = service->makeDispatcher();
  return service;
}

NVXx_HTKSessionFetcherService::NVXx_HTKSessionFetcherService() {
  Lock lock(_lock);
  _settings.callbackQueue = Queue::main();
  _settings.delegateQueue = Queue::serial("com.ovrasoft.HTKSessionFetcher.NSURLSessionDelegateQueue");
  _settings.userAgent = NVXx_HTKFetcherStandardUserAgentString(nullptr);
}

NVXx_HTKSessionFetcherService::~NVXx_HTKSessionFetcherService() {
  AuthorizerRef authorizer;
  std::shared_ptr<Dispatcher> abandoned;
  {
    Lock lock(_lock);
    authorizer.swap(_authorizer);
    abandoned.swap(_delegateDispatcher);
  }
  detachAuthorizer(authorizer);
  if (abandoned) abandoned->abandon();
}

std::shared_ptr<NVXx_HTKSessionFetcherService> NVXx_HTKSessionFetcherService::mockFetcherServiceWithFakedData(
    Data fakedData, Error fakedError) {
  std::shared_ptr<NVXx_HTKSessionFetcherService> service = init();
  service->updateSettings([&](Settings& settings) {
    settings.allowedInsecureSchemes = {"http"};
    settings.testBlock = [fakedData, fakedError](const FetcherRef&, const FetcherTestResponse& respond) {
      const URL url = URL::withString("http://example.invalid/");
      respond(URLResponse::http(url, fakedError ? 500 : 200, "HTTP/1.1", {}), fakedData, fakedError);
    };
  });
  return service;
}

FetcherRef NVXx_HTKSessionFetcherService::fetcherWithRequest(const URLRequest& request) {
  return fetcherWithRequest(request, &NVXx_HTKSessionFetcher::initWithRequest);
}

FetcherRef NVXx_HTKSessionFetcherService::fetcherWithRequest(const URLRequest& request,
                                                             const FetcherMaker& fetcherClass) {
  Settings settings = this->settings();
  FetcherRef fetcher = fetcherClass(request, settings.configuration);
  if (!fetcher) return nullptr;
  fetcher->setCallbackQueue(std::move(settings.callbackQueue));
  fetcher->setSessionDelegateQueue(std::move(settings.delegateQueue));
  fetcher->setChallengeBlock(std::move(settings.challengeBlock));
  fetcher->setCredential(std::move(settings.credential));
  fetcher->setProxyCredential(std::move(settings.proxyCredential));
  fetcher->setAuthorizer(authorizer());
  fetcher->setCookieStorage(std::move(settings.cookieStorage));
  fetcher->setAllowedInsecureSchemes(std::move(settings.allowedInsecureSchemes));
  fetcher->setAllowLocalhostRequest(settings.allowLocalhostRequest);
  fetcher->setAllowInvalidServerCertificates(settings.allowInvalidServerCertificates);
  fetcher->setConfigurationBlock(std::move(settings.configurationBlock));
  // Before the intervals, which switching it on resets.
  fetcher->setRetryEnabled(settings.retryEnabled);
  fetcher->setRetryBlock(std::move(settings.retryBlock));
  fetcher->setMaxRetryInterval(settings.maxRetryInterval);
  fetcher->setMinRetryInterval(settings.minRetryInterval);
  fetcher->setProperties(std::move(settings.properties));
  fetcher->setService(shared_from_this());
  if (settings.cookieStorageMethod >= 0) fetcher->setCookieStorageMethod(settings.cookieStorageMethod);
  fetcher->setSkipBackgroundTask(settings.skipBackgroundTask);
  if (!settings.userAgent.empty() && !request.headers.contains("User-Agent")) {
    fetcher->setRequestValue(settings.userAgent, "User-Agent");
  }
  fetcher->setTestBlock(std::move(settings.testBlock));
  return fetcher;
}

FetcherRef NVXx_HTKSessionFetcherService::fetcherWithURL(const URL& url) {
  return fetcherWithRequest(URLRequest(url));
}

FetcherRef NVXx_HTKSessionFetcherService::fetcherWithURLString(std::string_view urlString) {
  return fetcherWithURL(URL::withString(urlString));
}

NVXx_HTKSessionFetcherService::Settings NVXx_HTKSessionFetcherService::settings() const {
  Lock lock(_lock);
  return _settings;
}

void NVXx_HTKSessionFetcherService::updateSettings(const std::function<void(Settings&)>& change) {
  for (;;) {
    Settings changed;
    uint64_t version;
    {
      Lock lock(_lock);
      changed = _settings;
      version = _settingsVersion;
    }
    change(changed);
    if (!changed.callbackQueue) changed.callbackQueue = Queue::main();
    if (!changed.delegateQueue) changed.delegateQueue = Queue::main();
    Lock lock(_lock);
    if (version != _settingsVersion) continue;
    std::swap(_settings, changed);
    ++_settingsVersion;
    return;
  }
}

QueueRef NVXx_HTKSessionFetcherService::callbackQueue() {
  Lock lock(_lock);
  return _settings.callbackQueue;
}

void NVXx_HTKSessionFetcherService::setCallbackQueue(QueueRef queue) {
  updateSettings([&](Settings& settings) { settings.callbackQueue = queue; });
}

QueueRef NVXx_HTKSessionFetcherService::delegateQueue() {
  Lock lock(_lock);
  return _settings.delegateQueue;
}

void NVXx_HTKSessionFetcherService::setSessionDelegateQueue(QueueRef queue) {
  updateSettings([&](Settings& settings) { settings.delegateQueue = queue; });
}

std::string NVXx_HTKSessionFetcherService::userAgent() const {
  Lock lock(_lock);
  return _settings.userAgent;
}

void NVXx_HTKSessionFetcherService::setUserAgent(std::string userAgent) {
  updateSettings([&](Settings& settings) { settings.userAgent = userAgent; });
}

AuthorizerRef NVXx_HTKSessionFetcherService::authorizer() const {
  Lock lock(_lock);
  return _authorizer;
}

void NVXx_HTKSessionFetcherService::setAuthorizer(AuthorizerRef authorizer) {
  AuthorizerRef previous;
  {
    Lock lock(_lock);
    if (_authorizer == authorizer) return;
    previous = std::exchange(_authorizer, authorizer);
  }
  detachAuthorizer(previous);
  if (authorizer) authorizer->setFetcherService(weak_from_this());
}

void NVXx_HTKSessionFetcherService::detachAuthorizer(const AuthorizerRef& authorizer) {
  if (!authorizer) return;
  // Compared by owner: when the service is being destroyed, nothing can be locked any more.
  const auto mine = weak_from_this();
  const auto theirs = authorizer->fetcherService();
  if (!mine.owner_before(theirs) && !theirs.owner_before(mine)) authorizer->setFetcherService({});
}

TimeInterval NVXx_HTKSessionFetcherService::unusedSessionTimeout() const {
  Lock lock(_lock);
  return _unusedSessionTimeout;
}

void NVXx_HTKSessionFetcherService::setUnusedSessionTimeout(TimeInterval seconds) {
  std::shared_ptr<Dispatcher> current;
  {
    Lock lock(_lock);
    _unusedSessionTimeout = seconds;
    current = _delegateDispatcher;
  }
  if (current) current->setDiscardInterval(seconds);
}

}  // namespace nvxcore
