// How far a copy is, on a terminal's standard error. Nothing at all where that is no terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace fdmount {

class Progress {
public:
    // `total` below 0: not known.
    Progress(std::string name, std::int64_t total, bool quiet);

    // Takes its line away.
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void at(std::int64_t done);

private:
    using Clock = std::chrono::steady_clock;

    const std::string m_name;
    const std::int64_t m_total;
    const bool m_shown;
    const Clock::time_point m_start;
    Clock::time_point m_next;  // no line before: short copies stay silent
    bool m_drawn = false;
};

// "512 B", "1.5 MiB"
std::string sizeText(std::uint64_t bytes);

}  // namespace fdmount
