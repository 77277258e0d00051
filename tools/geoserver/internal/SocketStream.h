// The plain ByteStream.
#pragma once

#include "tools/geoserver/internal/ByteStream.h"

namespace nvxcore::geoserver {

class SocketStream final : public ByteStream {
 public:
  explicit SocketStream(int socket) : _socket(socket) {}
  ~SocketStream() override;
  SocketStream(const SocketStream&) = delete;
  SocketStream& operator=(const SocketStream&) = delete;

  int socket() const override { return _socket; }
  IoResult handshake() override { return {}; }
  std::string protocol() const override { return {}; }
  IoResult read(char* destination, size_t capacity) override;
  bool shortReadIsLast() const override { return true; }
  IoResult write(const iovec* pieces, int count) override;
  void endOutput(bool orderly) override;

 private:
  const int _socket;
};

}  // namespace nvxcore::geoserver
