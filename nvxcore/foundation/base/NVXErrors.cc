#include "nvxcore/foundation/base/NVXErrors.h"

#include <utility>

#include "nvxcore/platform/URLErrors.h"
#include "nvxcore/platform/Value.h"

namespace nvxcore {

std::string NVXCreateDomainForClass(std::string_view className) {
  return "com.ovrasoft.Atlas." + std::string(className);
}

Error NVXMakeClassError(std::string_view className, int64_t code, Dictionary userInfo) {
  return Error(NVXCreateDomainForClass(className), code, std::move(userInfo));
}

bool NVXIsErrorFromClass(const Error& error, std::string_view className) {
  return error && error.domain() == NVXCreateDomainForClass(className);
}

bool NVXIsOfflineError(const Error& error) {
  return error &&
         (error.code() == kURLErrorNetworkConnectionLost || error.code() == kURLErrorNotConnectedToInternet);
}

Error NVXx_WKRTMakeClassError(std::string_view className, int64_t code, Dictionary userInfo) {
  return Error("com.ovrasoft." + std::string(className), code, std::move(userInfo));
}

}  // namespace nvxcore
