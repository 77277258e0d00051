#include "nvxcore/platform/Preferences.h"

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Digest.h"
#include "nvxcore/platform/Exception.h"
#include "tests/support/ManualTime.h"
#include "tests/support/NVXTest.h"
#include "tests/support/PlatformScope.h"
#include "tests/support/TemporaryFolder.h"

namespace nvxcore::testing {
namespace {

namespace fs = std::filesystem;

template <size_t N>
std::string hex(const std::array<uint8_t, N>& bytes) {
  std::string text;
  for (uint8_t byte : bytes) text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  return text;
}

TEST(DigestTest, PublishedValues) {
  // RFC 2202, cases 2 and 6; FIPS 180-4's example.
  EXPECT_EQ(hex(hmacSHA1("Jefe", {"what do ya want ", "for nothing?"})),
            "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
  EXPECT_EQ(
      hex(hmacSHA1(std::string(80, '\xAA'), {"Test Using Larger Than Block-Size Key - Hash Key First"})),
      "aa4ae5e15272d00e95705637ce8a3b55ed402112");
  EXPECT_EQ(hex(sha256({"a", "", "bc"})), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(sha256({})), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

/// Two services over the same folders stand for two processes: they share nothing but the files.
class PreferencesTest : public NVXTest {
 protected:
  std::shared_ptr<PreferencesService> service() {
    return preferencesInFolders({_folder / "application", _folder / "groups"});
  }
  std::string file() { return _folder / "application/standard.nvxprefs"; }
  std::string bytes() {
    std::ifstream input(file(), std::ios::binary);
    return {std::istreambuf_iterator<char>(input), {}};
  }
  void setBytes(const std::string& bytes) {
    std::ofstream(file(), std::ios::binary | std::ios::trunc) << bytes;
  }

  TemporaryFolder _folder;
  std::shared_ptr<ManualTime> _time = std::make_shared<ManualTime>();
  PlatformScope _scope{{.threading = _time}};
};

TEST_F(PreferencesTest, EachKindOfValueComesBackAsItWas) {
  const Dictionary within{{"b", 1}, {"a", Value(Dictionary{{"deep", Data::copy("\0x", 2)}})}, {"n", Value()}};
  {
    auto store = service()->standardPreferences();
    store->setObject(true, "bool");
    store->setObject(std::numeric_limits<int64_t>::min(), "signed");
    store->setObject(std::numeric_limits<uint64_t>::max(), "unsigned");
    store->setObject(-0.1, "double");
    store->setObject(std::string("a\0b\xFF", 4), "string");
    store->setObject("", "");
    store->setObject(Date::withTimeIntervalSinceReferenceDate(1.5), "date");
    store->setObject(Data::copy(""), "data");
    store->setObject(URL::withString("http://x.test/%20"), "url");
    store->setObject(within, "dictionary");
    ASSERT_TRUE(store->synchronize());
  }
  auto store = service()->standardPreferences();
  EXPECT_EQ(store->objectForKey("bool").kind(), Value::Kind::Bool);
  EXPECT_TRUE(store->objectForKey("bool").boolValue());
  EXPECT_EQ(store->objectForKey("signed").integerValue(), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(store->objectForKey("unsigned").unsignedIntegerValue(), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(store->objectForKey("double").doubleValue(), -0.1);
  EXPECT_EQ(store->stringForKey("string"), std::string("a\0b\xFF", 4));
  EXPECT_EQ(store->stringForKey(""), "");
  EXPECT_EQ(store->objectForKey("date").date(), Date::withTimeIntervalSinceReferenceDate(1.5));
  EXPECT_TRUE(store->dataForKey("data"));
  EXPECT_TRUE(store->dataForKey("data").empty());
  EXPECT_EQ(store->objectForKey("url").url(), URL::withString("http://x.test/%20"));
  const Value dictionary = store->objectForKey("dictionary");
  ASSERT_TRUE(dictionary.dictionary());
  EXPECT_EQ(dictionary.dictionary()->begin()->first, "b");
  EXPECT_EQ(dictionary.dictionary()->get("a").dictionary()->get("deep").data().view(),
            std::string_view("\0x", 2));
  EXPECT_TRUE(dictionary.dictionary()->contains("n"));
  // One kind is not taken for another.
  EXPECT_FALSE(store->stringForKey("signed"));
  EXPECT_FALSE(store->dataForKey("string"));
  EXPECT_FALSE(store->objectForKey("missing"));
}

TEST_F(PreferencesTest, WhatAFileCannotHoldIsRefused) {
  auto store = service()->standardPreferences();
  EXPECT_THROW(store->setObject(Error("d", 1), "k"), Exception);
  EXPECT_THROW(store->setObject(Dictionary{{"x", Value::object(7)}}, "k"), Exception);
  Value deep = Dictionary{};
  for (int i = 0; i < 32; ++i) deep = Dictionary{{"d", deep}};
  EXPECT_THROW(store->setObject(deep, "k"), Exception);
  store->setObject(*deep.dictionary()->begin()->second.dictionary(), "k");
  EXPECT_TRUE(store->synchronize());
  EXPECT_TRUE(service()->standardPreferences()->objectForKey("k").dictionary());
}

TEST_F(PreferencesTest, TwoProcessesKeepEachOthersKeys) {
  const auto one = service()->standardPreferences(), other = service()->standardPreferences();
  one->setObject("1", "one");
  one->setObject("both", "shared");
  EXPECT_TRUE(one->synchronize());
  EXPECT_FALSE(other->stringForKey("one"));
  other->setObject("2", "two");
  EXPECT_TRUE(other->synchronize());
  EXPECT_EQ(other->stringForKey("one"), "1");
  EXPECT_FALSE(one->stringForKey("two"));
  one->removeObjectForKey("shared");
  EXPECT_FALSE(one->stringForKey("shared"));
  EXPECT_EQ(other->stringForKey("shared"), "both");
  EXPECT_TRUE(one->synchronize());
  EXPECT_TRUE(other->synchronize());
  EXPECT_EQ(one->stringForKey("two"), "2");
  EXPECT_FALSE(other->stringForKey("shared"));
}

TEST_F(PreferencesTest, SuitesAndGroupsAreKeptApart) {
  const auto mine = service();
  const auto elsewhere = preferencesInFolders({_folder / "another", _folder / "groups"});
  const std::vector<std::shared_ptr<Preferences>> stores = {
      mine->standardPreferences(),
      mine->preferencesWithSuiteName("standard"),
      mine->preferencesWithSuiteName("../standard"),
      mine->preferencesWithSuiteName(std::string(300, 'x')),
      mine->preferencesWithSuiteName(std::string(301, 'x')),
      elsewhere->standardPreferences(),
      mine->preferencesForApplicationGroup("group.a"),
      mine->preferencesForApplicationGroup("group.b")};
  for (size_t i = 0; i < stores.size(); ++i) {
    stores[i]->setObject(i, "number");
    EXPECT_TRUE(stores[i]->synchronize()) << i;
  }
  for (size_t i = 0; i < stores.size(); ++i) {
    EXPECT_TRUE(stores[i]->synchronize());
    EXPECT_EQ(stores[i]->objectForKey("number").integerValue(), static_cast<int64_t>(i));
  }
  EXPECT_EQ(mine->preferencesWithSuiteName("standard"), stores[1]);
  EXPECT_FALSE(fs::exists(_folder / "standard.nvxprefs"));
  // The group's are the same for every application, and lie in the folder that it shares.
  EXPECT_EQ(elsewhere->preferencesForApplicationGroup("group.a")->objectForKey("number").integerValue(), 6);
  const std::string container = mine->containerForApplicationGroup("group.a").fileSystemPath();
  EXPECT_EQ(container, elsewhere->containerForApplicationGroup("group.a").fileSystemPath());
  EXPECT_TRUE(fs::exists(container + "/preferences.nvxprefs"));
  EXPECT_EQ(fs::status(container).permissions() & fs::perms::all, fs::perms::owner_all);
}

TEST_F(PreferencesTest, AStoreThatCannotBeWrittenLosesNothing) {
  // Folders that can't be made: something else is in their place. That holds for root too.
  std::ofstream(_folder / "application") << "in the way";
  auto store = service()->standardPreferences();
  store->setObject("kept", "key");
  EXPECT_FALSE(store->synchronize());
  EXPECT_EQ(store->stringForKey("key"), "kept");
  // It is tried again by itself, with growing waits.
  _time->advance(1.0);
  ASSERT_TRUE(_scope.settle());
  EXPECT_TRUE(fs::is_regular_file(_folder / "application"));
  fs::remove(_folder / "application");
  _time->advance(1.9);
  ASSERT_TRUE(_scope.settle());
  EXPECT_FALSE(fs::exists(file()));
  _time->advance(0.2);
  ASSERT_TRUE(_scope.settle());
  EXPECT_EQ(service()->standardPreferences()->stringForKey("key"), "kept");
  EXPECT_EQ(takeRuntimeSnapshot().armedTimers, 0u);
}

TEST_F(PreferencesTest, AFileThatCannotBeReadIsNotWrittenOver) {
  fs::create_directories(file());
  auto store = service()->standardPreferences();
  store->setObject("kept", "key");
  EXPECT_FALSE(store->synchronize());
  EXPECT_EQ(store->stringForKey("key"), "kept");
  EXPECT_TRUE(fs::is_directory(file()));
  fs::remove(file());
  store.reset();  // A last attempt is made for those who leave.
  EXPECT_EQ(service()->standardPreferences()->stringForKey("key"), "kept");
}

TEST_F(PreferencesTest, WithoutAFolderTheyStayInMemory) {
  auto service = preferencesInFolders({});
  service->standardPreferences()->setObject("here", "key");
  EXPECT_FALSE(service->standardPreferences()->synchronize());
  EXPECT_EQ(service->standardPreferences()->stringForKey("key"), "here");
  EXPECT_FALSE(service->preferencesForApplicationGroup("g")->stringForKey("key"));
  EXPECT_FALSE(service->containerForApplicationGroup("g"));
}

TEST_F(PreferencesTest, ADamagedFileReadsAsEmptyAndIsKeptAside) {
  auto writer = service()->standardPreferences();
  writer->setObject("value", "key");
  ASSERT_TRUE(writer->synchronize());
  const std::string whole = bytes();
  const std::string damagedFile = file() + ".damaged";
  std::vector<std::string> damaged = {"", "garbage", whole + '\0'};
  for (size_t i = 0; i < whole.size(); ++i) {
    damaged.push_back(whole);
    damaged.back()[i] ^= 0x10;
    damaged.push_back(whole.substr(0, i));
  }
  for (const std::string& bytes : damaged) {
    setBytes(bytes);
    auto store = service()->standardPreferences();
    ASSERT_FALSE(store->objectForKey("key"));
  }
  // A reader leaves it there, a writer puts it aside.
  setBytes(damaged.back());
  auto store = service()->standardPreferences();
  EXPECT_TRUE(store->synchronize());
  EXPECT_FALSE(fs::exists(damagedFile));
  store->setObject("new", "other");
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(fs::file_size(damagedFile), damaged.back().size());
  EXPECT_EQ(service()->standardPreferences()->stringForKey("other"), "new");
  // A store that held values when its file was damaged goes by the file.
  EXPECT_EQ(writer->stringForKey("key"), "value");
  EXPECT_TRUE(writer->synchronize());
  EXPECT_FALSE(writer->stringForKey("key"));
}

TEST_F(PreferencesTest, AFileThatIsTooLongIsNeitherWrittenNorRead) {
  auto store = service()->standardPreferences();
  store->setObject(Data::take(MutableData()), "small");
  ASSERT_TRUE(store->synchronize());
  MutableData large;
  large.setLength(size_t{64} << 20);
  store->setObject(Data::take(std::move(large)), "large");
  EXPECT_FALSE(store->synchronize());
  EXPECT_EQ(store->dataForKey("large").length(), size_t{64} << 20);
  store->removeObjectForKey("large");
  EXPECT_TRUE(store->synchronize());
  fs::resize_file(file(), uintmax_t{1} << 40);  // A file with a hole: nobody has room for it.
  EXPECT_FALSE(service()->standardPreferences()->objectForKey("small"));
}

TEST_F(PreferencesTest, WhatAKilledWriterLeftIsWrittenOver) {
  auto store = service()->standardPreferences();
  store->setObject("a", "key");
  ASSERT_TRUE(store->synchronize());
  std::ofstream(file() + ".new") << std::string(10'000, 'x');
  store->setObject("b", "key");
  ASSERT_TRUE(store->synchronize());
  EXPECT_EQ(service()->standardPreferences()->stringForKey("key"), "b");
  EXPECT_FALSE(fs::exists(file() + ".new"));
}

TEST_F(PreferencesTest, FoldersOfTheSystem) {
  const auto facts = [](std::string identifier, std::string process) {
    return applicationFactsWithDescription({identifier, "/", process, {}});
  };
  const char* before = ::getenv("XDG_DATA_HOME");
  const std::string kept = before ? before : "";
  ::setenv("XDG_DATA_HOME", "/data", 1);
  EXPECT_EQ(defaultPreferencesFolders(*facts("com.x/../y", "p")).application, "/data/com.x%2f..%2fy/nvxcore");
  EXPECT_EQ(defaultPreferencesFolders(*facts("", "p")).application, "/data/p/nvxcore");
  EXPECT_EQ(defaultPreferencesFolders(*facts("", "p")).groups, "/data/nvxcore-groups");
  ::setenv("XDG_DATA_HOME", "relative", 1);
  EXPECT_TRUE(defaultPreferencesFolders(*facts("", "p")).groups.ends_with("/.local/share/nvxcore-groups"));
  before ? ::setenv("XDG_DATA_HOME", kept.c_str(), 1) : ::unsetenv("XDG_DATA_HOME");
}

}  // namespace
}  // namespace nvxcore::testing
