// Path and name text: separators, last components, display names. Any thread, on buffers of its
// own.
#include "linux/comm/Opreator/FdCommon_linux.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"

namespace {

constexpr std::size_t kComponentBufferSize = 1024;

// The first `size` bytes of `s`, or fewer if its terminator stands before.
std::string_view boundedText(const char* s, int size) {
    if (s == nullptr) return {};
    return {s, strnlen(s, static_cast<std::size_t>(std::max(size, 0)))};
}

bool copyComponent(char* dst, std::size_t limit, const char* src, std::size_t length) {
    if (memcpy_s(dst, limit, src, length) == 0) return true;
    FD_LOG_ERROR("memcpy_s failed");
    return false;
}

// Copies with `from` turned into `to`. A full `dst` gets no terminator: nothing is written behind
// it.
int exchangeSeparators(char* dst, int dstSize, const char* src, int srcLength, char from, char to) {
    const auto room = static_cast<std::size_t>(std::max(dstSize, 0));
    const std::string_view text = boundedText(src, srcLength);
    std::fill_n(dst, room, '\0');
    std::replace_copy(text.begin(), text.end(), dst, from, to);
    return srcLength;  // Kept: also when the text was shorter
}

char foldAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool adjustStr(char* s, int size) {
    std::replace(s, s + boundedText(s, size).size(), '-', ' ');
    return true;
}

int getFolderNameByPath(char* path, int size, int length) {
    if (path == nullptr || length < 0 || length >= size || getRootFlagByPath(path)) return -1;

    const std::size_t slash = boundedText(path, length).rfind('/');
    if (slash == std::string_view::npos) return -2;

    // Kept: the name runs on to the end of the text, even where `length` ends before it.
    const char* const name = path + slash + 1;
    const std::size_t nameLength = strnlen(name, kComponentBufferSize);
    if (nameLength >= kComponentBufferSize) return -1;

    char component[kComponentBufferSize] = {};
    if (!copyComponent(component, sizeof(component), name, nameLength)) return -1;

    const auto room = static_cast<std::size_t>(size);
    std::fill_n(path, room, '\0');
    if (nameLength >= room) return -1;
    if (!copyComponent(path, room - 1, component, nameLength)) return -1;
    return static_cast<int>(nameLength);
}

bool getRootFlagByPath(const char* path) {
    return path != nullptr && std::strcmp(path, kRootPath) == 0;
}

bool isAllAsciiChar(const char* s, int size) {
    if (s == nullptr) return false;
    const std::string_view text = boundedText(s, size);
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return (static_cast<unsigned char>(c) & 0x80U) == 0; });
}

int winPath2LinuxPath(char* dst, int dstSize, const char* src, int srcLength) {
    if (dst == nullptr || src == nullptr || dstSize < 0 || dstSize < srcLength) return -1;
    return exchangeSeparators(dst, dstSize, src, srcLength, '\\', '/');
}

int linuxPath2WinPath(char* dst, int dstSize, const char* src, int srcLength) {
    if (dst == nullptr || src == nullptr || dstSize < srcLength) return -1;
    return exchangeSeparators(dst, dstSize, src, srcLength, '/', '\\');
}

int compareIgnoreCase(const char* a, const char* b) {
    if (a == b) return 0;
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;

    const std::string_view first(a);
    const std::string_view second(b);
    if (first.size() != second.size()) {
        return static_cast<int>(first.size()) - static_cast<int>(second.size());
    }
    for (std::size_t i = 0; i < first.size(); ++i) {
        const int difference = static_cast<signed char>(foldAscii(first[i])) -
                               static_cast<signed char>(foldAscii(second[i]));
        if (difference != 0) return difference;
    }
    return 0;
}

bool starts_with(const std::string& s, const std::string& prefix) {
    return s.starts_with(prefix);
}

bool ends_with(const std::string& s, const std::string& suffix) {
    // Kept: compared before any test of the lengths, so a longer suffix throws.
    return &s == &suffix || s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

char* getMountPointFolder(const char* path) {
    if (path == nullptr) return nullptr;
    const char* const slash = std::strrchr(path, '/');
    const char* const name = slash == nullptr ? path : slash + 1;
    if (*name == '\0') return nullptr;
    return strdup(*name == '.' ? "Root" : name);  // hidden names share it with the root
}

char* getMountPointPath(const char* path) {
    return path == nullptr ? nullptr : strdup(path);
}

bool isRootPath(const char* path) {
    return *path == '\0';
}
