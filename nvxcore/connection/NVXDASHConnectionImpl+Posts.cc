// One POST: how it starts, how its body is framed, and how its reply is read.

#include <algorithm>
#include <exception>
#include <utility>

#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/connection/NVXDASHStreamingBody.h"
#include "nvxcore/connection/NVXDASHStreamingReply.h"
#include "nvxcore/foundation/base/NVXReportError.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcher.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

namespace nvxcore {

/// What the reader of a reply needs to know of its POST.
struct NVXDASHConnectionImpl::Post {
  std::shared_ptr<NVXDASHStreamingBody> body;
  FetcherRef fetcher;
  bool isConnectionCheck;
  std::function<void(bool)> serverCallback;
  /// Leaves the group of POSTs when the last holder of this goes.
  std::shared_ptr<DispatchGroup> group;
  ~Post() { group->leave(); }
};

namespace {

constexpr int16_t kProtocolVersion = 24;
constexpr char kContentType[] = "application/binary";
/// How long a reader waits for the end of a transfer whose answers it has read.
constexpr TimeInterval kCompletionTimeout = 120.0;
constexpr size_t kExpectedPayloadLength = 4096;

/// What one request's handler throws must not cost the others their outcome.
void failRequest(const NVXDASHConnectionRequestRef& request, const Error& error,
                 const NVXDASHConnectionRef& connection) {
  try {
    request->asyncRequestFailed(error, connection);
  } catch (const std::exception& thrown) {
    softReport("Failure handler of request %d threw: %s", request->requestID(), thrown.what());
  } catch (...) {
    softReport("Failure handler of request %d threw", request->requestID());
  }
}

}  // namespace

void NVXDASHConnectionImpl::internalStartConnectionWithGroupID(const NVXDASHRequestGroupIDRef& groupID,
                                                               bool asConnectionCheck,
                                                               std::function<void(bool)> serverCallback) {
  auto body = NVXDASHStreamingBody::initWithConnection(shared_from_this(), groupID, asConnectionCheck);
  URLRequest urlRequest;
  urlRequest.cachePolicy = URLRequestCachePolicy::ReloadIgnoringLocalCacheData;
  urlRequest.headers.set("Content-Type", kContentType);
  urlRequest.timeoutInterval = NVXx_kDASHRequestDefaultHTTPTimeoutSeconds;
  if (!asConnectionCheck && !_suppressUserState) {
    const std::string location = xGeoHeaderValueForGroupID(groupID);
    if (!location.empty()) urlRequest.headers.set("X-Geo", location);
  }
  std::shared_ptr<NVXx_HTKSessionFetcherService> service;
  {
    Lock lock(_lock);
    urlRequest.url = _serverURL;
    service = _fetcherService;
    if (const NVXDASHRequestGroup* group = groupID ? requestGroupForID(*groupID) : nullptr) {
      for (const NVXDASHConnectionRequestRef& request : group->requests) {
        urlRequest.timeoutInterval = std::max(urlRequest.timeoutInterval, request->httpTimeout());
        urlRequest.allowsCellularAccess = request->allowsCellularAccess();
      }
    }
  }
  FetcherRef fetcher = service->fetcherWithRequest(urlRequest);
  fetcher->setAuthorizer(groupID ? groupID->authorizer() : nullptr);
  // Requests are retried, POSTs are not.
  fetcher->setRetryEnabled(false);
  fetcher->setBodyStreamProvider([body](const BodyStreamHandler& answer) {
    HandOffScope handOff;
    answer(body);
  });
  if (asConnectionCheck) fetcher->setProperty(true, NVXx_kDASHFetcherIsConnectionCheck);
  fetcher->setProperty(Value::object(std::weak_ptr<NVXDASHConnection>(weak_from_this())),
                       NVXx_kDASHFetcherConnectionKey);

  auto reply = NVXDASHStreamingReply::initWithDispatchGroup(_dispatchGroup, fetcher);
  std::shared_ptr<Post> post(
      new Post{body, fetcher, asConnectionCheck, std::move(serverCallback), _postGroup});
  reply->startWithHandler(
      [self = shared_from_this(), post](utils::JavaDataInput* input, const Error& error,
                                        NVXDASHStreamingCompletionContext& completionContext) {
        self->readReply(*post, input, error, completionContext);
      });
}

Data NVXDASHConnectionImpl::buildServerPayloadForRequests(
    std::vector<NVXDASHConnectionRequestRef>& requests) {
  const NVXDASHConnectionRef self = shared_from_this();
  // Read once, so that one body is of one mind.
  const bool suppressesUserState = _suppressUserState;
  const uint64_t userCookie = suppressesUserState ? 0 : _clientState->userCookie();
  requests.insert(requests.begin(), clientPropertiesRequest(suppressesUserState));
  if (!suppressesUserState && userCookie == 0) requests.insert(requests.begin(), userCookieRequest());
  utils::JavaDataOutput output(kExpectedPayloadLength);
  output.WriteShort(kProtocolVersion);
  output.WriteLong(static_cast<int64_t>(userCookie));
  output.WriteUTF(_clientDescription->firstLanguage());
  output.WriteUTF(_clientDescription->platformID());
  output.WriteUTF(_clientDescription->softwareVersion());
  output.WriteUTF(_clientDescription->distributionChannel());
  for (const NVXDASHConnectionRequestRef& request : requests) {
    output.WriteShort(static_cast<int16_t>(request->requestID()));
    request->asyncSerializeRequestData(&output, self);
  }
  _outgoingCount += static_cast<int64_t>(output.data().length());
  return Data::take(output.takeData());
}

void NVXDASHConnectionImpl::readReply(const Post& post, utils::JavaDataInput* input, Error error,
                                      NVXDASHStreamingCompletionContext& completionContext) {
  auto failure = [&] {
    return completionContext.wasStopped() ? Error(kURLErrorDomain, kURLErrorCancelled) : protocolError();
  };
  if (!error && post.fetcher->response().headers().value("Content-Type") != kContentType)
    error = protocolError();
  if (!error) {
    try {
      if (input->ReadShort() != kProtocolVersion) error = protocolError();
    } catch (...) {
      error = failure();
    }
  }
  const bool isServerGood = !error;
  const NVXDASHConnectionRef self = shared_from_this();
  // Also collects them when the transfer failed before the body was read, so that none is lost.
  for (const NVXDASHConnectionRequestRef& request : post.body->sentRequests()) {
    if (error) {
      failRequest(request, error, self);
    } else if (!readRequest(request, input, completionContext)) {
      error = failure();
    }
  }
  if (post.serverCallback) {
    Queue::main()->post([callback = post.serverCallback, isServerGood] { callback(isServerGood); });
  }
  completionContext.waitForCompletionWithTimeout(kCompletionTimeout);
  post.body->releaseRequests();
  if (!error && !input->IsAtEnd()) softReport("%s", "Failed to read all the data in non error case");
  _incomingCount += static_cast<int64_t>(input->BytesConsumed());
  if (!post.isConnectionCheck) {
    --_numInProgressConnections;
    if (post.body->wasFramed()) startWhatStillWaitsForCookies();
  }
  _lastRequestCompletedTime = _timingClock->currentTimeMillis();
}

bool NVXDASHConnectionImpl::readRequest(const NVXDASHConnectionRequestRef& request,
                                        utils::JavaDataInput* input,
                                        const NVXDASHStreamingCompletionContext& completionContext) {
  bool matches = false;
  try {
    matches = input->ReadUnsignedShort() == static_cast<uint16_t>(request->requestID());
  } catch (...) {
  }
  if (!matches) {
    failRequest(request,
                completionContext.wasStopped() ? Error(kURLErrorDomain, kURLErrorCancelled) : protocolError(),
                shared_from_this());
    return false;
  }
  try {
    return request->asyncReadResponse(input, shared_from_this());
  } catch (...) {
    // Entering the read was the outcome of the request; the later ones fail.
    return false;
  }
}

}  // namespace nvxcore
