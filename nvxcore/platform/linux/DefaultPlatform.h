#pragma once

#include "nvxcore/platform/Platform.h"

namespace nvxcore {

/// `chosen`, with the real implementations where it is empty; the main loop stays as it is.
Platform completedPlatform(Platform chosen);

}  // namespace nvxcore
