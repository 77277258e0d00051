#include <utility>

#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/platform/linux/BecomeDownloadTask.h"
#include "nvxcore/platform/linux/CurlSession.h"
#include "nvxcore/platform/linux/HTTPAuthentication.h"
#include "nvxcore/platform/linux/HTTPTask.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

/// The question of that number, which is then answered; nothing when the task has gone on without the answer.
template <class Kind>
std::optional<Kind> HTTPTask::takeQuestion(uint64_t number) {
  if (number != _questionNumber || !std::holds_alternative<Kind>(_question)) return std::nullopt;
  Kind question = std::get<Kind>(std::move(_question));
  _question = std::monostate();
  _waitsForAnswer.store(false, std::memory_order_relaxed);
  return question;
}

void HTTPTask::answeredResponse(uint64_t question, ResponseDisposition disposition) {
  if (disposition == ResponseDisposition::Cancel) return cancel();
  std::shared_ptr<TransferSource> source;
  bool wasPaused;
  {
    Lock lock(_lock);
    const auto head = takeQuestion<ResponseQuestion>(question);
    if (!head) return;
    if (disposition == ResponseDisposition::BecomeDownload && _kind == TaskKind::Data) {
      _isDownload = _becomesDownload = _needsClosing = true;
      _view = makePooled<BecomeDownloadTask>(shared_from_this());
      acceptDownload(head->response);
    }
    source = _source;
    wasPaused = std::exchange(_sourcePaused, false);
  }
  if (source) wasPaused ? source->proceed() : source->hostAnswered();
  flush();
}

void HTTPTask::answeredRedirect(uint64_t question, std::optional<URLRequest> request) {
  std::shared_ptr<TransferSource> left;
  {
    Lock lock(_lock);
    auto redirect = takeQuestion<RedirectQuestion>(question);
    if (!redirect) return;
    if (request) {
      ++_redirects;
      _bodyIsDropped = request->method == "GET" || request->method == "HEAD";
      left = leaveTransfer();
    } else {
      acceptReply(std::move(redirect->response));
    }
  }
  if (!request) return flush();
  if (left) left->stop();
  carryOut(makePooled<URLRequest>(std::move(*request)));
}

void HTTPTask::answeredChallenge(uint64_t question, AuthChallengeDisposition disposition,
                                 URLCredentialRef credential) {
  if (disposition == AuthChallengeDisposition::Cancel) return cancel();
  std::shared_ptr<TransferSource> left;
  URLRequest request;
  bool goesOn = false;
  {
    Lock lock(_lock);
    auto challenge = takeQuestion<ChallengeQuestion>(question);
    if (!challenge) return;
    goesOn = disposition == AuthChallengeDisposition::UseCredential && credential;
    if (goesOn) {
      ++_authenticationFailures;
      request = *_request;
      const bool isProxy = challenge->challenge.protectionSpace.isProxy;
      request.headers.set(isProxy ? "Proxy-Authorization" : "Authorization",
                          authorization(challenge->field, *credential, request));
      left = leaveTransfer();
    } else {
      acceptReply(_response);
    }
  }
  if (!goesOn) return flush();
  if (left) left->stop();
  carryOut(makePooled<URLRequest>(std::move(request)));
}

void HTTPTask::answeredStream(uint64_t question, std::shared_ptr<InputStream> stream) {
  RequestRef request;
  {
    Lock lock(_lock);
    if (!takeQuestion<StreamQuestion>(question)) return;
    request = _request;
  }
  if (!stream) return endWithoutTransfer(transferError(kURLErrorRequestBodyStreamExhausted, request->url));
  startTransfer(request, std::move(stream));
}

/// Forgets the transfer and what it has brought so far: another follows.
std::shared_ptr<TransferSource> HTTPTask::leaveTransfer() {
  _body.clear();
  _sourcePaused = false;
  _outcome.reset();
  return std::exchange(_source, nullptr);
}

}  // namespace nvxcore
