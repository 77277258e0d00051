#pragma once

#include <memory>

#include "nvxcore/platform/HTTPSession.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/ThreadAnnotations.h"

namespace nvxcore {

class CurlIOThread;
class HostResolver;

/// The HTTP session service on libcurl.
class CurlHTTPSessionService final : public HTTPSessionService {
 public:
  CurlHTTPSessionService();
  ~CurlHTTPSessionService() override;

  HTTPSessionRef sessionWithConfiguration(const HTTPSessionConfiguration& configuration,
                                          std::shared_ptr<HTTPSessionDelegate> delegate,
                                          QueueRef delegateQueue) override;
  size_t maximumThreadCount() const override;

 private:
  std::shared_ptr<CurlIOThread> thread();

  const std::shared_ptr<HostResolver> _resolver;
  Mutex _lock;
  std::shared_ptr<CurlIOThread> _thread NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore
