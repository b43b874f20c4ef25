#include "fdshare/Log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "ZLogger.h"
#include "peer/Text.h"

namespace host {

namespace {

std::atomic<int> g_level{ZLOG_LEVEL_ERROR};

const char* nameOf(int level) {
    switch (level) {
        case ZLOG_LEVEL_ERROR:
            return "error: ";
        case ZLOG_LEVEL_WARNING:
            return "warning: ";
        case ZLOG_LEVEL_INFO:
            return "info: ";
        default:
            return "debug: ";
    }
}

// In one write, so that the lines of several threads stay whole.
void writeLine(std::string_view kind, std::string_view text) {
    while (text.ends_with('\n')) text.remove_suffix(1);
    const std::string line =
        "fdshare: " + std::string(kind) + peer::escaped(text) + "\n";  // it holds names from afar
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

void setUpLog(int verbosity) {
    g_level =
        std::clamp(ZLOG_LEVEL_ERROR + verbosity, int{ZLOG_LEVEL_ERROR}, int{ZLOG_LEVEL_DEBUG});
    ZLogger::GetInstance()->SetLevel(g_level);
    ZLogger::GetInstance()->SetSink(
        [](const ZLogRecord& record) { writeLine(nameOf(record.level), record.message); });
}

void say(std::string_view text) {
    writeLine("", text);
}

void sayInfo(std::string_view text) {
    if (g_level >= ZLOG_LEVEL_INFO) writeLine("", text);
}

}  // namespace host
