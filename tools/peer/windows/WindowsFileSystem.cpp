#include "peer/windows/WindowsFileSystem.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <deque>

#include "peer/Text.h"
#include "peer/windows/FileAttributes.h"
#include "peer/windows/Status.h"
#include "peer/windows/WindowsFile.h"

namespace peer::windows {

namespace {

constexpr std::size_t kListsInFlight = 4;
constexpr std::size_t kMaxEntries = 50'000'000;  // of one folder: more is an endless one
constexpr std::uint32_t kExisting = kOpenIfExists | kFailIfNew;
constexpr std::uint32_t kTruncated = kOverwriteIfExists | kFailIfNew;
constexpr std::uint32_t kPermissions = 0777;
constexpr std::uint32_t kTypeMask = 0170000;
constexpr std::uint32_t kRegularType = 0100000;

[[noreturn]] void refuse(int error, const char* text) {
    throw RemoteError(error, text);
}

std::uint32_t accessOf(int flags) {
    const std::uint32_t append = (flags & O_APPEND) != 0 ? kAppend : 0U;
    switch (flags & O_ACCMODE) {
        case O_WRONLY:
            return kAccessWrite | append;
        case O_RDWR:
            return kAccessReadWrite | append;
        default:
            return kAccessRead;
    }
}

bool writes(int flags) {
    return (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC) != 0;
}

std::string joinedPath(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.empty()) path.push_back('/');
    return path.append(name);
}

std::pair<std::string_view, std::string_view> splitLast(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return {"", path};
    return {path.substr(0, slash), path.substr(slash + 1)};
}

std::vector<DirEntry> entriesOf(Listing listing, std::string_view folder) {
    std::vector<DirEntry> entries;
    entries.reserve(listing.entries.size());
    for (Entry& entry : listing.entries) {
        if (entry.name == "." || entry.name == "..") continue;
        const Attributes attributes = attributesOf(entry.info, joinedPath(folder, entry.name));
        entries.push_back({std::move(entry.name), attributes});
    }
    return entries;
}

}  // namespace

WindowsFileSystem::WindowsFileSystem(std::shared_ptr<Session> session, const Drive& drive)
    : m_session(std::move(session)), m_map(static_cast<std::uint8_t>(drive.id)) {}

// Where the other side does not find a path as it is written, it looks for other letter cases of
// it, and begins that search at the root of its file system, not at the drive: "Tmp" would remove
// "tmp". It gives the search up over a path that begins with two separators, and the file system
// takes them for one.
Bytes WindowsFileSystem::exactPath(std::string_view path) const {
    Bytes exact;
    append(exact, *utf16FromUtf8("\\"));
    append(exact, wirePath(path));
    return exact;
}

// Asked anew, since the kind of a drive is announced after the drive.
bool WindowsFileSystem::isWholeTree() const {
    const std::vector<Drive> drives = m_session->drives();
    return std::ranges::any_of(
        drives, [this](const Drive& d) { return d.id == m_map && d.type == kRootMap; });
}

// The filter of the root drive compares texts, and two separators would not pass it.
Bytes WindowsFileSystem::listedPath(std::string_view path) const {
    Bytes listed = path.empty() || isWholeTree() ? wirePath(path) : exactPath(path);
    append(listed, *utf16FromUtf8("\\*"));
    return listed;
}

void WindowsFileSystem::requireWritable() const {
    if (m_session->isReadOnly()) refuse(EROFS, "the drive is offered for reading only");
}

RemoteHandle WindowsFileSystem::opened(std::string_view path, std::uint32_t flags,
                                       std::uint32_t mode) {
    const Created created = m_session->open(m_map, path, flags, mode);
    RemoteHandle handle(m_session, m_map, created.handle);
    const bool isFolder = (created.flags & kDirectory) != 0;
    if (isFolder && (flags & kDirectory) == 0) refuse(EISDIR, "is a directory");
    return handle;
}

RemoteHandle WindowsFileSystem::openedFile(std::string_view path, std::uint32_t flags) {
    const ObjectInfo info = lookUp(path);
    if (info.isDirectory()) refuse(EISDIR, "is a directory");
    if (!info.isRegular()) refuse(ENXIO, "is neither a file nor a directory");
    return opened(path, flags);
}

// Any handle will do, and a file that cannot be read may yet be written.
RemoteHandle WindowsFileSystem::openedForChange(std::string_view path) {
    try {
        return opened(path, kExisting | kAccessRead);
    } catch (const RemoteError& error) {
        if (error.error() != EACCES) throw;
        return opened(path, kExisting | kAccessWrite);
    }
}

RemoteHandle WindowsFileSystem::openedRoot() {
    return opened("", kDirectory | kExisting | kAccessRead);
}

// The listing of one object opens nothing on the way, and any handle can carry it.
ObjectInfo WindowsFileSystem::lookUp(std::string_view path) {
    const Bytes name = exactPath(path);
    if (path.ends_with('*')) return searchFor(path);
    if (path.empty()) {
        const Created root = m_session->open(m_map, "", kDirectory | kExisting | kAccessRead);
        m_session->release(m_map, root.handle);
        return root.info;
    }
    const RemoteHandle root = openedRoot();
    const Listing listing = parseListing(
        m_session->ask(listRequest(m_map, root.value(), name, kListReturnOne, kListLimit)));
    if (listing.entries.empty()) throw StatusError(kStatusFileNotFound);
    return listing.entries.front().info;
}

// A star at the end of a name would list a folder instead.
ObjectInfo WindowsFileSystem::searchFor(std::string_view path) {
    const auto [folder, name] = splitLast(path);
    ObjectInfo found;
    bool isThere = false;
    m_session->list(m_map, folder, [&, wanted = name](const std::vector<Entry>& entries) {
        for (const Entry& entry : entries) {
            if (entry.name != wanted) continue;
            found = entry.info;
            isThere = true;
        }
    });
    if (!isThere) throw StatusError(kStatusFileNotFound);
    return found;
}

Attributes WindowsFileSystem::stat(std::string_view path) {
    return checked([&] { return attributesOf(lookUp(path), path); });
}

Volume WindowsFileSystem::volume() {
    const VolumeInfo info =
        checked([this] { return m_session->volume(m_map, openedRoot().value()); });
    Volume volume;
    if (info.unit != 0) volume.blockSize = info.unit;
    volume.blocks = info.total / volume.blockSize;
    volume.freeBlocks = volume.availableBlocks = info.available / volume.blockSize;
    volume.readOnly = info.readOnly || m_session->isReadOnly();
    return volume;
}

void WindowsFileSystem::list(std::string_view path, const Take& take) {
    checked([&] {
        m_session->list(m_map, path, [&](std::vector<Entry> entries) {
            take(entriesOf({false, std::move(entries)}, path));
        });
    });
}

std::unique_ptr<File> WindowsFileSystem::open(std::string_view path, int flags) {
    if (writes(flags)) requireWritable();
    const std::uint32_t action = (flags & O_TRUNC) != 0 ? kTruncated : kExisting;
    return checked([&] {
        return std::make_unique<WindowsFile>(openedFile(path, action | accessOf(flags)),
                                             std::string(path));
    });
}

std::unique_ptr<File> WindowsFileSystem::create(std::string_view path, int flags,
                                                std::uint32_t mode) {
    requireWritable();
    return checked([&] {
        RemoteHandle handle = opened(path, kFailIfExists | kCreateIfNew | accessOf(flags),
                                     kModeRegular | (mode & kPermissions));
        return std::make_unique<WindowsFile>(std::move(handle), std::string(path));
    });
}

void WindowsFileSystem::makeNode(std::string_view path, std::uint32_t mode, std::uint64_t) {
    const std::uint32_t type = mode & kTypeMask;
    if (type != kRegularType && type != 0) refuse(EPERM, "only files and folders can be made");
    create(path, O_WRONLY, mode);
}

void WindowsFileSystem::makeFolder(std::string_view path, std::uint32_t) {
    requireWritable();
    checked([&] { opened(path, kDirectory | kFailIfExists | kCreateIfNew | kAccessRead); });
}

// The request removes files and empty folders alike.
void WindowsFileSystem::remove(std::string_view path) {
    requireWritable();
    checked([&] {
        if (lookUp(path).isDirectory()) refuse(EISDIR, "is a directory");
        parseStatus(m_session->ask(removeRequest(m_map, exactPath(path), kRemoveFile)));
    });
}

void WindowsFileSystem::removeFolder(std::string_view path) {
    requireWritable();
    checked([&] {
        if (!lookUp(path).isDirectory()) refuse(ENOTDIR, "is not a directory");
        parseStatus(m_session->ask(removeRequest(m_map, exactPath(path), kRemoveDirectory)));
    });
}

void WindowsFileSystem::rename(std::string_view from, std::string_view to) {
    requireWritable();
    checked([&] {
        parseStatus(m_session->ask(
            renameRequest(m_map, exactPath(from), exactPath(to), kRenameFile | kRenameReplace)));
    });
}

void WindowsFileSystem::link(std::string_view, std::string_view) {
    refuse(EPERM, "the Windows dialect has no links");
}

void WindowsFileSystem::makeLink(const std::string&, std::string_view) {
    refuse(EPERM, "the Windows dialect has no symbolic links");
}

std::string WindowsFileSystem::readLink(std::string_view) {
    refuse(EINVAL, "is not a symbolic link");
}

void WindowsFileSystem::truncate(std::string_view path, std::int64_t size) {
    requireWritable();
    checked([&] {
        // The policy about sizes does not touch this one.
        if (size == 0) return void(openedFile(path, kTruncated | kAccessWrite));
        setSize(openedFile(path, kExisting | kAccessWrite), size);
    });
}

void WindowsFileSystem::chmod(std::string_view path, std::uint32_t mode) {
    requireWritable();
    checked([&] {
        const ObjectInfo info = lookUp(path);
        if (info.isDirectory()) return;
        if (!info.isRegular()) refuse(EPERM, "is neither a file nor a directory");
        setMode(openedForChange(path), mode);
    });
}

void WindowsFileSystem::setTimes(std::string_view path, Time accessed, Time modified) {
    requireWritable();
    checked([&] {
        const ObjectInfo info = lookUp(path);
        if (info.isDirectory()) return;
        if (!info.isRegular()) refuse(EPERM, "is neither a file nor a directory");
        windows::setTimes(openedForChange(path), accessed, modified);
    });
}

}  // namespace peer::windows
