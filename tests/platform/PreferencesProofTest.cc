// Preferences under kill -9, and under two processes that write side by side.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/Preferences.h"
#include "tests/support/Proof.h"
#include "tests/support/TemporaryFolder.h"

namespace nvxcore::testing {
namespace {

namespace fs = std::filesystem;

/// Runs `body` in a child process, which ends with its answer.
pid_t startProcess(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  return child;
}

/// How the process ended, as `waitpid` has it.
int endOf(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

constexpr uint64_t kKeys = 8;

std::string keyOf(uint64_t number) { return "key " + std::to_string(number % kKeys); }

/// Sets 1, 2, 3 ... from `first` on, each under one of the keys in turn, and tells of each once it lasts.
[[noreturn]] void writeForEver(Preferences& store, uint64_t first, int acknowledged) {
  const Data weight = Data::take([] {
    MutableData bytes(20'000);
    for (size_t i = 0; i < 20'000; ++i) bytes.append("x");
    return bytes;
  }());
  store.setObject(weight, "weight");
  for (uint64_t number = first;; ++number) {
    store.setObject(number, keyOf(number));
    if (!store.synchronize()) ::_exit(1);
    if (::write(acknowledged, &number, sizeof number) != sizeof number) ::_exit(2);
  }
}

TEST(PreferencesProofTest, WhatWasAcknowledgedSurvivesEachKill) {
  const size_t neededKills = proofCount(10, 100);
  TemporaryFolder folder;
  const std::string file = folder / "a/standard.nvxprefs";
  const auto open = [&] { return preferencesInFolders({folder / "a", folder / "g"})->standardPreferences(); };
  std::mt19937 random(20260101);
  uint64_t last = 0;  // acknowledged
  size_t kills = 0, killsBeforeRename = 0;
  for (; killsBeforeRename < neededKills && kills < 100 * neededKills; ++kills) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    // Opened by the child, as after a restart.
    const pid_t writer = startProcess([&] {
      writeForEver(*open(), last + 1, ends[1]);
      return 0;
    });
    ::close(ends[1]);
    uint64_t number = 0;
    for (uint32_t seen = random() % 4 + 1; seen-- > 0;)
      ASSERT_EQ(::read(ends[0], &number, sizeof number), static_cast<ssize_t>(sizeof number));
    for (uint32_t pauses = random() % 30'000; pauses-- > 0;) pauseProcessor();
    ::kill(writer, SIGKILL);
    const int end = endOf(writer);
    ASSERT_TRUE(WIFSIGNALED(end) && WTERMSIG(end) == SIGKILL);
    while (::read(ends[0], &number, sizeof number) > 0) {
    }
    ::close(ends[0]);
    ASSERT_GT(number, last);
    last = number;
    killsBeforeRename += fs::exists(file + ".new");

    const auto store = open();
    ASSERT_EQ(store->dataForKey("weight").length(), 20'000u);
    uint64_t highest = 0;
    for (uint64_t i = last < kKeys ? 1 : last - kKeys + 1; i <= last; ++i) {
      const uint64_t value = store->objectForKey(keyOf(i)).unsignedIntegerValue();
      // The one after it may have been under way.
      ASSERT_TRUE(value == i || (value == last + 1 && value % kKeys == i % kKeys)) << value << " for " << i;
      highest = std::max(highest, value);
    }
    last = highest;
    ASSERT_FALSE(fs::exists(file + ".damaged"));
  }
  EXPECT_GE(killsBeforeRename, neededKills);
  std::printf("%zu kills, %zu of them between opening and renaming, %llu values acknowledged\n", kills,
              killsBeforeRename, static_cast<unsigned long long>(last));
}

/// Writes into the group's preferences, and looks after each write whether all of its own are still there.
int writeBesideAnother(const PreferencesFolders& folders, const std::string& name, size_t count) {
  constexpr size_t kOwnKeys = 50;
  const auto store = preferencesInFolders(folders)->preferencesForApplicationGroup("group.test");
  for (size_t i = 0; i < count; ++i) {
    store->setObject(i, name + std::to_string(i % kOwnKeys));
    if (!store->synchronize()) return 1;
    for (size_t j = i < kOwnKeys ? 0 : i - kOwnKeys + 1; j <= i; ++j) {
      if (store->objectForKey(name + std::to_string(j % kOwnKeys)).unsignedIntegerValue() != j) return 2;
    }
  }
  return 0;
}

TEST(PreferencesProofTest, TwoProcessesWriteSideBySide) {
  const size_t count = proofCount(100, 10'000);
  TemporaryFolder folder;
  const PreferencesFolders one{folder / "one", folder / "groups"}, other{folder / "other", folder / "groups"};
  const pid_t processes[] = {startProcess([&] { return writeBesideAnother(one, "one ", count); }),
                             startProcess([&] { return writeBesideAnother(other, "other ", count); })};
  for (pid_t process : processes) {
    const int end = endOf(process);
    EXPECT_TRUE(WIFEXITED(end) && WEXITSTATUS(end) == 0) << end;
  }
  const auto store = preferencesInFolders(one)->preferencesForApplicationGroup("group.test");
  for (size_t i = count - 50; i < count; ++i) {
    for (const char* name : {"one ", "other "})
      EXPECT_EQ(store->objectForKey(name + std::to_string(i % 50)).unsignedIntegerValue(), i);
  }
}

}  // namespace
}  // namespace nvxcore::testing
