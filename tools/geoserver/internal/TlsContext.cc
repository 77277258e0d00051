#include "tools/geoserver/internal/TlsContext.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace nvxcore::geoserver {
namespace {

constexpr std::string_view kHttp2AndHttp1("\x02h2\x08http/1.1", 12);
constexpr std::string_view kHttp1("\x08http/1.1", 9);

int selectProtocol(SSL*, const unsigned char** chosen, unsigned char* chosenLength,
                   const unsigned char* offered, unsigned int offeredLength, void* http2) {
  const std::string_view ours = *static_cast<bool*>(http2) ? kHttp2AndHttp1 : kHttp1;
  const int outcome = SSL_select_next_proto(const_cast<unsigned char**>(chosen), chosenLength,
                                            reinterpret_cast<const unsigned char*>(ours.data()),
                                            static_cast<unsigned int>(ours.size()), offered, offeredLength);
  return outcome == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

/// A process may leave while its server runs: OpenSSL must not go then.
SSL_CTX* newContext() {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  return SSL_CTX_new(TLS_server_method());
}

}  // namespace

TlsContext::TlsContext(const ServerOptions& options) : _context(newContext()), _http2(options.http2) {
  if (!_context) throw std::runtime_error("no TLS context");
  SSL_CTX* context = _context.get();
  const Identity authority = makeAuthority();
  const Identity server = makeServerIdentity(authority, options.certificate);
  if (options.onlyOutdatedTls) {
    // The versions before 1.2 sign with SHA-1, which only security level 0 still allows.
    SSL_CTX_set_security_level(context, 0);
    SSL_CTX_set_min_proto_version(context, TLS1_VERSION);
    SSL_CTX_set_max_proto_version(context, TLS1_1_VERSION);
  } else {
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  }
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                SSL_MODE_RELEASE_BUFFERS);
  SSL_CTX_set_alpn_select_cb(context, selectProtocol, &_http2);
  if (SSL_CTX_use_certificate(context, server.certificate.get()) != 1 ||
      SSL_CTX_use_PrivateKey(context, server.key.get()) != 1) {
    throw std::runtime_error("the TLS certificate was not taken");
  }
  writeCaFile(pemOf(authority.certificate.get()));
}

TlsContext::~TlsContext() {
  if (!_caFile.empty()) unlink(_caFile.c_str());
}

void TlsContext::writeCaFile(const std::string& pem) {
  const char* folder = std::getenv("TMPDIR");
  std::string path = std::string(folder && *folder ? folder : "/tmp") + "/geoserver-ca-XXXXXX.pem";
  const int file = mkstemps(path.data(), 4);
  if (file < 0) throw std::system_error(errno, std::generic_category(), path);
  const ssize_t written = write(file, pem.data(), pem.size());
  close(file);
  _caFile = path;
  if (written == static_cast<ssize_t>(pem.size())) return;
  unlink(path.c_str());
  throw std::runtime_error("could not write " + path);
}

}  // namespace nvxcore::geoserver
