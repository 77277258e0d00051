#include "nvxcore/platform/linux/HTTPTask.h"

#include <strings.h>

#include <utility>

#include "nvxcore/platform/Files.h"
#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/platform/linux/CurlSession.h"
#include "nvxcore/platform/linux/CurlTransfer.h"
#include "nvxcore/platform/linux/LocalURLLoader.h"
#include "nvxcore/platform/linux/PreparedRequest.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

namespace {

bool isScheme(const URL& url, const char* scheme) { return ::strcasecmp(url.scheme().c_str(), scheme) == 0; }

/// Why the request can't be carried out at all.
Error faultOf(const URLRequest& request, TaskKind kind, const HTTPSessionConfiguration& configuration) {
  const URL& url = request.url;
  if (!url) return transferError(kURLErrorBadURL, url);
  if (isScheme(url, "data") || isScheme(url, "file"))
    return kind == TaskKind::Upload ? transferError(kURLErrorUnsupportedURL, url) : Error();
  if (!isScheme(url, "http") && !isScheme(url, "https"))
    return transferError(url.scheme().empty() ? kURLErrorBadURL : kURLErrorUnsupportedURL, url);
  // What a name in other letters is in ASCII depends on the host's locale for libcurl. The host has to know.
  if (url.host().empty() || !isASCII(url.host())) return transferError(kURLErrorBadURL, url);
  if (!request.method.empty() && !isHTTPToken(request.method)) return transferError(kURLErrorBadURL, url);
  if (isScheme(url, "http") && !configuration.allowsPlainHTTP)
    return transferError(kURLErrorAppTransportSecurityRequiresSecureConnection, url);
  return {};
}

}  // namespace

HTTPTask::HTTPTask(std::shared_ptr<CurlSession> session, TaskKind kind, uint64_t identifier,
                   URLRequest request, BodySource bodySource, URL bodyFile)
    : _session(std::move(session)),
      _kind(kind),
      _identifier(identifier),
      _originalRequest(makePooled<URLRequest>(std::move(request))),
      _bodySource(bodySource),
      _bodyFile(std::move(bodyFile)),
      _delegateQueue(_session->delegateQueue()),
      _request(_originalRequest),
      _isDownload(kind == TaskKind::Download),
      _needsClosing(_isDownload) {}

HTTPTask::~HTTPTask() = default;

void HTTPTask::resume() {
  {
    Lock lock(_lock);
    if (_state != TaskState::Suspended) return;
    _state = TaskState::Running;
    _delegate = _session->delegate();
  }
  _session->taskWillRun(shared_from_this());
  bool hasPart;
  {
    Lock lock(_lock);
    hasPart = _part != nullptr;
  }
  if (hasPart) return Queue::blocking()->post([self = shared_from_this()] { self->beginWithPart(); });
  carryOut(_originalRequest);
}

void HTTPTask::cancel() { cancel({}); }

void HTTPTask::cancelByProducingResumeData(std::function<void(Data)> handler) {
  if (!handler) handler = [](const Data&) {};
  cancel(std::move(handler));
}

void HTTPTask::cancel(std::function<void(Data)> resumeDataHandler) {
  std::shared_ptr<TransferSource> source;
  bool wasSuspended;
  {
    Lock lock(_lock);
    if (_isCancelled || _downloadWasDelivered || _state == TaskState::Completed) {
      // Too late; the handler is owed its call all the same.
      if (resumeDataHandler) Queue::global()->post([handler = std::move(resumeDataHandler)] { handler({}); });
      return;
    }
    wasSuspended = _state == TaskState::Suspended;
    if (wasSuspended) _delegate = _session->delegate();
    _isCancelled = true;
    _state = TaskState::Canceling;
    fail(transferError(kURLErrorCancelled, _request->url));
    if (resumeDataHandler) {
      _resumeDataHandler = std::move(resumeDataHandler);
      _needsClosing = true;
    } else {
      _body.clear();
    }
    _fileIsClosed = false;
    source = std::exchange(_source, nullptr);
  }
  if (wasSuspended) _session->taskWillRun(shared_from_this());
  if (source) source->stop();
  flush();
}

void HTTPTask::carryOut(RequestRef request) {
  {
    Lock lock(_lock);
    _request = request;
  }
  if (Error fault = faultOf(*request, _kind, _session->configuration())) return endWithoutTransfer(fault);
  if (isScheme(request->url, "data") || isScheme(request->url, "file")) {
    auto loader = makePooled<LocalURLLoader>(shared_from_this(), request->url);
    {
      Lock lock(_lock);
      if (_isCancelled) return;
      _source = loader;
    }
    return loader->start();
  }
  bool asks = false;
  std::shared_ptr<InputStream> stream;
  {
    Lock lock(_lock);
    if (_isCancelled) return;
    if (!_bodyIsDropped) {
      asks = _bodySource == BodySource::AskedStream || (request->bodyStream && _streamWasUsed);
      if (!asks) stream = request->bodyStream;
      if (stream) _streamWasUsed = true;
    }
    if (asks) ask(StreamQuestion());
  }
  if (asks) return flush();
  startTransfer(request, std::move(stream));
}

void HTTPTask::startTransfer(const RequestRef& request, std::shared_ptr<InputStream> stream) {
  RequestBody body;
  bool dropped;
  {
    Lock lock(_lock);
    dropped = _bodyIsDropped;
  }
  if (stream) {
    body.stream = std::move(stream);
  } else if (_bodySource == BodySource::File && !dropped) {
    const std::optional<int64_t> size = fileSize(_bodyFile);
    if (!size) return endWithoutTransfer(transferError(kURLErrorFileDoesNotExist, _bodyFile));
    body.stream = InputStream::streamWithURL(_bodyFile);
    body.streamLength = *size;
  } else {
    body.bytes = request->body;
  }
  auto transfer = makePooled<CurlTransfer>(
      _session->pool(), shared_from_this(),
      PreparedRequest(*request, std::move(body), cookiesToSend(*request), _session->configuration()));
  {
    Lock lock(_lock);
    if (_isCancelled) return;
    _source = transfer;
  }
  transfer->start();
}

void HTTPTask::endWithoutTransfer(const Error& error) {
  {
    Lock lock(_lock);
    if (!_isCancelled) fail(error);
  }
  flush();
}

std::string HTTPTask::cookiesToSend(const URLRequest& request) {
  const auto& storage = _session->configuration().httpCookieStorage;
  std::string header;
  if (!storage || !request.shouldHandleCookies) return header;
  storage->getCookiesForTask(*this, [&header](const std::optional<std::vector<HTTPCookie>>& cookies) {
    if (cookies) header = HTTPCookie::requestHeaderValue(*cookies);
  });
  return header;
}

TaskState HTTPTask::state() const {
  Lock lock(_lock);
  return _state;
}

URLResponse HTTPTask::response() const {
  Lock lock(_lock);
  return _response;
}

URLRequest HTTPTask::currentRequest() const {
  Lock lock(_lock);
  return *_request;
}

std::string HTTPTask::taskDescription() const {
  Lock lock(_lock);
  return _description;
}

void HTTPTask::setTaskDescription(std::string description) {
  Lock lock(_lock);
  std::swap(_description, description);
}

bool HTTPTask::setPriority(float priority) {
  _priority.store(priority, std::memory_order_relaxed);
  return true;
}

HTTPSessionTaskRef HTTPTask::reported() {
  Lock lock(_lock);
  return _view ? _view : shared_from_this();
}

int64_t HTTPTask::maximumReplyLength() const {
  Lock lock(_lock);
  return _isDownload ? INT64_MAX : _session->configuration().maximumReplyLength;
}

}  // namespace nvxcore
