#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"

/// Error values by class. Any thread.
namespace nvxcore {

/// "com.ovrasoft.Atlas." followed by the name of the class.
NVXCORE_EXPORT std::string NVXCreateDomainForClass(std::string_view className);
NVXCORE_EXPORT Error NVXMakeClassError(std::string_view className, int64_t code, Dictionary userInfo = {});
NVXCORE_EXPORT bool NVXIsErrorFromClass(const Error& error, std::string_view className);
/// True for the codes of a lost (-1005) and of a missing (-1009) connection, whatever the domain.
NVXCORE_EXPORT bool NVXIsOfflineError(const Error& error);

/// As `NVXMakeClassError`, in the domain "com.ovrasoft." followed by the name.
NVXCORE_EXPORT Error NVXx_WKRTMakeClassError(std::string_view className, int64_t code,
                                             Dictionary userInfo = {});

}  // namespace nvxcore
