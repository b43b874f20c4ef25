#include "fdmount/Progress.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "peer/Text.h"

namespace fdmount {

namespace {
constexpr std::chrono::milliseconds kFirst{500};
constexpr std::chrono::milliseconds kEach{200};
}  // namespace

Progress::Progress(std::string name, std::int64_t total, bool quiet)
    : m_name(peer::escaped(name)),
      m_total(total),
      m_shown(!quiet && ::isatty(STDERR_FILENO) != 0),
      m_start(Clock::now()),
      m_next(m_start + kFirst) {}

Progress::~Progress() {
    if (m_drawn) std::fputs("\r\033[K", stderr);
}

void Progress::at(std::int64_t done) {
    if (!m_shown) return;
    const auto now = Clock::now();
    if (now < m_next) return;
    m_next = now + kEach;
    m_drawn = true;

    const double seconds = std::chrono::duration<double>(now - m_start).count();
    const auto rate = static_cast<std::uint64_t>(static_cast<double>(done) / seconds);
    std::string text = m_name + "  " + sizeText(static_cast<std::uint64_t>(done));
    if (m_total > 0) {
        text += " of " + sizeText(static_cast<std::uint64_t>(m_total)) + "  " +
                std::to_string(done * 100 / m_total) + "%";
    }
    std::fprintf(stderr, "\r%s  %s/s\033[K", text.c_str(), sizeText(rate).c_str());
    std::fflush(stderr);
}

std::string sizeText(std::uint64_t bytes) {
    static constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1024 && unit + 1 < std::size(kUnits)) {
        value /= 1024;
        ++unit;
    }
    char text[48];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
    return text;
}

}  // namespace fdmount
