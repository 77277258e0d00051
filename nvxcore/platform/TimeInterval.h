#pragma once

namespace nvxcore {

/// A span of time in seconds.
using TimeInterval = double;

}  // namespace nvxcore
