#include "nvxcore/connection/NVXDASHConnectionImpl.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "nvxcore/connection/internal/NVXDASHConnectionTaskID.h"
#include "nvxcore/foundation/base/NVXErrors.h"
#include "nvxcore/foundation/base/NVXQueues.h"
#include "nvxcore/foundation/device/NVXDeviceCellularInfo.h"
#include "nvxcore/message/schema/location_descriptor.pb.h"
#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"
#include "nvxcore/transport/NVXx_HTKUserAgent.h"

namespace nvxcore {

std::shared_ptr<NVXDASHConnectionImpl> NVXDASHConnection::initWithServerURL(
    const URL& serverURL, NVXDASHClientDescriptionRef clientDescription, NVXDASHClientStateRef clientState,
    std::shared_ptr<NVXx_HTKSessionFetcherService> fetcherService,
    std::shared_ptr<NVXTimingClock> timingClock) {
  if (!serverURL || !clientDescription || !clientState || !fetcherService || !timingClock) return nullptr;
  std::shared_ptr<NVXDASHConnectionImpl> connection(
      new NVXDASHConnectionImpl(serverURL, std::move(clientDescription), std::move(clientState),
                                std::move(fetcherService), std::move(timingClock)));
  connection->updateWaitingForCookies();
  return connection;
}

NVXDASHConnectionImpl::NVXDASHConnectionImpl(const URL& serverURL,
                                             NVXDASHClientDescriptionRef clientDescription,
                                             NVXDASHClientStateRef clientState,
                                             std::shared_ptr<NVXx_HTKSessionFetcherService> fetcherService,
                                             std::shared_ptr<NVXTimingClock> timingClock)
    : _dispatchGroup(std::make_shared<DispatchGroup>()),
      _postGroup(std::make_shared<DispatchGroup>()),
      _clientDescription(std::move(clientDescription)),
      _clientState(std::move(clientState)),
      _timingClock(std::move(timingClock)) {
  Lock lock(_lock);
  _serverURL = serverURL;
  _fetcherService = std::move(fetcherService);
  _defaultXGeoVersion = issueNewXGeoVersion();
  _hasCellularVoice = NVXDeviceCellularInfo::supportsVoice();
  _hasCellularData = NVXDeviceCellularInfo::supportsData();
  _websafeBase64Encoder = NVXx_HTKStringEncoding::rfc4648Base64WebsafeStringEncoding();
  _websafeBase64Encoder->setDoPad(false);
}

NVXDASHConnectionImpl::~NVXDASHConnectionImpl() {
  std::vector<NVXDASHConnectionRequestRef> left;
  auto add = [&](std::vector<NVXDASHConnectionRequestRef>& requests) {
    std::move(requests.begin(), requests.end(), std::back_inserter(left));
  };
  {
    Lock lock(_lock);
    for (NVXDASHRequestGroup& group : _pendingRequestGroups) add(group.requests);
    add(_enqueuedRequests);
    if (_suspendQueue) add(*_suspendQueue);
    if (_suspendedEnqueuedQueue) add(*_suspendedEnqueuedQueue);
  }
  if (left.empty()) return;
  Queue::blocking()->post([left = std::move(left)] {
    const Error cancelled(kURLErrorDomain, kURLErrorCancelled);
    for (const NVXDASHConnectionRequestRef& request : left) request->asyncRequestFailed(cancelled, nullptr);
  });
}

void NVXDASHConnectionImpl::sendRequest(const NVXDASHConnectionRequestRef& request) {
  if (!request || request->requestID() == 0) return;
  {
    Lock lock(_lock);
    if (!request->authorizer()) request->setAuthorizer(_fetcherService->authorizer());
    if (_suspendQueue) return _suspendQueue->push_back(request);
    fileRequest(request);
  }
  startConnectionsIfNeeded();
}

void NVXDASHConnectionImpl::fileRequest(const NVXDASHConnectionRequestRef& request) {
  // A version of its own gives a request a group, and so a POST, of its own.
  const bool isAlone = !request->allowsCellularAccess() || request->hasLocationDescriptorOverrides();
  const int64_t version = isAlone ? issueNewXGeoVersion() : _defaultXGeoVersion;
  const AuthorizerRef authorizer = request->authorizer();
  if (NVXDASHRequestGroup* group = requestGroupFor(authorizer, version)) {
    group->requests.push_back(request);
  } else {
    _pendingRequestGroups.push_back(
        {NVXDASHRequestGroupID::initWithAutorizer(authorizer, version), {request}, 0});
  }
}

NVXDASHRequestGroup* NVXDASHConnectionImpl::requestGroupFor(const AuthorizerRef& authorizer,
                                                            int64_t xGeoVersion) {
  for (NVXDASHRequestGroup& group : _pendingRequestGroups) {
    if (group.groupID->xGeoVersion() == xGeoVersion && group.groupID->authorizer() == authorizer)
      return &group;
  }
  return nullptr;
}

NVXDASHRequestGroup* NVXDASHConnectionImpl::requestGroupForID(const NVXDASHRequestGroupID& groupID) {
  return requestGroupFor(groupID.authorizer(), groupID.xGeoVersion());
}

void NVXDASHConnectionImpl::enqueueRequest(const NVXDASHConnectionRequestRef& request) {
  if (!request || request->requestID() == 0) return;
  Lock lock(_lock);
  (_suspendedEnqueuedQueue ? *_suspendedEnqueuedQueue : _enqueuedRequests).push_back(request);
}

void NVXDASHConnectionImpl::startConnectionsIfNeeded() {
  for (;;) {
    NVXDASHRequestGroupIDRef groupID;
    {
      Lock lock(_lock);
      for (NVXDASHRequestGroup& group : _pendingRequestGroups) {
        if (group.requests.size() <= group.prePostConnectionCount * _batchSize) continue;
        // While the client has no identity only one POST may be in the air.
        if (_waitingForCookies && _numInProgressConnections > 0) return;
        ++group.prePostConnectionCount;
        ++_numInProgressConnections;
        groupID = group.groupID;
        break;
      }
    }
    if (!groupID) return;
    startConnection(groupID);
  }
}

void NVXDASHConnectionImpl::startConnection(const NVXDASHRequestGroupIDRef& groupID) {
  std::shared_ptr<BackgroundTasks> tasks;
  auto task = std::make_shared<NVXDASHConnectionTaskID>();
  auto endTask = [task](BackgroundTasks& granter) {
    const BackgroundTaskIdentifier ended = task->swappedTaskID(kInvalidBackgroundTask);
    if (ended != kInvalidBackgroundTask) granter.end(ended);
  };
  if (!NVXIsAppExtension()) {
    tasks = Platform::current().backgroundTasks;
    std::weak_ptr<BackgroundTasks> weakTasks = tasks;
    task->swappedTaskID(tasks->begin("NVXDASHConnection", [endTask, weakTasks] {
      if (auto granter = weakTasks.lock()) endTask(*granter);
    }));
  }
  _postGroup->enter();
  Queue::main()->post([self = shared_from_this(), groupID, tasks, endTask] {
    NotificationCenter::defaultCenter().post({NVXx_kDASHConnectionStartingSendNotification, self, {}});
    self->internalStartConnectionWithGroupID(groupID, false, {});
    if (tasks) endTask(*tasks);
  });
}

std::vector<NVXDASHConnectionRequestRef> NVXDASHConnectionImpl::requestsForStreamingBodyForGroupID(
    const NVXDASHRequestGroupIDRef& groupID) {
  Lock lock(_lock);
  NVXDASHRequestGroup* group = groupID ? requestGroupForID(*groupID) : nullptr;
  if (!group) return {};
  --group->prePostConnectionCount;
  std::vector<NVXDASHConnectionRequestRef> batch;
  auto takeFirst = [&](std::vector<NVXDASHConnectionRequestRef>& from, size_t count) {
    const auto end = from.begin() + static_cast<ptrdiff_t>(std::min(count, from.size()));
    batch.insert(batch.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(end));
    from.erase(from.begin(), end);
  };
  if (group->requests.size() > _batchSize) {
    takeFirst(group->requests, _batchSize);
    return batch;
  }
  batch = std::move(group->requests);
  _pendingRequestGroups.erase(_pendingRequestGroups.begin() + (group - _pendingRequestGroups.data()));
  takeFirst(_enqueuedRequests, _batchSize - batch.size());
  return batch;
}

int64_t NVXDASHConnectionImpl::connectionIdleTimeMS() {
  const int64_t completed = _lastRequestCompletedTime;
  if (completed < 0) return kNVXTimingClock_InvalidTime;
  if (_numInProgressConnections > 0) return 0;
  return _timingClock->currentTimeMillis() - completed;
}

void NVXDASHConnectionImpl::checkConnection(std::function<void(bool)> handler) {
  _postGroup->enter();
  internalStartConnectionWithGroupID(nullptr, true, std::move(handler));
}

void NVXDASHConnectionImpl::suspendSending() {
  Lock lock(_lock);
  if (!_suspendQueue) _suspendQueue.emplace();
  if (!_suspendedEnqueuedQueue) _suspendedEnqueuedQueue.emplace();
}

void NVXDASHConnectionImpl::resumeSending() {
  {
    Lock lock(_lock);
    if (!_suspendQueue) return;
    const auto held = std::move(*_suspendQueue);
    const auto heldEnqueued = std::move(*_suspendedEnqueuedQueue);
    _suspendQueue.reset();
    _suspendedEnqueuedQueue.reset();
    _enqueuedRequests.insert(_enqueuedRequests.end(), heldEnqueued.begin(), heldEnqueued.end());
    for (const NVXDASHConnectionRequestRef& request : held) fileRequest(request);
  }
  startConnectionsIfNeeded();
}

URL NVXDASHConnectionImpl::serverURL() {
  Lock lock(_lock);
  return _serverURL;
}

void NVXDASHConnectionImpl::setServerURL(const URL& serverURL) {
  {
    Lock lock(_lock);
    _serverURL = serverURL;
  }
  NotificationCenter::defaultCenter().post({NVXx_kDASHConnectionServerURLChanged, shared_from_this(), {}});
}

size_t NVXDASHConnectionImpl::pendingRequestCount() {
  size_t count = 0;
  Lock lock(_lock);
  for (const NVXDASHRequestGroup& group : _pendingRequestGroups) count += group.requests.size();
  return count;
}

size_t NVXDASHConnectionImpl::pendingEnqueueCount() {
  Lock lock(_lock);
  return _enqueuedRequests.size();
}

size_t NVXDASHConnectionImpl::numberOfBatchesInSuspension() {
  Lock lock(_lock);
  return _suspendQueue ? (_suspendQueue->size() + _batchSize - 1) / _batchSize : 0;
}

bool NVXDASHConnectionImpl::waitOnCurrentStreamingConnectionsWithTimeout(TimeInterval timeout) {
  return _dispatchGroup->wait(std::trunc(timeout * 1000.0) / 1000.0);
}

bool NVXDASHConnectionImpl::drain(TimeInterval deadline) {
  constexpr TimeInterval kTurn = 0.001;
  if (!Queue::main()->isCurrent()) return _postGroup->wait(deadline);
  const Platform& platform = Platform::current();
  const int64_t end = platform.threading->monotonicNanos() + static_cast<int64_t>(deadline * 1e9);
  while (!_postGroup->wait(0)) {
    if (platform.threading->monotonicNanos() >= end) return false;
    platform.mainLoop->turn(kTurn);
  }
  return true;
}

void NVXDASHConnectionImpl::getOutgoingByteCount(int64_t* outgoing, int64_t* incoming) {
  if (outgoing) *outgoing = _outgoingCount;
  if (incoming) *incoming = _incomingCount;
}

bool NVXDASHConnectionImpl::isWaitingForCookies() {
  Lock lock(_lock);
  return _waitingForCookies;
}

std::shared_ptr<NVXx_HTKSessionFetcherService> NVXDASHConnectionImpl::fetcherService() {
  Lock lock(_lock);
  return _fetcherService;
}

void NVXDASHConnectionImpl::setCustomFetcherService(std::shared_ptr<NVXx_HTKSessionFetcherService> service) {
  Lock lock(_lock);
  _fetcherService.swap(service);
}

void NVXDASHConnectionImpl::startNewBatch() {
  Lock lock(_lock);
  _defaultXGeoVersion = issueNewXGeoVersion();
}

NVXDASHConnectionSnapshot NVXDASHConnectionImpl::snapshot() {
  NVXDASHConnectionSnapshot snapshot;
  Lock lock(_lock);
  for (const NVXDASHRequestGroup& group : _pendingRequestGroups) {
    snapshot.groups.push_back(
        {group.groupID->xGeoVersion(), group.requests.size(), group.prePostConnectionCount});
  }
  snapshot.enqueued = _enqueuedRequests.size();
  snapshot.isSuspended = _suspendQueue.has_value();
  snapshot.suspended = _suspendQueue ? _suspendQueue->size() : 0;
  snapshot.suspendedEnqueued = _suspendedEnqueuedQueue ? _suspendedEnqueuedQueue->size() : 0;
  snapshot.postsInProgress = _numInProgressConnections;
  snapshot.outgoingBytes = _outgoingCount;
  snapshot.incomingBytes = _incomingCount;
  return snapshot;
}

std::string NVXDASHConnectionImpl::userAgentForBundle(const ApplicationFacts* bundle,
                                                      std::string_view SDKIdentifier) {
  std::string agent = NVXx_HTKFetcherApplicationIdentifier(bundle);
  if (!SDKIdentifier.empty()) agent.append(" ").append(SDKIdentifier);
  return agent + " " + NVXx_HTKFetcherSystemVersionString() + " (gzip)";
}

std::shared_ptr<NVXx_HTKSessionFetcherService> NVXDASHConnectionImpl::fetcherServiceWithUserAgent(
    std::string userAgent) {
  auto service = NVXx_HTKSessionFetcherService::init();
  service->setUserAgent(std::move(userAgent));
  service->setSessionDelegateQueue(Queue::serial("NVXDashConnectionFetcherDelegateQueue"));
  return service;
}

Error NVXDASHConnectionImpl::protocolError(Dictionary userInfo) {
  return NVXMakeClassError(kNVXDASHConnectionClass, kNVXDASHConnectionErrorProtocol, std::move(userInfo));
}

}  // namespace nvxcore
