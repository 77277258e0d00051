#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/Mutex.h"

namespace nvxcore {

/// The call stack of the moment in which it is made. Any thread.
class NVXCORE_EXPORT NVXx_WKRTStackShot {
 public:
  /// What captures and names frames; another pair can stand in for the C library's.
  struct Source {
    int (*backtrace)(void** buffer, int size);
    char** (*symbols)(void* const* buffer, int size);
  };

  NVXx_WKRTStackShot();
  explicit NVXx_WKRTStackShot(const Source& source);

  /// A line for each frame, innermost first; made at the first call.
  std::vector<std::string> backtraceSymbols() const;
  /// The lines, joined with line breaks.
  std::string description() const;

 private:
  static constexpr int kMaximumFrames = 128;

  std::vector<std::string> makeSymbols() const;

  void* _callstack[kMaximumFrames];
  int _frameCount;
  char** (*_symbolSource)(void* const*, int);
  mutable Mutex _lock;
  mutable std::vector<std::string> _backtraceSymbols NVX_GUARDED_BY(_lock);
};

}  // namespace nvxcore
