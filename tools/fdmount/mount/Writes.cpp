#include "fdmount/mount/Writes.h"

#include <algorithm>
#include <utility>

namespace fdmount {

void Writes::send(const std::shared_ptr<peer::File>& file, std::uint64_t offset, peer::View data) {
    const std::lock_guard lock(m_mutex);
    if (overlaps(offset, data.size())) settleLocked();
    while (!hasRoomFor(data.size())) finishOldest();
    if (m_failure) std::rethrow_exception(std::exchange(m_failure, nullptr));
    m_underWay.push_back({file, offset, data.size(), file->write(offset, data)});
    m_bytes += data.size();
    m_count = m_underWay.size();
}

void Writes::settle() {
    if (!areUnderWay()) return;
    const std::lock_guard lock(m_mutex);
    settleLocked();
}

void Writes::report() {
    const std::lock_guard lock(m_mutex);
    settleLocked();
    if (m_failure) std::rethrow_exception(std::exchange(m_failure, nullptr));
}

void Writes::settleLocked() {
    while (!m_underWay.empty()) finishOldest();
}

void Writes::finishOldest() {
    const One one = std::move(m_underWay.front());
    m_underWay.pop_front();
    m_bytes -= one.size;
    try {
        // The caller was told long ago that all was taken. What takes a part of it is full.
        if (one.answer() < one.size) throw peer::RemoteError(ENOSPC, "written in part");
    } catch (...) {
        if (!m_failure) m_failure = std::current_exception();
    }
    m_count = m_underWay.size();
}

bool Writes::hasRoomFor(std::size_t size) const {
    return m_underWay.empty() || (m_bytes + size <= kMostBytes && m_underWay.size() < kMostWrites);
}

bool Writes::overlaps(std::uint64_t offset, std::size_t size) const {
    return std::any_of(m_underWay.begin(), m_underWay.end(), [&](const One& one) {
        return offset < one.offset + one.size && one.offset < offset + size;
    });
}

}  // namespace fdmount
