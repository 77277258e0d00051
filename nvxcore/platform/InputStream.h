#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

/// A source of bytes that is pulled. Used by one thread at a time; `read` may block.
class NVXCORE_EXPORT InputStream {
 public:
  virtual ~InputStream() = default;

  virtual void open() = 0;
  virtual void close() = 0;
  /// Copies at most `maxLength` bytes. 0 is the end of the stream, a negative number a failure that
  /// `streamError` names.
  virtual int64_t read(uint8_t* buffer, size_t maxLength) = 0;
  virtual Error streamError() const { return {}; }
  virtual bool hasBytesAvailable() const = 0;

  static std::shared_ptr<InputStream> streamWithData(Data data);
  static std::shared_ptr<InputStream> streamWithURL(const URL& fileURL);
};

}  // namespace nvxcore
