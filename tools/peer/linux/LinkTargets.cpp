#include "peer/linux/LinkTargets.h"

namespace peer::linux {

namespace {

constexpr std::string_view kUp = "/..";
constexpr std::size_t kDeepestFolder = 64;  // going up from the root ends at the root
constexpr std::size_t kMaxCandidates = 8;   // each one costs an exchange

std::string_view folderOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

// What stands between the drive's folder and a relative target. In the drive's topmost folder a
// "/./" keeps a target that begins with ".." apart from the way up to the root.
std::string placeOf(std::string_view path) {
    const std::string_view folder = folderOf(path);
    return folder.empty() ? "/./" : "/" + std::string(folder) + "/";
}

std::string repeated(std::string_view text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) result += text;
    return result;
}

std::size_t componentsOf(std::string_view path) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] != '/' && (i == 0 || path[i - 1] == '/')) ++count;
    }
    return count;
}

}  // namespace

std::string LinkTargets::folderFrom(std::string_view stored, std::string_view sent) {
    if (!stored.starts_with('/') || !stored.ends_with(sent)) return {};
    return std::string(stored.substr(0, stored.size() - sent.size()));
}

std::vector<std::string> LinkTargets::candidates(std::string_view stored, std::string_view name) {
    std::vector<std::string> found;
    if (!stored.starts_with('/') || name.empty()) return found;
    const std::string part = "/" + std::string(name) + "/";
    std::size_t at = stored.find(part);
    while (at != std::string_view::npos && found.size() < kMaxCandidates) {
        found.emplace_back(stored.substr(0, at + part.size() - 1));
        at = stored.find(part, at + 1);
    }
    return found;
}

std::string LinkTargets::wayTo(std::string_view folder) {
    return repeated(kUp, kDeepestFolder).substr(1) + std::string(folder);
}

std::string LinkTargets::climb() const {
    return repeated(kUp, componentsOf(m_folder));
}

std::string LinkTargets::sent(std::string_view target, std::string_view path) const {
    if (needsFolder(target)) return climb() + std::string(target);
    return placeOf(path) + std::string(target);
}

std::string LinkTargets::shown(std::string_view stored, std::string_view path) const {
    if (!isKnown() || !stored.starts_with(m_folder)) return std::string(stored);
    const std::string_view rest = stored.substr(m_folder.size());
    if (!rest.empty() && !rest.starts_with('/')) return std::string(stored);  // another folder

    const std::string way = climb();
    if (rest.starts_with(way) && rest.substr(way.size()).starts_with('/')) {
        return std::string(rest.substr(way.size()));
    }
    const std::string place = placeOf(path);
    if (rest.starts_with(place) && rest.size() > place.size()) {
        return std::string(rest.substr(place.size()));
    }
    const std::string_view below = rest.empty() ? rest : rest.substr(1);
    const std::string up = repeated("../", componentsOf(folderOf(path)));
    if (below.empty()) return up.empty() ? "." : up.substr(0, up.size() - 1);
    return up + std::string(below);
}

}  // namespace peer::linux
