#include "nvxcore/platform/Platform.h"

#include <utility>

#include "nvxcore/platform/internal/PlatformRuntime.h"

namespace nvxcore {

bool Platform::install(Platform platform) { return PlatformRuntime::choose(std::move(platform)); }

const Platform& Platform::current() { return PlatformRuntime::current().platform(); }

RuntimeSnapshot takeRuntimeSnapshot() { return PlatformRuntime::current().snapshot(); }

size_t maximumThreadCount() { return PlatformRuntime::current().maximumThreadCount(); }

}  // namespace nvxcore
