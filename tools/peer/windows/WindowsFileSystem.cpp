#include "peer/windows/WindowsFileSystem.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <optional>
#include <utility>

#include "peer/Text.h"
#include "peer/windows/FileAttributes.h"
#include "peer/windows/Status.h"
#include "peer/windows/WindowsFile.h"

namespace peer::windows {

namespace {

constexpr std::size_t kListsInFlight = 4;
constexpr std::size_t kMaxEntries = 50'000'000;  // of one folder: more is an endless one
constexpr std::size_t kImpossibleName = 300;     // longer than any file system allows
constexpr std::uint32_t kExisting = kOpenIfExists | kFailIfNew;
constexpr std::uint32_t kTruncated = kOverwriteIfExists | kFailIfNew;
constexpr std::uint32_t kSearchable = 0111;
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

}  // namespace

WindowsFileSystem::WindowsFileSystem(std::shared_ptr<Session> session, const Drive& drive)
    : m_session(std::move(session)),
      m_map(static_cast<std::uint8_t>(drive.id)),
      m_spares(m_session, m_map) {}

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

// A create on a drive that cannot be written is refused like one that lacks a permission. A rename
// is refused for that reason before anything else is looked at, and this one can do nothing more.
bool WindowsFileSystem::isProtected() {
    Protection protection = m_protection;
    if (protection == Protection::kUnknown) {
        const Bytes noName = *utf16FromUtf8('\\' + std::string(kImpossibleName, 'x'));
        const Bytes result = m_session->ask(renameRequest(m_map, noName, noName, kRenameFile));
        protection = statusOf(result) == kWriteProtect ? Protection::kReadOnly : Protection::kNone;
        m_protection = protection;
    }
    return protection == Protection::kReadOnly;
}

void WindowsFileSystem::requireWritable() {
    const bool isReadOnly = checked([this] { return isProtected(); });
    if (isReadOnly) refuse(EROFS, "the drive cannot be written");
}

RemoteHandle WindowsFileSystem::opened(std::string_view path, std::uint32_t flags,
                                       std::uint32_t mode) {
    const Created created = m_session->open(m_map, path, flags, mode);
    RemoteHandle handle(m_session, m_map, created.handle);
    const bool isFolder = (created.flags & kDirectory) != 0;
    if (isFolder && (flags & kDirectory) == 0) refuse(EISDIR, "is a directory");
    return handle;
}

std::uint32_t WindowsFileSystem::typeOf(std::string_view path) {
    const std::optional<std::uint32_t> known = m_kinds.recall(path);
    return known ? *known : lookUp(path).mode & kModeTypeMask;
}

RemoteHandle WindowsFileSystem::openedFile(std::string_view path, std::uint32_t flags) {
    const std::uint32_t type = typeOf(path);
    if (type == kModeDirectory) refuse(EISDIR, "is a directory");
    if (type != kModeRegular) refuse(ENXIO, "is neither a file nor a directory");
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

ObjectInfo WindowsFileSystem::lookUp(std::string_view path) {
    const ObjectInfo info = lookUpAny(path);
    m_kinds.remember(path, info.mode);
    return info;
}

// A machine that is confined by rules for paths may let a folder be opened and none above it.
RemoteHandle WindowsFileSystem::anyHandle(std::string_view near) {
    try {
        return m_spares.take();
    } catch (const StatusError&) {
        for (const std::string_view folder : {splitLast(near).first, near, std::string_view()}) {
            try {
                RemoteHandle handle = opened(folder, kDirectory | kExisting | kAccessRead);
                m_spares.openAt(folder);
                return handle;
            } catch (const StatusError&) {
                continue;
            }
        }
        throw;
    }
}

// Says of a folder that cannot be opened only that it is one: the way to one that can.
ObjectInfo WindowsFileSystem::lookUpFolder(std::string_view path) {
    const Bytes result = m_session->ask(
        createRequest(m_map, wirePath(path), kOpenTargetDirectory | kExisting | kAccessRead, 0));
    Created folder = parseCreated(result);
    if (folder.handle != kNoHandle) m_session->release(m_map, folder.handle);
    if (folder.status == kAccessDenied && (folder.flags & kDirectory) != 0) {
        folder.info.mode = kDosDirectory | kModeDirectory | kSearchable;
        return folder.info;
    }
    if (folder.outcome() != kSuccess) throw StatusError(folder.outcome());
    return folder.info;
}

// The listing of one object opens nothing on the way.
ObjectInfo WindowsFileSystem::lookUpAny(std::string_view path) {
    const Bytes name = exactPath(path);
    if (path.empty()) return lookUpFolder(path);
    if (path.ends_with('*')) return searchFor(path);
    Session::Ticket ticket;
    try {
        const RemoteHandle any = anyHandle(path);
        ticket =
            m_session->submit(listRequest(m_map, any.value(), name, kListReturnOne, kListLimit));
    } catch (const StatusError& error) {
        if (error.status() != kAccessDenied) throw;
        return lookUpFolder(path);
    }
    m_spares.order();
    const Listing listing = parseListing(m_session->wait(ticket));
    if (listing.entries.empty()) throw StatusError(kStatusFileNotFound);
    return listing.entries.front().info;
}

// A star at the end of a name would list a folder instead.
ObjectInfo WindowsFileSystem::searchFor(std::string_view path) {
    const auto [folder, name] = splitLast(path);
    std::optional<ObjectInfo> found;
    listEntries(folder, [&, wanted = name](const std::vector<Entry>& entries) {
        const auto entry = std::ranges::find(entries, wanted, &Entry::name);
        if (entry != entries.end()) found = entry->info;
    });
    if (!found) throw StatusError(kStatusFileNotFound);
    return *found;
}

// Does not say why it cannot list a folder. An open does.
Listing WindowsFileSystem::firstPart(const Session::Ticket& ticket, std::string_view path) {
    try {
        return parseListing(m_session->wait(ticket));
    } catch (const StatusError& error) {
        if (error.status() != kInvalidParameter) throw;
        opened(path, kDirectory | kExisting | kAccessRead);
        throw;
    }
}

void WindowsFileSystem::listEntries(std::string_view path,
                                    const std::function<void(std::vector<Entry>)>& take) {
    const Bytes name = listedPath(path);
    const RemoteHandle any = anyHandle(path);
    std::deque<Session::Ticket> asked;
    const auto askMore = [&] {
        asked.push_back(m_session->submit(listRequest(m_map, any.value(), name, 0, kListLimit)));
    };
    std::size_t total = 0;
    askMore();
    m_spares.order();
    Listing listing = firstPart(asked.front(), path);
    while (true) {
        asked.pop_front();
        total += listing.entries.size();
        if (!listing.ended && listing.entries.empty()) {
            refuse(EIO, "the listing does not go on");
        }
        if (total > kMaxEntries) refuse(EIO, "the listing does not end");
        while (!listing.ended && asked.size() < kListsInFlight) askMore();
        std::erase_if(listing.entries,
                      [](const Entry& e) { return e.name == "." || e.name == ".."; });
        if (!listing.entries.empty()) take(std::move(listing.entries));
        if (listing.ended) return;
        listing = parseListing(m_session->wait(asked.front()));
    }
}

Attributes WindowsFileSystem::stat(std::string_view path) {
    return checked([&] { return attributesOf(lookUp(path), path); });
}

Volume WindowsFileSystem::volume() {
    const VolumeInfo info = checked([this] {
        const RemoteHandle any = anyHandle("");
        return m_session->volume(m_map, any.value());
    });
    Volume volume;
    if (info.unit != 0) volume.blockSize = info.unit;
    volume.blocks = info.total / volume.blockSize;
    volume.freeBlocks = volume.availableBlocks = info.available / volume.blockSize;
    volume.readOnly = info.readOnly || checked([this] { return isProtected(); });
    return volume;
}

void WindowsFileSystem::list(std::string_view path, const Take& take) {
    checked([&] {
        listEntries(path, [&](std::vector<Entry> some) {
            std::vector<DirEntry> entries;
            entries.reserve(some.size());
            for (Entry& entry : some) {
                const std::string whole = joinedPath(path, entry.name);
                m_kinds.remember(whole, entry.info.mode);
                entries.push_back({std::move(entry.name), attributesOf(entry.info, whole)});
            }
            take(std::move(entries));
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
        m_kinds.remember(path, kModeRegular);
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
        if (typeOf(path) == kModeDirectory) refuse(EISDIR, "is a directory");
        m_kinds.forget(path);
        parseStatus(m_session->ask(removeRequest(m_map, exactPath(path), kRemoveFile)));
    });
}

void WindowsFileSystem::removeFolder(std::string_view path) {
    requireWritable();
    checked([&] {
        if (typeOf(path) != kModeDirectory) refuse(ENOTDIR, "is not a directory");
        m_kinds.forget(path);
        parseStatus(m_session->ask(removeRequest(m_map, exactPath(path), kRemoveDirectory)));
    });
}

void WindowsFileSystem::rename(std::string_view from, std::string_view to) {
    requireWritable();
    checked([&] {
        m_kinds.forget(from);
        m_kinds.forget(to);
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

// False for a folder: the other side leaves those as they are, and calls that a success.
bool WindowsFileSystem::isChangeable(std::string_view path) {
    const std::uint32_t type = typeOf(path);
    if (type == kModeDirectory) return false;
    if (type != kModeRegular) refuse(EPERM, "is neither a file nor a directory");
    return true;
}

std::optional<std::uint32_t> WindowsFileSystem::chmod(std::string_view path, std::uint32_t mode) {
    requireWritable();
    return checked([&]() -> std::optional<std::uint32_t> {
        if (!isChangeable(path)) return std::nullopt;
        return setMode(openedForChange(path), mode);
    });
}

void WindowsFileSystem::setTimes(std::string_view path, Time accessed, Time modified) {
    requireWritable();
    checked([&] {
        if (isChangeable(path)) windows::setTimes(openedForChange(path), accessed, modified);
    });
}

}  // namespace peer::windows
