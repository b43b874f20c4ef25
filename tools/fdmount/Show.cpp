#include "fdmount/Show.h"

#include <unistd.h>

#include <ctime>

#include "peer/Text.h"

namespace fdmount {

namespace {

char kindOf(std::uint32_t mode) {
    switch (mode & peer::windows::kModeTypeMask) {
        case 0x1000:
            return 'p';
        case 0x2000:
            return 'c';
        case 0x4000:
            return 'd';
        case 0x6000:
            return 'b';
        case 0x8000:
            return '-';
        case 0xA000:
            return 'l';
        case 0xC000:
            return 's';
        default:
            return '?';
    }
}

}  // namespace

std::string modeText(std::uint32_t mode) {
    std::string text(1, kindOf(mode));
    static constexpr char kLetters[] = "rwxrwxrwx";
    for (unsigned i = 0; i < 9; ++i) {
        text.push_back((mode >> (8 - i) & 1U) != 0 ? kLetters[i] : '-');
    }
    return text;
}

std::string attributesText(std::uint32_t mode) {
    struct Attribute {
        std::uint32_t bit;
        char letter;
    };
    static constexpr Attribute kAttributes[] = {{0x00010000, 'R'}, {0x00020000, 'H'},
                                                {0x00040000, 'S'}, {0x00100000, 'D'},
                                                {0x00200000, 'A'}, {0x04000000, 'L'}};
    std::string text;
    for (const auto& [bit, letter] : kAttributes) text.push_back((mode & bit) != 0 ? letter : '-');
    return text;
}

std::string timeText(std::int64_t nanoseconds) {
    constexpr std::int64_t kSecond = 1'000'000'000;
    std::int64_t seconds = nanoseconds / kSecond;
    if (nanoseconds % kSecond < 0) --seconds;
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
