// A non-blocking stream of bytes over a connected socket.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <string>

namespace nvxcore::geoserver {

enum class IoStatus { done, wantsRead, wantsWrite, end, failed };

struct IoResult {
  IoStatus status = IoStatus::done;
  size_t bytes = 0;
};

// Loop thread. Owns the socket, which the destructor closes.
class ByteStream {
 public:
  virtual ~ByteStream() = default;

  virtual int socket() const = 0;
  // Called until it is done or has failed, before the first read.
  virtual IoResult handshake() = 0;
  // The protocol that was agreed on in the handshake; empty when none was.
  virtual std::string protocol() const = 0;
  // With `done`, at least one byte. `end` is an orderly end by the peer.
  virtual IoResult read(char* destination, size_t capacity) = 0;
  // Whether a short read means that nothing is left to read for now.
  virtual bool shortReadIsLast() const = 0;
  // With `done`, some of the bytes were taken.
  virtual IoResult write(const iovec* pieces, int count) = 0;
  // Tells the peer that nothing more comes; `orderly` also in the words of the security layer, if there is
  // one.
  virtual void endOutput(bool orderly) = 0;
};

}  // namespace nvxcore::geoserver
