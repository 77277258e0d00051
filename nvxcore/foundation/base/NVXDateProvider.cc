#include "nvxcore/foundation/base/NVXDateProvider.h"

#include "nvxcore/platform/Platform.h"
#include "nvxcore/platform/Threading.h"

namespace nvxcore {

std::shared_ptr<NVXSystemDateProvider> NVXSystemDateProvider::systemDateProvider() {
  return std::make_shared<NVXSystemDateProvider>();
}

Date NVXSystemDateProvider::currentDate() {
  return Date::withTimeIntervalSince1970(
      static_cast<double>(Platform::current().threading->wallClockNanos()) * 1e-9);
}

Date NVXSystemDateProvider::dateWithTimeIntervalSinceNow(TimeInterval seconds) {
  return currentDate().addingTimeInterval(seconds);
}

TimeInterval NVXSystemDateProvider::timeIntervalSinceReferenceDate() {
  return currentDate().timeIntervalSinceReferenceDate();
}

Date NVXSystemDateProvider::distantFuture() { return Date::distantFuture(); }
Date NVXSystemDateProvider::distantPast() { return Date::distantPast(); }

}  // namespace nvxcore
