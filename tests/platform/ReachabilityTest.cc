#include "nvxcore/platform/Reachability.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "nvxcore/platform/MainLoop.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Queue.h"
#include "nvxcore/platform/Semaphore.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

namespace nvxcore::testing {
namespace {

constexpr TimeInterval kPatience = 20.0;

/// The flags that one watch was told.
class Watch {
 public:
  explicit Watch(const std::string& host) : _target(Platform::current().reachability->targetWithName(host)) {
    started = _target->startWatching([this](uint32_t flags) {
      {
        Lock lock(_lock);
        _told.push_back(flags);
        _onMain = _onMain && Platform::current().mainLoop->isCurrent();
      }
      _was.signal();
    });
  }
  /// The next flags that are told; nothing when none are in time, or elsewhere than on the main thread.
  std::optional<uint32_t> next() {
    if (!_was.wait(kPatience)) return std::nullopt;
    Lock lock(_lock);
    const uint32_t told = _told.front();
    _told.pop_front();
    return _onMain ? std::optional(told) : std::nullopt;
  }
  ReachabilityTarget& target() { return *_target; }

  bool started;

 private:
  Semaphore _was{0};
  Mutex _lock;
  std::deque<uint32_t> _told NVX_GUARDED_BY(_lock);
  bool _onMain NVX_GUARDED_BY(_lock) = true;
  std::shared_ptr<ReachabilityTarget> _target;
};

class ReachabilityTest : public NVXTest {
 protected:
  PlatformScope _scope;
};

size_t routeThreads() {
  size_t count = 0;
  for (const std::string& name : takeRuntimeSnapshot().threads) count += name == "nvx.routes";
  return count;
}

TEST_F(ReachabilityTest, ThisMachineIsReachableByNumberAndByName) {
  Reachability& reachability = *Platform::current().reachability;
  EXPECT_FALSE(reachability.targetWithName(""));
  for (const char* host : {"127.0.0.1", "localhost"}) {
    Watch watch(host);
    ASSERT_TRUE(watch.started);
    EXPECT_EQ(routeThreads(), 1u);
    EXPECT_EQ(watch.next(), kReachabilityFlagReachable) << host;
    EXPECT_EQ(watch.target().flags(), kReachabilityFlagReachable);
    watch.target().stopWatching();
    // Begun anew it tells the flags anew.
    Semaphore told(0);
    ASSERT_TRUE(watch.target().startWatching([&](uint32_t) { told.signal(); }));
    EXPECT_TRUE(told.wait(kPatience));
    Semaphore stopped(0);
    Queue::main()->post([&] {
      watch.target().stopWatching();
      stopped.signal();
    });
    ASSERT_TRUE(stopped.wait(kPatience));
  }
  Watch unknown("name.invalid");
  EXPECT_EQ(unknown.next(), 0u);
  unknown.target().stopWatching();
}

TEST_F(ReachabilityTest, TheDefaultRouteIsTheKernels) {
  // The same from another source: the table of IPv4 routes as text.
  std::ifstream table("/proc/net/route");
  std::string line, name, destination, gateway, flags, rest;
  bool hasDefault = false;
  std::getline(table, line);
  while (table >> name >> destination >> gateway >> flags && std::getline(table, rest)) {
    hasDefault = hasDefault || (destination == "00000000" && (std::stoi(flags, nullptr, 16) & RTF_UP));
  }
  const uint32_t found = Platform::current().reachability->flagsOfZeroAddress(Reachability::Family::IPv4);
  if (!hasDefault) {
    EXPECT_EQ(found, 0u);
  }
  // With one it may still lead to a link that is down.
  EXPECT_EQ(found & ~(kReachabilityFlagReachable | kReachabilityFlagIsWWAN |
                      kReachabilityFlagConnectionRequired | kReachabilityFlagConnectionOnTraffic),
            0u);
}

/// A network of this process alone, with nothing but a loopback link that is down. 0, or the error.
int enterOwnNetwork() {
  return ::unshare(CLONE_NEWNET) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 ? 0 : errno;
}

int errorOfOwnNetwork() {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(enterOwnNetwork());
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : EINVAL;
}

void setLoopbackUp(bool up) {
  const int control = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = up ? IFF_UP : 0;
  if (::ioctl(control, SIOCSIFFLAGS, &request) != 0) std::perror("SIOCSIFFLAGS");
  ::close(control);
}

void addDefaultRoute() {
  const int control = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  char device[] = "lo";
  rtentry route{};
  route.rt_dst.sa_family = route.rt_genmask.sa_family = AF_INET;
  route.rt_flags = RTF_UP;
  route.rt_dev = device;
  if (::ioctl(control, SIOCADDRT, &route) != 0) std::perror("SIOCADDRT");
  ::close(control);
}

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  ::_exit(1);
}

[[noreturn]] void watchALinkGoUpAndDown() {
  require(enterOwnNetwork() == 0, "a network of its own");
  {
    PlatformScope scope;
    Reachability& reachability = *Platform::current().reachability;
    const auto zero = [&] { return reachability.flagsOfZeroAddress(Reachability::Family::IPv4); };
    Watch watch("127.0.0.1"), elsewhere("192.0.2.1");
    require(watch.started && elsewhere.started, "watching");
    require(watch.next() == 0u && elsewhere.next() == 0u && zero() == 0u, "no network");
    for (int round = 0; round < 3; ++round) {
      setLoopbackUp(true);
      require(watch.next() == kReachabilityFlagReachable, "the link is up");
      require(zero() == 0u, "no default route");
      addDefaultRoute();
      require(elsewhere.next() == kReachabilityFlagReachable, "a default route");
      require(zero() == kReachabilityFlagReachable, "the world at large");
      setLoopbackUp(false);
      require(watch.next() == 0u && elsewhere.next() == 0u && zero() == 0u, "the link is down");
    }
    watch.target().stopWatching();
    elsewhere.target().stopWatching();
    // The thread ends with the last watch, as the scope asks for.
  }
  ::_exit(::testing::Test::HasFailure() ? 1 : 0);
}

using ReachabilityDeathTest = ReachabilityTest;

TEST_F(ReachabilityDeathTest, ALinkThatGoesUpAndDownIsToldEachTime) {
  if (const int error = errorOfOwnNetwork()) {
    GTEST_SKIP() << "this process may make no network of its own: " << std::strerror(error);
  }
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(watchALinkGoUpAndDown(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace nvxcore::testing
