#include <utility>

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/platform/linux/CurlSession.h"
#include "nvxcore/platform/linux/HTTPAuthentication.h"
#include "nvxcore/platform/linux/HTTPTask.h"
#include "nvxcore/platform/linux/RedirectRules.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

namespace {

constexpr int kMaximumRedirects = 20;
/// Events that are told in one turn of the delegate queue; then other tasks have theirs.
constexpr int kEventsInTurn = 16;

/// Hands an answer on once. One that goes without having been called cancels the task.
template <class... Arguments>
class Answer {
 public:
  using Take = void (HTTPTask::*)(uint64_t, Arguments...);

  Answer(std::shared_ptr<HTTPTask> task, uint64_t question, Take take)
      : _task(std::move(task)), _question(question), _take(take) {}
  ~Answer() {
    if (!_isGiven.exchange(true)) _task->cancel();
  }
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  void operator()(Arguments... arguments) {
    if (!_isGiven.exchange(true)) ((*_task).*_take)(_question, std::move(arguments)...);
  }

 private:
  const std::shared_ptr<HTTPTask> _task;
  const uint64_t _question;
  const Take _take;
  std::atomic<bool> _isGiven{false};
};

}  // namespace

void HTTPTask::ask(Question question) {
  _question = std::move(question);
  ++_questionNumber;
  _questionIsAsked = false;
  _waitsForAnswer.store(true, std::memory_order_relaxed);
}

/// Nothing but the end is to be told any more.
void HTTPTask::fail(const Error& error) {
  _outcome = error;
  _question = std::monostate();
  _waitsForAnswer.store(false, std::memory_order_relaxed);
  _sending.unreported = 0;
  if (!_isDownload) _body.clear();  // What has come of a download may be of use later.
}

void HTTPTask::receivedHead(const TransferSource& source, URLResponse response) {
  Lock lock(_lock);
  if (!isCurrent(source)) return;
  _response = response;
  if (response.headers().contains("Set-Cookie")) _cookieFields = response.headers();
  if (auto next = redirectedRequest(*_request, response)) {
    if (_redirects < kMaximumRedirects) {
      ask(RedirectQuestion{std::move(response), std::move(*next)});
    } else {
      fail(transferError(kURLErrorHTTPTooManyRedirects, _request->url));
    }
  } else if (auto challenge = authenticationChallenge(response, _authenticationFailures)) {
    ask(ChallengeQuestion{std::move(challenge->challenge), std::move(challenge->field)});
  } else {
    acceptReply(std::move(response));
  }
}

/// The head is that of the reply itself.
void HTTPTask::acceptReply(URLResponse response) {
  if (_isDownload) {
    acceptDownload(response);
  } else {
    ask(ResponseQuestion{std::move(response)});
  }
}

bool HTTPTask::receivedBody(const TransferSource& source, const char* bytes, size_t length) {
  Lock lock(_lock);
  if (!isCurrent(source) || _outcome) return true;
  const bool isWanted = std::holds_alternative<std::monostate>(_question);
  if (!_body.add(bytes, length, isWanted ? BodyBuffer::kLimit : BodyBuffer::kUnansweredLimit)) {
    _sourcePaused = true;
    return false;
  }
  _bytesReceived.fetch_add(static_cast<int64_t>(length), std::memory_order_relaxed);
  return true;
}

bool HTTPTask::sentBody(const TransferSource& source, int64_t total, int64_t expected) {
  if (total == countOfBytesSent()) return false;
  Lock lock(_lock);
  if (!isCurrent(source) || _outcome) return false;
  _sending.unreported += total - _bytesSent.exchange(total, std::memory_order_relaxed);
  _sending.total = total;
  _sending.expected = expected;
  return true;
}

void HTTPTask::ended(const TransferSource& source, const Error& error) {
  Lock lock(_lock);
  if (!isCurrent(source)) return;
  _source = nullptr;
  if (!_outcome) _outcome = error;
}

void HTTPTask::flush() {
  bool worksOnFile;
  bool delivers;
  {
    Lock lock(_lock);
    worksOnFile = hasFileWork() && !std::exchange(_fileWorkIsPosted, true);
    delivers = next() != Next::Nothing && !std::exchange(_deliveryIsPosted, true);
  }
  if (worksOnFile) Queue::blocking()->post([self = shared_from_this()] { self->workOnFile(); });
  if (delivers) _delegateQueue->post([self = shared_from_this()] { self->deliver(); });
}

void HTTPTask::deliver() {
  for (int i = 0; i < kEventsInTurn; ++i) {
    if (!deliverNext()) return;
  }
  _delegateQueue->post([self = shared_from_this()] { self->deliver(); });
}

bool HTTPTask::deliverNext() {
  Event event;
  HTTPSessionDelegate* delegate;  // It is only let go of after the last event, on this queue.
  HTTPHeaders cookieFields;
  {
    Lock lock(_lock);
    if (!takeEvent(event)) {
      _deliveryIsPosted = false;
      return false;
    }
    delegate = _delegate.get();
    std::swap(cookieFields, _cookieFields);
  }
  if (!cookieFields.empty()) storeCookies(cookieFields);
  if (delegate) std::visit([this, delegate](const auto& what) { tell(*delegate, what); }, event);
  if (std::holds_alternative<Completion>(event)) complete();
  return true;
}

/// The kind of what is to be told next, in the order in which things are told.
HTTPTask::Next HTTPTask::next() const {
  if (_state == TaskState::Completed) return Next::Nothing;
  if (_sending.unreported) return Next::Sending;
  if (!std::holds_alternative<std::monostate>(_question))
    return _questionIsAsked ? Next::Nothing : Next::Question;
  if (_becomesDownload) return Next::Becoming;
  if (_resumed) return Next::Resumed;
  if (_writing.unreported) return Next::Writing;
  if (!_isDownload && !_body.empty()) return Next::Data;
  if (!_outcome || (_needsClosing && !_fileIsClosed)) return Next::Nothing;
  return _isDownload && !*_outcome && !_downloadWasDelivered ? Next::Downloaded : Next::Completion;
}

bool HTTPTask::takeEvent(Event& event) {
  switch (next()) {
    case Next::Nothing:
      return false;
    case Next::Sending:
      event = std::exchange(_sending, {0, _sending.total, _sending.expected});
      return true;
    case Next::Question:
      _questionIsAsked = true;
      event = _question;
      return true;
    case Next::Becoming:
      _becomesDownload = false;
      event = Becoming();
      return true;
    case Next::Resumed:
      event = *std::exchange(_resumed, std::nullopt);
      return true;
    case Next::Writing:
      event = std::exchange(_writing, {0, _writing.total, _writing.expected});
      return true;
    case Next::Data:
      event = _body.take();
      return true;
    case Next::Downloaded:
      _downloadWasDelivered = true;
      event = Downloaded();
      return true;
    case Next::Completion:
      event = Completion{*_outcome};
      _state = TaskState::Completed;
      return true;
  }
  return false;
}

void HTTPTask::storeCookies(const HTTPHeaders& fields) {
  const auto& storage = _session->configuration().httpCookieStorage;
  const URLRequest request = currentRequest();
  if (!storage || !request.shouldHandleCookies) return;
  const Date now = Date::withTimeIntervalSince1970(
      static_cast<double>(Platform::current().threading->wallClockNanos()) / 1e9);
  const auto cookies = HTTPCookie::cookiesWithResponseHeaders(fields, request.url, now);
  if (!cookies.empty()) storage->storeCookies(cookies, *this);
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Sending& sending) {
  delegate.taskDidSendBodyData(reported(), sending.unreported, sending.total, sending.expected);
}

template <class... Arguments>
std::function<void(Arguments...)> HTTPTask::answer(void (HTTPTask::*take)(uint64_t, Arguments...)) {
  uint64_t number;
  {
    Lock lock(_lock);
    number = _questionNumber;
  }
  auto answer = makePooled<Answer<Arguments...>>(shared_from_this(), number, take);
  return [answer](Arguments... arguments) { (*answer)(std::move(arguments)...); };
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Question& question) {
  const HTTPSessionTaskRef self = reported();
  if (const auto* response = std::get_if<ResponseQuestion>(&question)) {
    delegate.dataTaskDidReceiveResponse(self, response->response, answer(&HTTPTask::answeredResponse));
  } else if (const auto* redirect = std::get_if<RedirectQuestion>(&question)) {
    delegate.taskWillPerformHTTPRedirection(self, redirect->response, redirect->request,
                                            answer(&HTTPTask::answeredRedirect));
  } else if (const auto* challenge = std::get_if<ChallengeQuestion>(&question)) {
    delegate.taskDidReceiveChallenge(self, challenge->challenge, answer(&HTTPTask::answeredChallenge));
  } else {
    delegate.taskNeedNewBodyStream(self, answer(&HTTPTask::answeredStream));
  }
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Data& data) {
  delegate.dataTaskDidReceiveData(shared_from_this(), data);
  bytesTaken(data.length());
}

void HTTPTask::bytesTaken(size_t count) {
  std::shared_ptr<TransferSource> paused;
  {
    Lock lock(_lock);
    _body.taken(count);
    if (_sourcePaused && _body.waiting() <= BodyBuffer::kLimit / 2) {
      _sourcePaused = false;
      paused = _source;
    }
  }
  if (paused) paused->proceed();
}

void HTTPTask::tell(HTTPSessionDelegate& delegate, const Completion& completion) {
  delegate.taskDidCompleteWithError(reported(), completion.error);
}

void HTTPTask::complete() {
  std::shared_ptr<HTTPSessionDelegate> delegate;
  std::shared_ptr<TransferSource> source;  // Still there when the task has failed by itself.
  HTTPSessionTaskRef view;
  {
    Lock lock(_lock);
    delegate.swap(_delegate);
    source.swap(_source);
    view.swap(_view);
  }
  if (source) source->stop();
  _session->taskHasEnded(_identifier);
}

}  // namespace nvxcore
