#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Where console lines of the library go.
class NVXCORE_EXPORT ConsoleSink {
 public:
  virtual ~ConsoleSink() = default;
  /// One line, without its line break. Called on any thread, also on several at once.
  virtual void writeLine(std::string_view line) = 0;
};

/// Replaces the sink from now on, also after first use; an empty handler restores the platform's. Any thread.
/// The handler is called on the thread that logs and must not log itself.
NVXCORE_EXPORT void setConsoleLineHandler(std::function<void(std::string_view line)> handler);
/// Writes one line to the sink in force.
NVXCORE_EXPORT void writeConsoleLine(std::string_view line);

}  // namespace nvxcore
