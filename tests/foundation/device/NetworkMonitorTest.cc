#include "nvxcore/foundation/device/NVXNetworkMonitor.h"

#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/NotificationCenter.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"
#include "tests/support/FakeReachability.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

constexpr uint32_t kReachable = 0x2, kNone = 0;

class NetworkMonitorTest : public NVXTest {
 protected:
  NetworkMonitorTest() {
    for (const char* name : {kNVXNetworkMonitorReachabilityFlagsUpdated, kNVXNetworkMonitorNetworkLost,
                             kNVXNetworkMonitorNetworkFound}) {
      _observers.push_back(NotificationCenter::defaultCenter().addObserver(
          name, monitor.get(), [this](const Notification& notification) {
            if (notification.name == kNVXNetworkMonitorReachabilityFlagsUpdated) told += "flags ";
            if (notification.name == kNVXNetworkMonitorNetworkLost) told += "lost ";
            if (notification.name == kNVXNetworkMonitorNetworkFound) told += "found ";
          }));
    }
  }
  ~NetworkMonitorTest() override { monitor.reset(); }

  void pass(TimeInterval seconds) {
    _time->advance(seconds);
    _scope.settle();
  }
  /// What was told since the last time.
  std::string heard() { return std::exchange(told, ""); }

  std::shared_ptr<ManualTime> _time = std::make_shared<ManualTime>();
  std::shared_ptr<FakeReachability> network = std::make_shared<FakeReachability>();
  PlatformScope _scope{{.threading = _time, .reachability = network}};
  std::shared_ptr<NVXNetworkMonitor> monitor =
      NVXNetworkMonitor::initWithServerURL(URL::withString("https://geo.test:8080/glm"));
  std::vector<std::shared_ptr<void>> _observers;
  std::string told;
};

TEST_F(NetworkMonitorTest, AShortDropIsNotALoss) {
  monitor->startReachabilityCheck();
  EXPECT_EQ(network->names, std::vector<std::string>{"geo.test"});
  network->change(kReachable);
  EXPECT_EQ(heard(), "flags ") << "found is never told first";
  network->change(kNone);
  pass(4.9);
  EXPECT_TRUE(monitor->hasNetwork());
  EXPECT_FALSE(monitor->isServerReachable());
  network->change(kReachable);
  pass(60);
  EXPECT_EQ(heard(), "flags flags ");
  EXPECT_TRUE(monitor->hasNetwork());
  EXPECT_TRUE(monitor->isServerReachable());
  EXPECT_EQ(takeRuntimeSnapshot().armedTimers, 0u);
}

TEST_F(NetworkMonitorTest, ALossAndTheRecoveryAreEachToldOnce) {
  monitor->startReachabilityCheck();
  network->change(kNone);
  pass(3);
  // Further changes don't begin the grace period anew. A connection to be made first is no reachability.
  network->change(0x6);
  pass(2.6);
  EXPECT_EQ(heard(), "flags flags lost ");
  EXPECT_FALSE(monitor->hasNetwork());
  network->change(kNone);
  pass(60);
  EXPECT_EQ(heard(), "flags ");
  network->change(kReachable);
  network->change(0x40002);
  EXPECT_EQ(heard(), "flags found flags ");
  EXPECT_TRUE(monitor->hasNetwork());
  network->change(kNone);
  pass(5.6);
  EXPECT_EQ(heard(), "flags lost ");
}

TEST_F(NetworkMonitorTest, TheGracePeriodIsTheClients) {
  monitor->startReachabilityCheck();
  monitor->setNetworkLossTimeoutInterval(0);
  network->change(kNone);
  EXPECT_EQ(heard(), "flags lost ");
  network->change(kReachable);
  monitor->setNetworkLossTimeoutInterval(-1);
  network->change(kNone);
  pass(1000);
  EXPECT_EQ(heard(), "flags found flags ");
  EXPECT_TRUE(monitor->hasNetwork());
  monitor->setNetworkLossTimeoutInterval(30);
  network->change(kNone);
  pass(29.9);
  EXPECT_EQ(heard(), "flags ");
  // Up to a tenth later, so that timers can meet.
  pass(3.2);
  EXPECT_EQ(heard(), "lost ");
}

TEST_F(NetworkMonitorTest, StoppingEndsTheGracePeriodWithoutAWord) {
  monitor->startReachabilityCheck();
  network->change(kNone);
  monitor->stopReachabilityCheck();
  EXPECT_FALSE(network->isWatching());
  EXPECT_FALSE(monitor->areReachabilityFlagsAvailable());
  pass(60);
  EXPECT_EQ(heard(), "flags ");
  // A loss that was told stays one until there is a network again.
  monitor->setNetworkLossTimeoutInterval(0);
  monitor->startReachabilityCheck();
  network->change(kNone);
  monitor->stopReachabilityCheck();
  EXPECT_FALSE(monitor->hasNetwork());
  monitor->startReachabilityCheck();
  network->change(kReachable);
  EXPECT_EQ(heard(), "flags lost flags found ");
  EXPECT_EQ(network->targets.size(), 3u);
  monitor->startReachabilityCheck();
  EXPECT_EQ(network->targets.size(), 3u) << "it watches already";
  monitor.reset();
  EXPECT_TRUE(network->targets.back().expired());
}

TEST_F(NetworkMonitorTest, ACallOfAStoppedWatchIsIgnored) {
  monitor->startReachabilityCheck();
  const auto late = network->targets.back().lock()->callback;
  monitor->stopReachabilityCheck();
  late(kNone);
  monitor->startReachabilityCheck();
  late(kNone);
  EXPECT_EQ(heard(), "");
  EXPECT_FALSE(monitor->areReachabilityFlagsAvailable());
}

TEST_F(NetworkMonitorTest, AnotherServerIsWatchedWhenItWasWatching) {
  const URL other = URL::withString("http://other.test/");
  monitor->setServerURL(other);
  EXPECT_TRUE(network->names.empty());
  monitor->startReachabilityCheck();
  monitor->setServerURL(other);
  EXPECT_EQ(network->names.size(), 1u);
  monitor->setServerURL(URL::withString("http://third.test/"));
  EXPECT_EQ(network->names, (std::vector<std::string>{"other.test", "third.test"}));
  EXPECT_TRUE(network->isWatching());
  EXPECT_TRUE(network->targets.front().expired());
  EXPECT_EQ(monitor->serverURL().host(), "third.test");
}

TEST_F(NetworkMonitorTest, WhoWaitsForFlagsIsCalledOnce) {
  std::string order;
  monitor->invokeWhenReachabilityFlagsAreAvailable([&] { order += "a"; });
  monitor->invokeWhenReachabilityFlagsAreAvailable(nullptr);
  monitor->invokeWhenReachabilityFlagsAreAvailable([&] { order += "b"; });
  monitor->startReachabilityCheck();
  pass(1);
  EXPECT_EQ(order, "");
  network->change(kReachable);
  EXPECT_EQ(order, "ab");
  bool onMain = false;
  monitor->invokeWhenReachabilityFlagsAreAvailable([&] {
    onMain = Platform::current().mainLoop->isCurrent();
    order += "c";
  });
  ASSERT_TRUE(_scope.settle());
  EXPECT_TRUE(onMain);
  network->change(kNone);
  EXPECT_EQ(order, "abc");
}

TEST_F(NetworkMonitorTest, StatusByFlags) {
  const struct {
    uint32_t flags;
    int32_t status;
  } cases[] = {{0x0, 0},     {0x4, 0},  {0x40000, 0}, {0x2, 1},  {0x6, 0},  {0x40002, 2},
               {0x40006, 2}, {0xA, 1},  {0xE, 1},     {0x26, 1}, {0x22, 1}, {0x1E, 0},
               {0x1A, 1},    {0x36, 0}, {0x16, 0},    {0x12, 1}};
  monitor->startReachabilityCheck();
  for (const auto& c : cases) {
    network->change(c.flags);
    EXPECT_EQ(monitor->networkStatus(), c.status) << std::hex << c.flags;
    EXPECT_EQ(monitor->reachabilityFlags(), c.flags);
  }
}

TEST_F(NetworkMonitorTest, AnyNetworkAtAll) {
  EXPECT_FALSE(NVXNetworkMonitor::hasReachability());
  network->zeroIPv6 = 0x6;
  EXPECT_TRUE(NVXNetworkMonitor::hasReachability());
  network->zeroIPv6 = 0x4;
  EXPECT_FALSE(monitor->monitorHasReachability());
  network->zeroIPv4 = 0x2;
  EXPECT_TRUE(monitor->monitorHasReachability());
  monitor->setMonitorTesting(true, false);
  EXPECT_TRUE(NVXNetworkMonitor::hasReachability());
  EXPECT_FALSE(monitor->monitorHasReachability());
}

TEST_F(NetworkMonitorTest, TestModeOverridesWhatThePlatformSays) {
  monitor->startReachabilityCheck();
  network->change(kReachable);
  monitor->setMonitorTesting(true, false);
  EXPECT_EQ(heard(), "flags flags lost ");
  network->change(kReachable);
  EXPECT_EQ(heard(), "flags ");
  EXPECT_EQ(monitor->reachabilityFlags(), 0u);
  monitor->setMonitorTesting(true, true);
  EXPECT_EQ(heard(), "flags found ");
  network->change(kNone);
  EXPECT_TRUE(monitor->isServerReachable());
  EXPECT_EQ(heard(), "flags ");
  // Left, it goes by the platform again, with the usual grace period.
  monitor->setMonitorTesting(false, true);
  EXPECT_EQ(heard(), "flags ");
  EXPECT_FALSE(monitor->isServerReachable());
  EXPECT_EQ(monitor->networkLossTimeoutInterval(), 5.0);
  pass(5.6);
  EXPECT_EQ(heard(), "lost ");
}

TEST_F(NetworkMonitorTest, WhatThePlatformCannotWatchStaysSilent) {
  expectConsoleLine("NVXNetworkMonitor: Reachability creation failed");
  expectConsoleLine("NVXNetworkMonitor: Reachability scheduling failed");
  network->canCreate = false;
  monitor->startReachabilityCheck();
  network->canCreate = true;
  network->canSchedule = false;
  monitor->startReachabilityCheck();
  EXPECT_TRUE(network->targets.back().expired());
  EXPECT_FALSE(monitor->areReachabilityFlagsAvailable());
  EXPECT_TRUE(monitor->hasNetwork());
  network->canSchedule = true;
  monitor->startReachabilityCheck();
  network->change(kReachable);
  EXPECT_EQ(heard(), "flags ");
  monitor->setNetworkDisabled(true);
  EXPECT_TRUE(monitor->networkDisabled());
}

}  // namespace
}  // namespace nvxcore::testing
