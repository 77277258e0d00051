// The time from creating everything to the first answer of a process: service, description, state,
// connection, the HTTP service's thread and its first connection. Prints it; a process has one first answer,
// so that scripts/bench runs the program several times.

#include <chrono>
#include <cstdio>
#include <memory>

#include "benchmarks/support/ServerProcess.h"
#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

int main() {
  using namespace nvxcore;
  benchmarks::ServerProcess server;
  const auto start = std::chrono::steady_clock::now();
  Semaphore answered(0);
  bool isGood = false;
  auto connection = NVXDASHConnection::initWithServerURL(
      URL::withString(server.url()), NVXDASHClientDescription::initWithLanguages({"en"}, 0, "bench", "1.0"),
      std::make_shared<NVXDASHClientState>(), NVXDASHConnectionImpl::fetcherServiceWithUserAgent("bench/1"),
      std::make_shared<NVXSystemClock>());
  connection->sendRequest(NVXDASHBlocksRequest::requestWithID(
      239, [](utils::JavaDataOutput* output) { output->WriteInt(0); },
      [&](utils::JavaDataInput* input) {
        isGood = input->ReadInt() == 0;
        answered.signal();
        return true;
      }));
  if (!answered.wait(10) || !isGood) {
    std::fprintf(stderr, "no answer\n");
    return 1;
  }
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
  std::printf("%.2f\n", taken.count());
  connection->drain(10);
  return 0;
}
