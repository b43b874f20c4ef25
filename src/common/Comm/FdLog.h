// One macro a level over the host's logger. A record above the level that is set is dropped before
// anything is formatted; the format is checked against its arguments at compile time.
#pragma once

#include "ZLogger.h"

namespace fdlog {
[[gnu::format(printf, 1, 2)]] inline void checkFormat(const char* /*format*/, ...) {}
}  // namespace fdlog

#define FD_LOG_AS(tag, level, ...)                                                              \
    do {                                                                                        \
        if (false) fdlog::checkFormat(__VA_ARGS__);                                             \
        ZLogger::GetInstance()->Log(__FILE__, __LINE__, __func__, tag, "", level, __VA_ARGS__); \
    } while (false)

#define FD_LOG(level, ...) FD_LOG_AS(" [ZFdClientMgr] ", level, __VA_ARGS__)

#define FD_LOG_ERROR(...) FD_LOG(ZLOG_LEVEL_ERROR, __VA_ARGS__)
#define FD_LOG_WARN(...) FD_LOG(ZLOG_LEVEL_WARNING, __VA_ARGS__)
#define FD_LOG_INFO(...) FD_LOG(ZLOG_LEVEL_INFO, __VA_ARGS__)
#define FD_LOG_DEBUG(...) FD_LOG(ZLOG_LEVEL_DEBUG, __VA_ARGS__)
