// The drives that stand below the mount point now.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "fdmount/DriveNames.h"
#include "fdmount/mount/MountedDrive.h"

namespace fdmount {

class Drives {
public:
    using Pointer = std::shared_ptr<MountedDrive>;

    // `fresh`: how long what was learned of a drive is taken as true.
    explicit Drives(Knowledge::Clock::duration fresh) : m_fresh(fresh) {}

    // Makes the table be what is offered. Returns the names that came and went.
    std::vector<std::string> update(const std::vector<peer::Offer>& offers);

    std::vector<Pointer> all() const;
    Pointer find(std::string_view name) const;  // null: there is none

private:
    const Knowledge::Clock::duration m_fresh;
    mutable std::mutex m_mutex;  // guards everything below
    std::vector<Pointer> m_drives;
    DriveNames m_names;
};

}  // namespace fdmount
