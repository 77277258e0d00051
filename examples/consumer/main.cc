// A small host program, built against the library in each way that a host may link it. It asks a port at
// which nobody listens, and ends with 0 when it is told so.

#include <cstdio>

#include "nvxcore/connection/NVXDASHBlocksRequest.h"
#include "nvxcore/connection/NVXDASHConnectionImpl.h"
#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/transport/NVXx_HTKSessionFetcherService.h"

int main() {
  using namespace nvxcore;
  auto connection = NVXDASHConnection::initWithServerURL(
      URL::withString("http://127.0.0.1:1/"),
      NVXDASHClientDescription::initWithLanguages({"en"}, 0, "consumer", "1.0"),
      std::make_shared<NVXDASHClientState>(),
      NVXDASHConnectionImpl::fetcherServiceWithUserAgent(
          NVXDASHConnectionImpl::userAgentForBundle(nullptr, "")),
      std::make_shared<NVXSystemClock>());
  Semaphore failed(0);
  Error reason;
  auto request = NVXDASHBlocksRequest::requestWithID(39, Data::copy("payload"), {});
  request->setAsyncRequestFailedHandler([&](const Error& error) {
    reason = error;
    failed.signal();
  });
  connection->sendRequest(request);
  const bool told = failed.wait(20.0) && connection->drain(20.0);
  std::printf("%s\n", reason.description().c_str());
  return told && reason.is(kURLErrorDomain, kURLErrorCannotConnectToHost) ? 0 : 1;
}
