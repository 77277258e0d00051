#include "nvxcore/platform/linux/CurlTransfer.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <utility>

#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/platform/linux/CurlConnectionPool.h"
#include "nvxcore/platform/linux/HTTPTask.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

CurlTransfer::CurlTransfer(std::shared_ptr<CurlConnectionPool> pool, std::shared_ptr<HTTPTask> task,
                           PreparedRequest request)
    : _pool(std::move(pool)), _task(std::move(task)), _request(std::move(request)) {
  if (_request.body.isStream()) _pump = makePooled<BodyPump>(_request.body.stream);
}

void CurlTransfer::start() {
  // Where nothing comes before the first pull, the I/O thread need not be woken to ask for it.
  if (_pump && _request.host.empty()) return pullBody(kPieceLength);
  _pool->postTransfer([self = shared_from_this()] { self->begin(); });
}

void CurlTransfer::proceed() {
  hostAnswered();
  _pool->thread().post([self = shared_from_this()] {
    if (self->_stage != Stage::Running || !self->_receivePaused) return;
    self->_receivePaused = false;
    self->madeProgress();
    self->setPause();
    self->noteChange();
  });
}

void CurlTransfer::hostAnswered() {
  _lastProgress.store(_pool->thread().clockNanos(), std::memory_order_relaxed);
}

void CurlTransfer::stop() {
  _pool->thread().post([self = shared_from_this()] {
    if (self->_stage != Stage::Ended) self->end({});
  });
}

void CurlTransfer::begin() {
  if (_stage != Stage::New) return;
  enter();
  prepare();
}

void CurlTransfer::enter() {
  _stage = Stage::Preparing;
  madeProgress();
  _pool->add(shared_from_this());
}

/// What has become known meanwhile; else the transfer goes on when it is.
HostResolver::Addresses CurlTransfer::lookUp() {
  return _pool->resolver().lookUp(
      _request.host, weak_from_this(),
      [weak = weak_from_this(), pool = _pool](const HostResolver::Addresses& addresses) {
        pool->thread().post([weak, addresses] {
          const auto self = weak.lock();
          if (!self || self->_stage != Stage::Preparing) return;
          if (addresses->empty())
            return self->end(transferError(kURLErrorCannotFindHost, self->_request.url));
          self->_addresses = addresses;
          self->madeProgress();
          self->prepare();
        });
      });
}

/// Sees to one thing after another that libcurl is not to wait for.
void CurlTransfer::prepare() {
  if (!_request.host.empty() && !_addresses) {
    _addresses = _pool->resolver().known(_request.host);
    if (!_addresses) _addresses = lookUp();
    if (!_addresses) return;
  }
  // The first piece tells whether the body has a length that its head can name.
  if (_pump && !_isPulled) return pullBody(kPieceLength);
  launch();
}

void CurlTransfer::pullBody(size_t maxLength) {
  _isPulling = true;
  _pump->pull(maxLength, [weak = weak_from_this()](BodyPiece piece) {
    const auto self = weak.lock();
    if (!self) return;
    self->_pool->postTransfer(
        [self, piece = std::move(piece)]() mutable { self->received(std::move(piece)); });
  });
}

void CurlTransfer::received(BodyPiece piece) {
  if (_stage == Stage::Ended) return;
  if (_stage == Stage::New) enter();
  _isPulling = false;
  madeProgress();
  if (piece.failed)
    return end(piece.error ? piece.error : transferError(kURLErrorRequestBodyStreamExhausted, _request.url));
  _piece = std::move(piece);
  _pieceOffset = 0;
  if (!std::exchange(_isPulled, true)) return prepare();
  if (!std::exchange(_sendPaused, false)) return;
  setPause();
  noteChange();
}

bool CurlTransfer::waitsForHost() const {
  return _receivePaused || (_isPulling && (_stage == Stage::Preparing || _sendPaused)) ||
         _task->waitsForAnswer();
}

int64_t CurlTransfer::timeOutAt() const {
  const int64_t since =
      waitsForHost() ? _pool->thread().now() : _lastProgress.load(std::memory_order_relaxed);
  return since + _request.timeoutNanos;
}

int64_t CurlTransfer::nextLookAt() const {
  const bool isSending = _untakenBytes > 0 || (_stage == Stage::Running && hasUnsentBody());
  const int64_t at = timeOutAt();
  return isSending ? std::min(at, _pool->thread().now() + _request.timeoutNanos / 4) : at;
}

void CurlTransfer::lookAtSending() {
  if (_stage != Stage::Running || !_request.hasBody() || descriptor < 0) return;
  int bytes = 0;
  if (::ioctl(descriptor, SIOCOUTQ, &bytes) == 0 && std::exchange(_untakenBytes, bytes) != bytes)
    madeProgress();
}

void CurlTransfer::timeOut() { end(transferError(kURLErrorTimedOut, _request.url)); }

void CurlTransfer::madeProgress() { _lastProgress.store(_pool->thread().now(), std::memory_order_relaxed); }

void CurlTransfer::setPause() {
  curl_easy_pause(_handle, (_receivePaused ? CURLPAUSE_RECV : 0) | (_sendPaused ? CURLPAUSE_SEND : 0));
}

bool CurlTransfer::lookAgain() {
  if (_stage != Stage::Running || !_isMultiplexed) return false;
  if (_receivePaused) return true;
  // libcurl reads when a pause ends; it overlooks a call that changes nothing.
  curl_easy_pause(_handle, CURLPAUSE_RECV | (_sendPaused ? CURLPAUSE_SEND : 0));
  setPause();
  return true;
}

void CurlTransfer::noteChange() {
  if (!std::exchange(_isChanged, true)) _pool->tellAtEndOfTurn(shared_from_this());
}

void CurlTransfer::tell() {
  _isChanged = false;
  if (_stage == Stage::Running && _failure) return end(_failure);
  if (_stage == Stage::Running && !_receivePaused && hasUnsentBody() && isReplyComplete()) return end({});
  if (_task) _task->flush();
}

bool CurlTransfer::hasUnsentBody() const {
  if (!_request.hasBody()) return false;
  if (_pump) return !_piece.isEnd || _pieceOffset < _piece.bytes.length();
  return _bytesSent < static_cast<int64_t>(_request.body.bytes.length());
}

/// True when the reply's body has come as long as its head said. Over HTTP/2 libcurl goes on sending even
/// then.
bool CurlTransfer::isReplyComplete() const {
  if (!_hasHead || _bodyLength < 0) return false;
  curl_off_t bytes = 0;
  curl_easy_getinfo(_handle, CURLINFO_SIZE_DOWNLOAD_T, &bytes);
  return bytes >= _bodyLength;
}

/// Fails the transfer at the end of the turn. A callback that fails it by its answer leaves a connection that
/// others share in disorder.
void CurlTransfer::refuse(URLErrorCode code) {
  _failure = transferError(code, _request.url);
  noteChange();
}

bool CurlTransfer::mayBeAnsweredEarly() const {
  return _stage == Stage::Running && _hasHead && !_receivePaused && !_isMultiplexed && _request.hasBody();
}

void CurlTransfer::finishAnsweredEarly() {
  if (mayBeAnsweredEarly()) end({});
}

void CurlTransfer::finish(CURLcode result) {
  if (_stage != Stage::Running) return;
  if (_failure) return end(_failure);
  if (result == CURLE_OK && _hasHead) {
    if (!_pump && _request.hasBody()) {
      curl_off_t bytes = 0;
      curl_easy_getinfo(_handle, CURLINFO_SIZE_UPLOAD_T, &bytes);
      sent(bytes);
    } else if (_pump) {
      sent(_bodyTaken);
    }
    return end({});
  }
  CurlFailure failure;
  failure.code = result == CURLE_OK ? CURLE_GOT_NOTHING : result;
  curl_easy_getinfo(_handle, CURLINFO_OS_ERRNO, &failure.systemError);
  curl_easy_getinfo(_handle, CURLINFO_SSL_VERIFYRESULT, &failure.verifyResult);
  failure.message = _message;
  failure.hasHead = _hasHead;
  end(transferError(failure, _request.url));
}

void CurlTransfer::end(const Error& error) {
  const auto self = shared_from_this();
  if (_handle) _pool->giveBack(std::exchange(_handle, nullptr));
  if (_isMultiplexed) _pool->lookAtOthersAgain();
  if (_resolve) curl_slist_free_all(std::exchange(_resolve, nullptr));
  if (_pump) _pump->stop();
  if (_stage != Stage::New) _pool->remove(*this);
  _stage = Stage::Ended;
  const auto task = std::exchange(_task, nullptr);
  task->ended(*this, error);
  task->flush();
}

}  // namespace nvxcore
