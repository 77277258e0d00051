#include "nvxcore/foundation/base/NVXx_WKRTStackShot.h"

#include <execinfo.h>

#include <cstdlib>

#include "nvxcore/foundation/base/NVXLog.h"

namespace nvxcore {

NVXx_WKRTStackShot::NVXx_WKRTStackShot() : NVXx_WKRTStackShot(Source{&::backtrace, &::backtrace_symbols}) {}

NVXx_WKRTStackShot::NVXx_WKRTStackShot(const Source& source)
    : _frameCount(source.backtrace(_callstack, kMaximumFrames)), _symbolSource(source.symbols) {}

std::vector<std::string> NVXx_WKRTStackShot::backtraceSymbols() const {
  Lock lock(_lock);
  if (_backtraceSymbols.empty()) _backtraceSymbols = makeSymbols();
  return _backtraceSymbols;
}

std::vector<std::string> NVXx_WKRTStackShot::makeSymbols() const {
  if (_frameCount < 1) return {"Failed to get stack."};
  std::unique_ptr<char*, decltype(&std::free)> symbols(_symbolSource(_callstack, _frameCount), &std::free);
  if (!symbols) return {"Failed to get symbols."};
  std::vector<std::string> lines;
  for (int i = 0; i < _frameCount; ++i) {
    const char* text = symbols.get()[i];
    lines.push_back(text && *text ? std::string(text) : formattedString("<< %p >>", _callstack[i]));
  }
  return lines;
}

std::string NVXx_WKRTStackShot::description() const {
  std::string text;
  for (const std::string& line : backtraceSymbols()) {
    if (!text.empty()) text += '\n';
    text += line;
  }
  return text;
}

}  // namespace nvxcore
