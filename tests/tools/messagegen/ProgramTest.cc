// The program: what it writes, and what it leaves alone.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include "tools/messagegen/Program.h"

namespace nvxcore::messagegen {
namespace {

namespace fs = std::filesystem;

class ProgramTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder / "in/x");
    write("in/x/a.proto", "import 'x/b.proto'; message M { optional N n = 1; }");
    write("in/x/b.proto", "message N {}");
  }
  void TearDown() override { fs::remove_all(folder); }

  void write(const std::string& path, const std::string& content) { std::ofstream(folder / path) << content; }
  static std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  Outcome generate(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{"--out", out, "-I", (folder / "in").string(),
                                       (folder / "in/x/a.proto").string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }
  std::vector<std::string> written() const {
    std::vector<std::string> paths;
    for (const auto& entry : fs::recursive_directory_iterator(folder / "out")) {
      if (entry.is_regular_file()) paths.push_back(fs::relative(entry.path(), folder / "out").string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  const fs::path folder =
      fs::temp_directory_path() / ("messagegen" + std::to_string(::getpid()) +
                                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
  const std::string out = (folder / "out").string();
};

TEST_F(ProgramTest, WritesBesideTheImportPathAndSaysWhatFrom) {
  const Outcome outcome = generate({"--depfile", (folder / "out/deps").string()});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.errors + outcome.output, "");
  EXPECT_EQ(written(), (std::vector<std::string>{"deps", "x/a.pb.cc", "x/a.pb.h"}));
  EXPECT_EQ(read(folder / "out/deps"), out + "/x/a.pb.h: \\\n  " + (folder / "in/x/a.proto").string() +
                                           " \\\n  " + (folder / "in/x/b.proto").string() + "\n");
}

TEST_F(ProgramTest, LeavesAFileThatWouldNotChange) {
  ASSERT_EQ(generate().status, 0);
  const auto long_ago = fs::file_time_type::clock::now() - std::chrono::hours(24);
  const std::string header = read(folder / "out/x/a.pb.h");
  for (const char* name : {"a.pb.h", "a.pb.cc"}) fs::last_write_time(folder / "out/x" / name, long_ago);
  // Another number stands in the source only; a comment only in the header.
  write("in/x/a.proto", "import 'x/b.proto'; message M { optional N n = 2; }");
  ASSERT_EQ(generate().status, 0);
  EXPECT_EQ(fs::last_write_time(folder / "out/x/a.pb.h"), long_ago);
  EXPECT_NE(fs::last_write_time(folder / "out/x/a.pb.cc"), long_ago);
  write("in/x/a.proto", "import 'x/b.proto'; message M { /* new */ optional N n = 2; }");
  ASSERT_EQ(generate().status, 0);
  EXPECT_NE(read(folder / "out/x/a.pb.h"), header);
}

TEST_F(ProgramTest, WritesAllOrNothing) {
  // An error in one of two files.
  write("in/x/c.proto", "message {}");
  const std::string broken = (folder / "in/x/c.proto").string();
  const Outcome outcome = generate({broken, "--depfile", (folder / "out/deps").string()});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "x/c.proto:1:9: expected the message's name, found \"{\"\n");
  EXPECT_FALSE(fs::exists(folder / "out"));

  // A folder where a file is to be: nothing is renamed into place, and no temporary file stays.
  fs::create_directories(folder / "out/x/a.pb.h/taken");
  EXPECT_EQ(generate().status, 1);
  fs::remove_all(folder / "out/x/a.pb.h");
  write("out/x/note", "");
  EXPECT_EQ(written(), std::vector<std::string>{"x/note"});
}

TEST_F(ProgramTest, CommandLine) {
  EXPECT_EQ(run({}).status, 2);
  EXPECT_EQ(run({"--out", "x"}).status, 2);
  EXPECT_EQ(run({"--what", "x"}).status, 2);
  EXPECT_EQ(run({"a.proto", "--out"}).status, 2);
  EXPECT_EQ(run({"--help"}).status, 0);
  EXPECT_EQ(run({"--help"}).output.substr(0, 6), "usage:");
  // Outside of the import folder; not there; a folder.
  write("b.proto", "");
  for (const char* path : {"b.proto", "in/x/none.proto", "in/x"}) {
    const Outcome outcome = run({"--out", out, "-I", (folder / "in").string(), (folder / path).string()});
    EXPECT_EQ(outcome.status, 1) << path;
    EXPECT_NE(outcome.errors, "") << path;
  }
}

TEST_F(ProgramTest, KeepsToTheGoldenCode) {
  // Where the change is meant: NVXCORE_REWRITE_GOLDEN=1 writes what is expected anew.
  const fs::path root = NVXCORE_SOURCE_DIR;
  const fs::path here = root / "tests/tools/messagegen";
  const Outcome outcome = run({"--out", out, "-I", (here / "schema").string(), "-I", root.string(),
                               (here / "schema/everything.proto").string(), "--export-macro", "SEEN",
                               "--export-header", "shared/seen.h"});
  ASSERT_EQ(outcome.errors, "");
  for (const char* name : {"everything.pb.h", "everything.pb.cc"}) {
    const fs::path expected = here / "golden" / (name + std::string(".expected"));
    if (std::getenv("NVXCORE_REWRITE_GOLDEN"))
      fs::copy_file(folder / "out" / name, expected, fs::copy_options::overwrite_existing);
    EXPECT_EQ(read(folder / "out" / name), read(expected)) << name;
  }
}

}  // namespace
}  // namespace nvxcore::messagegen
