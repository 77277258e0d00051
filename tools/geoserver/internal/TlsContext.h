// A server's TLS set-up: its certificate, made at start, and what it agrees to.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "tools/geoserver/ServerOptions.h"
#include "tools/geoserver/internal/Certificate.h"

namespace nvxcore::geoserver {

class TlsContext {
 public:
  explicit TlsContext(const ServerOptions& options);
  ~TlsContext();
  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  SSL_CTX* context() const { return _context.get(); }
  // The PEM file of the authority, which is removed with this object.
  const std::string& caFile() const { return _caFile; }

 private:
  void writeCaFile(const std::string& pem);

  std::unique_ptr<SSL_CTX, OpensslDeleter<SSL_CTX_free>> _context;
  bool _http2;
  std::string _caFile;
};

}  // namespace nvxcore::geoserver
