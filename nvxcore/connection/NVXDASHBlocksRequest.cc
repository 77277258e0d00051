#include "nvxcore/connection/NVXDASHBlocksRequest.h"

#include <utility>

#include "nvxcore/platform/internal/Pooled.h"

namespace nvxcore {

/// Lets the object and its reference count be one allocation.
class NVXDASHBlocksRequest::Made final : public NVXDASHBlocksRequest {
 public:
  Made(int32_t requestID, Data requestData, SerializeHandler serializeHandler, ReadHandler readHandler)
      : NVXDASHBlocksRequest(requestID, std::move(requestData), std::move(serializeHandler),
                             std::move(readHandler)) {}
};

std::shared_ptr<NVXDASHBlocksRequest> NVXDASHBlocksRequest::requestWithID(int32_t requestID, Data requestData,
                                                                          ReadHandler asyncReadHandler) {
  return makePooled<Made>(requestID, std::move(requestData), SerializeHandler(), std::move(asyncReadHandler));
}

std::shared_ptr<NVXDASHBlocksRequest> NVXDASHBlocksRequest::requestWithID(
    int32_t requestID, SerializeHandler asyncSerializeHandler, ReadHandler asyncReadHandler) {
  return makePooled<Made>(requestID, Data(), std::move(asyncSerializeHandler), std::move(asyncReadHandler));
}

NVXDASHBlocksRequest::NVXDASHBlocksRequest(int32_t requestID, Data requestData,
                                           SerializeHandler serializeHandler, ReadHandler readHandler)
    : NVXDASHConnectionRequest(requestID),
      _requestData(std::move(requestData)),
      _asyncSerializeRequestDataHandler(std::move(serializeHandler)),
      _asyncReadResponseHandler(std::move(readHandler)) {}

void NVXDASHBlocksRequest::setAsyncRequestFailedHandler(FailedHandler handler) {
  Lock lock(_lock);
  _asyncRequestFailedHandler.swap(handler);
}

void NVXDASHBlocksRequest::asyncSerializeRequestData(utils::JavaDataOutput* output,
                                                     const NVXDASHConnectionRef&) {
  if (!_requestData.empty()) output->WriteBytes(_requestData.bytes(), _requestData.length());
  if (_asyncSerializeRequestDataHandler) _asyncSerializeRequestDataHandler(output);
}

bool NVXDASHBlocksRequest::asyncReadResponse(utils::JavaDataInput* input, const NVXDASHConnectionRef&) {
  return _asyncReadResponseHandler ? _asyncReadResponseHandler(input) : true;
}

void NVXDASHBlocksRequest::asyncRequestFailed(const Error& error, const NVXDASHConnectionRef&) {
  FailedHandler handler;
  {
    Lock lock(_lock);
    handler = _asyncRequestFailedHandler;
  }
  if (handler) handler(error);
}

}  // namespace nvxcore
