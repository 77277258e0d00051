#pragma once

#include <cstdarg>
#include <functional>
#include <string>
#include <string_view>

#include "nvxcore/platform/Export.h"

#define NVX_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))

namespace nvxcore {

/// Writes a formatted line to the console, with printf's rules. Any thread.
NVXCORE_EXPORT void NVXCLog(const char* format, ...) NVX_PRINTF(1, 2);

/// Writes a line meant for the developers of the host application, unless a testing handler takes it. Any
/// thread.
NVXCORE_EXPORT void NVXLogDeveloperMessageImpl(std::string_view message);
/// `handler` is called on the logging thread, before the console; true means that the message is dealt with.
/// An empty one removes it. Any thread.
NVXCORE_EXPORT void NVXLogDeveloperMessageSetTestingHandler(
    std::function<bool(std::string_view message)> handler);

/// Formats with printf's rules and a point as decimal separator, whatever the host's locale.
NVXCORE_EXPORT std::string formattedString(const char* format, ...) NVX_PRINTF(1, 2);
NVXCORE_EXPORT std::string formattedStringWithArguments(const char* format, va_list arguments)
    NVX_PRINTF(1, 0);

}  // namespace nvxcore
