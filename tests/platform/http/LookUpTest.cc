#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>
#include <mutex>
#include <string>

#include "nvxcore/platform/Platform.h"
#include "tests/platform/http/support/HTTPTest.h"

namespace {

/// Stands before the C library's look-up, for this program and the libraries in it: names under "hang.test"
/// take until they are let go, those under "local.test" are this machine.
class Names {
 public:
  static Names& shared() {
    static Names names;
    return names;
  }
  void waitForRelease() {
    std::unique_lock lock(_mutex);
    ++_hanging;
    ++_lookUps;
    _changed.notify_all();
    _changed.wait(lock, [this] { return _released; });
    --_hanging;
    _changed.notify_all();
  }
  void hangAgain() {
    std::lock_guard lock(_mutex);
    _released = false;
    _lookUps = 0;
  }
  void release() {
    std::unique_lock lock(_mutex);
    _released = true;
    _changed.notify_all();
    _changed.wait(lock, [this] { return _hanging == 0; });
  }
  bool waitUntilHanging(int count) {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, std::chrono::seconds(10), [&] { return _hanging == count; });
  }
  void countLocal() {
    std::lock_guard lock(_mutex);
    ++_lookUps;
  }
  int lookUps() {
    std::lock_guard lock(_mutex);
    return _lookUps;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _released = false;
  int _hanging = 0;
  int _lookUps = 0;
};

}  // namespace

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
  static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  const std::string name = node ? node : "";
  if (name.ends_with(".hang.test")) {
    Names::shared().waitForRelease();
    return EAI_NONAME;
  }
  if (!name.ends_with(".local.test")) return real(node, service, hints, result);
  Names::shared().countLocal();
  return real("127.0.0.1", service, hints, result);
}

namespace nvxcore::testing {
namespace {

using geoserver::GeoServer;

class LookUpTest : public HTTPTest {
 protected:
  LookUpTest() { Names::shared().hangAgain(); }
  ~LookUpTest() override { Names::shared().release(); }
  std::string urlAt(const std::string& host, const std::string& path = "/echo") {
    return "http://" + host + ":" + std::to_string(server.port()) + path;
  }
  GeoServer server;
};

TEST_F(LookUpTest, OneThatHangsHoldsUpNobodyWhenItsTaskIsCancelled) {
  const auto stuck = get(urlAt("one.hang.test"));
  EXPECT_TRUE(Names::shared().waitUntilHanging(1));
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);
  const auto before = std::chrono::steady_clock::now();
  stuck->cancel();
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);
  EXPECT_FALSE(finished(get(urlAt("a.local.test"))).error);
  const auto took = std::chrono::steady_clock::now() - before;
  EXPECT_LT(took, std::chrono::milliseconds(50));
  EXPECT_EQ(finished(stuck).error.code(), kURLErrorCancelled);
}

TEST_F(LookUpTest, SessionsEndThoughOneHangs) {
  const auto stuck = get(urlAt("one.hang.test"));
  EXPECT_TRUE(Names::shared().waitUntilHanging(1));
  stuck->cancel();
  finished(stuck);
  session().finishTasksAndInvalidate();
  EXPECT_TRUE(delegate->waitUntilInvalid());
}

TEST_F(LookUpTest, TheirNumberAtATimeIsBounded) {
  const size_t most = Platform::current().httpSessionService->maximumThreadCount() - 1;
  std::vector<HTTPSessionTaskRef> tasks;
  for (size_t i = 0; i < 3 * most; ++i) tasks.push_back(get(urlAt("n" + std::to_string(i) + ".hang.test")));
  EXPECT_TRUE(Names::shared().waitUntilHanging(static_cast<int>(most)));
  for (const auto& task : tasks) task->cancel();
  for (const auto& task : tasks) EXPECT_EQ(finished(task).error.code(), kURLErrorCancelled);
  EXPECT_FALSE(finished(get(server.url("/echo"))).error);  // By then they have been given up.
  const auto next = get(urlAt("b.local.test"));
  Names::shared().release();
  EXPECT_FALSE(finished(next).error);
  // What nobody waits for any more is not looked up.
  EXPECT_EQ(Names::shared().lookUps(), static_cast<int>(most) + 1);
}

TEST_F(LookUpTest, AnAnswerIsSharedAndKept) {
  std::vector<HTTPSessionTaskRef> tasks;
  for (int i = 0; i < 10; ++i) tasks.push_back(get(urlAt("c.local.test")));
  for (const auto& task : tasks) EXPECT_FALSE(finished(task).error);
  EXPECT_FALSE(finished(get(urlAt("c.local.test"))).error);
  EXPECT_EQ(Names::shared().lookUps(), 1);
}

class LookUpTimeOutTest : public ManualTimeHTTPTest {
 protected:
  LookUpTimeOutTest() { Names::shared().hangAgain(); }
  ~LookUpTimeOutTest() override { Names::shared().release(); }
};

TEST_F(LookUpTimeOutTest, CountsTheLookUp) {
  const auto stuck = get("http://one.hang.test/");
  EXPECT_TRUE(Names::shared().waitUntilHanging(1));
  time->advance(15.1);
  EXPECT_EQ(finished(stuck).error.code(), kURLErrorTimedOut);
}

}  // namespace
}  // namespace nvxcore::testing
