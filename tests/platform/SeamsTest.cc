#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/Console.h"
#include "nvxcore/platform/DeviceFacts.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Threading.h"
#include "nvxcore/platform/Value.h"
#include "nvxcore/platform/linux/PosixThreading.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

class SeamsTest : public NVXTest {};

TEST_F(SeamsTest, AParkerKeepsOneTokenAndItsDeadline) {
  PosixThreading threading;
  const auto parker = threading.makeParker();
  parker->unpark();
  parker->unpark();
  parker->park();
  const int64_t start = threading.monotonicNanos();
  EXPECT_FALSE(parker->parkUntil(start - 1));
  EXPECT_FALSE(parker->parkUntil(-1));
  EXPECT_FALSE(parker->parkUntil(start + 2'000'000));
  EXPECT_GE(threading.monotonicNanos(), start + 2'000'000);
  // Back and forth between two threads: a lost wake-up hangs here.
  const auto other = threading.makeParker();
  int turns = 0;
  const auto thread = threading.startThread("a name that is too long for the system", [&] {
    for (int i = 0; i < 10'000; ++i) {
      other->park();
      ++turns;
      parker->unpark();
    }
  });
  for (int i = 0; i < 10'000; ++i) {
    other->unpark();
    EXPECT_TRUE(parker->parkUntil(threading.monotonicNanos() + 10'000'000'000));
    ASSERT_EQ(turns, i + 1);
  }
  thread->join();
}

TEST_F(SeamsTest, StartedThreadsBlockAllSignalsAndTheStarterKeepsItsOwn) {
  PosixThreading threading;
  sigset_t before, started, after;
  pthread_sigmask(SIG_BLOCK, nullptr, &before);
  threading.startThread("signals", [&] { pthread_sigmask(SIG_BLOCK, nullptr, &started); })->join();
  pthread_sigmask(SIG_BLOCK, nullptr, &after);
  for (int signal : {SIGTERM, SIGINT, SIGPIPE, SIGALRM, SIGCHLD, SIGPROF}) {
    EXPECT_EQ(sigismember(&started, signal), 1);
    EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal));
  }
}

TEST_F(SeamsTest, ANotificationReachesWhoObservesIt) {
  NotificationCenter center;
  const auto object = std::make_shared<int>(1), otherObject = std::make_shared<int>(2);
  std::string log;
  auto any = center.addObserver("a", nullptr, [&](const Notification& notification) {
    log += 'n' + std::to_string(notification.userInfo.get("number").integerValue());
  });
  std::shared_ptr<void> second =
      center.addObserver("a", object.get(), [&](const Notification&) { log += 'o'; });
  // Removes the next one while a notification is on its way, and registers another, which it doesn't reach
  // any more.
  std::shared_ptr<void> last, added;
  const auto remover = center.addObserver("a", nullptr, [&](const Notification&) {
    last.reset();
    if (!added) added = center.addObserver("a", nullptr, [&](const Notification&) { log += '+'; });
  });
  last = center.addObserver("a", nullptr, [&](const Notification&) { log += 'x'; });
  center.post({"a", object, {{"number", 7}}});
  EXPECT_EQ(log, "n7o");
  center.post({"a", otherObject, {}});
  EXPECT_EQ(log, "n7on0+");
  center.post({"b", object, {}});
  any.reset();
  second.reset();
  center.post({"a", object, {}});
  EXPECT_EQ(log, "n7on0++");
}

TEST_F(SeamsTest, TheConsoleLineHandlerStandsInForTheSink) {
  struct Sink final : ConsoleSink {
    void writeLine(std::string_view line) override { lines.emplace_back(line); }
    std::vector<std::string> lines;
  };
  const auto sink = std::make_shared<Sink>();
  PlatformScope scope(Platform{.console = sink});
  expectConsoleLine("to the handler");
  writeConsoleLine("to the handler");
  EXPECT_TRUE(sink->lines.empty());
  std::vector<std::string> lines;
  setConsoleLineHandler([&](std::string_view line) { lines.emplace_back(line); });
  writeConsoleLine("one");
  setConsoleLineHandler(nullptr);
  writeConsoleLine("two");
  EXPECT_EQ(lines, std::vector<std::string>{"one"});
  EXPECT_EQ(sink->lines, std::vector<std::string>{"two"});
}

TEST_F(SeamsTest, WhatTheHostLeavesEmptyIsReal) {
  const auto described =
      applicationFactsWithDescription({"com.example.app", "/app", "app", {{"key", "value"}}});
  PlatformScope scope(Platform{.application = described});
  const Platform& platform = Platform::current();
  EXPECT_FALSE(Platform::install({})) << "the platform is in use";
  EXPECT_EQ(platform.application, described);
  EXPECT_EQ(platform.device->model(), "Linux");
  EXPECT_FALSE(platform.device->systemVersion().empty());
  EXPECT_FALSE(platform.device->machine().empty());
  const BackgroundTaskIdentifier task = platform.backgroundTasks->begin("task", nullptr);
  EXPECT_NE(task, kInvalidBackgroundTask);
  EXPECT_NE(platform.backgroundTasks->begin("task", nullptr), task);
  platform.backgroundTasks->end(task);
  EXPECT_EQ(&NotificationCenter::defaultCenter(), platform.notificationCenter.get());
  EXPECT_TRUE(takeRuntimeSnapshot().threads.empty());
}

TEST_F(SeamsTest, TheProcessDescribesItself) {
  PlatformScope scope;
  const ApplicationFacts& application = *Platform::current().application;
  const std::string program = application.bundlePath() + "/" + application.processName();
  EXPECT_EQ(access(program.c_str(), X_OK), 0) << program;
  EXPECT_EQ(application.bundleIdentifier(), "");
  EXPECT_TRUE(application.infoDictionary().empty());
}

}  // namespace
}  // namespace nvxcore::testing
