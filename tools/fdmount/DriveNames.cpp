#include "fdmount/DriveNames.h"

#include <algorithm>

namespace fdmount {

namespace {

constexpr std::size_t kLongest = 255;  // bytes of a name in a folder

bool cannotStand(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value < 0x20 || value == 0x7F || byte == '/';
}

bool isInsideCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80;
}

// Never in the middle of a character.
std::string cut(std::string name, std::size_t size) {
    if (name.size() <= size) return name;
    while (size > 0 && isInsideCharacter(name[size])) --size;
    name.resize(size);
    return name;
}

}  // namespace

std::string folderName(const std::string& announced) {
    std::string name = cut(announced, kLongest);
    std::replace_if(name.begin(), name.end(), cannotStand, '_');
    if (name.empty() || name == ".") return "_";
    return name == ".." ? "__" : name;
}

bool canBeMounted(const peer::Offer& offer) {
    return offer.files != nullptr && offer.kind != peer::Offer::Kind::kPrinter;
}

const std::string& DriveNames::take(std::uint32_t id, const std::string& announced) {
    if (const auto known = m_names.find(id); known != m_names.end()) return known->second;
    const std::string plain = folderName(announced);
    std::string name = plain;
    for (unsigned number = 2; isTaken(name); ++number) {
        const std::string behind = " (" + std::to_string(number) + ")";
        name = cut(plain, kLongest - behind.size()) + behind;
    }
    return m_names[id] = name;
}

bool DriveNames::isTaken(const std::string& name) const {
    return std::any_of(m_names.begin(), m_names.end(),
                       [&](const auto& taken) { return taken.second == name; });
}

std::vector<peer::Offer> named(std::vector<peer::Offer> offers) {
    DriveNames names;
    for (const bool mounted : {true, false}) {
        for (peer::Offer& offer : offers) {
            if (canBeMounted(offer) == mounted) offer.name = names.take(offer.id, offer.name);
        }
    }
    return offers;
}

}  // namespace fdmount
