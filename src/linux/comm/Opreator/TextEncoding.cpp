// Conversion between the UTF-8 of local paths and the UTF-16LE of the wire. Any thread: each call
// has a converter of its own.
#include "linux/comm/Opreator/FdCommon_linux.h"

#include <iconv.h>

#include <cstddef>

namespace {

class Converter {
public:
    Converter(const char* to, const char* from) : m_handle(iconv_open(to, from)) {}
    ~Converter() {
        if (isOpen()) iconv_close(m_handle);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool isOpen() const {
        const iconv_t failed = reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr)
        return m_handle != nullptr && m_handle != failed;
    }

    // Moves the four along as far as the conversion gets.
    std::size_t run(char** src, std::size_t* srcLeft, char** dst, std::size_t* dstLeft) {
        return iconv(m_handle, src, srcLeft, dst, dstLeft);
    }

private:
    iconv_t m_handle;
};

int convert(const char* to, const char* from, char* dst, int dstSize, char* src, int srcSize) {
    if (dst == nullptr || src == nullptr || dstSize < 0 || srcSize < 0) return -1;

    Converter converter(to, from);
    if (!converter.isOpen()) return -1;

    auto srcLeft = static_cast<std::size_t>(srcSize);
    auto dstLeft = static_cast<std::size_t>(dstSize);
    const auto result = static_cast<int>(converter.run(&src, &srcLeft, &dst, &dstLeft));

    // Kept: a count of irreversible conversions goes out in place of the byte count.
    return result != 0 ? result : dstSize - static_cast<int>(dstLeft);
}

}  // namespace

int utf8ToUtf16L(char* dst, int dstSize, char* src, int srcSize) {
    return convert("UTF-16LE", "UTF-8", dst, dstSize, src, srcSize);
}

int utf16LToUtf8(char* dst, int dstSize, char* src, int srcSize) {
    return convert("UTF-8", "UTF-16LE", dst, dstSize, src, srcSize);
}
