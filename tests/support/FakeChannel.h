// The host's side of the channel: keeps every write, and fails on request.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"

class FakeChannel {
public:
    using Message = std::vector<char>;

    ChannelWriteFn writer();

    // As writer(), but says of each message that all of it was written.
    ChannelWriteFn wholeWriter();

    // A metric callable that keeps the texts.
    MetricReportFn metric();

    std::vector<Message> writes() const;
    Message onlyWrite() const;  // fails the test unless there is exactly one
    std::vector<std::string> metrics() const;
    void clear();

    // Blocks until `done` holds for the writes so far. False after `limit`.
    bool waitFor(const std::function<bool(const std::vector<Message>&)>& done,
                 std::chrono::seconds limit = std::chrono::seconds(20)) const;
    bool waitForWrites(std::size_t count) const;

    std::atomic<int> m_result{0};  // what the write callable returns

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_written;
    std::vector<Message> m_writes;
    std::vector<std::string> m_metrics;
};
