#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "nvxcore/connection/NVXDASHConnectionRequest.h"
#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Queue.h"

namespace nvxcore {

inline constexpr bool NVXx_kDASHDefaultRetryEnabled = false;
inline constexpr TimeInterval NVXx_kDASHDefaultStartingRetryInterval = 0.0;
inline constexpr double NVXx_kDASHDefaultRetryFactor = 2.0;
inline constexpr uint32_t NVXx_kDASHDefaultMaxRetries = 2;

/// The usual request: one message out, one message back, and a handler on a queue of the caller's choice.
///
/// Settings are for the maker, before it hands the request to a connection; `abandon` and all getters are for
/// any thread, at any time. The message must not change once the request is sent.
///
/// With retry on, a request that failed with one of a few passing errors is sent again after a growing wait,
/// the same object with the same message. The handler then hears of the last attempt only. A retry whose
/// connection is gone by then comes to nothing: the handler isn't called.
class NVXCORE_EXPORT NVXDASHProtobufferRequest
    : public NVXDASHConnectionRequest,
      public std::enable_shared_from_this<NVXDASHProtobufferRequest> {
 public:
  /// A response without an error, or an error. Called once, on the handler queue.
  using Handler = std::function<void(const Ref<NVXx_PBGeneratedMessage>& response, const Error& error)>;
  /// Answers whether to retry, given what would be done without it. Called on the handler queue, only while
  /// retries are left.
  using RetryBlock = std::function<bool(bool willRetry, const Error& error)>;
  /// May replace the response and the error. Called on a reply reader, for each answer and each failure.
  using ResponseHook = std::function<void(const std::shared_ptr<NVXDASHProtobufferRequest>& request,
                                          Ref<NVXx_PBGeneratedMessage>* response, Error* error)>;

  /// Nothing without a handler queue. Without a response class the answer is passed over.
  static std::shared_ptr<NVXDASHProtobufferRequest> requestWithID(int32_t requestID,
                                                                  Ref<NVXx_PBGeneratedMessage> protobuffer,
                                                                  const PBClass* responseProtoClass,
                                                                  QueueRef handlerQueue, Handler handler);
  /// The same with the response's type: `requestWithID<NVXx_XResponseProto>(id, message, queue, handler)`.
  template <class Response, class TypedHandler>
  static std::shared_ptr<NVXDASHProtobufferRequest> requestWithID(int32_t requestID,
                                                                  Ref<NVXx_PBGeneratedMessage> protobuffer,
                                                                  QueueRef handlerQueue,
                                                                  TypedHandler handler) {
    Handler untyped;
    bool isThere = true;
    if constexpr (std::is_constructible_v<bool, const TypedHandler&>) isThere = static_cast<bool>(handler);
    if (isThere) {
      untyped = [handler = std::move(handler)](const Ref<NVXx_PBGeneratedMessage>& response,
                                               const Error& error) {
        // A hook may have put a message of another class there.
        const bool fits = response && &response->classOfMessage() == &Response::messageClass();
        handler(Ref<Response>(fits ? static_cast<Response*>(response.get()) : nullptr), error);
      };
    }
    return requestWithID(requestID, std::move(protobuffer), &Response::messageClass(),
                         std::move(handlerQueue), std::move(untyped));
  }

  // Hooks are for the whole process, and there is no lock: they are to be in place before any request is
  // sent. They are called in the order in which they were added.
  /// An identifier that is in use keeps its hook.
  static void addResponseHookWithID(std::string_view hookID, ResponseHook hook);
  static void removeResponseHookWithID(std::string_view hookID);
  static void removeAllResponseHooks();

  /// True for HTTP's 408, 502, 503 and 504, and for a time-out or a lost connection of the transport.
  static bool isRetryableError(const Error& error);

  /// Nobody is called any more, and there is no further retry; an answer is passed over. An abandon on a
  /// serial handler queue holds for whatever has not begun there.
  void abandon();

  Ref<NVXx_PBGeneratedMessage> protobuffer() const;
  void setProtobuffer(Ref<NVXx_PBGeneratedMessage> protobuffer);
  /// The extensions known while the answer is parsed; it must outlive the request.
  const NVXx_PBExtensionRegistry* extensionRegistry() const { return _extensionRegistry; }
  void setExtensionRegistry(const NVXx_PBExtensionRegistry* registry) { _extensionRegistry = registry; }
  /// Null once abandoned.
  const PBClass* responseProtoClass() const;
  /// Empty once finished or abandoned.
  Handler handler() const;
  QueueRef handlerQueue() const { return _handlerQueue; }
  /// Kept for the siblings; there are no request hooks here.
  bool bypassRequestHooks() const { return _bypassRequestHooks; }
  void setBypassRequestHooks(bool bypass) { _bypassRequestHooks = bypass; }
  bool bypassResponseHooks() const { return _bypassResponseHooks; }
  void setBypassResponseHooks(bool bypass) { _bypassResponseHooks = bypass; }
  bool isRetryEnabled() const;
  void setRetryEnabled(bool enabled);
  /// Retries so far.
  uint32_t retryCount() const;
  /// Seconds before the first retry; the later ones wait by `retryFactor` longer each.
  TimeInterval startingRetryInterval() const;
  /// 0 or less stands for a random wait from 1 to 2 seconds, as at first.
  void setStartingRetryInterval(TimeInterval interval);
  double retryFactor() const;
  void setRetryFactor(double factor);
  uint32_t maxRetries() const;
  void setMaxRetries(uint32_t retries);
  RetryBlock retryBlock() const;
  void setRetryBlock(RetryBlock block);

  std::string description() const;
  void logResponsePayload(const Ref<NVXx_PBGeneratedMessage>&) const {}

  void asyncSerializeRequestData(utils::JavaDataOutput* output,
                                 const NVXDASHConnectionRef& connection) override;
  bool asyncReadResponse(utils::JavaDataInput* input, const NVXDASHConnectionRef& connection) override;
  void asyncRequestFailed(const Error& error, const NVXDASHConnectionRef& connection) override;

 private:
  class Made;
  NVXDASHProtobufferRequest(int32_t requestID, Ref<NVXx_PBGeneratedMessage> protobuffer,
                            const PBClass* responseProtoClass, QueueRef handlerQueue, Handler handler);

  void dispatchHandlerWithResponse(Ref<NVXx_PBGeneratedMessage> response, Error error,
                                   const NVXDASHConnectionRef& connection);
  void scheduleRetryIfApplicableForResponse(const Ref<NVXx_PBGeneratedMessage>& response, const Error& error,
                                            const NVXDASHConnectionRef& connection);
  TimeInterval nextRetryInterval() const NVX_REQUIRES(_lock);
  void retryRequestNow(const NVXDASHConnectionRef& connection);

  const QueueRef _handlerQueue;
  std::atomic<bool> _bypassRequestHooks{false};
  std::atomic<bool> _bypassResponseHooks{false};
  std::atomic<const NVXx_PBExtensionRegistry*> _extensionRegistry{nullptr};
  mutable Mutex _lock;
  bool _retryEnabled NVX_GUARDED_BY(_lock) = NVXx_kDASHDefaultRetryEnabled;
  uint32_t _retryCount NVX_GUARDED_BY(_lock) = 0;
  TimeInterval _startingRetryInterval NVX_GUARDED_BY(_lock);
  double _retryFactor NVX_GUARDED_BY(_lock) = NVXx_kDASHDefaultRetryFactor;
  uint32_t _maxRetries NVX_GUARDED_BY(_lock) = NVXx_kDASHDefaultMaxRetries;
  // The closures are shared, so that none of the host's is copied or destroyed under the lock.
  std::shared_ptr<const RetryBlock> _retryBlock NVX_GUARDED_BY(_lock);
  Ref<NVXx_PBGeneratedMessage> _protobuffer NVX_GUARDED_BY(_lock);
  const PBClass* _responseProtoClass NVX_GUARDED_BY(_lock);
  std::shared_ptr<const Handler> _handler NVX_GUARDED_BY(_lock);
};
using NVXDASHProtobufferRequestRef = std::shared_ptr<NVXDASHProtobufferRequest>;

}  // namespace nvxcore
