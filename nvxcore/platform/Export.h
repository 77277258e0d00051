#pragma once

/// Marks what the shared library exports; everything else is hidden.
#if defined(NVXCORE_STATIC)
#define NVXCORE_EXPORT
#else
#define NVXCORE_EXPORT __attribute__((visibility("default")))
#endif
