#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/InputStream.h"
#include "nvxcore/platform/Mutex.h"
#include "nvxcore/platform/ThreadAnnotations.h"

namespace nvxcore {

/// What one pull of a body gave.
struct BodyPiece {
  Data bytes;
  bool isEnd = false;  ///< Nothing follows.
  bool failed = false;
  Error error;
};

/// Pulls a body stream where reading may wait. The stream is opened before its first pull, and closed once it
/// has ended or is no longer wanted, one call after another.
class BodyPump : public std::enable_shared_from_this<BodyPump> {
 public:
  using Handler = std::function<void(BodyPiece)>;

  explicit BodyPump(std::shared_ptr<InputStream> stream) : _stream(std::move(stream)) {}

  /// Pulls at most `maxLength` bytes and hands them to `handler` on another thread. One at a time; any
  /// thread.
  void pull(size_t maxLength, Handler handler);
  /// Closes the stream after the pull under way, whose handler is dropped. Any thread.
  void stop();

 private:
  void carryOut(size_t maxLength);
  BodyPiece read(size_t maxLength);
  void close();

  const std::shared_ptr<InputStream> _stream;
  bool _isOpen = false;  ///< Of the thread that pulls.

  Mutex _lock;
  Handler _handler NVX_GUARDED_BY(_lock);  ///< Of the pull under way.
  bool _stopped NVX_GUARDED_BY(_lock) = false;
  bool _isClosed NVX_GUARDED_BY(_lock) = false;  ///< After its end: there is nothing left to do.
};

}  // namespace nvxcore
