#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// Facts of the machine. Constant while they are in force, but for the network interfaces. Any thread.
class NVXCORE_EXPORT DeviceFacts {
 public:
  virtual ~DeviceFacts() = default;
  /// Kind of device, "Linux" by default.
  virtual std::string model() const = 0;
  /// Version of the operating system.
  virtual std::string systemVersion() const = 0;
  /// Hardware name as `uname` has it; empty when unknown.
  virtual std::string machine() const = 0;
  /// How dense the display's pixels are, from 1, as on a plain one, to 4.
  virtual int32_t screenPixelDensity() const { return 1; }
  /// Pixels for a point of the layout, 1 to 3.
  virtual int32_t screenScale() const { return 1; }
  /// Names of the network interfaces that there are now.
  virtual std::vector<std::string> networkInterfaceNames() const { return {}; }
};

}  // namespace nvxcore
