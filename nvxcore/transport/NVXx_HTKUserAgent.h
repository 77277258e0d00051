#pragma once

#include <string>
#include <string_view>

#include "nvxcore/platform/ApplicationFacts.h"
#include "nvxcore/platform/Export.h"

/// The parts of the "User-Agent" field (RFC 9110, 10.1.5). Any thread.
namespace nvxcore {

/// Blanks and commas become "_"; other white space and the characters ()<>@;:\"/[]?={} fall away.
NVXCORE_EXPORT std::string NVXx_HTKFetcherCleanedUserAgentString(std::string_view text);
/// "model/version hw/machine", with model and machine cleaned.
NVXCORE_EXPORT std::string NVXx_HTKFetcherSystemVersionString();
/// Name and version of the application; of the one that the library is loaded into when `bundle` is null.
/// Kept for each bundle identifier.
NVXCORE_EXPORT std::string NVXx_HTKFetcherApplicationIdentifier(const ApplicationFacts* bundle);
/// Application and system, with a blank between them.
NVXCORE_EXPORT std::string NVXx_HTKFetcherStandardUserAgentString(const ApplicationFacts* bundle);

}  // namespace nvxcore
