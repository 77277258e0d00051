#include "tools/geoserver/internal/Certificate.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace nvxcore::geoserver {
namespace {

constexpr long kDay = 24 * 60 * 60;
constexpr long kX509Version3 = 2;

void check(bool good, const char* what) {
  if (good) return;
  char text[256];
  ERR_error_string_n(ERR_get_error(), text, sizeof(text));
  throw std::runtime_error(std::string(what) + ": " + text);
}

void addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
  check(extension && X509_add_ext(certificate, extension, -1) == 1, "certificate extension");
  X509_EXTENSION_free(extension);
}

// A key and a certificate for it that is complete but for its issuer, extensions and signature.
Identity makeUnsigned(const char* commonName, long notBefore, long notAfter) {
  Identity made{KeyPtr(EVP_EC_gen("P-256")), CertificatePtr(X509_new())};
  check(made.key && made.certificate, "certificate");
  X509* certificate = made.certificate.get();
  uint64_t serial = 0;
  check(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof(serial)) == 1, "random serial");
  X509_set_version(certificate, kX509Version3);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), (serial >> 1) | 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), notBefore);
  X509_gmtime_adj(X509_getm_notAfter(certificate), notAfter);
  X509_set_pubkey(certificate, made.key.get());
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
  return made;
}

}  // namespace

Identity makeAuthority() {
  Identity authority = makeUnsigned("geoserver development authority", -kDay, 365 * kDay);
  X509* certificate = authority.certificate.get();
  X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
  addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
  check(X509_sign(certificate, authority.key.get(), EVP_sha256()) > 0, "signing");
  return authority;
}

Identity makeServerIdentity(const Identity& authority, CertificateKind kind) {
  const bool expired = kind == CertificateKind::expired;
  Identity server = makeUnsigned("geoserver", expired ? -3 * kDay : -kDay, expired ? -2 * kDay : 365 * kDay);
  X509* certificate = server.certificate.get();
  X509* issuer = authority.certificate.get();
  X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
  addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
  addExtension(certificate, issuer, NID_ext_key_usage, "serverAuth");
  addExtension(certificate, issuer, NID_authority_key_identifier, "keyid");
  addExtension(
      certificate, issuer, NID_subject_alt_name,
      kind == CertificateKind::wrongHost ? "DNS:elsewhere.invalid" : "DNS:localhost,IP:127.0.0.1,IP:::1");
  check(X509_sign(certificate, authority.key.get(), EVP_sha256()) > 0, "signing");
  return server;
}

std::string pemOf(X509* certificate) {
  const std::unique_ptr<BIO, OpensslDeleter<BIO_free_all>> memory(BIO_new(BIO_s_mem()));
  check(memory && PEM_write_bio_X509(memory.get(), certificate) == 1, "writing PEM");
  char* data = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &data);
  return {data, static_cast<size_t>(length)};
}

}  // namespace nvxcore::geoserver
