#pragma once

#include "nvxcore/platform/Console.h"

namespace nvxcore {

/// Writes each line with one call to the system, so that lines of several threads don't mix.
class StandardErrorConsole final : public ConsoleSink {
 public:
  void writeLine(std::string_view line) override;
};

}  // namespace nvxcore
