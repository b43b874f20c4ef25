#include "e2e/fuse/Tree.h"

#include <filesystem>
#include <functional>

#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

std::string describe(const fs::directory_entry& entry) {
    const fs::file_status status = entry.symlink_status();
    if (status.type() == fs::file_type::symlink) {
        return "link to " + fs::read_symlink(entry.path()).string();
    }
    std::string text = "kind " + std::to_string(static_cast<int>(status.type())) + ", mode " +
                       std::to_string(static_cast<unsigned>(status.permissions()));
    if (status.type() == fs::file_type::regular) {
        const std::string bytes = readFile(entry.path().string());
        text += ", " + std::to_string(bytes.size()) + " bytes, hash " +
                std::to_string(std::hash<std::string>{}(bytes));
    }
    return text;
}

}  // namespace

Tree treeOf(const std::string& folder) {
    Tree tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        tree[fs::relative(entry.path().parent_path(), folder) / entry.path().filename()] =
            describe(entry);
    }
    return tree;
}

std::string differences(const Tree& one, const Tree& other) {
    std::string lines;
    for (const auto& [path, object] : one) {
        const auto found = other.find(path);
        if (found == other.end()) {
            lines += path + ": only in the first\n";
        } else if (found->second != object) {
            lines += path + ": " + object + " / " + found->second + "\n";
        }
    }
    for (const auto& [path, object] : other) {
        if (!one.contains(path)) lines += path + ": only in the second\n";
    }
    return lines;
}
