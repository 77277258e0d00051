#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nvxcore/connection/NVXDASHClientDescription.h"
#include "nvxcore/connection/NVXDASHClientState.h"
#include "nvxcore/connection/NVXDASHConnectionRequest.h"
#include "nvxcore/foundation/base/NVXTimingClock.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

class NVXDASHConnectionImpl;
class NVXx_HTKSessionFetcherService;
class NVXx_PBMutableArray;

/// Notifications with a connection as object: the first on the main thread as a POST starts, the second on
/// the thread that has changed the URL.
inline constexpr char NVXx_kDASHConnectionStartingSendNotification[] =
    "DASHConnectionStartingSendNotification";
inline constexpr char NVXx_kDASHConnectionServerURLChanged[] = "DASHConnectionServerURLChanged";

/// Property keys of the fetcher of a POST: a std::weak_ptr<NVXDASHConnection> object, and true on a
/// connection check.
inline constexpr char NVXx_kDASHFetcherConnectionKey[] = "kDASHFetcherConnectionKey";
inline constexpr char NVXx_kDASHFetcherIsConnectionCheck[] = "isConnectionCheck";

/// Codes of errors of the connection's class, "com.ovrasoft.Atlas.NVXDASHConnection".
inline constexpr char kNVXDASHConnectionClass[] = "NVXDASHConnection";
inline constexpr int64_t kNVXDASHConnectionErrorProtocol = 100;
/// An answer's message doesn't inflate or parse; the underlying error tells why.
inline constexpr int64_t kNVXDASHConnectionErrorMessage = 101;

/// The client's one gateway to the geo server. Requests are grouped and batched, up to 50 go in a POST, and
/// their answers are read in order while the reply is still arriving. Each request gets one outcome.
///
/// All operations may be called on any thread.
class NVXCORE_EXPORT NVXDASHConnection {
 public:
  /// Nothing when an argument is missing.
  static std::shared_ptr<NVXDASHConnectionImpl> initWithServerURL(
      const URL& serverURL, NVXDASHClientDescriptionRef clientDescription, NVXDASHClientStateRef clientState,
      std::shared_ptr<NVXx_HTKSessionFetcherService> fetcherService,
      std::shared_ptr<NVXTimingClock> timingClock);

  virtual ~NVXDASHConnection() = default;

  /// Queues a request and starts a POST when one is needed.
  virtual void sendRequest(const NVXDASHConnectionRequestRef& request) = 0;
  /// Lets a request ride in the next POST that has room; starts none.
  virtual void enqueueRequest(const NVXDASHConnectionRequestRef& request) = 0;
  /// Milliseconds since the last POST ended: 0 while one is in progress, -1 before any.
  virtual int64_t connectionIdleTimeMS() = 0;
  /// Sends a POST without requests. `handler` is called on the main thread with whether the server gave a
  /// good reply.
  virtual void checkConnection(std::function<void(bool)> handler) = 0;
  /// Holds all new requests back until `resumeSending`. There is no count: one resume ends any number of
  /// suspends.
  virtual void suspendSending() = 0;
  virtual void resumeSending() = 0;
  virtual URL serverURL() = 0;
  virtual void setServerURL(const URL& serverURL) = 0;
  virtual NVXDASHClientDescriptionRef clientDescription() = 0;
  virtual NVXDASHClientStateRef clientState() = 0;
  /// Country whose law holds, in upper case: the one that the server told, else the SIM's. Empty when neither
  /// is known.
  virtual std::string legalCountry() = 0;
  virtual bool hasLocationFix() = 0;
  virtual void setHasLocationFix(bool hasFix) = 0;
  /// Claims about where the device is, which each POST carries. Requests sent after a change go in POSTs of
  /// their own. The descriptors are not to be changed once they were handed over.
  virtual std::vector<Ref<NVXx_LOCULocationDescriptor>> locationDescriptors() = 0;
  virtual void setLocationDescriptors(std::vector<Ref<NVXx_LOCULocationDescriptor>> descriptors) = 0;
  /// Requests in groups that no POST has taken yet.
  virtual size_t pendingRequestCount() = 0;
  virtual size_t pendingEnqueueCount() = 0;
  /// POSTs that the requests held back by a suspension will take.
  virtual size_t numberOfBatchesInSuspension() = 0;
  virtual int32_t navUsage() = 0;
  virtual void setNavUsage(int32_t usage) = 0;
  /// Numbers of experiments that the client takes part in, an array of int32. Set and answered as copies;
  /// null is none.
  virtual Ref<NVXx_PBMutableArray> experimentIDs() = 0;
  virtual void setExperimentIDs(const NVXx_PBMutableArray* experimentIDs) = 0;
  virtual bool voiceSearchEnabled() = 0;
  virtual void setVoiceSearchEnabled(bool enabled) = 0;
  /// When set, POSTs carry no user cookie, no location and no more of the client than the server needs.
  virtual bool suppressUserState() = 0;
  virtual void setSuppressUserState(bool suppress) = 0;
};

}  // namespace nvxcore
