#pragma once

#include <memory>
#include <string>

#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// What the library knows of the application that it is loaded into: its main bundle. Constant while it is in
/// force. Any thread.
class NVXCORE_EXPORT ApplicationFacts {
 public:
  virtual ~ApplicationFacts() = default;
  /// Reverse-DNS identifier; empty when the host gave none.
  virtual std::string bundleIdentifier() const = 0;
  virtual std::string bundlePath() const = 0;
  virtual std::string processName() const = 0;
  /// The application's information dictionary ("CFBundleShortVersionString" and so on).
  virtual Dictionary infoDictionary() const = 0;
};

/// Facts as plain values, for a host that describes itself.
struct ApplicationDescription {
  std::string bundleIdentifier;
  std::string bundlePath;
  std::string processName;
  Dictionary infoDictionary;
};

/// Facts that answer with `description`.
NVXCORE_EXPORT std::shared_ptr<ApplicationFacts> applicationFactsWithDescription(
    ApplicationDescription description);

}  // namespace nvxcore
