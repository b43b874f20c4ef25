// Under which name each drive stands below the mount point, and in the paths of the commands.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "peer/Machine.h"

namespace fdmount {

// A name that a folder can have: what cannot stand in one is an underscore.
std::string folderName(const std::string& announced);

// Printers hold no files.
bool canBeMounted(const peer::Offer& offer);

// Gives each drive a name of its own, which it keeps while it lives.
class DriveNames {
public:
    // "name", or "name (2)" and so on if others have that.
    const std::string& take(std::uint32_t id, const std::string& announced);
    void giveBack(std::uint32_t id) { m_names.erase(id); }

private:
    bool isTaken(const std::string& name) const;

    std::map<std::uint32_t, std::string> m_names;
};

// The drives with the names that a mount gives them, which has no need of names for the others.
std::vector<peer::Offer> named(std::vector<peer::Offer> offers);

}  // namespace fdmount
