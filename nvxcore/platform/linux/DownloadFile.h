#pragma once

#include <cstdint>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

/// The temporary file of a download; it goes with this object unless it was given away. Its operations wait
/// for the disk. One thread at a time.
class DownloadFile {
 public:
  DownloadFile() = default;
  ~DownloadFile() { discard(); }
  DownloadFile(const DownloadFile&) = delete;
  DownloadFile& operator=(const DownloadFile&) = delete;

  /// Begins with the part that an earlier download left in `kept`, which is then no longer there.
  Error take(const URL& kept);
  /// Begins anew: without a byte.
  Error restart();
  Error append(const Data& bytes);
  void close();
  /// Closes it and moves it to `place`.
  Error keepAs(const URL& place);
  /// Closes it and removes it from where it is, unless it was moved away.
  void discard();
  const URL& location() const { return _location; }
  int64_t length() const { return _length; }

 private:
  Error open();

  URL _location;
  int _descriptor = -1;
  int64_t _length = 0;
};

}  // namespace nvxcore
