#include "nvxcore/platform/linux/CurlHTTPSessionService.h"

#include <utility>

#include "nvxcore/platform/linux/CurlConnectionPool.h"
#include "nvxcore/platform/linux/CurlIOThread.h"
#include "nvxcore/platform/linux/CurlLibrary.h"
#include "nvxcore/platform/linux/CurlSession.h"
#include "nvxcore/platform/linux/HostResolver.h"
#include "nvxcore/platform/linux/MakeHTTPSessionService.h"

namespace nvxcore {

CurlHTTPSessionService::CurlHTTPSessionService() : _resolver(std::make_shared<HostResolver>()) {}

CurlHTTPSessionService::~CurlHTTPSessionService() {
  Lock lock(_lock);
  if (_thread) _thread->retire();
}

std::shared_ptr<CurlIOThread> CurlHTTPSessionService::thread() {
  Lock lock(_lock);
  if (!_thread) _thread = std::make_shared<CurlIOThread>();
  return _thread;
}

HTTPSessionRef CurlHTTPSessionService::sessionWithConfiguration(const HTTPSessionConfiguration& configuration,
                                                                std::shared_ptr<HTTPSessionDelegate> delegate,
                                                                QueueRef delegateQueue) {
  useCurlLibrary();
  auto pool = std::make_shared<CurlConnectionPool>(thread(), _resolver,
                                                   std::make_shared<HTTPSessionConfiguration>(configuration));
  return std::make_shared<CurlSession>(std::move(pool), std::move(delegate), std::move(delegateQueue));
}

size_t CurlHTTPSessionService::maximumThreadCount() const { return 1 + HostResolver::kMaximumThreads; }

std::shared_ptr<HTTPSessionService> makeHTTPSessionService() {
  return std::make_shared<CurlHTTPSessionService>();
}

}  // namespace nvxcore
