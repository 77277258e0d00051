#include "nvxcore/connection/NVXDASHClientDescription.h"

#include <utility>

namespace nvxcore {

NVXDASHClientDescriptionRef NVXDASHClientDescription::withParts(Parts parts) {
  if (parts.firstLanguage.empty() || parts.distributionChannel.empty()) return nullptr;
  return NVXDASHClientDescriptionRef(new NVXDASHClientDescription(std::move(parts)));
}

NVXDASHClientDescription::NVXDASHClientDescription(Parts parts) : _parts(std::move(parts)) {}

}  // namespace nvxcore
