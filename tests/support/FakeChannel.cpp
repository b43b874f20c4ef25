#include "support/FakeChannel.h"

#include <gtest/gtest.h>

ChannelWriteFn FakeChannel::writer() {
    return [this](char* data, int size) {
        {
            const std::lock_guard lock(m_mutex);
            m_writes.emplace_back(data, data + size);
        }
        m_written.notify_all();
        return m_result.load();
    };
}

ChannelWriteFn FakeChannel::wholeWriter() {
    return [write = writer()](char* data, int size) {
        write(data, size);
        return size;
    };
}

MetricReportFn FakeChannel::metric() {
    return [this](int /*code*/, char* text, unsigned size) {
        const std::lock_guard lock(m_mutex);
        m_metrics.emplace_back(text, size > 0 ? size - 1 : 0);
        return 0;
    };
}

std::vector<FakeChannel::Message> FakeChannel::writes() const {
    const std::lock_guard lock(m_mutex);
    return m_writes;
}

FakeChannel::Message FakeChannel::onlyWrite() const {
    const std::lock_guard lock(m_mutex);
    EXPECT_EQ(m_writes.size(), 1U);
    return m_writes.empty() ? Message{} : m_writes.front();
}

std::vector<std::string> FakeChannel::metrics() const {
    const std::lock_guard lock(m_mutex);
    return m_metrics;
}

void FakeChannel::clear() {
    const std::lock_guard lock(m_mutex);
    m_writes.clear();
    m_metrics.clear();
}

bool FakeChannel::waitFor(const std::function<bool(const std::vector<Message>&)>& done,
                          std::chrono::seconds limit) const {
    std::unique_lock lock(m_mutex);
    return m_written.wait_for(lock, limit, [&] { return done(m_writes); });
}

bool FakeChannel::waitForWrites(std::size_t count) const {
    return waitFor([count](const auto& writes) { return writes.size() >= count; });
}
