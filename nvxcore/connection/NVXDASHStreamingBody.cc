#include "nvxcore/connection/NVXDASHStreamingBody.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/platform/Value.h"

namespace nvxcore {

std::shared_ptr<NVXDASHStreamingBody> NVXDASHStreamingBody::initWithConnection(
    std::shared_ptr<NVXDASHConnectionImpl> connection, NVXDASHRequestGroupIDRef groupID,
    bool ignoreRequests) {
  return std::shared_ptr<NVXDASHStreamingBody>(
      new NVXDASHStreamingBody(std::move(connection), std::move(groupID), ignoreRequests));
}

NVXDASHStreamingBody::NVXDASHStreamingBody(std::shared_ptr<NVXDASHConnectionImpl> connection,
                                           NVXDASHRequestGroupIDRef groupID, bool ignoreRequests)
    : _connection(std::move(connection)), _groupID(std::move(groupID)), _ignoreRequests(ignoreRequests) {}

std::vector<NVXDASHConnectionRequestRef> NVXDASHStreamingBody::sentRequests() {
  Lock lock(_lock);
  if (!_hasCollected) _requests = collectRequests();
  return _requests;
}

bool NVXDASHStreamingBody::wasFramed() const {
  Lock lock(_lock);
  return _wasFramed;
}

void NVXDASHStreamingBody::releaseRequests() {
  std::vector<NVXDASHConnectionRequestRef> requests;
  std::shared_ptr<NVXDASHConnectionImpl> connection;
  Lock lock(_lock);
  _hasCollected = true;
  requests.swap(_requests);
  connection.swap(_connection);
}

std::vector<NVXDASHConnectionRequestRef> NVXDASHStreamingBody::collectRequests() {
  _hasCollected = true;
  if (_ignoreRequests || !_connection) return {};
  return _connection->requestsForStreamingBodyForGroupID(_groupID);
}

int64_t NVXDASHStreamingBody::read(uint8_t* buffer, size_t maxLength) {
  if (!_payload) buildPayload();
  if (streamError()) return -1;
  const size_t count = std::min(maxLength, _payload.length() - _payloadOffset);
  if (count) std::memcpy(buffer, _payload.bytes() + _payloadOffset, count);
  _payloadOffset += count;
  return static_cast<int64_t>(count);
}

Error NVXDASHStreamingBody::streamError() const {
  Lock lock(_lock);
  return _streamError;
}

void NVXDASHStreamingBody::buildPayload() {
  _payload = Data::copy("", 0);
  std::shared_ptr<NVXDASHConnectionImpl> connection;
  std::vector<NVXDASHConnectionRequestRef> requests;
  {
    Lock lock(_lock);
    // The requests were asked for before the body was read: they have been failed, and nothing is sent.
    if (_hasCollected) return;
    _requests = collectRequests();
    requests = _requests;
    connection.swap(_connection);
  }
  Error failure;
  try {
    _payload = connection->buildServerPayloadForRequests(requests);
  } catch (const std::exception& thrown) {
    failure = NVXDASHConnectionImpl::protocolError({{kLocalizedDescriptionKey, thrown.what()}});
  } catch (...) {
    failure = NVXDASHConnectionImpl::protocolError({});
  }
  Lock lock(_lock);
  if (failure) {
    _streamError = failure;
  } else {
    _requests.swap(requests);
    _wasFramed = true;
  }
}

}  // namespace nvxcore
