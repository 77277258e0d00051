#pragma once

#include <memory>
#include <vector>

#include "nvxcore/connection/NVXDASHRequestGroup.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

class NVXDASHConnectionImpl;

/// The body of a POST. It takes its requests from the connection and frames them when the first bytes are
/// pulled, so that a request that comes until then still rides in it. Read by one thread at a time; the other
/// operations on any thread.
class NVXCORE_EXPORT NVXDASHStreamingBody : public InputStream {
 public:
  /// `groupID` may be missing when `ignoreRequests` is set, as on a connection check.
  static std::shared_ptr<NVXDASHStreamingBody> initWithConnection(
      std::shared_ptr<NVXDASHConnectionImpl> connection, NVXDASHRequestGroupIDRef groupID,
      bool ignoreRequests);

  /// The requests of this POST in wire order. Collects them when the body has not been read yet; it is empty
  /// then.
  std::vector<NVXDASHConnectionRequestRef> sentRequests();
  /// True when the body was framed, so that the connection's own requests are in this POST.
  bool wasFramed() const;
  /// Lets go of the requests and the connection.
  void releaseRequests();

  void open() override {}
  void close() override {}
  int64_t read(uint8_t* buffer, size_t maxLength) override;
  /// Set when a serialiser threw: the POST can't be sent.
  Error streamError() const override;
  bool hasBytesAvailable() const override { return true; }

 private:
  NVXDASHStreamingBody(std::shared_ptr<NVXDASHConnectionImpl> connection, NVXDASHRequestGroupIDRef groupID,
                       bool ignoreRequests);
  std::vector<NVXDASHConnectionRequestRef> collectRequests() NVX_REQUIRES(_lock);
  void buildPayload();

  mutable Mutex _lock;
  /// Until the payload is built.
  std::shared_ptr<NVXDASHConnectionImpl> _connection NVX_GUARDED_BY(_lock);
  const NVXDASHRequestGroupIDRef _groupID;
  const bool _ignoreRequests;
  bool _hasCollected NVX_GUARDED_BY(_lock) = false;
  bool _wasFramed NVX_GUARDED_BY(_lock) = false;
  std::vector<NVXDASHConnectionRequestRef> _requests NVX_GUARDED_BY(_lock);
  Error _streamError NVX_GUARDED_BY(_lock);
  /// The whole framed body, and how much of it was handed out; the reading thread's own.
  Data _payload;
  size_t _payloadOffset = 0;
};

}  // namespace nvxcore
