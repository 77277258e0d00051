#include "nvxcore/platform/Files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "nvxcore/platform/Value.h"
#include "tests/support/NVXTest.h"

namespace nvxcore::testing {
namespace {

class FilesTest : public NVXTest {
 protected:
  FilesTest() { EXPECT_FALSE(createDirectoryWithIntermediates(folder)); }
  ~FilesTest() override {
    ::chmod(folder.fileSystemPath().c_str(), 0700);
    removeFile(folder);
  }
  URL at(const char* name) const { return folder.appendingPathComponent(name); }
  std::string contents(const URL& file) const { return readFile(file, nullptr).string(); }

  const URL folder = uniqueTemporaryFile("files test");
};

TEST_F(FilesTest, WritesReadsAndReplaces) {
  const URL file = at("a b%");
  const std::string large(100'000, 'x');
  EXPECT_FALSE(writeFileAtomically(file, Data::copy(large)));
  EXPECT_EQ(contents(file), large);
  EXPECT_FALSE(writeFileAtomically(file, Data()));
  EXPECT_EQ(fileSize(file), 0);
  EXPECT_FALSE(writeFile(file, Data::copy("12")));
  bool cannotOpen = true;
  EXPECT_FALSE(appendToFile(file, Data::copy("3"), &cannotOpen));
  EXPECT_FALSE(cannotOpen);
  EXPECT_EQ(contents(file), "123");
  EXPECT_TRUE(appendToFile(at("missing"), Data(), &cannotOpen));
  EXPECT_TRUE(cannotOpen);
  // A size that the system does not tell beforehand.
  EXPECT_FALSE(contents(URL::fileURLWithPath("/proc/self/status")).empty());
  // Nothing beside the file is left.
  EXPECT_FALSE(createDirectoryWithIntermediates(at("folder")));
  EXPECT_TRUE(writeFileAtomically(at("folder"), Data::copy("x")));
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.fileSystemPath()))
    ++count;
  EXPECT_EQ(count, 2u);
}

TEST_F(FilesTest, ErrorsNameTheirKindTheFileAndTheCause) {
  const URL missing = at("missing");
  Error error;
  EXPECT_FALSE(readFile(missing, &error));
  EXPECT_TRUE(error.is(kCocoaErrorDomain, kFileReadNoSuchFileError));
  EXPECT_EQ(error.userInfo().get(kURLErrorKey).url(), missing);
  EXPECT_TRUE(error.userInfo().get(kUnderlyingErrorKey).error().is("NSPOSIXErrorDomain", ENOENT));
  EXPECT_EQ(checkFileIsReachable(missing).code(), kFileReadNoSuchFileError);
  EXPECT_EQ(removeFile(missing).code(), kFileNoSuchFileError);
  EXPECT_EQ(fileSize(missing), std::nullopt);
  EXPECT_FALSE(readFile(folder, &error));
  EXPECT_EQ(error.code(), kFileReadUnknownError);
  EXPECT_TRUE(writeFile(at("no/such"), Data()));
  const URL web = URL::withString("http://h/etc/passwd");
  EXPECT_TRUE(checkFileIsReachable(web) && removeFile(web) && writeFile(web, Data()) &&
              moveFile(web, missing));
  EXPECT_FALSE(readFile(web, &error));
  // A path is not taken up to its first NUL.
  EXPECT_FALSE(writeFile(at("victim"), Data()));
  EXPECT_TRUE(removeFile(URL::withString(at("victim").absoluteString() + "%00x")));
  EXPECT_FALSE(checkFileIsReachable(at("victim")));
  if (::geteuid() != 0) {
    ::chmod(folder.fileSystemPath().c_str(), 0);
    EXPECT_EQ(writeFile(at("x"), Data()).code(), kFileWriteNoPermissionError);
  }
}

TEST_F(FilesTest, FilesAreMovedAndFoldersMadeAndRemoved) {
  const URL deep = at("a").appendingPathComponent("b").appendingPathComponent("c");
  EXPECT_FALSE(createDirectoryWithIntermediates(deep));
  EXPECT_FALSE(createDirectoryWithIntermediates(URL::withString(deep.absoluteString() + "/")));
  EXPECT_FALSE(writeFile(at("from"), Data::copy("1")));
  EXPECT_TRUE(createDirectoryWithIntermediates(at("from")));
  EXPECT_TRUE(createDirectoryWithIntermediates(at("from").appendingPathComponent("x")));
  const URL to = deep.appendingPathComponent("to");
  EXPECT_FALSE(moveFile(at("from"), to));
  EXPECT_EQ(contents(to), "1");
  EXPECT_FALSE(writeFile(at("from"), Data::copy("2")));
  EXPECT_TRUE(moveFile(at("from"), to));
  EXPECT_EQ(contents(to) + contents(at("from")), "12");
  EXPECT_FALSE(removeFile(at("a")));
  EXPECT_TRUE(checkFileIsReachable(at("a")));
}

TEST_F(FilesTest, AMoveToAnotherDiskCopies) {
  const URL elsewhere = URL::fileURLWithPath("/dev/shm").appendingPathComponent(folder.lastPathComponent());
  EXPECT_FALSE(writeFile(elsewhere, Data::copy("1")));
  EXPECT_FALSE(moveFile(elsewhere, at("here")));
  EXPECT_EQ(contents(at("here")), "1");
  EXPECT_TRUE(checkFileIsReachable(elsewhere));
}

TEST_F(FilesTest, TemporaryNamesAvoidWhatIsThere) {
  // As an earlier process of the same number could have left it.
  const std::string first = uniqueTemporaryFile("left over").fileSystemPath();
  const size_t dash = first.rfind('-');
  const std::string next = first.substr(0, dash + 1) + std::to_string(std::stoll(first.substr(dash + 1)) + 1);
  std::ofstream(next) << "x";
  EXPECT_NE(uniqueTemporaryFile("left over").fileSystemPath(), next);
  std::filesystem::remove(next);
}

}  // namespace
}  // namespace nvxcore::testing
