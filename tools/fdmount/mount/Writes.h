// The writes to one file that are under way. A write returns once it is sent, and many are under
// way at a time; what fails is told by the next call that waits for them, and flush and fsync do.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>

#include "peer/FileSystem.h"

namespace fdmount {

class Writes {
public:
    static constexpr std::size_t kMostBytes = 8U << 20;  // under way
    static constexpr std::size_t kMostWrites = 64;

    // Sends. Waits if too much is under way, or where the new bytes lie upon some that are.
    void send(const std::shared_ptr<peer::File>& file, std::uint64_t offset, peer::View data);

    // Waits for all, and keeps what failed for report().
    void settle();

    // Waits for all. Throws what failed since the last report.
    void report();

    bool areUnderWay() const { return m_count != 0; }

private:
    struct One {
        std::shared_ptr<peer::File> file;  // lives until it is answered
        std::uint64_t offset = 0;
        std::size_t size = 0;
        peer::File::Writing answer;
    };

    void settleLocked();
    void finishOldest();
    bool hasRoomFor(std::size_t size) const;
    bool overlaps(std::uint64_t offset, std::size_t size) const;

    // Held while answers are waited for: whoever comes meanwhile would wait for the same ones.
    std::mutex m_mutex;
    std::deque<One> m_underWay;
    std::size_t m_bytes = 0;
    std::exception_ptr m_failure;         // the first one
    std::atomic<std::size_t> m_count{0};  // of m_underWay
};

}  // namespace fdmount
