#include <openssl/ssl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>

#include "nvxcore/platform/linux/CurlConnectionPool.h"
#include "nvxcore/platform/linux/CurlTransfer.h"
#include "nvxcore/platform/linux/HTTPTask.h"
#include "nvxcore/platform/linux/TransferErrors.h"

namespace nvxcore {

namespace {

constexpr char kCodings[] = "gzip, deflate, br";

/// libcurl would send a body anew by itself when the connection it was sent on has died.
int refuseToSeek(void*, curl_off_t, int) { return CURL_SEEKFUNC_FAIL; }

/// True for methods whose requests say that their body is empty (RFC 9110, 8.6).
bool expectsBody(const std::string& method) {
  return method == "POST" || method == "PUT" || method == "PATCH";
}

/// A priority as the weight of an HTTP/2 stream (RFC 7540, 5.3.2).
long weightOf(float priority) {
  constexpr long kDefault = 16;
  return priority >= 0 && priority <= 1 ? 1 + std::lround(255 * priority) : kDefault;
}

bool speaksHTTP2(CURL* handle) {
  const curl_tlssessioninfo* tls = nullptr;
  if (curl_easy_getinfo(handle, CURLINFO_TLS_SSL_PTR, &tls) != CURLE_OK || !tls || !tls->internals)
    return false;
  const unsigned char* protocol = nullptr;
  unsigned length = 0;
  SSL_get0_alpn_selected(static_cast<const SSL*>(tls->internals), &protocol, &length);
  return length == 2 && std::memcmp(protocol, "h2", 2) == 0;
}

}  // namespace

void CurlTransfer::configure(CURL* handle) {
  const auto set = [handle](CURLoption option, auto value) { curl_easy_setopt(handle, option, value); };
  set(CURLOPT_PREREQFUNCTION, &onRequestDue);
  set(CURLOPT_HEADERFUNCTION, &onHeader);
  set(CURLOPT_WRITEFUNCTION, &onBody);
  set(CURLOPT_READFUNCTION, &onRead);
  set(CURLOPT_SEEKFUNCTION, &refuseToSeek);
  set(CURLOPT_XFERINFOFUNCTION, &onProgress);
}

void CurlTransfer::launch() {
  _handle = _pool->takeHandle();
  if (!_handle) return end(transferError(kURLErrorUnknown, _request.url));
  const auto set = [this](CURLoption option, auto value) { curl_easy_setopt(_handle, option, value); };
  set(CURLOPT_PRIVATE, this);
  set(CURLOPT_PREREQDATA, this);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_READDATA, this);
  set(CURLOPT_XFERINFODATA, this);
  set(CURLOPT_ERRORBUFFER, _message);
  set(CURLOPT_URL, _request.urlText.c_str());
  set(CURLOPT_HTTPHEADER, _request.headers.list());
  set(CURLOPT_ACCEPT_ENCODING, _request.decodesReply ? kCodings : nullptr);
  // Without TLS there is nothing to share a connection with, and waiting for one would put POSTs in a row.
  const bool mayMultiplex = _request.isSecure && _pool->configuration().allowsHTTP2;
  set(CURLOPT_HTTP_VERSION, static_cast<long>(mayMultiplex ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1));
  set(CURLOPT_PIPEWAIT, mayMultiplex ? 1L : 0L);
  set(CURLOPT_STREAM_WEIGHT, weightOf(_task->priority()));
  if (_addresses) {
    std::string entry = _request.host + ":" + std::to_string(_request.port) + ":";
    for (const std::string& address : *_addresses) entry.append(address).append(",");
    entry.pop_back();
    _resolve = curl_slist_append(nullptr, entry.c_str());
  }
  set(CURLOPT_RESOLVE, _resolve);
  setMethodAndBody();
  _stage = Stage::Running;
  if (!_pool->start(_handle)) return end(transferError(kURLErrorUnknown, _request.url));
  if (_request.hasBody()) _pool->thread().lookForTimeOutsAt(nextLookAt());
}

void CurlTransfer::setMethodAndBody() {
  const auto set = [this](CURLoption option, auto value) { curl_easy_setopt(_handle, option, value); };
  const std::string& method = _request.method;
  const bool hasBody = _request.hasBody() || expectsBody(method);
  // What a pull has shown to be all of a stream is as good as a buffer.
  if (_pump && _piece.isEnd) {
    _request.body.bytes = std::exchange(_piece.bytes, Data());
    _request.body.stream = nullptr;
    std::exchange(_pump, nullptr)->stop();
  }
  const int64_t length =
      _pump ? _request.body.streamLength : static_cast<int64_t>(_request.body.bytes.length());
  set(CURLOPT_HTTPGET, 1L);
  set(CURLOPT_NOBODY, method == "HEAD" ? 1L : 0L);
  if (hasBody) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(length));
    set(CURLOPT_POSTFIELDS, _pump ? nullptr : reinterpret_cast<const char*>(_request.body.bytes.bytes()));
  }
  const bool isOwn = method == (hasBody ? "POST" : "GET") || method == "HEAD";
  set(CURLOPT_CUSTOMREQUEST, isOwn ? nullptr : method.c_str());
  set(CURLOPT_NOPROGRESS, _request.hasBody() ? 0L : 1L);
}

/// A connection is there and the request is about to go out: for the second time when the connection on which
/// it went out first has died.
int CurlTransfer::requestDue() {
  long sentBytes = 0;
  curl_easy_getinfo(_handle, CURLINFO_REQUEST_SIZE, &sentBytes);
  if (_timesDue++ > 0 && !_request.mayBeRepeated() && (_pump || sentBytes != _sentWhenDue))
    return CURL_PREREQFUNC_ABORT;
  _sentWhenDue = sentBytes;
  madeProgress();
  _isMultiplexed = _request.isSecure && speaksHTTP2(_handle);
  return CURL_PREREQFUNC_OK;
}

size_t CurlTransfer::nextBodyBytes(char* buffer, size_t size) {
  madeProgress();
  const size_t count = std::min(size, _piece.bytes.length() - _pieceOffset);
  if (count) {
    std::memcpy(buffer, _piece.bytes.bytes() + _pieceOffset, count);
    _pieceOffset += count;
    _bodyTaken += static_cast<int64_t>(count);
    return count;
  }
  if (_piece.isEnd) {
    // A file that has shrunk would leave the server waiting for the rest.
    if (_bodyTaken < _request.body.streamLength) refuse(kURLErrorRequestBodyStreamExhausted);
    return 0;
  }
  if (!_isPulling) pullBody(kPieceLength);
  _sendPaused = true;
  return CURL_READFUNC_PAUSE;
}

void CurlTransfer::sent(int64_t bytes) {
  _bytesSent = bytes;
  const int64_t length =
      _pump ? _request.body.streamLength : static_cast<int64_t>(_request.body.bytes.length());
  // What libcurl counts of a chunked body are the bytes on the wire.
  if (_task->sentBody(*this, _pump ? std::min(bytes, _bodyTaken) : bytes, length)) {
    madeProgress();
    _pool->tellProgress(*this);
  }
}

int CurlTransfer::onRequestDue(void* self, char*, char*, int, int) noexcept {
  return static_cast<CurlTransfer*>(self)->requestDue();
}

size_t CurlTransfer::onRead(char* buffer, size_t, size_t size, void* self) noexcept {
  try {
    return static_cast<CurlTransfer*>(self)->nextBodyBytes(buffer, size);
  } catch (...) {
    return CURL_READFUNC_ABORT;
  }
}

int CurlTransfer::onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t uploaded) noexcept {
  try {
    static_cast<CurlTransfer*>(self)->sent(uploaded);
    return 0;
  } catch (...) {
    return 1;
  }
}

}  // namespace nvxcore
