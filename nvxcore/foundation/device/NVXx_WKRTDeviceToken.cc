#include "nvxcore/foundation/device/NVXx_WKRTDeviceToken.h"

#include <string_view>

#include "nvxcore/platform/Digest.h"
#include "nvxcore/transport/transforms/NVXx_HTKStringEncoding.h"

namespace nvxcore {

Data NVXx_WKRTComputeUserDeviceToken(const char* first, const char* second) {
  constexpr std::string_view kPlateMark = "QRSTLedgerPlateMark";
  const SHA256Digest digest = sha256({first ? first : "", second ? second : "", kPlateMark});
  return Data::copy(digest.data(), digest.size());
}

std::string NVXx_WKRTComputeClientInstanceId(const char* first, const char* second) {
  static const auto& encoding = *new NVXx_HTKStringEncodingRef(NVXx_HTKStringEncoding::hexStringEncoding());
  std::string text = encoding->encode(NVXx_WKRTComputeUserDeviceToken(first, second)).value_or("");
  for (char& c : text) {
    if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

}  // namespace nvxcore
