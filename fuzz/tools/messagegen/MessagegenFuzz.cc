// The generator's reader: any bytes as sources end in errors or in code, and the same bytes in the same ones.
// A line
// "--- NAME" begins another file.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/FuzzInput.h"
#include "tools/messagegen/Emitter.h"
#include "tools/messagegen/Loader.h"
#include "tools/messagegen/Resolver.h"

namespace {

using namespace nvxcore::messagegen;

std::map<std::string, std::string> split(std::string_view input) {
  constexpr std::string_view kMark = "--- ";
  std::map<std::string, std::string> files;
  std::string name = "a.proto";
  while (true) {
    size_t end = input.find("\n" + std::string(kMark));
    files[name] = std::string(input.substr(0, end));
    if (end == std::string_view::npos) return files;
    input.remove_prefix(end + 1 + kMark.size());
    end = std::min(input.find('\n'), input.size());
    name = std::string(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
  }
}

/// All that comes of the sources: the errors, or the code of each file.
std::string outcome(const std::map<std::string, std::string>& files) {
  Diagnostics diagnostics;
  Loader loader(
      [&](const std::string& path) {
        const auto found = files.find(path);
        return found == files.end() ? std::nullopt : std::optional(found->second);
      },
      diagnostics);
  const File* main = loader.load("a.proto");
  if (!diagnostics.failed()) Resolver(diagnostics).resolve(loader.files());
  std::string result;
  if (!diagnostics.failed()) {
    NVX_MUST_HOLD(main != nullptr);
    const Tables tables = buildTables(*main, diagnostics);
    if (!diagnostics.failed()) {
      result = emitHeader(*main, tables, {}) + emitSource(*main, tables);
      // A line of code is printable ASCII; only comments hold more.
      for (unsigned char c : emitSource(*main, tables)) NVX_MUST_HOLD(c == '\n' || c >= 0x20);
    }
  }
  const std::vector<std::string> errors = diagnostics.lines();
  NVX_MUST_HOLD(diagnostics.failed() == !errors.empty());
  for (const std::string& error : errors) result += error + "\n";
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto files = split({reinterpret_cast<const char*>(data), size});
  const std::string first = outcome(files);
  // Now and then, since it costs as much again.
  if (size % 8 == 0) NVX_MUST_HOLD(outcome(files) == first);
  return 0;
}
