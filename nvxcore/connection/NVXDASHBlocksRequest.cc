#include "nvxcore/connection/NVXDASHBlocksRequest.h"

#include <utility>

namespace nvxcore {

std::shared_ptr<NVXDASHBlocksRequest> NVXDASHBlocksRequest::requestWithID(int32_t requestID, Data requestData,
                                                                          ReadHandler asyncReadHandler) {
  SerializeHandler serialize;
  if (!requestData.empty()) {
    serialize = [data = std::move(requestData)](utils::JavaDataOutput* output) {
      output->WriteBytes(data.bytes(), data.length());
    };
  }
  return requestWithID(requestID, std::move(serialize), std::move(asyncReadHandler));
}

std::shared_ptr<NVXDASHBlocksRequest> NVXDASHBlocksRequest::requestWithID(
    int32_t requestID, SerializeHandler asyncSerializeHandler, ReadHandler asyncReadHandler) {
  return std::shared_ptr<NVXDASHBlocksRequest>(
      new NVXDASHBlocksRequest(requestID, std::move(asyncSerializeHandler), std::move(asyncReadHandler)));
}

NVXDASHBlocksRequest::NVXDASHBlocksRequest(int32_t requestID, SerializeHandler serializeHandler,
                                           ReadHandler readHandler)
    : NVXDASHConnectionRequest(requestID),
      _asyncSerializeRequestDataHandler(std::move(serializeHandler)),
      _asyncReadResponseHandler(std::move(readHandler)) {}

void NVXDASHBlocksRequest::setAsyncRequestFailedHandler(FailedHandler handler) {
  Lock lock(_lock);
  _asyncRequestFailedHandler.swap(handler);
}

void NVXDASHBlocksRequest::asyncSerializeRequestData(utils::JavaDataOutput* output,
                                                     const NVXDASHConnectionRef&) {
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
