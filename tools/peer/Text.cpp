#include "peer/Text.h"

#include <algorithm>
#include <cstdint>

namespace peer {

namespace {

struct Character {
    std::uint32_t code = 0;
    std::size_t length = 0;  // 0: no UTF-8 here
};

// The character at the start of `text`. Takes surrogates, which strict UTF-8 has not.
Character firstOf(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) return {first, 1};

    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return {};
    std::uint32_t code = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) return {};
        code = code << 6 | (byte(i) & 0x3FU);
    }
    static constexpr std::uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kLeast[length] || code > 0x10FFFF) return {};
    return {code, length};
}

bool isSurrogate(std::uint32_t code) {
    return code >= 0xD800 && code <= 0xDFFF;
}

void appendUtf8(std::string& to, std::uint32_t code) {
    const auto tail = [&to, code](int shift) {
        to.push_back(static_cast<char>(0x80 | (code >> shift & 0x3F)));
    };
    if (code < 0x80) {
        to.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        to.push_back(static_cast<char>(0xC0 | code >> 6));
        tail(0);
    } else if (code < 0x10000) {
        to.push_back(static_cast<char>(0xE0 | code >> 12));
        tail(6);
        tail(0);
    } else {
        to.push_back(static_cast<char>(0xF0 | code >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

void appendOctal(std::string& to, unsigned char byte) {
    to.push_back('\\');
    for (const int shift : {6, 3, 0}) to.push_back(static_cast<char>('0' + (byte >> shift & 7)));
}

// Nothing that a terminal obeys, and no mark that turns the direction of the text around it.
bool isShown(std::uint32_t code) {
    if (code < 0x20 || (code >= 0x7F && code < 0xA0) || isSurrogate(code)) return false;
    return !(code >= 0x200E && code <= 0x200F) && !(code >= 0x2028 && code <= 0x202E) &&
           !(code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::optional<Bytes> utf16FromUtf8(std::string_view text) {
    Bytes units;
    units.reserve(text.size() * 2);
    while (!text.empty()) {
        const auto [code, length] = firstOf(text);
        if (length == 0) return std::nullopt;
        text.remove_prefix(length);
        if (code < 0x10000) {
            appendLe(units, static_cast<std::uint16_t>(code));
        } else {
            appendLe(units, static_cast<std::uint16_t>(0xD800 + ((code - 0x10000) >> 10)));
            appendLe(units, static_cast<std::uint16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

std::string utf8FromUtf16(View bytes) {
    std::string text;
    text.reserve(bytes.size());
    const std::size_t end = bytes.size() & ~std::size_t{1};
    for (std::size_t i = 0; i < end; i += 2) {
        std::uint32_t code = loadLe<std::uint16_t>(bytes.data() + i);
        if (code >= 0xD800 && code < 0xDC00 && i + 2 < end) {
            const std::uint32_t low = loadLe<std::uint16_t>(bytes.data() + i + 2);
            if (low >= 0xDC00 && low < 0xE000) {
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                i += 2;
            }
        }
        appendUtf8(text, code);
    }
    return text;
}

std::string escaped(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const auto [code, length] = firstOf(text);
        const std::size_t taken = std::max<std::size_t>(length, 1);
        if (code == '\n') {
            shown += "\\n";
        } else if (code == '\t') {
            shown += "\\t";
        } else if (code == '\\') {
            shown += "\\\\";
        } else if (length > 0 && isShown(code)) {
            shown += text.substr(0, taken);
        } else {
            for (const char byte : text.substr(0, taken)) {
                appendOctal(shown, static_cast<unsigned char>(byte));
            }
        }
        text.remove_prefix(taken);
    }
    return shown;
}

std::string quoted(std::string_view text) {
    std::string shown = escaped(text);
    const bool plain = !text.empty() && shown == text &&
                       text.find_first_of(" '\"`$&*?()[]{}<>|;~#!") == std::string_view::npos;
    if (plain) return shown;

    // A shell reads escapes in $'...' only.
    std::string result = shown == text ? "'" : "$'";
    for (const char c : shown) {
        if (c == '\'') {
            result += shown == text ? "'\\''" : "\\'";
        } else {
            result.push_back(c);
        }
    }
    return result + "'";
}

}  // namespace peer
