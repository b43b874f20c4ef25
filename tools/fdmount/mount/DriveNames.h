// Under which name each drive stands below the mount point.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace fdmount {

// A name that a folder can have: what cannot stand in one is an underscore.
std::string folderName(const std::string& announced);

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

}  // namespace fdmount
