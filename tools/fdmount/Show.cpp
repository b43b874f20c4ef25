#include "fdmount/Show.h"

#include <unistd.h>

#include <ctime>

#include "peer/Text.h"

namespace fdmount {

namespace {

struct Kind {
    std::uint32_t type;  // of a mode
    char letter;
    const char* text;
};

constexpr std::uint32_t kTypeMask = 0170000;
constexpr Kind kKinds[] = {{0010000, 'p', "FIFO"},         {0020000, 'c', "character device"},
                           {0040000, 'd', "directory"},    {0060000, 'b', "block device"},
                           {0100000, '-', "regular file"}, {0120000, 'l', "symbolic link"},
                           {0140000, 's', "socket"}};

Kind kindOf(std::uint32_t mode) {
    for (const Kind& kind : kKinds) {
        if (kind.type == (mode & kTypeMask)) return kind;
    }
    return {0, '?', "?"};
}

}  // namespace

const char* kindText(std::uint32_t mode) {
    return kindOf(mode).text;
}

std::string modeText(std::uint32_t mode) {
    std::string text(1, kindOf(mode).letter);
    static constexpr char kLetters[] = "rwxrwxrwx";
    for (unsigned i = 0; i < 9; ++i) {
        text.push_back((mode >> (8 - i) & 1U) != 0 ? kLetters[i] : '-');
    }
    return text;
}

std::string attributesText(std::uint32_t windowsAttributes) {
    struct Attribute {
        std::uint32_t bit;
        char letter;
    };
    static constexpr Attribute kAttributes[] = {{0x1, 'R'},  {0x2, 'H'},  {0x4, 'S'},
                                                {0x10, 'D'}, {0x20, 'A'}, {0x400, 'L'}};
    std::string text;
    for (const auto& [bit, letter] : kAttributes) {
        text.push_back((windowsAttributes & bit) != 0 ? letter : '-');
    }
    return text;
}

std::string timeText(peer::Time nanoseconds) {
    std::int64_t seconds = nanoseconds / peer::kSecond;
    if (nanoseconds % peer::kSecond < 0) --seconds;
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[40];
    if (::localtime_r(&time, &parts) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return "?";
    }
    return text;
}

std::string nameText(const std::string& name) {
    return ::isatty(STDOUT_FILENO) != 0 ? peer::quoted(name) : name;
}

}  // namespace fdmount
