// Which sanitizer this program is built with.
#pragma once

// The thread sanitizer keeps several bytes of its own for each byte of memory and clears them when
// memory is taken: a buffer of gigabytes that nobody touches takes it seconds.
#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
#else
constexpr bool kThreadSanitizer = false;
#endif
