// The ByteStream over TLS.
#pragma once

#include <openssl/ssl.h>

#include <memory>

#include "tools/geoserver/internal/ByteStream.h"
#include "tools/geoserver/internal/TlsContext.h"

namespace nvxcore::geoserver {

class TlsStream final : public ByteStream {
 public:
  TlsStream(const TlsContext& context, int socket);
  ~TlsStream() override;
  TlsStream(const TlsStream&) = delete;
  TlsStream& operator=(const TlsStream&) = delete;

  int socket() const override { return _socket; }
  IoResult handshake() override;
  std::string protocol() const override;
  IoResult read(char* destination, size_t capacity) override;
  bool shortReadIsLast() const override { return false; }
  IoResult write(const iovec* pieces, int count) override;
  void endOutput(bool orderly) override;

 private:
  IoResult resultOf(int returned) const;

  const int _socket;
  std::unique_ptr<SSL, OpensslDeleter<SSL_free>> _ssl;
  bool _failed = false;
};

}  // namespace nvxcore::geoserver
