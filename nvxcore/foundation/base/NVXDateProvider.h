#pragma once

#include <memory>

#include "nvxcore/platform/Date.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

/// The source of dates for logic. Any thread.
class NVXCORE_EXPORT NVXDateProvider {
 public:
  virtual ~NVXDateProvider() = default;
  virtual Date currentDate() = 0;
  virtual Date dateWithTimeIntervalSinceNow(TimeInterval seconds) = 0;
  /// Seconds from 2001-01-01 UTC to now.
  virtual TimeInterval timeIntervalSinceReferenceDate() = 0;
  virtual Date distantFuture() = 0;
  virtual Date distantPast() = 0;
};

/// Dates of the threading seam's wall clock.
class NVXCORE_EXPORT NVXSystemDateProvider : public NVXDateProvider {
 public:
  /// A new one at each call.
  static std::shared_ptr<NVXSystemDateProvider> systemDateProvider();
  Date currentDate() override;
  Date dateWithTimeIntervalSinceNow(TimeInterval seconds) override;
  TimeInterval timeIntervalSinceReferenceDate() override;
  Date distantFuture() override;
  Date distantPast() override;
};

}  // namespace nvxcore
