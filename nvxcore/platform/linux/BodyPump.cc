#include "nvxcore/platform/linux/BodyPump.h"

#include <utility>

#include "nvxcore/platform/Queue.h"

namespace nvxcore {

void BodyPump::pull(size_t maxLength, Handler handler) {
  {
    Lock lock(_lock);
    if (_stopped) return;
    _handler = std::move(handler);
  }
  Queue::blocking()->post([self = shared_from_this(), maxLength] { self->carryOut(maxLength); });
}

void BodyPump::stop() {
  Handler dropped;
  {
    Lock lock(_lock);
    if (std::exchange(_stopped, true)) return;
    dropped = std::exchange(_handler, nullptr);
    if (dropped) return;  // The pull under way closes the stream.
    if (_isClosed) return;
  }
  Queue::blocking()->post([self = shared_from_this()] { self->close(); });
}

void BodyPump::close() {
  if (std::exchange(_isOpen, false)) _stream->close();
}

void BodyPump::carryOut(size_t maxLength) {
  BodyPiece piece = read(maxLength);
  if (piece.isEnd || piece.failed) close();
  Handler handler;
  bool stopped;
  {
    Lock lock(_lock);
    _isClosed = !_isOpen;
    handler = std::exchange(_handler, nullptr);
    stopped = _stopped;
  }
  if (stopped) close();
  if (handler) handler(std::move(piece));
}

/// A stream that answers at once is read until the buffer is full or the stream has ended: one that ends
/// within its first pull can then be sent with its length. One that would have to wait is sent as it comes.
BodyPiece BodyPump::read(size_t maxLength) {
  BodyPiece piece;
  try {
    if (!std::exchange(_isOpen, true)) _stream->open();
    MutableData buffer(maxLength);
    do {
      const size_t room = maxLength - buffer.length();
      const int64_t count = _stream->read(buffer.extend(room), room);
      const bool sound = count >= 0 && static_cast<uint64_t>(count) <= room;
      buffer.setLength(maxLength - room + (sound ? static_cast<size_t>(count) : 0));
      piece.failed = !sound;
      piece.isEnd = count == 0;
    } while (!piece.failed && !piece.isEnd && buffer.length() < maxLength && _stream->hasBytesAvailable());
    if (piece.failed) piece.error = _stream->streamError();
    piece.bytes = Data::take(std::move(buffer));
  } catch (...) {
    piece = BodyPiece();
    piece.failed = true;
  }
  return piece;
}

}  // namespace nvxcore
