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
  /// True when `read` answers without waiting: bytes, a failure or the end. A sender that got fewer bytes
  /// than it asked for reads on while this holds; a stream that would have to wait says false and is sent as
  /// it comes.
  virtual bool hasBytesAvailable() const = 0;

  /// The bytes of `data`.
  static std::shared_ptr<InputStream> streamWithData(Data data);
  /// The bytes of a file, which is opened by `open`. Errors are of kCocoaErrorDomain.
  static std::shared_ptr<InputStream> streamWithURL(const URL& fileURL);
};

}  // namespace nvxcore
