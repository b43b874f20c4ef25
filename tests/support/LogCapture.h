// Collects what is logged while it lives, at every level.
#pragma once

#include <algorithm>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "ZLogger.h"

struct LogLine {
    int level;
    std::string message;
    bool operator==(const LogLine&) const = default;
};

// How a failed expectation shows a line.
inline void PrintTo(const LogLine& line, std::ostream* out) {
    *out << line.level << " \"" << line.message << '"';
}

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    int count(int level, const std::string& message) const;
    bool has(int level, const std::string& message) const { return count(level, message) > 0; }

    // Whether a line of that level contains `part`.
    bool contains(int level, const std::string& part) const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};
