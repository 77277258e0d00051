#pragma once

#include <map>
#include <optional>
#include <string>

#include "tools/messagegen/Diagnostics.h"
#include "tools/messagegen/Loader.h"
#include "tools/messagegen/Resolver.h"

namespace nvxcore::messagegen::testing {

/// Sources in memory, read and resolved as the program does it.
class Compilation {
 public:
  /// Reads "a.proto" of the sources and what it imports.
  explicit Compilation(std::map<std::string, std::string> sources)
      : _sources(std::move(sources)),
        _loader([this](const std::string& path) { return read(path); }, diagnostics) {
    main = _loader.load("a.proto");
    if (!diagnostics.failed()) Resolver(diagnostics).resolve(_loader.files());
  }
  /// One file, "a.proto".
  explicit Compilation(std::string source)
      : Compilation(std::map<std::string, std::string>{{"a.proto", std::move(source)}}) {}

  /// The errors as the program prints them, each line ended.
  std::string errors() const {
    std::string text;
    for (const std::string& line : diagnostics.lines()) text += line + "\n";
    return text;
  }
  const Message& message(size_t index) const { return *main->messages.at(index); }

  Diagnostics diagnostics;
  File* main = nullptr;

 private:
  std::optional<std::string> read(const std::string& path) const {
    const auto found = _sources.find(path);
    return found == _sources.end() ? std::nullopt : std::optional(found->second);
  }

  std::map<std::string, std::string> _sources;
  Loader _loader;
};

}  // namespace nvxcore::messagegen::testing
