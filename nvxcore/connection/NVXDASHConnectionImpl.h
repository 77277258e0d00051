#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/connection/NVXDASHConnection.h"
#include "nvxcore/connection/NVXDASHRequestGroup.h"
#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/transport/transforms/NVXx_HTKStringEncoding.h"

namespace nvxcore {

class NVXDASHStreamingCompletionContext;
class NVXx_ZLCClientPropertiesRequestProto;

/// What a connection holds, at one moment.
struct NVXDASHConnectionSnapshot {
  struct Group {
    int64_t xGeoVersion = 0;
    size_t requests = 0;
    size_t decidedPosts = 0;  ///< POSTs decided on that have not taken their requests yet.
  };
  std::vector<Group> groups;
  size_t enqueued = 0;
  bool isSuspended = false;
  size_t suspended = 0;
  size_t suspendedEnqueued = 0;
  int64_t postsInProgress = 0;
  int64_t outgoingBytes = 0;
  int64_t incomingBytes = 0;
};

/// The connection, with what its owner does to it. All operations may be called on any thread.
///
/// A POST under way keeps the connection alive. When the last handle goes, requests that no POST has taken
/// are failed as cancelled.
class NVXCORE_EXPORT NVXDASHConnectionImpl : public NVXDASHConnection,
                                             public std::enable_shared_from_this<NVXDASHConnectionImpl> {
 public:
  NVXDASHConnectionImpl() = delete;
  ~NVXDASHConnectionImpl() override;

  void sendRequest(const NVXDASHConnectionRequestRef& request) override;
  void enqueueRequest(const NVXDASHConnectionRequestRef& request) override;
  int64_t connectionIdleTimeMS() override;
  void checkConnection(std::function<void(bool)> handler) override;
  void suspendSending() override;
  void resumeSending() override;
  URL serverURL() override;
  void setServerURL(const URL& serverURL) override;
  NVXDASHClientDescriptionRef clientDescription() override { return _clientDescription; }
  NVXDASHClientStateRef clientState() override { return _clientState; }
  std::string legalCountry() override;
  bool hasLocationFix() override { return _hasLocationFix; }
  void setHasLocationFix(bool hasFix) override { _hasLocationFix = hasFix; }
  std::vector<Ref<NVXx_LOCULocationDescriptor>> locationDescriptors() override;
  void setLocationDescriptors(std::vector<Ref<NVXx_LOCULocationDescriptor>> descriptors) override;
  size_t pendingRequestCount() override;
  size_t pendingEnqueueCount() override;
  size_t numberOfBatchesInSuspension() override;
  int32_t navUsage() override { return _navUsage; }
  void setNavUsage(int32_t usage) override { _navUsage = usage; }
  Ref<NVXx_PBMutableArray> experimentIDs() override;
  void setExperimentIDs(const NVXx_PBMutableArray* experimentIDs) override;
  bool voiceSearchEnabled() override { return _voiceSearchEnabled; }
  void setVoiceSearchEnabled(bool enabled) override { _voiceSearchEnabled = enabled; }
  bool suppressUserState() override { return _suppressUserState; }
  void setSuppressUserState(bool suppress) override { _suppressUserState = suppress; }

  /// Waits, for at most `timeout` seconds in whole milliseconds, until no reply is being read. True when none
  /// is.
  bool waitOnCurrentStreamingConnectionsWithTimeout(TimeInterval timeout);
  /// Waits for at most `deadline` seconds until all POSTs that were decided on have ended. Turns the main
  /// loop when it is called on the main thread. What is held back, by a suspension, say, is not waited for.
  /// True when all have ended.
  bool drain(TimeInterval deadline);
  /// Bytes framed into bodies and bytes read from replies so far; either may be null.
  void getOutgoingByteCount(int64_t* outgoing, int64_t* incoming);
  /// POSTs decided on and not ended.
  int64_t numberOfConnectionsInProgress() { return _numInProgressConnections; }
  /// While a part of the client's identity is missing, which the next answer is to bring. One POST at a time
  /// is in the air meanwhile.
  bool isWaitingForCookies();
  size_t batchSize() const { return _batchSize; }
  int64_t lastRequestCompletedTime() { return _lastRequestCompletedTime; }
  void setLastRequestCompletedTime(int64_t timeMillis) { _lastRequestCompletedTime = timeMillis; }
  std::shared_ptr<NVXx_HTKSessionFetcherService> fetcherService();
  void setCustomFetcherService(std::shared_ptr<NVXx_HTKSessionFetcherService> service);
  std::shared_ptr<NVXTimingClock> timingClock() { return _timingClock; }
  /// Requests sent from now on form a new group.
  void startNewBatch();
  NVXDASHConnectionSnapshot snapshot();

  /// "application SDK system (gzip)"; `SDKIdentifier` may be empty.
  static std::string userAgentForBundle(const ApplicationFacts* bundle, std::string_view SDKIdentifier);
  /// A service with that user agent and a delegate queue of its own.
  static std::shared_ptr<NVXx_HTKSessionFetcherService> fetcherServiceWithUserAgent(std::string userAgent);
  /// Code 100 of the connection's class.
  static Error protocolError(Dictionary userInfo = {});

  // For the body of a POST.
  std::vector<NVXDASHConnectionRequestRef> requestsForStreamingBodyForGroupID(
      const NVXDASHRequestGroupIDRef& groupID);
  /// Puts the connection's own requests ahead of the others, frames them all, and adds the bytes to the
  /// outgoing count. Lets through what a request throws.
  Data buildServerPayloadForRequests(std::vector<NVXDASHConnectionRequestRef>& requests);

 private:
  friend class NVXDASHConnection;

  NVXDASHConnectionImpl(const URL& serverURL, NVXDASHClientDescriptionRef clientDescription,
                        NVXDASHClientStateRef clientState,
                        std::shared_ptr<NVXx_HTKSessionFetcherService> fetcherService,
                        std::shared_ptr<NVXTimingClock> timingClock);

  int64_t issueNewXGeoVersion() NVX_REQUIRES(_lock) { return _nextXGeoVersion++; }
  void fileRequest(const NVXDASHConnectionRequestRef& request) NVX_REQUIRES(_lock);
  NVXDASHRequestGroup* requestGroupFor(const AuthorizerRef& authorizer, int64_t xGeoVersion)
      NVX_REQUIRES(_lock);
  NVXDASHRequestGroup* requestGroupForID(const NVXDASHRequestGroupID& groupID) NVX_REQUIRES(_lock);
  void startConnectionsIfNeeded();
  void updateWaitingForCookies();
  void startWhatStillWaitsForCookies();
  std::string xGeoHeaderValueForGroupID(const NVXDASHRequestGroupIDRef& groupID);
  std::string XGeoHeaderValueFromLocationDescriptors(
      const std::vector<Ref<NVXx_LOCULocationDescriptor>>& descriptors) NVX_REQUIRES(_lock);
  NVXDASHConnectionRequestRef userCookieRequest();
  NVXDASHConnectionRequestRef clientPropertiesRequest(bool suppressingUserState);
  Ref<NVXx_ZLCClientPropertiesRequestProto> clientPropertiesProtoSuppressingUserState(bool suppress);
  void startConnection(const NVXDASHRequestGroupIDRef& groupID);
  void internalStartConnectionWithGroupID(const NVXDASHRequestGroupIDRef& groupID, bool asConnectionCheck,
                                          std::function<void(bool)> serverCallback);
  struct Post;
  void readReply(const Post& post, utils::JavaDataInput* input, Error error,
                 NVXDASHStreamingCompletionContext& completionContext);
  bool readRequest(const NVXDASHConnectionRequestRef& request, utils::JavaDataInput* input,
                   const NVXDASHStreamingCompletionContext& completionContext);

  Mutex _lock;
  URL _serverURL NVX_GUARDED_BY(_lock);
  /// Present only while sending is suspended.
  std::optional<std::vector<NVXDASHConnectionRequestRef>> _suspendQueue NVX_GUARDED_BY(_lock);
  std::optional<std::vector<NVXDASHConnectionRequestRef>> _suspendedEnqueuedQueue NVX_GUARDED_BY(_lock);
  /// Groups that hold requests, in the order of their creation.
  std::vector<NVXDASHRequestGroup> _pendingRequestGroups NVX_GUARDED_BY(_lock);
  std::vector<NVXDASHConnectionRequestRef> _enqueuedRequests NVX_GUARDED_BY(_lock);
  bool _waitingForCookies NVX_GUARDED_BY(_lock) = false;
  std::atomic<int64_t> _outgoingCount{0};
  std::atomic<int64_t> _incomingCount{0};
  /// All reply readers.
  const std::shared_ptr<DispatchGroup> _dispatchGroup;
  /// All POSTs, from the decision to the end.
  const std::shared_ptr<DispatchGroup> _postGroup;
  std::atomic<int64_t> _numInProgressConnections{0};
  int64_t _defaultXGeoVersion NVX_GUARDED_BY(_lock) = 0;
  int64_t _nextXGeoVersion NVX_GUARDED_BY(_lock) = 0;
  Ref<NVXx_PBMutableArray> _experimentIDs NVX_GUARDED_BY(_lock);
  std::vector<Ref<NVXx_LOCULocationDescriptor>> _locationDescriptors NVX_GUARDED_BY(_lock);
  std::shared_ptr<NVXx_HTKStringEncoding> _websafeBase64Encoder NVX_GUARDED_BY(_lock);
  bool _hasCellularVoice = false;
  bool _hasCellularData = false;
  std::atomic<bool> _hasLocationFix{false};
  std::atomic<bool> _suppressUserState{false};
  std::atomic<bool> _voiceSearchEnabled{false};
  std::atomic<int32_t> _navUsage{0};
  const NVXDASHClientDescriptionRef _clientDescription;
  const NVXDASHClientStateRef _clientState;
  std::shared_ptr<NVXx_HTKSessionFetcherService> _fetcherService NVX_GUARDED_BY(_lock);
  const std::shared_ptr<NVXTimingClock> _timingClock;
  const size_t _batchSize = 50;
  std::atomic<int64_t> _lastRequestCompletedTime{kNVXTimingClock_InvalidTime};
};

}  // namespace nvxcore
