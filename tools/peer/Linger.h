// A moment of patience before a thread goes to sleep: the other side answers most requests at once,
// and the way through the scheduler and back would cost more than that moment.
#pragma once

#include <chrono>
#include <thread>

namespace peer {

inline constexpr std::chrono::microseconds kLinger{100};

// Returns as soon as `idle` gives false, at the latest after kLinger. A yield that took long says
// that somebody else needs this processor: then this thread does not linger for a while.
template <typename Idle>
void lingerWhile(Idle idle) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::microseconds kLongYield{300};
    constexpr int kSkips = 100;
    static thread_local int skips = 0;  // that are still to come
    if (!idle()) return;
    if (skips > 0) {
        --skips;
        return;
    }
    auto now = Clock::now();
    const auto end = now + kLinger;
    while (now < end) {
        const auto before = now;
        std::this_thread::yield();
        if (!idle()) return;
        now = Clock::now();
        if (now - before > kLongYield) {
            skips = kSkips;
            return;
        }
    }
}

}  // namespace peer
