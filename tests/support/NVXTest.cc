#include "tests/support/NVXTest.h"

#include <mutex>
#include <string>
#include <vector>

#include "nvxcore/platform/Console.h"

namespace nvxcore::testing {

/// Shared with the line handler, which a thread may be in when the test ends. The test's own thread tells
/// what was found, since lines come on any thread.
struct NVXTest::Lines {
  struct Expectation {
    std::string part;
    bool seen = false;
  };

  void check(std::string_view line) {
    std::lock_guard lock(mutex);
    bool expected = false;
    for (Expectation& expectation : expectations) {
      if (line.find(expectation.part) == std::string_view::npos) continue;
      expectation.seen = true;
      expected = true;
    }
    if (!expected) unexpected.emplace_back(line);
  }

  std::mutex mutex;
  std::vector<Expectation> expectations;
  std::vector<std::string> unexpected;
};

NVXTest::NVXTest() : _lines(std::make_shared<Lines>()) {
  setConsoleLineHandler([lines = _lines](std::string_view line) { lines->check(line); });
}

NVXTest::~NVXTest() {
  setConsoleLineHandler(nullptr);
  std::lock_guard lock(_lines->mutex);
  for (const std::string& line : _lines->unexpected) ADD_FAILURE() << "unexpected console line: " << line;
  for (const Lines::Expectation& expectation : _lines->expectations) {
    if (!expectation.seen) ADD_FAILURE() << "missing console line: " << expectation.part;
  }
}

void NVXTest::expectConsoleLine(std::string_view part) {
  std::lock_guard lock(_lines->mutex);
  _lines->expectations.push_back({std::string(part)});
}

}  // namespace nvxcore::testing
