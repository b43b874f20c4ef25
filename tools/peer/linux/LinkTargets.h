// What symbolic links lead to. The other side puts its own folder of the drive, which nobody tells
// us, in front of each target that it is sent; these texts are chosen so that the link leads on the
// other side where its maker meant it to, and reads here as its maker wrote it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace peer::linux {

class LinkTargets {
public:
    // `folder`: that of the drive on the other side; empty while it is not known.
    explicit LinkTargets(std::string folder = {}) : m_folder(std::move(folder)) {}

    // The folder that stands in `stored` before what was `sent`; empty if that is not its end.
    static std::string folderFrom(std::string_view stored, std::string_view sent);

    // What may be the drive's folder, the shortest first, by what a link holds: that folder's last
    // part is the `name` that the drive was announced with.
    static std::vector<std::string> candidates(std::string_view stored, std::string_view name);

    // A path on the drive that leads to this folder of the other side, wherever the drive is.
    static std::string wayTo(std::string_view folder);

    bool isKnown() const { return !m_folder.empty(); }

    // Whether the text to send depends on the drive's folder.
    static bool needsFolder(std::string_view target) { return target.starts_with('/'); }

    // What to send for a link at `path` that is to read as `target`.
    std::string sent(std::string_view target, std::string_view path) const;

    // What the link at `path` reads as.
    std::string shown(std::string_view stored, std::string_view path) const;

private:
    std::string climb() const;  // from the drive's folder up to the root

    std::string m_folder;
};

}  // namespace peer::linux
