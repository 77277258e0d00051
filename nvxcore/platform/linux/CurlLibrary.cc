#include "nvxcore/platform/linux/CurlLibrary.h"

#include <curl/curl.h>
#include <openssl/crypto.h>

#include <cstdlib>

#include "nvxcore/platform/linux/CurlIOThread.h"

namespace nvxcore {

void useCurlLibrary() {
  static const bool ready = [] {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    // A host that had set OpenSSL up before has it torn down when the process leaves, after this.
    std::atexit(&CurlIOThread::stopAll);
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  }();
  static_cast<void>(ready);
}

}  // namespace nvxcore
