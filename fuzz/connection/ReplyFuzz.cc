// The reply reader: any reply, cut anywhere, gives each of three requests one outcome, in order, and the POST
// ends.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>

#include "nvxcore/platform/Console.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/URLErrors.h"
#include "tests/connection/ConnectionHarness.h"
#include "tests/support/FakeHTTPSession.h"

namespace {

using namespace nvxcore;
using namespace nvxcore::testing;

void check(bool held) {
  if (!held) std::abort();
}

struct World {
  std::shared_ptr<FakeHTTPSessionService> network = std::make_shared<FakeHTTPSessionService>();
  std::shared_ptr<NVXDASHConnectionImpl> connection;

  World() {
    setConsoleLineHandler([](std::string_view) {});
    Platform platform;
    platform.httpSessionService = network;
    check(Platform::install(platform));
    connection = makeConnection("http://geo.test/");
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto* world = new World;
  if (size < 3) return 0;
  const std::string_view reply(reinterpret_cast<const char*>(data + 3), size - 3);
  const size_t piece = 1 + data[0];
  const int status = data[1] & 1 ? 200 : 200 + data[1];
  const bool fails = data[2] & 1, isTyped = !(data[2] & 2), isEchoed = data[2] & 4;

  world->network->forgetTasks();
  world->network->onResume = [=](const FakeHTTPTaskRef& task) {
    task->pullBody([=](const Data& body) {
      const std::string bytes = isEchoed ? echoReply(body.view()) + std::string(reply) : std::string(reply);
      task->sendResponse(status, {{"Content-Type", isTyped ? "application/binary" : "text/plain"}});
      for (size_t at = 0; at < bytes.size(); at += piece)
        task->sendData(std::string_view(bytes).substr(at, piece));
      task->complete(fails ? Error(kURLErrorDomain, kURLErrorNetworkConnectionLost) : Error());
    });
  };
  Outcomes outcomes;
  world->connection->suspendSending();
  for (const char* name : {"a", "bb", "ccc"}) world->connection->sendRequest(echoRequest(outcomes, name));
  world->connection->resumeSending();
  check(world->connection->drain(10));
  const auto all = outcomes.all();
  check(all.size() == 3 && all[0].name == "a" && all[1].name == "bb" && all[2].name == "ccc");
  if (isEchoed && !fails && isTyped && status == 200)
    check(all[0].answered && all[1].answered && all[2].answered);
  return 0;
}
