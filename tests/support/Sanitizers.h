// Which sanitizer this program is built with.
#pragma once

#ifndef __has_feature
#define __has_feature(name) 0
#endif

// A sanitizer keeps bytes of its own for those of memory and sets them when memory is taken: a
// buffer of gigabytes that nobody touches takes it seconds. The thread sanitizer is the slower one.
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr bool kSanitizer = true;
#else
constexpr bool kSanitizer = kThreadSanitizer;
#endif
