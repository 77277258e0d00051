#pragma once

/// Names for clang's thread-safety analysis; empty elsewhere. The clang build treats its findings as errors.
#if defined(__clang__)
#define NVX_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define NVX_THREAD_ATTRIBUTE(x)
#endif

#define NVX_CAPABILITY(x) NVX_THREAD_ATTRIBUTE(capability(x))
#define NVX_SCOPED_CAPABILITY NVX_THREAD_ATTRIBUTE(scoped_lockable)
#define NVX_GUARDED_BY(x) NVX_THREAD_ATTRIBUTE(guarded_by(x))
#define NVX_PT_GUARDED_BY(x) NVX_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define NVX_REQUIRES(...) NVX_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define NVX_EXCLUDES(...) NVX_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define NVX_ACQUIRE(...) NVX_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define NVX_TRY_ACQUIRE(...) NVX_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define NVX_RELEASE(...) NVX_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NVX_NO_THREAD_SAFETY_ANALYSIS NVX_THREAD_ATTRIBUTE(no_thread_safety_analysis)
