// What kind of object a path named a moment ago: an open must know, and has mostly been preceded by
// a look-up. Any thread may use it.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "peer/windows/Protocol.h"

namespace peer::windows {

class KnownKinds {
public:
    void remember(std::string_view path, std::uint32_t mode);
    void forget(std::string_view path);

    // The type bits of the mode, unless they are too old to go by.
    std::optional<std::uint32_t> recall(std::string_view path);

private:
    using Clock = std::chrono::steady_clock;
    struct Known {
        std::uint32_t type;
        Clock::time_point since;
    };

    std::mutex m_mutex;  // guards m_known
    std::unordered_map<std::string, Known> m_known;
};

}  // namespace peer::windows
