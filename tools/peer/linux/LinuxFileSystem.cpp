#include "peer/linux/LinuxFileSystem.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>

#include "peer/linux/LinuxFile.h"
#include "peer/linux/Results.h"

namespace peer::linux {

namespace {

constexpr std::size_t kFirstBlock = std::size_t{64} << 10;
constexpr std::size_t kBlockGrowth = 64;  // each try lists the folder from its start again
constexpr std::size_t kLargestBlock = kMaxMessage - kPayloadAt - kBlockOverrun;
constexpr std::size_t kLongestTarget = 8192;
// Bytes of an entry's path: the other side lists no folder that has a longer one, and its own name
// for the drive, which counts too, is not told.
constexpr std::size_t kLongestListed = 1024;
constexpr std::size_t kUsualName = 255;    // the longest that file systems take
constexpr const char* kRootFolder = "/.";  // of the drive that is the whole file tree
constexpr std::uint32_t kRegular = 0100000;
constexpr std::uint32_t kOwnerMayWrite = 0200;
constexpr std::uint32_t kModeBits = 07777;

std::string inSameFolder(std::string_view path, const std::string& name) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? name : std::string(path.substr(0, slash + 1)) + name;
}

std::string unlikelyName() {
    std::random_device random;
    return ".fdmount-" + std::to_string(::getpid()) + "-" + std::to_string(random());
}

// Where an open file lies when `from` has become `to`.
void follow(std::string& path, std::string_view from, std::string_view to) {
    if (!path.starts_with(from)) return;
    if (path.size() > from.size() && path[from.size()] != '/') return;
    path = std::string(to) + path.substr(from.size());
}

}  // namespace

LinuxFileSystem::LinuxFileSystem(std::shared_ptr<Session> session, DrivePtr drive)
    : m_session(std::move(session)),
      m_drive(std::move(drive)),
      m_targets(m_drive->plug.root ? kRootFolder : "") {}

LinuxFileSystem::~LinuxFileSystem() = default;

void LinuxFileSystem::doIt(Request request) {
    parseDone(ask(std::move(request)));
}

Attributes LinuxFileSystem::stat(std::string_view path) {
    return parseGetattr(ask(pathRequest(kGetattr, path)));
}

Volume LinuxFileSystem::volume() {
    Volume volume = parseStatfs(ask(pathRequest(kStatfs, "")));
    volume.readOnly |= m_drive->plug.isReadOnly();
    return volume;
}

// --- listings

void LinuxFileSystem::list(std::string_view path, const Take& take) {
    Block block = listingOf(path);
    if (block.entries.empty()) checkFolder(path, block.present);
    if (!block.entries.empty()) take(std::move(block.entries));
}

// A block always begins with the first entry, and ends where the asked size does.
Block LinuxFileSystem::listingOf(std::string_view path) {
    for (std::size_t size = kFirstBlock;; size = std::min(size * kBlockGrowth, kLargestBlock)) {
        Block block = parseReaddir(ask(readdirRequest(path, size)));
        if (isWhole(block.size, size)) return block;
        if (size == kLargestBlock) {
            throw RemoteError(EOVERFLOW, "too many entries: a listing of more than " +
                                             std::to_string(kLargestBlock) +
                                             " bytes cannot be had");
        }
    }
}

// A folder that could not be read looks empty: this tells which it was.
void LinuxFileSystem::checkFolder(std::string_view path, bool hasBlock) {
    if (!stat(path).isDirectory()) throw localError(ENOTDIR);
    if (hasBlock) return;
    doIt(numberRequest(kAccess, path, kMayRead));
    if (path.size() + kUsualName >= kLongestListed) {
        throw RemoteError(ENAMETOOLONG, "the folder's path is too long for it to be listed");
    }
    throw RemoteError(EIO, "the folder cannot be listed");
}

// --- files

// To write nothing opens the file for writing on the other side, and tells why it cannot be; what
// asks by name, the open, tests only whether it can be read.
void LinuxFileSystem::checkOpens(std::string_view path, int accessMode) {
    if (accessMode != O_RDONLY) parseWritten(ask(writeRequest(path, 0, {})), 0);
    if (accessMode != O_WRONLY) parseOpened(ask(openRequest(path, 0)));
}

std::unique_ptr<File> LinuxFileSystem::open(std::string_view path, int flags) {
    const int accessMode = flags & O_ACCMODE;
    if ((flags & O_TRUNC) != 0 && accessMode != O_RDONLY) {
        truncate(path, 0);  // which needs the permission to write
        if (accessMode == O_RDWR) checkOpens(path, O_RDONLY);
    } else {
        checkOpens(path, accessMode);
    }
    return std::make_unique<LinuxFile>(shared_from_this(), path);
}

std::unique_ptr<File> LinuxFileSystem::create(std::string_view path, int flags,
                                              std::uint32_t mode) {
    const std::uint32_t wanted = mode & kModeBits;
    const bool mayWrite = (flags & O_ACCMODE) == O_RDONLY || (wanted & kOwnerMayWrite) != 0;
    const std::uint32_t first = mayWrite ? wanted : wanted | kOwnerMayWrite;
    makeNode(path, kRegular | first, 0);
    return std::make_unique<LinuxFile>(
        shared_from_this(), path, mayWrite ? std::nullopt : std::optional<std::uint32_t>(wanted));
}

void LinuxFileSystem::makeNode(std::string_view path, std::uint32_t mode, std::uint64_t device) {
    doIt(mknodRequest(path, mode, device));
}

void LinuxFileSystem::makeFolder(std::string_view path, std::uint32_t mode) {
    doIt(numberRequest(kMkdir, path, mode));
}

void LinuxFileSystem::remove(std::string_view path) {
    doIt(pathRequest(kUnlink, path));
}

void LinuxFileSystem::removeFolder(std::string_view path) {
    doIt(pathRequest(kRmdir, path));
}

void LinuxFileSystem::rename(std::string_view from, std::string_view to) {
    doIt(twoPathsRequest(kRename, from, to));
    const std::lock_guard lock(m_openMutex);
    for (OpenPath* open : m_open) follow(open->path, from, to);
}

void LinuxFileSystem::link(std::string_view from, std::string_view to) {
    doIt(twoPathsRequest(kLink, from, to));
}

void LinuxFileSystem::truncate(std::string_view path, std::int64_t size) {
    doIt(numberRequest(kTruncate, path, size));
}

std::optional<std::uint32_t> LinuxFileSystem::chmod(std::string_view path, std::uint32_t mode) {
    doIt(numberRequest(kChmod, path, mode & kModeBits));
    return mode & kModeBits;
}

void LinuxFileSystem::setTimes(std::string_view /*path*/, Time /*accessed*/, Time /*modified*/) {
    throw localError(ENOSYS);
}

// --- symbolic links

LinkTargets LinuxFileSystem::targets() {
    const std::lock_guard lock(m_targetsMutex);
    return m_targets;
}

std::string LinuxFileSystem::storedTarget(std::string_view path) {
    std::string target = parseReadlink(ask(numberRequest(kReadlink, path, kLongestTarget)));
    if (target.size() + 1 >= kLongestTarget) throw localError(ENAMETOOLONG);
    return target;
}

// From the link at `path`, which was just made with this text.
void LinuxFileSystem::learn(std::string_view path, std::string_view sent) {
    keep(LinkTargets(LinkTargets::folderFrom(storedTarget(path), sent)));
}

void LinuxFileSystem::keep(LinkTargets learned) {
    const std::lock_guard lock(m_targetsMutex);
    if (!m_targets.isKnown()) m_targets = std::move(learned);
}

// Whether this folder of the other side is the drive's own: it is, if it is the same object.
bool LinuxFileSystem::isDrivesFolder(std::string_view folder) {
    try {
        const Attributes there = stat(LinkTargets::wayTo(folder)), drive = stat("");
        return there.inode == drive.inode && there.fileSystem == drive.fileSystem;
    } catch (const RemoteError&) {
        return false;  // there is no such folder, so it is none of ours
    }
}

// From what a link holds that somebody made earlier, without making one.
void LinuxFileSystem::learnFrom(std::string_view stored) {
    for (std::string& folder : LinkTargets::candidates(stored, m_drive->plug.folder)) {
        if (isDrivesFolder(folder)) return keep(LinkTargets(std::move(folder)));
    }
}

// Knows the drive's folder, if need be from a link that is made for that and removed.
LinkTargets LinuxFileSystem::learnedTargets(std::string_view path) {
    if (LinkTargets known = targets(); known.isKnown()) return known;
    const std::string trial = inSameFolder(path, unlikelyName());
    const std::string sent = targets().sent("trial", trial);
    doIt(symlinkRequest(sent, trial));
    try {
        learn(trial, sent);
    } catch (const RemoteError&) {
        remove(trial);
        throw;
    }
    remove(trial);
    LinkTargets known = targets();
    if (!known.isKnown()) throw badReply("a link that does not hold what was sent");
    return known;
}

void LinuxFileSystem::makeLink(const std::string& target, std::string_view path) {
    if (target.empty()) throw localError(ENOENT);
    const LinkTargets known = LinkTargets::needsFolder(target) ? learnedTargets(path) : targets();
    const std::string sent = known.sent(target, path);
    doIt(symlinkRequest(sent, path));
    if (known.isKnown()) return;
    try {
        learn(path, sent);
    } catch (const RemoteError&) {
        return;  // the link is made, and somebody else may have taken it away
    }
}

std::string LinuxFileSystem::readLink(std::string_view path) {
    const std::string stored = storedTarget(path);
    if (!targets().isKnown()) learnFrom(stored);
    return targets().shown(stored, path);
}

}  // namespace peer::linux
