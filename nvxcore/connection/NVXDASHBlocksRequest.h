#pragma once

#include <functional>
#include <memory>

#include "nvxcore/connection/NVXDASHConnectionRequest.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// A request made of handlers, each called on the thread that `NVXDASHConnectionRequest` names, at most once.
class NVXCORE_EXPORT NVXDASHBlocksRequest : public NVXDASHConnectionRequest {
 public:
  using SerializeHandler = std::function<void(utils::JavaDataOutput* output)>;
  /// True when the answer was read whole. Entering it is the outcome of the request, whatever it answers or
  /// throws.
  using ReadHandler = std::function<bool(utils::JavaDataInput* input)>;
  using FailedHandler = std::function<void(const Error& error)>;

  /// Writes `requestData` as it stands; nothing when it is empty.
  static std::shared_ptr<NVXDASHBlocksRequest> requestWithID(int32_t requestID, Data requestData,
                                                             ReadHandler asyncReadHandler);
  /// Without a read handler no payload is expected in the answer.
  static std::shared_ptr<NVXDASHBlocksRequest> requestWithID(int32_t requestID,
                                                             SerializeHandler asyncSerializeHandler,
                                                             ReadHandler asyncReadHandler = {});

  void setAsyncRequestFailedHandler(FailedHandler handler);

  void asyncSerializeRequestData(utils::JavaDataOutput* output,
                                 const NVXDASHConnectionRef& connection) override;
  bool asyncReadResponse(utils::JavaDataInput* input, const NVXDASHConnectionRef& connection) override;
  void asyncRequestFailed(const Error& error, const NVXDASHConnectionRef& connection) override;

 private:
  class Made;
  NVXDASHBlocksRequest(int32_t requestID, Data requestData, SerializeHandler serializeHandler,
                       ReadHandler readHandler);

  const Data _requestData;
  const SerializeHandler _asyncSerializeRequestDataHandler;
  const ReadHandler _asyncReadResponseHandler;
  Mutex _lock;
  FailedHandler _asyncRequestFailedHandler NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore
