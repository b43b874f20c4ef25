// A small logger behind the interface of the host's own: a level, and one sink for all records.
#include "ZLogger.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {
const char* levelName(int level) {
    constexpr std::array<const char*, 5> kNames = {"?", "ERROR", "WARNING", "INFO", "DEBUG"};
    return level >= 1 && level <= 4 ? kNames[static_cast<std::size_t>(level)] : kNames[0];
}

// One write a record, so that lines of several threads stay whole.
void writeToStandardError(const ZLogRecord& record) {
    std::string line =
        std::string(levelName(record.level)) + record.tag + std::string(record.message);
    while (!line.empty() && line.back() == '\n') line.pop_back();
    std::ranges::replace(line, '\n', ' ');
    line += std::string(" (") + record.file + ":" + std::to_string(record.line) + " " +
            record.function + ")\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

struct ActiveSink {
    ZLogger::Sink sink;
    int users = 0;  // calls that are under way; guarded by State::mutex
};

struct State {
    std::atomic<int> level{ZLOG_LEVEL_WARNING};
    std::mutex mutex;
    std::condition_variable idle;
    std::shared_ptr<ActiveSink> active =
        std::make_shared<ActiveSink>(ActiveSink{writeToStandardError});
};

// Never destroyed: threads may log until the process has gone.
State& state() {
    static State* const instance = new State;
    return *instance;
}

// The sinks that this thread is inside of: a sink may log, or set another sink.
thread_local std::vector<const ActiveSink*> callStack;

class SinkUse {
public:
    SinkUse() {
        const std::lock_guard lock(state().mutex);
        m_active = state().active;
        ++m_active->users;
        callStack.push_back(m_active.get());
    }
    ~SinkUse() {
        const std::lock_guard lock(state().mutex);
        callStack.pop_back();
        --m_active->users;
        state().idle.notify_all();
    }
    SinkUse(const SinkUse&) = delete;
    SinkUse& operator=(const SinkUse&) = delete;

    void call(const ZLogRecord& record) const { m_active->sink(record); }

private:
    std::shared_ptr<ActiveSink> m_active;
};

// The text in `fixed` if it fits, else in `longer`.
[[gnu::format(printf, 1, 0)]] std::string_view formatted(const char* format, std::va_list args,
                                                         std::array<char, 1024>& fixed,
                                                         std::string& longer) {
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(fixed.data(), fixed.size(), format, args);
    std::string_view text(fixed.data(), static_cast<std::size_t>(std::max(length, 0)));
    if (length < 0) text = format;
    if (length >= static_cast<int>(fixed.size())) {
        longer.resize(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(longer.data(), longer.size(), format, again);
        longer.pop_back();
        text = longer;
    }
    va_end(again);
    return text;
}
}  // namespace

ZLogger* ZLogger::GetInstance() {
    static ZLogger instance;
    return &instance;
}

void ZLogger::Log(const char* file, int line, const char* function, const char* tag,
                  const char* text, int level, const char* format, ...) {
    if (level > state().level.load(std::memory_order_relaxed)) return;
    std::array<char, 1024> fixed;
    std::string longer;
    std::va_list args;
    va_start(args, format);
    const std::string_view message = formatted(format, args, fixed, longer);
    va_end(args);
    SinkUse().call({file, line, function, tag, text, level, message});
}

void ZLogger::SetSink(Sink sink) {
    if (!sink) sink = writeToStandardError;
    auto next = std::make_shared<ActiveSink>(ActiveSink{std::move(sink)});
    std::unique_lock lock(state().mutex);
    const std::shared_ptr<ActiveSink> old = std::exchange(state().active, std::move(next));
    const auto own = std::ranges::count(callStack, old.get());
    state().idle.wait(lock, [&] { return old->users <= own; });
}

void ZLogger::SetLevel(int level) {
    state().level.store(level, std::memory_order_relaxed);
}
