#include "nvxcore/foundation/base/NVXReportError.h"

#include <cstdlib>

#include "nvxcore/platform/Console.h"
#include "nvxcore/platform/Value.h"

/// Defined by a test runner that wants reports to stay quiet. A class of that name is what the check looks
/// for.
extern "C" __attribute__((weak, visibility("default"))) bool XCTestProbe_isTesting();

namespace nvxcore {

namespace {

const char* orNull(const char* text) { return text ? text : "(null)"; }

bool report(bool quiet, const char* function, const char* file, long line, const char* condition,
            const char* format, va_list arguments) {
  const bool testing = NVXx_WKRTIsTesting();
  if (testing && quiet) return true;
  const std::string message = format ? formattedStringWithArguments(format, arguments) : std::string();
  if (!file) {
    NVXCLog("(%s) was false: %s", orNull(condition), message.c_str());
  } else if (condition) {
    NVXCLog("%s:%zd: (%s) was false: %s { in function %s }", file, static_cast<ssize_t>(line), condition,
            message.c_str(), orNull(function));
  } else {
    NVXCLog("%s:%zd: %s { in function %s }", file, static_cast<ssize_t>(line), message.c_str(),
            orNull(function));
  }
  return testing;
}

}  // namespace

bool NVXReportErrorInternal(bool quiet, const char* function, const char* file, long line,
                            const char* condition, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const bool testing = report(quiet, function, file, line, condition, format, arguments);
  va_end(arguments);
  return testing;
}

bool NVXCReportErrorInternal(bool quiet, const char* function, const char* file, long line,
                             const char* condition, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const bool testing = report(quiet, function, file, line, condition, format, arguments);
  va_end(arguments);
  return testing;
}

bool NVXx_WKRTReportErrorInternal(bool quiet, const char* function, const char* file, long line,
                                  const char* condition, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const bool testing = report(quiet, function, file, line, condition, format, arguments);
  va_end(arguments);
  return testing;
}

bool NVXx_WKRTVerifyConditionInternal(bool held, bool quiet, const char* function, const char* file,
                                      long line, const char* condition, const char* format, ...) {
  if (held) return true;
  va_list arguments;
  va_start(arguments, format);
  report(quiet, function, file, line, condition, format, arguments);
  va_end(arguments);
  NVXx_WKRTCrashInternal();
}

void NVXCrashInternal() { __builtin_trap(); }
void NVXx_WKRTCrashInternal() { __builtin_trap(); }

void NVXDebugBreakInDebugger() {}
bool NVXDebugBreakInDebuggerTestable() { return NVXx_WKRTIsTesting(); }

bool NVXx_WKRTIsTestbedEnvironment() {
  static const bool answer = [] {
    const char* value = std::getenv("WKRT_IS_TEST_ENVIRONMENT");
    return value && Value(value).boolValue();
  }();
  return answer;
}

bool NVXx_WKRTIsUnitTesting() {
  static const bool answer = XCTestProbe_isTesting && XCTestProbe_isTesting();
  return answer;
}

bool NVXx_WKRTIsTesting() { return NVXx_WKRTIsTestbedEnvironment() || NVXx_WKRTIsUnitTesting(); }

}  // namespace nvxcore
