#pragma once

#include <string>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Facts of the machine. Constant while they are in force. Any thread.
class NVXCORE_EXPORT DeviceFacts {
 public:
  virtual ~DeviceFacts() = default;
  /// Kind of device, "Linux" by default.
  virtual std::string model() const = 0;
  /// Version of the operating system.
  virtual std::string systemVersion() const = 0;
  /// Hardware name as `uname` has it; empty when unknown.
  virtual std::string machine() const = 0;
};

}  // namespace nvxcore
