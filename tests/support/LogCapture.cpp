#include "support/LogCapture.h"

#include <cstdio>

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

LogCapture::LogCapture() {
    ZLogger::GetInstance()->SetSink([this](const ZLogRecord& record) {
        const LogLine line{record.level, std::string(record.message)};
        {
            const std::lock_guard lock(m_mutex);
            m_lines.push_back(line);
        }
        if (m_hook) m_hook(line);
    });
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_DEBUG);
}

LogCapture::~LogCapture() {
    ZLogger::GetInstance()->SetSink({});
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_WARNING);
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard lock(m_mutex);
    return m_lines;
}

int LogCapture::count(int level, const std::string& message) const {
    const std::lock_guard lock(m_mutex);
    return static_cast<int>(std::ranges::count(m_lines, LogLine{level, message}));
}

bool LogCapture::hasInOrder(const std::vector<LogLine>& lines) const {
    const std::lock_guard lock(m_mutex);
    auto from = m_lines.begin();
    return std::ranges::all_of(lines, [&](const LogLine& line) {
        from = std::find(from, m_lines.end(), line);
        return from != m_lines.end() && from++ != m_lines.end();
    });
}

bool LogCapture::contains(int level, const std::string& part) const {
    const std::lock_guard lock(m_mutex);
    return std::ranges::any_of(m_lines, [&](const LogLine& line) {
        return line.level == level && line.message.find(part) != std::string::npos;
    });
}

void LogCapture::clear() {
    const std::lock_guard lock(m_mutex);
    m_lines.clear();
}
