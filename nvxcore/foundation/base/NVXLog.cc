#include "nvxcore/foundation/base/NVXLog.h"

#include <locale.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "nvxcore/platform/Console.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

namespace {

/// The "C" locale for the calling thread, for a scope.
class PlainLocale {
 public:
  PlainLocale() : _previous(::uselocale(shared())) {}
  ~PlainLocale() { ::uselocale(_previous); }
  PlainLocale(const PlainLocale&) = delete;
  PlainLocale& operator=(const PlainLocale&) = delete;

 private:
  static locale_t shared() {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return plain;
  }
  locale_t _previous;
};

using TestingHandler = std::function<bool(std::string_view)>;

struct DeveloperLog {
  Mutex lock;
  std::shared_ptr<const TestingHandler> testingHandler NVX_GUARDED_BY(lock);
};

DeveloperLog& developerLog() {
  static auto* log = new DeveloperLog;
  return *log;
}

}  // namespace

std::string formattedStringWithArguments(const char* format, va_list arguments) {
  PlainLocale plain;
  char small[512];
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(small, sizeof small, format, arguments);
  std::string result;
  if (length >= static_cast<int>(sizeof small)) {
    result.resize(static_cast<size_t>(length));
    std::vsnprintf(result.data(), result.size() + 1, format, again);
  } else if (length > 0) {
    result.assign(small, static_cast<size_t>(length));
  }
  va_end(again);
  return result;
}

std::string formattedString(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string result = formattedStringWithArguments(format, arguments);
  va_end(arguments);
  return result;
}

void NVXCLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string line = formattedStringWithArguments(format, arguments);
  va_end(arguments);
  writeConsoleLine(line);
}

void NVXLogDeveloperMessageImpl(std::string_view message) {
  std::shared_ptr<const TestingHandler> handler;
  {
    DeveloperLog& log = developerLog();
    Lock lock(log.lock);
    handler = log.testingHandler;
  }
  if (handler && (*handler)(message)) return;
  writeConsoleLine(message);
}

void NVXLogDeveloperMessageSetTestingHandler(std::function<bool(std::string_view)> handler) {
  auto shared = handler ? std::make_shared<const TestingHandler>(std::move(handler)) : nullptr;
  DeveloperLog& log = developerLog();
  Lock lock(log.lock);
  log.testingHandler.swap(shared);
}

}  // namespace nvxcore
