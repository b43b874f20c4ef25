// Waits for what no condition variable tells: asks again every few milliseconds.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

// Whether `done` held before `limit` was over.
inline bool waitUntil(const std::function<bool()>& done,
                      std::chrono::seconds limit = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
