// Copies and formatting with a destination size. These are the definitions of this system: they
// differ in their results from functions of the same names elsewhere.
//
// Result codes of all but sprintf_s and vsprintf_s:
//   0    success
//   22   destination null
//   34   destination size 0 or above 0x7FFFFFFF; the destination is untouched
//   150  source null; the whole destination is cleared
//   162  count above the destination size; the whole destination is cleared, or filled by memset_s
//   182  the regions overlap (memcpy_s); the whole destination is cleared
#pragma once

#include <cstdarg>
#include <cstddef>

#define ZFD_EXPORT __attribute__((visibility("default")))

extern "C" {

ZFD_EXPORT int memcpy_s(void* dst, std::size_t dstSize, const void* src, std::size_t count);
ZFD_EXPORT int memmove_s(void* dst, std::size_t dstSize, const void* src, std::size_t count);
ZFD_EXPORT int memset_s(void* dst, std::size_t dstSize, int value, std::size_t count);

// The characters written without the terminator, or -1 with an empty text if the result does not
// fit.
ZFD_EXPORT int sprintf_s(char* dst, std::size_t dstSize, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
ZFD_EXPORT int vsprintf_s(char* dst, std::size_t dstSize, const char* format, std::va_list args)
    __attribute__((format(printf, 3, 0)));

ZFD_EXPORT int strcpy_s(char* dst, std::size_t dstSize, const char* src);

// Variants for short blocks aligned to 8 bytes, with the contracts of memcpy_s and memset_s.
ZFD_EXPORT int memcpy_sOptAsm(void* dst, std::size_t dstSize, const void* src, std::size_t count);
ZFD_EXPORT int memcpy_sOptTc(void* dst, std::size_t dstSize, const void* src, std::size_t count);
ZFD_EXPORT int memset_sOptAsm(void* dst, std::size_t dstSize, int value, std::size_t count);
ZFD_EXPORT int memset_sOptTc(void* dst, std::size_t dstSize, int value, std::size_t count);
}

#undef ZFD_EXPORT
