#pragma once

#include <compare>

#include "nvxcore/platform/TimeInterval.h"

namespace nvxcore {

/// A moment, kept as seconds since 2001-01-01 00:00:00 UTC.
class Date {
 public:
  static constexpr TimeInterval kReferenceDateSince1970 = 978307200.0;

  constexpr Date() = default;
  static constexpr Date withTimeIntervalSinceReferenceDate(TimeInterval seconds) { return Date(seconds); }
  static constexpr Date withTimeIntervalSince1970(TimeInterval seconds) {
    return Date(seconds - kReferenceDateSince1970);
  }
  static constexpr Date distantPast() { return Date(-63114076800.0); }
  static constexpr Date distantFuture() { return Date(63113904000.0); }

  constexpr TimeInterval timeIntervalSinceReferenceDate() const { return _seconds; }
  constexpr TimeInterval timeIntervalSince1970() const { return _seconds + kReferenceDateSince1970; }
  constexpr TimeInterval timeIntervalSinceDate(Date other) const { return _seconds - other._seconds; }
  constexpr Date addingTimeInterval(TimeInterval seconds) const { return Date(_seconds + seconds); }

  friend constexpr auto operator<=>(Date a, Date b) = default;

 private:
  constexpr explicit Date(TimeInterval seconds) : _seconds(seconds) {}
  TimeInterval _seconds = 0;
};

}  // namespace nvxcore
