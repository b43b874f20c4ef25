#include "fdmount/mount/Drives.h"

#include <algorithm>

namespace fdmount {

namespace {

bool isOffered(const MountedDrive& drive, const std::vector<peer::Offer>& offers) {
    return std::any_of(offers.begin(), offers.end(),
                       [&](const peer::Offer& offer) { return offer.id == drive.id(); });
}

}  // namespace

std::vector<std::string> Drives::update(const std::vector<peer::Offer>& offers) {
    std::vector<std::string> changed;
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_drives, [&](const Pointer& drive) {
        if (isOffered(*drive, offers)) return false;
        m_names.giveBack(drive->id());
        changed.push_back(drive->name());
        return true;
    });
    for (const peer::Offer& offer : offers) {
        const bool known = std::any_of(m_drives.begin(), m_drives.end(),
                                       [&](const Pointer& d) { return d->id() == offer.id; });
        if (known || !canBeMounted(offer)) continue;
        const std::string& name = m_names.take(offer.id, offer.name);
        m_drives.push_back(std::make_shared<MountedDrive>(offer.id, name, offer.files, m_fresh));
        changed.push_back(name);
    }
    return changed;
}

std::vector<Drives::Pointer> Drives::all() const {
    const std::lock_guard lock(m_mutex);
    return m_drives;
}

Drives::Pointer Drives::find(std::string_view name) const {
    const std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_drives.begin(), m_drives.end(),
                                    [&](const Pointer& drive) { return drive->name() == name; });
    return found == m_drives.end() ? nullptr : *found;
}

}  // namespace fdmount
