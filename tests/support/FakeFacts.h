#pragma once

#include <string>
#include <utility>
#include <vector>

#include "nvxcore/platform/DeviceFacts.h"

namespace nvxcore::testing {

/// A device as a test describes it, before first use.
class FakeDeviceFacts final : public DeviceFacts {
 public:
  explicit FakeDeviceFacts(std::string model = "x") : modelText(std::move(model)) {}

  std::string modelText;
  std::string versionText = "1.2.3";
  int32_t density = 1;
  int32_t scale = 1;
  std::vector<std::string> interfaces;

  std::string model() const override { return modelText; }
  std::string systemVersion() const override { return versionText; }
  std::string machine() const override { return "machine"; }
  int32_t screenPixelDensity() const override { return density; }
  int32_t screenScale() const override { return scale; }
  std::vector<std::string> networkInterfaceNames() const override { return interfaces; }
};

}  // namespace nvxcore::testing
