#include "fdshare/Log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "ZLogger.h"
#include "peer/Text.h"

namespace host {

namespace {

constexpr int kSilent = 0;  // below every level

std::atomic<int> g_level{kSilent};

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

// The plug-in calls it an error when the other side asks for a file that is not there, so nothing
// of its log is shown unasked.
void setUpLog(int verbosity) {
    g_level =
        verbosity < 1 ? kSilent : std::min(ZLOG_LEVEL_ERROR + verbosity, int{ZLOG_LEVEL_DEBUG});
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
