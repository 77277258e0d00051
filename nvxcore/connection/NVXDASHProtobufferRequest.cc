#include "nvxcore/connection/NVXDASHProtobufferRequest.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <random>
#include <vector>

#include "nvxcore/connection/JavaDataInputPBSupport.h"
#include "nvxcore/connection/JavaDataOutputPBSupport.h"
#include "nvxcore/connection/NVXDASHConnection.h"
#include "nvxcore/foundation/base/NVXErrors.h"
#include "nvxcore/foundation/base/NVXReportError.h"
#include "nvxcore/platform/Exception.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/internal/Pooled.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherTypes.h"

namespace nvxcore {

namespace {

using Message = NVXx_PBGeneratedMessage;

struct NamedHook {
  std::string hookID;
  NVXDASHProtobufferRequest::ResponseHook hook;
};

std::vector<NamedHook>& gResponseHooks() {
  static auto* hooks = new std::vector<NamedHook>;
  return *hooks;
}

/// From 1.0 to 2.0 seconds, so that clients that fail together don't come back together.
TimeInterval randomInterval() {
  static std::atomic<uint64_t> state{std::random_device()()};
  uint64_t bits = state.fetch_add(0x9E3779B97F4A7C15, std::memory_order_relaxed);
  bits = (bits ^ bits >> 31) * 0xD6E8FEB86659FD93;
  return static_cast<uint16_t>(bits >> 48) / 65535.0 + 1.0;
}

Error connectionError(int64_t code, const Error& cause = {}) {
  Dictionary userInfo;
  if (cause) userInfo.set(kUnderlyingErrorKey, cause);
  return NVXMakeClassError(kNVXDASHConnectionClass, code, std::move(userInfo));
}

template <class Closure>
std::shared_ptr<const Closure> shared(Closure closure) {
  return closure ? makePooled<const Closure>(std::move(closure)) : nullptr;
}

}  // namespace

/// Lets the object and its reference count be one allocation.
class NVXDASHProtobufferRequest::Made final : public NVXDASHProtobufferRequest {
 public:
  Made(int32_t requestID, Ref<Message> protobuffer, const PBClass* responseProtoClass, QueueRef handlerQueue,
       Handler handler)
      : NVXDASHProtobufferRequest(requestID, std::move(protobuffer), responseProtoClass,
                                  std::move(handlerQueue), std::move(handler)) {}
};

NVXDASHProtobufferRequestRef NVXDASHProtobufferRequest::requestWithID(int32_t requestID,
                                                                      Ref<Message> protobuffer,
                                                                      const PBClass* responseProtoClass,
                                                                      QueueRef handlerQueue,
                                                                      Handler handler) {
  if (!handlerQueue) return {};
  return makePooled<Made>(requestID, std::move(protobuffer), responseProtoClass, std::move(handlerQueue),
                          std::move(handler));
}

NVXDASHProtobufferRequest::NVXDASHProtobufferRequest(int32_t requestID, Ref<Message> protobuffer,
                                                     const PBClass* responseProtoClass, QueueRef handlerQueue,
                                                     Handler handler)
    : NVXDASHConnectionRequest(requestID),
      _handlerQueue(std::move(handlerQueue)),
      _protobuffer(std::move(protobuffer)),
      _responseProtoClass(responseProtoClass),
      _handler(shared(std::move(handler))) {
  setStartingRetryInterval(NVXx_kDASHDefaultStartingRetryInterval);
}

// Hooks.

void NVXDASHProtobufferRequest::addResponseHookWithID(std::string_view hookID, ResponseHook hook) {
  auto& hooks = gResponseHooks();
  const auto isNamed = [&](const NamedHook& named) { return named.hookID == hookID; };
  if (!hook || std::any_of(hooks.begin(), hooks.end(), isNamed)) return;
  hooks.push_back({std::string(hookID), std::move(hook)});
}

void NVXDASHProtobufferRequest::removeResponseHookWithID(std::string_view hookID) {
  std::erase_if(gResponseHooks(), [&](const NamedHook& named) { return named.hookID == hookID; });
}

void NVXDASHProtobufferRequest::removeAllResponseHooks() { gResponseHooks().clear(); }

// The wire.

void NVXDASHProtobufferRequest::asyncSerializeRequestData(utils::JavaDataOutput* output,
                                                          const NVXDASHConnectionRef&) {
  if (output) dash::JavaDataOutputPBSupport(output).WriteProtocolBuffer(protobuffer().get());
}

bool NVXDASHProtobufferRequest::asyncReadResponse(utils::JavaDataInput* input,
                                                  const NVXDASHConnectionRef& connection) {
  Ref<Message> response;
  Error error;
  bool isInStep = true;
  try {
    dash::JavaDataInputPBSupport support(input);
    if (const PBClass* responseProtoClass = this->responseProtoClass()) {
      Error cause;
      response = support.ReadProtocolBufferOfClass(*responseProtoClass, extensionRegistry(), &cause);
      if (cause) error = connectionError(kNVXDASHConnectionErrorMessage, cause);
    } else {
      support.SkipSubdata();
    }
  } catch (const utils::DataInputProvider::NotEnoughDataException&) {
    error = connectionError(kNVXDASHConnectionErrorProtocol);
    isInStep = false;
  } catch (const Exception&) {
    error = connectionError(kNVXDASHConnectionErrorMessage);
  } catch (...) {
    // No room, say. How far the read came is not known, but the request has its outcome.
    error = connectionError(kNVXDASHConnectionErrorProtocol);
    isInStep = false;
  }
  dispatchHandlerWithResponse(std::move(response), std::move(error), connection);
  return isInStep;
}

void NVXDASHProtobufferRequest::asyncRequestFailed(const Error& error,
                                                   const NVXDASHConnectionRef& connection) {
  dispatchHandlerWithResponse({}, error, connection);
}

// The outcome.

void NVXDASHProtobufferRequest::dispatchHandlerWithResponse(Ref<Message> response, Error error,
                                                            const NVXDASHConnectionRef& connection) {
  auto self = shared_from_this();
  if (!_bypassResponseHooks) {
    for (const NamedHook& named : gResponseHooks()) {
      // What a hook throws must not cost the request its outcome.
      try {
        named.hook(self, &response, &error);
      } catch (const std::exception& thrown) {
        softReport("Response hook %s threw: %s", named.hookID.c_str(), thrown.what());
      } catch (...) {
        softReport("Response hook %s threw", named.hookID.c_str());
      }
    }
  }
  _handlerQueue->post(
      [self = std::move(self), response = std::move(response), error = std::move(error),
       connection]() mutable { self->scheduleRetryIfApplicableForResponse(response, error, connection); });
}

void NVXDASHProtobufferRequest::scheduleRetryIfApplicableForResponse(const Ref<Message>& response,
                                                                     const Error& error,
                                                                     const NVXDASHConnectionRef& connection) {
  std::shared_ptr<const Handler> handler;
  std::shared_ptr<const RetryBlock> retryBlock, droppedBlock;
  bool willRetry = false, mayRetry = false;
  TimeInterval interval = 0;
  {
    Lock lock(_lock);
    handler = _handler;
    retryBlock = _retryBlock;
    if (error && connection) interval = nextRetryInterval();
    mayRetry = interval > 0;
  }
  if (mayRetry) {
    willRetry = isRetryableError(error);
    if (retryBlock) willRetry = (*retryBlock)(willRetry, error);
  }
  {
    Lock lock(_lock);
    // The retry handler may have abandoned the request.
    if (!_handler) return;
    if (willRetry) {
      ++_retryCount;
    } else {
      _handler.reset();
      droppedBlock.swap(_retryBlock);
    }
  }
  if (willRetry) {
    Queue::main()->postAfter(interval,
                             [self = shared_from_this(), weakConnection = std::weak_ptr(connection)] {
                               self->retryRequestNow(weakConnection.lock());
                             });
  } else {
    (*handler)(response, error);
  }
}

TimeInterval NVXDASHProtobufferRequest::nextRetryInterval() const {
  if (!_retryEnabled || !_handler || _retryCount >= _maxRetries) return 0;
  return _startingRetryInterval * std::pow(_retryFactor, _retryCount);
}

void NVXDASHProtobufferRequest::retryRequestNow(const NVXDASHConnectionRef& connection) {
  {
    Lock lock(_lock);
    if (!_handler) return;
  }
  if (connection) connection->sendRequest(shared_from_this());
}

bool NVXDASHProtobufferRequest::isRetryableError(const Error& error) {
  if (error.domain() == NVXx_kHTKSessionFetcherStatusDomain) {
    return error.code() == 408 || error.code() == 502 || error.code() == 503 || error.code() == 504;
  }
  return error.is(kURLErrorDomain, kURLErrorTimedOut) ||
         error.is(kURLErrorDomain, kURLErrorNetworkConnectionLost);
}

void NVXDASHProtobufferRequest::abandon() {
  std::shared_ptr<const Handler> handler;
  std::shared_ptr<const RetryBlock> retryBlock;
  Lock lock(_lock);
  handler.swap(_handler);
  retryBlock.swap(_retryBlock);
  _responseProtoClass = nullptr;
}

// Properties.

Ref<Message> NVXDASHProtobufferRequest::protobuffer() const {
  Lock lock(_lock);
  return _protobuffer;
}

void NVXDASHProtobufferRequest::setProtobuffer(Ref<Message> protobuffer) {
  Ref<Message> before;
  Lock lock(_lock);
  before = std::move(_protobuffer);
  _protobuffer = std::move(protobuffer);
}

const PBClass* NVXDASHProtobufferRequest::responseProtoClass() const {
  Lock lock(_lock);
  return _responseProtoClass;
}

NVXDASHProtobufferRequest::Handler NVXDASHProtobufferRequest::handler() const {
  std::shared_ptr<const Handler> handler;
  {
    Lock lock(_lock);
    handler = _handler;
  }
  return handler ? *handler : Handler();
}

bool NVXDASHProtobufferRequest::isRetryEnabled() const {
  Lock lock(_lock);
  return _retryEnabled;
}

void NVXDASHProtobufferRequest::setRetryEnabled(bool enabled) {
  Lock lock(_lock);
  _retryEnabled = enabled;
}

uint32_t NVXDASHProtobufferRequest::retryCount() const {
  Lock lock(_lock);
  return _retryCount;
}

TimeInterval NVXDASHProtobufferRequest::startingRetryInterval() const {
  Lock lock(_lock);
  return _startingRetryInterval;
}

void NVXDASHProtobufferRequest::setStartingRetryInterval(TimeInterval interval) {
  if (!(interval > 0)) interval = randomInterval();
  Lock lock(_lock);
  _startingRetryInterval = interval;
}

double NVXDASHProtobufferRequest::retryFactor() const {
  Lock lock(_lock);
  return _retryFactor;
}

void NVXDASHProtobufferRequest::setRetryFactor(double factor) {
  Lock lock(_lock);
  _retryFactor = factor;
}

uint32_t NVXDASHProtobufferRequest::maxRetries() const {
  Lock lock(_lock);
  return _maxRetries;
}

void NVXDASHProtobufferRequest::setMaxRetries(uint32_t retries) {
  Lock lock(_lock);
  _maxRetries = retries;
}

NVXDASHProtobufferRequest::RetryBlock NVXDASHProtobufferRequest::retryBlock() const {
  std::shared_ptr<const RetryBlock> block;
  {
    Lock lock(_lock);
    block = _retryBlock;
  }
  return block ? *block : RetryBlock();
}

void NVXDASHProtobufferRequest::setRetryBlock(RetryBlock block) {
  std::shared_ptr<const RetryBlock> next = shared(std::move(block));
  Lock lock(_lock);
  _retryBlock.swap(next);
}

std::string NVXDASHProtobufferRequest::description() const {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  const Ref<Message> message = protobuffer();
  return "NVXDASHProtobufferRequest " + std::string(address) +
         ": protobuf:" + (message ? message->description() : "(null)");
}

}  // namespace nvxcore
