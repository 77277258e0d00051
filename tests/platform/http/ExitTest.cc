#include <openssl/ssl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "nvxcore/platform/Platform.h"
#include "tests/platform/http/support/HTTPTest.h"

namespace nvxcore::testing {
namespace {

using geoserver::Exchange;
using geoserver::GeoServer;
using geoserver::ReplyPlan;
using geoserver::ServerOptions;

/// The other side of the test below, in a process of its own: it leaves with transfers at every stage.
TEST(ExitTest, Leaves) {
  const char* url = std::getenv("NVXCORE_EXIT_TEST_URL");
  if (!url) return;
  // Some hosts use OpenSSL themselves, which then tears itself down as the process leaves; what was
  // registered before it runs afterwards, and may take its time.
  const bool hostUsesOpenSSL = std::getenv("NVXCORE_EXIT_TEST_OPENSSL") != nullptr;
  if (hostUsesOpenSSL) {
    std::atexit([] { ::poll(nullptr, 0, 20); });
    OPENSSL_init_ssl(0, nullptr);
  }
  HTTPSessionConfiguration configuration;
  configuration.caFile = std::getenv("NVXCORE_EXIT_TEST_CA");
  const auto delegate = std::make_shared<RecordingDelegate>();
  const auto session = Platform::current().httpSessionService->sessionWithConfiguration(
      configuration, delegate, Queue::serial("test.delegate"));
  for (int i = 0; i < 20; ++i) {
    URLRequest request(URL::withString(std::string(url) + (i % 2 ? "/stall" : "/bytes/2000000")));
    request.method = "POST";
    request.body = Data::copy(std::string(100'000, 'x'));
    const auto task = session->dataTaskWithRequest(request);
    task->resume();
    if (i == 10 && !hostUsesOpenSSL)
      delegate->waitUntil(task, [](const TaskRecord& record) { return record.saw("data"); });
  }
  std::exit(0);
}

TEST(ExitTest, WithTransfersInFlightNeitherHangsNorCrashes) {
  ServerOptions options;
  options.tls = true;
  GeoServer server(options);
  server.handle("/stall", [](const Exchange&) { return ReplyPlan::withStatus(200).thenStall(); });
  char self[4096];
  const ssize_t length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
  ASSERT_GT(length, 0);
  self[length] = '\0';
  ::setenv("NVXCORE_EXIT_TEST_URL", server.url("").c_str(), 1);
  ::setenv("NVXCORE_EXIT_TEST_CA", server.caFile().c_str(), 1);
  for (int i = 0; i < 40; ++i) {
    if (i == 20) ::setenv("NVXCORE_EXIT_TEST_OPENSSL", "1", 1);
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(20);
      ::close(STDOUT_FILENO);
      ::execl(self, self, "--gtest_filter=ExitTest.Leaves", "--gtest_brief=1", nullptr);
      ::_exit(99);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  ::unsetenv("NVXCORE_EXIT_TEST_URL");
  ::unsetenv("NVXCORE_EXIT_TEST_OPENSSL");
}

}  // namespace
}  // namespace nvxcore::testing
