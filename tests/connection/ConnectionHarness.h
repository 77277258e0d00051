#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

namespace nvxcore::testing {

inline constexpr TimeInterval kPatience = 30.0;

/// IDs of the requests that the connection itself puts at the head of a POST.
inline constexpr int32_t kUserCookieRequest = 15;
inline constexpr int32_t kClientPropertiesRequest = 62;

/// What a server gives a client for an identity.
struct IdentityAnswer {
  uint64_t userCookie = 0x11;
  std::string clientProperties;  ///< The serialised message.
};

/// One request of a POST body.
struct FramedRequest {
  int32_t id;
  std::string payload;
};
/// What follows the head of a body, in order: an ID and, but for the user cookie's, a 32-bit length with that
/// many bytes. Written anew here, apart from the library's own framing.
std::vector<FramedRequest> requestsOf(std::string_view body);
/// Payloads of those that are not the connection's own.
std::vector<std::string> payloadsOf(std::string_view body);
/// The reply that a server gives to a POST body: an identity to the connection's own requests, an echo to the
/// others.
std::string echoReply(std::string_view body, const IdentityAnswer& identity = {});
/// The same with answers of the test's own to the others: what `answer` gives for an ID and a payload goes
/// out behind the ID.
std::string replyTo(std::string_view body,
                    const std::function<std::string(int requestID, std::string_view payload)>& answer,
                    const IdentityAnswer& identity = {});

/// What became of each request, in the order in which it became so.
class Outcomes {
 public:
  struct Outcome {
    std::string name;
    bool answered = false;
    Error error;
  };

  void add(Outcome outcome);
  /// True once `count` outcomes are there.
  bool waitForCount(size_t count);
  std::vector<Outcome> all() const;
  size_t count() const;
  /// "a b !c" for the answered ones and the failed ones.
  std::string summary() const;

 private:
  Semaphore _added{0};
  mutable Mutex _lock;
  std::vector<Outcome> _outcomes NVX_GUARDED_BY(_lock);
};

/// A request whose payload is `name` behind its length, and whose answer is to be the same; its outcome goes
/// to `outcomes`, which must outlive it.
std::shared_ptr<NVXDASHBlocksRequest> echoRequest(Outcomes& outcomes, const std::string& name,
                                                  int32_t requestID = 239);

/// A state with preferences of its own in memory. 0 is no cookie.
NVXDASHClientStateRef clientStateWithCookie(uint64_t userCookie);

/// A connection to `url` with the usual description.
std::shared_ptr<NVXDASHConnectionImpl> makeConnection(
    const std::string& url, std::shared_ptr<NVXx_HTKSessionFetcherService> service = {},
    uint64_t userCookie = 0x11);

}  // namespace nvxcore::testing
