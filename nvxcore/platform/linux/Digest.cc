#include "nvxcore/platform/Digest.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <memory>
#include <string>

#include "nvxcore/platform/internal/Fault.h"

namespace nvxcore {

namespace {

void require(bool done) {
  if (!done) fault("OpenSSL gives no digest");
}

}  // namespace

SHA1Digest hmacSHA1(std::string_view key, std::initializer_list<std::string_view> parts) {
  std::string bytes;
  for (std::string_view part : parts) bytes += part;
  SHA1Digest digest;
  unsigned length = digest.size();
  require(::HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
                 reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data(), &length));
  return digest;
}

SHA256Digest sha256(std::initializer_list<std::string_view> parts) {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  SHA256Digest digest;
  require(context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr));
  for (std::string_view part : parts) require(EVP_DigestUpdate(context.get(), part.data(), part.size()));
  require(EVP_DigestFinal_ex(context.get(), digest.data(), nullptr));
  return digest;
}

}  // namespace nvxcore
