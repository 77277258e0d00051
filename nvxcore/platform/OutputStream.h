#pragma once

#include <cstddef>
#include <cstdint>

#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// A sink of bytes. Used by one thread at a time; `write` may block.
class NVXCORE_EXPORT OutputStream {
 public:
  virtual ~OutputStream() = default;

  virtual void open() = 0;
  virtual void close() = 0;
  /// Takes at most `maxLength` bytes and answers how many it took; a negative number is a failure.
  virtual int64_t write(const uint8_t* bytes, size_t maxLength) = 0;
};

}  // namespace nvxcore
