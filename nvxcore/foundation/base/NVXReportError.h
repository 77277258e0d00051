#pragma once

#include <string>

#include "nvxcore/foundation/base/NVXLog.h"
#include "nvxcore/platform/Export.h"

/// Reports of internal faults. All functions may be called on any thread.
namespace nvxcore {

/// Logs an internal fault, unless `quiet` is set and tests run. Without `file` the line is
/// "(condition) was false: message", with one "file:line: (condition) was false: message { in function name
/// }", where the condition falls away when it is null. A null `format` is an empty message. Answers whether
/// tests run.
NVXCORE_EXPORT bool NVXReportErrorInternal(bool quiet, const char* function, const char* file, long line,
                                           const char* condition, const char* format, ...) NVX_PRINTF(6, 7);
NVXCORE_EXPORT bool NVXCReportErrorInternal(bool quiet, const char* function, const char* file, long line,
                                            const char* condition, const char* format, ...) NVX_PRINTF(6, 7);
NVXCORE_EXPORT bool NVXx_WKRTReportErrorInternal(bool quiet, const char* function, const char* file,
                                                 long line, const char* condition, const char* format, ...)
    NVX_PRINTF(6, 7);

/// True when `held`; otherwise reports and ends the process.
NVXCORE_EXPORT bool NVXx_WKRTVerifyConditionInternal(bool held, bool quiet, const char* function,
                                                     const char* file, long line, const char* condition,
                                                     const char* format, ...) NVX_PRINTF(7, 8);

/// End the process at once by a trap: no message, no clean-up.
[[noreturn]] NVXCORE_EXPORT void NVXCrashInternal();
[[noreturn]] NVXCORE_EXPORT void NVXx_WKRTCrashInternal();

/// Does nothing in a release of the library.
NVXCORE_EXPORT void NVXDebugBreakInDebugger();
/// Same as `NVXx_WKRTIsTesting`.
NVXCORE_EXPORT bool NVXDebugBreakInDebuggerTestable();

/// True when the environment variable "WKRT_IS_TEST_ENVIRONMENT" has a true value. Looked up once.
NVXCORE_EXPORT bool NVXx_WKRTIsTestbedEnvironment();
/// True when a test runner has been linked into the process. Looked up once.
NVXCORE_EXPORT bool NVXx_WKRTIsUnitTesting();
/// True when either of the two is.
NVXCORE_EXPORT bool NVXx_WKRTIsTesting();

/// The soft report: logs a message and goes on; quiet under tests.
template <class... Arguments>
bool softReport(const char* format, Arguments... arguments) {
  return NVXReportErrorInternal(true, nullptr, nullptr, 0, nullptr, format, arguments...);
}

}  // namespace nvxcore
