#include "peer/windows/KnownKinds.h"

namespace peer::windows {

namespace {
constexpr std::chrono::seconds kLifetime{5};
constexpr std::size_t kMostKnown = 20'000;
}  // namespace

void KnownKinds::remember(std::string_view path, std::uint32_t mode) {
    const std::lock_guard lock(m_mutex);
    if (m_known.size() >= kMostKnown) m_known.clear();
    m_known.insert_or_assign(std::string(path), Known{mode & kModeTypeMask, Clock::now()});
}

void KnownKinds::forget(std::string_view path) {
    const std::lock_guard lock(m_mutex);
    m_known.erase(std::string(path));
}

std::optional<std::uint32_t> KnownKinds::recall(std::string_view path) {
    const std::lock_guard lock(m_mutex);
    const auto known = m_known.find(std::string(path));
    if (known == m_known.end()) return std::nullopt;
    if (Clock::now() - known->second.since < kLifetime) return known->second.type;
    m_known.erase(known);
    return std::nullopt;
}

}  // namespace peer::windows
