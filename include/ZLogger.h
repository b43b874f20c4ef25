// The log of the host application. The plug-in writes through it; a host that brings a library of
// its own with these symbols replaces the one built here.
#pragma once

#include <functional>
#include <string_view>

enum ZLogLevel : int {
    ZLOG_LEVEL_ERROR = 1,
    ZLOG_LEVEL_WARNING = 2,
    ZLOG_LEVEL_INFO = 3,
    ZLOG_LEVEL_DEBUG = 4
};

// One log line. The pointers and the message are valid during the call of the sink only.
struct ZLogRecord {
    const char* file;
    int line;
    const char* function;
    const char* tag;
    const char* text;
    int level;
    std::string_view message;
};

// Every operation may be called from any thread at any time.
class __attribute__((visibility("default"))) ZLogger {
public:
    // May be called from several threads at once.
    using Sink = std::function<void(const ZLogRecord& record)>;

    static ZLogger* GetInstance();

    // Formats as printf does and hands the record to the sink, unless `level` is above the level
    // set.
    void Log(const char* file, int line, const char* function, const char* tag, const char* text,
             int level, const char* format, ...);

    // An empty sink restores the default: one line a record on standard error. The sink that was
    // replaced is never called after this has returned.
    void SetSink(Sink sink);

    // Records above the level are dropped before they are formatted. Default: ZLOG_LEVEL_WARNING.
    void SetLevel(int level);
};
