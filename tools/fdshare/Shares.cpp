#include "fdshare/Shares.h"

#include <dirent.h>
#include <iconv.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "fdshare/Log.h"
#include "fdshare/Sandbox.h"

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr const char* kMountParent = "/media/";

std::string realFolder(const std::string& name) {
    std::error_code error;
    const fs::path path = fs::canonical(name, error);
    if (error) throw std::runtime_error(name + ": " + error.message());
    if (!fs::is_directory(path, error)) throw std::runtime_error(name + ": is not a directory");
    if (DIR* dir = ::opendir(path.c_str()); dir != nullptr) {
        ::closedir(dir);
    } else {
        throw std::runtime_error(name + ": " + std::generic_category().message(errno));
    }
    if (path.native().find('\x1F') != std::string::npos) {
        throw std::runtime_error(name + ": a control character in the name");
    }
    return path.native();
}

// The last part of the folder's name, with a number behind it where that is taken.
std::string placeFor(const std::string& folder, const std::vector<Share>& taken) {
    const std::string name = fs::path(folder).filename().native();
    const std::string base = kMountParent + (name.empty() ? "root" : name);
    std::string place = base;
    for (int i = 2;
         std::any_of(taken.begin(), taken.end(), [&](const Share& s) { return s.place == place; });
         ++i) {
        place = base + " " + std::to_string(i);
    }
    return place;
}

std::vector<Share> sharesOf(const Options& options) {
    std::vector<Share> shares;
    for (const std::string& name : options.folders) {
        const std::string folder = realFolder(name);
        shares.push_back({folder, placeFor(folder, shares)});
    }
    for (const std::string& name : options.rootFolders) {
        const std::string folder = realFolder(name);
        if (folder == "/" && options.sandbox) {
            throw std::runtime_error(
                "the whole file tree is nothing to be confined to; "
                "--no-sandbox shares it");
        }
        shares.push_back({folder, folder});
    }
    return shares;
}

bool failed(iconv_t converter) {
    return reinterpret_cast<std::intptr_t>(converter) == -1;
}

// What the C library loads from files that are out of reach once the process is confined. The
// converters are kept open: they are unloaded with their last user.
void loadWhatIsNeeded() {
    const iconv_t fromWide = ::iconv_open("UTF-8", "UTF-16LE");
    const iconv_t toWide = ::iconv_open("UTF-16LE", "UTF-8");
    if (failed(fromWide) || failed(toWide)) {
        throw std::runtime_error("this system cannot convert between UTF-8 and UTF-16LE");
    }
    ::getpwuid(::geteuid());
    [[maybe_unused]] static const iconv_t kept[] = {fromWide, toWide};
}

std::vector<std::string> foldersOf(const std::vector<Share>& shares) {
    std::vector<std::string> folders;
    folders.reserve(shares.size());
    for (const Share& share : shares) folders.push_back(share.folder);
    return folders;
}

}  // namespace

HostLimit prepareShares(const Options& options) {
    HostLimit limit;
    limit.readOnly = options.readOnly;
    const std::vector<Share> shares = sharesOf(options);
    if (shares.empty()) return limit;

    if (!options.sandbox) {
        say("warning: without the sandbox the other side can reach every file that this user can");
        limit.rootFolders = foldersOf(shares);
        return limit;
    }
    loadWhatIsNeeded();
    const Confined confined = confine(shares, options.readOnly);
    switch (confined.how) {
        case Confinement::kNamespace:
            if (!options.rootFolders.empty()) limit.rootFolders = foldersOf(shares);
            sayInfo("confined to the shared folders");
            return limit;
        case Confinement::kPathRules:
            say("warning: " + confined.why +
                "; confined by Landlock instead, and the folders are parts of one drive");
            limit.rootFolders = foldersOf(shares);
            return limit;
        case Confinement::kNone:
            break;
    }
    throw std::runtime_error("cannot confine itself to the shared folders (" + confined.why +
                             "); --no-sandbox shares them without that");
}

}  // namespace host
