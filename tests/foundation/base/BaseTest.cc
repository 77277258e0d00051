#include <clocale>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "nvxcore/foundation/base/BackgroundGrant.h"
#include "nvxcore/foundation/base/NVXDateProvider.h"
#include "nvxcore/foundation/base/NVXErrors.h"
#include "nvxcore/foundation/base/NVXLog.h"
#include "nvxcore/foundation/base/NVXQueues.h"
#include "nvxcore/foundation/base/NVXReportError.h"
#include "nvxcore/foundation/base/NVXSystemClock.h"
#include "nvxcore/foundation/base/NVXx_WKRTStackShot.h"
#include "nvxcore/platform/BackgroundTasks.h"
#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Semaphore.h"
#include "nvxcore/platform/Value.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"

// This program is a test runner that answers for itself.
extern "C" __attribute__((visibility("default"))) bool XCTestProbe_isTesting() { return true; }

namespace nvxcore::testing {
namespace {

/// Background tasks that a test lets expire.
class ExpiringTasks : public BackgroundTasks {
 public:
  BackgroundTaskIdentifier begin(std::string_view name, std::function<void()> expirationHandler) override {
    names.emplace_back(name);
    expire = std::move(expirationHandler);
    if (expiresAtOnce) expire();
    return ++begun;
  }
  void end(BackgroundTaskIdentifier task) override { ended.push_back(task); }

  bool expiresAtOnce = false;
  BackgroundTaskIdentifier begun = 0;
  std::vector<std::string> names;
  std::vector<BackgroundTaskIdentifier> ended;
  std::function<void()> expire;
};

class BaseTest : public NVXTest {
 protected:
  const std::shared_ptr<ManualTime> time = std::make_shared<ManualTime>();
  const std::shared_ptr<ExpiringTasks> tasks = std::make_shared<ExpiringTasks>();
  PlatformScope scope{Platform{.threading = time, .backgroundTasks = tasks}};
};

TEST_F(BaseTest, ConvertsTimesAndTranslatesBetweenClocks) {
  const struct {
    int64_t millis;
    double seconds;
  } cut[] = {{1999, 1}, {-1500, -1}, {-999, 0}, {INT64_MAX, 9223372036854775.0}};
  for (const auto& c : cut) EXPECT_EQ(NVXx_TimeMsToTimeInterval(c.millis), c.seconds) << c.millis;
  EXPECT_EQ(NVXx_TimeMsToTimeMicros(-7), -7000);
  EXPECT_EQ(NVXx_TimeMicrosToTimeMs(-1999), -1);
  EXPECT_TRUE(NVXx_IsValidTime(0) && !NVXx_IsValidTime(kNVXTimingClock_InvalidTime));
  EXPECT_EQ(static_cast<uint64_t>(kNVXTimingClock_InvalidTimeInterval), 0x8000000000000000u);
  EXPECT_EQ(NVXNSDateFromTimeMs(1500).timeIntervalSince1970(), 1.5);

  NVXSystemClock clock;
  const int64_t wall = 1'577'836'800'000, relative = 1'000'000;
  time->advance(0.0019);  // Fractions of a millisecond are cut.
  EXPECT_EQ(clock.currentTimeMillis(), wall + 1);
  EXPECT_EQ(clock.relativeTimeMillis(), relative + 1);
  EXPECT_EQ(clock.uptimeMillis(), 500'001);
  EXPECT_EQ(NVXx_CurrentTimeFromRelativeTime(-1, clock), -1);
  EXPECT_EQ(NVXx_RelativeTimeFromCurrentTime(-1, clock), -1);
  EXPECT_EQ(NVXx_CurrentTimeFromRelativeTime(0, clock), wall - relative);
  for (int64_t t : {int64_t{0}, wall, kNVXTimingClock_FarFuture})
    EXPECT_EQ(NVXx_RelativeTimeFromCurrentTime(NVXx_CurrentTimeFromRelativeTime(t - t / 2, clock), clock),
              t - t / 2);
  EXPECT_EQ(NVXDateWithTimeIntervalSinceNow(clock, 2.5).timeIntervalSince1970() * 1000, wall + 2501);
  EXPECT_EQ(clock.appStartTimeMillis(), 0);
  clock.setAppStartTimeMillis(-5);
  EXPECT_EQ(clock.appStartTimeMillis(), -5);

  const auto dates = NVXSystemDateProvider::systemDateProvider();
  EXPECT_NE(dates, NVXSystemDateProvider::systemDateProvider());
  EXPECT_EQ(dates->dateWithTimeIntervalSinceNow(-1).timeIntervalSinceDate(dates->currentDate()), -1);
  EXPECT_NEAR(dates->timeIntervalSinceReferenceDate(), wall / 1000.0 - 978307200, 0.01);
  EXPECT_TRUE(dates->distantPast() < dates->currentDate() && dates->currentDate() < dates->distantFuture());
}

TEST_F(BaseTest, TasksRunOnTheMainThreadUntilTheyAreCancelled) {
  NVXSystemClock clock;
  std::string ran;
  auto note = [&](char c) {
    return [&ran, c] {
      EXPECT_TRUE(Queue::main()->isCurrent());
      ran += c;
    };
  };
  auto once = clock.scheduleTaskAfterTimeInterval(2, note('o'));
  auto beat = clock.scheduleRepeatingTaskWithTimeInterval(1, -1, note('b'));
  auto never = clock.scheduleTaskAfterTimeInterval(1, note('n'));
  EXPECT_EQ(beat->tolerance(), 0);
  clock.cancelTask(never);
  clock.cancelTask(never);
  clock.cancelTask(nullptr);
  clock.scheduleTaskAfterTimeInterval(0, nullptr);
  for (int i = 0; i < 4; ++i) {
    time->advance(1);
    scope.settle();
  }
  EXPECT_EQ(ran, "bobbb");
  clock.cancelTask(beat);
  clock.cancelTask(once);
  time->advance(5);
  scope.settle();
  EXPECT_EQ(ran, "bobbb");
}

TEST_F(BaseTest, ErrorsHaveTheDomainOfTheirClass) {
  const Error error = NVXMakeClassError("NVXThing", 7, {{"k", 1}});
  EXPECT_TRUE(error.is("com.ovrasoft.Atlas.NVXThing", 7));
  EXPECT_EQ(error.userInfo().get("k").integerValue(), 1);
  EXPECT_TRUE(NVXIsErrorFromClass(error, "NVXThing") && !NVXIsErrorFromClass(error, "NVXThin"));
  EXPECT_FALSE(NVXIsErrorFromClass(Error(), ""));
  EXPECT_EQ(NVXx_WKRTMakeClassError("Thing", 1).domain(), "com.ovrasoft.Thing");
  for (int64_t code : {-1006, -1005, -1009, -1001, 0})
    EXPECT_EQ(NVXIsOfflineError(Error("any", code)), code == -1005 || code == -1009);
  EXPECT_FALSE(NVXIsOfflineError(Error()));
}

TEST_F(BaseTest, ReportsHaveTheirThreeFormsAndAreQuietUnderTests) {
  EXPECT_TRUE(softReport("nobody sees %d", 1));
  expectConsoleLine("(a < b) was false: of 3");
  EXPECT_TRUE(NVXReportErrorInternal(false, nullptr, nullptr, 0, "a < b", "of %d", 3));
  expectConsoleLine("((null)) was false: ");
  EXPECT_TRUE(NVXCReportErrorInternal(false, nullptr, nullptr, 0, nullptr, nullptr));
  expectConsoleLine("f.cc:12: (c) was false: m { in function fn }");
  EXPECT_TRUE(NVXx_WKRTReportErrorInternal(false, "fn", "f.cc", 12, "c", "m"));
  expectConsoleLine("f.cc:13: m { in function (null) }");
  EXPECT_TRUE(NVXReportErrorInternal(false, nullptr, "f.cc", 13, nullptr, "m"));
  EXPECT_TRUE(NVXx_WKRTVerifyConditionInternal(true, false, nullptr, nullptr, 0, "c", "m"));
  EXPECT_TRUE(NVXDebugBreakInDebuggerTestable());
}

TEST_F(BaseTest, TextsOfAnyLengthAreFormattedAlikeInAnyLocale) {
  // Debian's C.UTF-8 is always there; one with a comma for a point only where it was made.
  for (const char* locale : {"C.UTF-8", "de_DE.UTF-8"}) {
    if (!std::setlocale(LC_ALL, locale)) continue;
    EXPECT_EQ(formattedString("%.1f|%s", 1.5, std::string(2000, 'x').c_str()),
              "1.5|" + std::string(2000, 'x'));
  }
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(formattedString("%s", std::string(511, 'y').c_str()).size(), 511u);
  EXPECT_EQ(formattedString("%s", std::string(512, 'y').c_str()).size(), 512u);
}

TEST_F(BaseTest, AHandlerMayTakeDeveloperMessages) {
  std::string taken;
  bool takes = true;
  NVXLogDeveloperMessageSetTestingHandler([&](std::string_view message) {
    taken += message;
    return takes;
  });
  NVXLogDeveloperMessageImpl("quiet");
  takes = false;
  expectConsoleLine("%d loud");
  NVXLogDeveloperMessageImpl("%d loud");
  NVXLogDeveloperMessageSetTestingHandler(nullptr);
  expectConsoleLine("after");
  NVXLogDeveloperMessageImpl("after");
  EXPECT_EQ(taken, "quiet%d loud");
}

TEST_F(BaseTest, StacksAreNamedOnceOrSayWhyNot) {
  NVXx_WKRTStackShot shot;
  EXPECT_GT(shot.backtraceSymbols().size(), 2u);
  EXPECT_EQ(shot.description().find("Failed"), std::string::npos);
  using Source = NVXx_WKRTStackShot::Source;
  NVXx_WKRTStackShot none(Source{[](void**, int) { return 0; }, nullptr});
  EXPECT_EQ(none.description(), "Failed to get stack.");
  auto two = [](void** frames, int) {
    frames[0] = reinterpret_cast<void*>(16);
    frames[1] = nullptr;
    return 2;
  };
  NVXx_WKRTStackShot nameless(Source{two, [](void* const*, int) -> char** { return nullptr; }});
  EXPECT_EQ(nameless.description(), "Failed to get symbols.");
  static int named = 0;
  NVXx_WKRTStackShot half(Source{two, [](void* const*, int) {
                                   ++named;
                                   auto** lines = static_cast<char**>(std::calloc(2, sizeof(char*)));
                                   static char name[] = "main";
                                   lines[1] = name;
                                   return lines;
                                 }});
  EXPECT_EQ(half.description(), "<< 0x10 >>\nmain");
  half.description();
  EXPECT_EQ(named, 1);
}

TEST_F(BaseTest, FileWorkRunsInOrderWithinABackgroundTask) {
  Semaphore begun(0), goOn(0);
  std::string ran;
  NVXScheduleFileIOBlock([&] {
    EXPECT_EQ(Queue::currentLabel(), "com.ovrasoft.Atlas.FileIO");
    EXPECT_TRUE(NVXIsOnQueue(Queue::serial("com.ovrasoft.Atlas.FileIO")));
    EXPECT_FALSE(NVXIsOnQueue(Queue::main()) || NVXIsOnQueue(nullptr));
    begun.signal();
    goOn.wait();
    ran += '1';
  });
  NVXScheduleFileIOBlock([&] { ran += '2'; });
  NVXScheduleFileIOBlock(nullptr);
  begun.wait();
  EXPECT_FALSE(NVXWaitForFileIOQueueWithTimeout(0.0009));  // No whole millisecond.
  EXPECT_FALSE(NVXWaitForFileIOQueueWithTimeout(-1));
  // Expiry ends the last one's task at once, and the work goes on.
  tasks->expire();
  EXPECT_EQ(tasks->ended, std::vector<BackgroundTaskIdentifier>{3});
  goOn.signal();
  EXPECT_TRUE(NVXWaitForFileIOQueueWithTimeout(10));
  EXPECT_EQ(ran, "12");
  EXPECT_EQ(tasks->names, std::vector<std::string>(3, "FileIOBlock"));
  EXPECT_EQ(tasks->ended, (std::vector<BackgroundTaskIdentifier>{3, 1, 2}));
}

TEST_F(BaseTest, TheFileQueueFollowsThePlatform) {
  // Platforms come and go, perhaps at one address: work must not reach a queue of a dead one.
  for (int i = 0; i < 20; ++i) {
    PlatformScope inner{Platform{.backgroundTasks = tasks}};
    bool ran = false;
    NVXScheduleFileIOBlock([&] { ran = true; });
    ASSERT_TRUE(NVXWaitForFileIOQueueWithTimeout(10));
    EXPECT_TRUE(ran);
  }
}

TEST_F(BaseTest, AGrantIsEndedOnceByWhoeverComesFirst) {
  tasks->expiresAtOnce = true;  // Before its number is known.
  BackgroundGrant::begin(tasks, "early")->end();
  tasks->expiresAtOnce = false;
  { const auto dropped = BackgroundGrant::begin(tasks, "dropped"); }
  tasks->expire();
  const auto expired = BackgroundGrant::begin(tasks, "expired");
  tasks->expire();
  expired->end();
  EXPECT_EQ(tasks->ended, (std::vector<BackgroundTaskIdentifier>{1, 2, 3}));
  BackgroundGrant::begin(nullptr, "none")->end();
}

using BaseDeathTest = BaseTest;

TEST_F(BaseDeathTest, AFailedCheckReportsAndTraps) {
  EXPECT_DEATH(NVXx_WKRTVerifyConditionInternal(false, false, nullptr, nullptr, 0, "c", "m"), "");
  EXPECT_DEATH(NVXCrashInternal(), "");
}

}  // namespace
}  // namespace nvxcore::testing
