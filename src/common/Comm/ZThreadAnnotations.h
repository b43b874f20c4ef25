// Which lock guards what, for clang's thread-safety analysis. Other compilers see nothing.
#pragma once

#if defined(__clang__)
#define Z_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define Z_THREAD_ATTRIBUTE(x)
#endif

#define Z_CAPABILITY(name) Z_THREAD_ATTRIBUTE(capability(name))
#define Z_SCOPED_CAPABILITY Z_THREAD_ATTRIBUTE(scoped_lockable)
#define Z_GUARDED_BY(mutex) Z_THREAD_ATTRIBUTE(guarded_by(mutex))
#define Z_REQUIRES(...) Z_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define Z_EXCLUDES(...) Z_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define Z_ACQUIRE(...) Z_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define Z_RELEASE(...) Z_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define Z_NO_ANALYSIS Z_THREAD_ATTRIBUTE(no_thread_safety_analysis)
