// The bounds-checked primitives. Reentrant.
#include "ZBoundsChecked.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {
constexpr std::size_t kMaxSize = 0x7FFFFFFF;

enum Code : int {
    kOk = 0,
    kDstNull = 22,
    kBadSize = 34,
    kSrcNull = 150,
    kCountTooLarge = 162,
    kOverlap = 182,
};

bool isValidSize(std::size_t size) {
    return size >= 1 && size <= kMaxSize;
}

int cleared(void* dst, std::size_t dstSize, Code code) {
    std::memset(dst, 0, dstSize);
    return code;
}

// The tests that memcpy_s and memmove_s share.
int checkCopy(void* dst, std::size_t dstSize, const void* src, std::size_t count) {
    if (!isValidSize(dstSize)) return kBadSize;
    if (dst == nullptr) return kDstNull;
    if (src == nullptr) return cleared(dst, dstSize, kSrcNull);
    if (count > dstSize) return cleared(dst, dstSize, kCountTooLarge);
    return kOk;
}

bool overlaps(const void* a, const void* b, std::size_t count) {
    const auto first = reinterpret_cast<std::uintptr_t>(a);
    const auto second = reinterpret_cast<std::uintptr_t>(b);
    return first < second ? second - first < count : first - second < count;
}

// The characters written, or a negative number if the text does not fit or cannot be formatted.
[[gnu::format(printf, 3, 0)]] int SecVsnprintfImpl(char* dst, std::size_t dstSize,
                                                   const char* format, std::va_list args) {
    const int length = std::vsnprintf(dst, dstSize, format, args);
    return length < 0 || static_cast<std::size_t>(length) >= dstSize ? -1 : length;
}
}  // namespace

int memcpy_s(void* dst, std::size_t dstSize, const void* src, std::size_t count) {
    if (const int code = checkCopy(dst, dstSize, src, count); code != kOk) return code;
    if (src == dst || count == 0) return kOk;
    if (overlaps(dst, src, count)) return cleared(dst, dstSize, kOverlap);
    std::memcpy(dst, src, count);
    return kOk;
}

int memmove_s(void* dst, std::size_t dstSize, const void* src, std::size_t count) {
    if (const int code = checkCopy(dst, dstSize, src, count); code != kOk) return code;
    std::memmove(dst, src, count);
    return kOk;
}

int memset_s(void* dst, std::size_t dstSize, int value, std::size_t count) {
    if (dst != nullptr && dstSize <= kMaxSize && count <= dstSize) {
        std::memset(dst, value, count);
        return kOk;
    }
    if (!isValidSize(dstSize)) return kBadSize;
    if (dst == nullptr) return kDstNull;
    std::memset(dst, value, dstSize);
    return kCountTooLarge;
}

int vsprintf_s(char* dst, std::size_t dstSize, const char* format, std::va_list args) {
    if (!isValidSize(dstSize) || dst == nullptr) return -1;
    const int length = format == nullptr ? -1 : SecVsnprintfImpl(dst, dstSize, format, args);
    if (length < 0) dst[0] = '\0';
    return length;
}

int sprintf_s(char* dst, std::size_t dstSize, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    const int length = vsprintf_s(dst, dstSize, format, args);
    va_end(args);
    return length;
}

int strcpy_s(char* dst, std::size_t dstSize, const char* src) {
    return memcpy_s(dst, dstSize, src, src == nullptr ? 0 : std::strlen(src) + 1);
}

// The compiler's own memcpy and memset already unroll short aligned blocks.
int memcpy_sOptAsm(void* dst, std::size_t dstSize, const void* src, std::size_t count) {
    return memcpy_s(dst, dstSize, src, count);
}

int memcpy_sOptTc(void* dst, std::size_t dstSize, const void* src, std::size_t count) {
    return memcpy_s(dst, dstSize, src, count);
}

int memset_sOptAsm(void* dst, std::size_t dstSize, int value, std::size_t count) {
    return memset_s(dst, dstSize, value, count);
}

int memset_sOptTc(void* dst, std::size_t dstSize, int value, std::size_t count) {
    return memset_s(dst, dstSize, value, count);
}
