// What a connection costs that has answered a request and has nothing to do: threads and resident memory.

#include <cstdio>
#include <fstream>
#include <string>

#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

namespace {

void print(const char* when) {
  std::ifstream status("/proc/self/status");
  std::string line, memory, threads;
  while (std::getline(status, line)) {
    if (line.starts_with("VmRSS:")) memory = line.substr(6);
    if (line.starts_with("Threads:")) threads = line.substr(8);
  }
  std::printf("   %-28s threads%s, resident%s\n", when, threads.c_str(), memory.c_str());
}

}  // namespace

int main() {
  using namespace nvxcore;
  print("before first use");
  auto connection = NVXDASHConnection::initWithServerURL(
      URL::withString("http://127.0.0.1:1/"),
      NVXDASHClientDescription::initWithLanguages({"en"}, 0, "idle", "1.0"),
      std::make_shared<NVXDASHClientState>(), NVXDASHConnectionImpl::fetcherServiceWithUserAgent("idle/1"),
      std::make_shared<NVXSystemClock>());
  print("with a connection");
  Semaphore ended(0);
  auto request = NVXDASHBlocksRequest::requestWithID(39, Data::copy("x"), {});
  request->setAsyncRequestFailedHandler([&](const Error&) { ended.signal(); });
  connection->sendRequest(request);
  if (!ended.wait(20.0) || !connection->drain(20.0)) return 1;
  print("after a request");
  Semaphore never(0);
  never.wait(8.0);
  print("8 s later");
  for (const std::string& thread : takeRuntimeSnapshot().threads)
    std::printf("   thread %s\n", thread.c_str());
  std::printf("   at most %zu threads\n", maximumThreadCount());
}
