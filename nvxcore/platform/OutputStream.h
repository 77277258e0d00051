#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

/// A sink of bytes. Used by one thread at a time; `write` may block.
class NVXCORE_EXPORT OutputStream {
 public:
  virtual ~OutputStream() = default;

  virtual void open() = 0;
  virtual void close() = 0;
  /// Takes at most `maxLength` bytes and answers how many it took; a negative number is a failure.
  virtual int64_t write(const uint8_t* bytes, size_t maxLength) = 0;

  /// A file, which `open` makes where it is missing, and empties unless what is written goes behind what it
  /// has. Nothing when the URL names no file. A failure to open shows in `write`, which takes all or fails.
  static std::shared_ptr<OutputStream> streamWithURL(const URL& fileURL, bool append);
};

}  // namespace nvxcore
