// Makes the certificates that a server needs for TLS.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

#include "tools/geoserver/ServerOptions.h"

namespace nvxcore::geoserver {

template <auto Free>
struct OpensslDeleter {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, OpensslDeleter<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, OpensslDeleter<X509_free>>;

struct Identity {
  KeyPtr key;
  CertificatePtr certificate;
};

// A self-signed certificate authority.
Identity makeAuthority();
// A server's certificate, signed by that authority.
Identity makeServerIdentity(const Identity& authority, CertificateKind kind);
std::string pemOf(X509* certificate);

}  // namespace nvxcore::geoserver
