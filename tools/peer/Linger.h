// A moment of patience before a thread goes to sleep: the other side answers most requests at once,
// and the way through the scheduler and back would cost more than that moment.
#pragma once

#include <chrono>
#include <thread>

namespace peer {

inline constexpr std::chrono::microseconds kLinger{100};

// Returns as soon as `idle` gives false, at the latest after kLinger.
template <typename Idle>
void lingerWhile(Idle idle) {
    const auto end = std::chrono::steady_clock::now() + kLinger;
    while (idle() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
}

}  // namespace peer
