// Collects what is logged while it lives, at every level.
#pragma once

#include <algorithm>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
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

// A pointer as the log shows it.
std::string pointerText(const void* pointer);

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    int count(int level, const std::string& message) const;
    bool has(int level, const std::string& message) const { return count(level, message) > 0; }

    // Whether these lines were logged in this order, whatever stands between them.
    bool hasInOrder(const std::vector<LogLine>& lines) const;

    // Whether a line of that level contains `part`.
    bool contains(int level, const std::string& part) const;
    void clear();

    // Called for each line once it is kept, on the thread that logs. Set before that thread starts.
    void onLine(std::function<void(const LogLine&)> hook) { m_hook = std::move(hook); }

private:
    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
    std::function<void(const LogLine&)> m_hook;
};
