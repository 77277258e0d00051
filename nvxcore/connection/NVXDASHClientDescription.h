#pragma once

#include <memory>
#include <string>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// The fixed part of what the connection tells the server about the client. Immutable. Any thread.
class NVXCORE_EXPORT NVXDASHClientDescription {
 public:
  struct Parts {
    std::string firstLanguage;    ///< Language tag, "en", for one.
    std::string platformID;       ///< "ios:iPhone", for one.
    std::string softwareVersion;  ///< Of the SDK, or of the application without one.
    std::string distributionChannel;
  };

  /// Nothing when the language or the channel is empty.
  static std::shared_ptr<const NVXDASHClientDescription> withParts(Parts parts);

  const std::string& firstLanguage() const { return _parts.firstLanguage; }
  const std::string& platformID() const { return _parts.platformID; }
  const std::string& softwareVersion() const { return _parts.softwareVersion; }
  const std::string& distributionChannel() const { return _parts.distributionChannel; }

 private:
  explicit NVXDASHClientDescription(Parts parts);
  const Parts _parts;
};
using NVXDASHClientDescriptionRef = std::shared_ptr<const NVXDASHClientDescription>;

}  // namespace nvxcore
