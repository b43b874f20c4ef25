#include "fdmount/mount/MountedDrive.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "fdmount/mount/Failure.h"

namespace fdmount {

namespace {

constexpr std::uint32_t kModeBits = 07777;
constexpr std::uint32_t kOwnerMayWrite = 0200;
constexpr std::uint32_t kRegular = 0100000;

// The kernel reckons where an appended byte goes, and asks for the bytes around a small write.
int forDrive(int flags) {
    return flags & (O_ACCMODE | O_TRUNC);
}

}  // namespace

peer::Attributes MountedDrive::stat(const std::string& path) {
    if (m_knowledge.isAbsent(path)) throw Refusal{ENOENT};
    if (const auto known = m_knowledge.attributes(path)) return *known;
    if (m_openFiles.hasNew(path)) {
        if (const auto guess = m_knowledge.roughAttributes(path)) return *guess;
    }
    if (!path.empty() && m_knowledge.isFolderInDemand(path)) {
        try {
            list(std::string(folderOf(path)));
        } catch (const peer::RemoteError&) {
            return ask(path);  // one may look at a file in a folder that one may not read
        }
        if (m_knowledge.isAbsent(path)) throw Refusal{ENOENT};
        if (const auto known = m_knowledge.attributes(path)) return *known;
    }
    return ask(path);
}

peer::Attributes MountedDrive::ask(const std::string& path) {
    const Knowledge::Stamp asked = m_knowledge.stamp();  // first: a write from here on undoes it
    m_openFiles.settle(path);
    peer::Attributes attributes = m_files->stat(path);
    if (const auto late = m_openFiles.lateMode(path)) {
        attributes.mode = (attributes.mode & ~kModeBits) | *late;
    }
    m_knowledge.learn(asked, path, attributes);
    return attributes;
}

std::vector<peer::DirEntry> MountedDrive::list(const std::string& path) {
    const Knowledge::Stamp asked = m_knowledge.stamp();
    m_openFiles.settleIn(path);
    std::vector<peer::DirEntry> entries;
    m_files->list(path, [&](std::vector<peer::DirEntry> some) {
        if (entries.empty()) {
            entries = std::move(some);
        } else {
            entries.insert(entries.end(), std::make_move_iterator(some.begin()),
                           std::make_move_iterator(some.end()));
        }
    });
    // No kernel takes these, and one of them would spoil the whole listing.
    std::erase_if(entries, [](const peer::DirEntry& entry) {
        return entry.name.empty() || entry.name.size() > 255 || entry.name == "." ||
               entry.name == ".." || entry.name.find('/') != std::string::npos ||
               entry.name.find('\0') != std::string::npos;
    });
    m_knowledge.learnFolder(asked, path, entries);
    return entries;
}

// The other side may hold back permissions that were asked for, as its own user would.
peer::Attributes MountedDrive::askForMade(const std::string& path, std::uint32_t mode) {
    const peer::Attributes attributes = ask(path);
    if (attributes.isRegular()) {
        m_granted |= attributes.mode & peer::kPermissions;
        m_clocksAgree = std::abs(attributes.modified - wholeSecondsNow()) <= peer::kSecond;
    }
    if ((mode & ~attributes.mode & peer::kPermissions) == 0 || attributes.isLink())
        return attributes;
    chmod(path, (attributes.mode & kModeBits) | (mode & peer::kPermissions));
    return ask(path);
}

peer::Attributes MountedDrive::makeNode(const std::string& path, std::uint32_t mode,
                                        std::uint64_t device) {
    m_files->makeNode(path, mode, device);
    m_knowledge.made(path, false);
    return askForMade(path, mode);
}

peer::Attributes MountedDrive::makeFolder(const std::string& path, std::uint32_t mode) {
    m_files->makeFolder(path, mode);
    m_knowledge.made(path, true);
    return askForMade(path, mode);
}

void MountedDrive::makeLink(const std::string& target, const std::string& path) {
    m_files->makeLink(target, path);
    m_knowledge.made(path, false);
}

void MountedDrive::link(const std::string& from, const std::string& to) {
    m_openFiles.settle(from);
    m_files->link(from, to);
    m_knowledge.made(to, false);
    m_knowledge.changed(from);
}

void MountedDrive::remove(const std::string& path) {
    m_openFiles.settle(path);
    m_files->remove(path);
    m_knowledge.removed(path);
}

void MountedDrive::removeFolder(const std::string& path) {
    m_files->removeFolder(path);
    m_knowledge.removed(path);
}

void MountedDrive::rename(const std::string& from, const std::string& to) {
    m_openFiles.settleWithin(from);
    m_openFiles.settle(to);
    m_files->rename(from, to);
    m_openFiles.moved(from, to);
    m_knowledge.moved(from, to);
}

void MountedDrive::chmod(const std::string& path, std::uint32_t mode) {
    m_openFiles.settle(path);  // what is on its way may need the permissions of before
    // A mode that a file was to be given at its end gives way to this one.
    const auto late = m_openFiles.takeLate(path);
    const auto kept = late ? late->chmod(mode) : m_files->chmod(path, mode);
    if (kept) m_knowledge.gaveMode(path, *kept);
}

void MountedDrive::setTimes(const std::string& path, peer::Time accessed, peer::Time modified) {
    m_openFiles.settle(path);  // a write that comes after would set the time again
    m_files->setTimes(path, accessed, modified);
    m_knowledge.changed(path);
}

void MountedDrive::truncate(const std::string& path, std::int64_t size, OpenFile* file) {
    m_openFiles.settle(path);
    if (file != nullptr) {
        file->file()->truncate(size);
    } else {
        m_files->truncate(path, size);
    }
    m_knowledge.resized(path, size);
}

OpenFile* MountedDrive::open(const std::string& path, int flags) {
    m_openFiles.settle(path);
    auto file = m_files->open(path, forDrive(flags));
    if ((flags & O_TRUNC) != 0) m_knowledge.resized(path, 0);
    return m_openFiles.add(path, std::move(file));
}

OpenFile* MountedDrive::create(const std::string& path, int flags, std::uint32_t mode,
                               peer::Attributes& attributes) {
    std::unique_ptr<peer::File> file;
    bool made = true;
    try {
        file = m_files->create(path, forDrive(flags), mode);
    } catch (const peer::RemoteError& error) {
        // Somebody was faster, and whoever asks for no new file takes that one.
        if (error.error() != EEXIST || (flags & O_EXCL) != 0) throw;
        file = m_files->open(path, forDrive(flags));
        made = false;
    }
    m_knowledge.made(path, false);
    OpenFile* const opened = m_openFiles.add(path, std::move(file));
    try {
        attributes = made ? attributesOfNew(path, mode, *opened) : ask(path);
    } catch (...) {
        m_openFiles.remove(opened);
        throw;
    }
    return opened;
}

// Most files are written right after, and closed. Until then what they are like is known here as
// well, but for the difference of a moment in their times, unless the clocks differ.
peer::Attributes MountedDrive::attributesOfNew(const std::string& path, std::uint32_t mode,
                                               OpenFile& file) {
    const bool late = (mode & kOwnerMayWrite) == 0;
    if (late) file.expectMode(mode & kModeBits);
    if (!late && (!m_clocksAgree || (mode & peer::kPermissions & ~m_granted) != 0)) {
        return askForMade(path, mode);
    }
    peer::Attributes attributes;
    attributes.mode = kRegular | (mode & kModeBits);
    attributes.accessed = attributes.modified = attributes.changed = wholeSecondsNow();
    m_knowledge.guess(path, attributes);
    file.markNew();
    return attributes;
}

std::size_t MountedDrive::read(OpenFile& file, std::uint64_t offset, char* to, std::size_t size) {
    file.writes().settle();
    std::size_t done = 0;
    const std::shared_ptr<peer::File> opened = file.file();
    while (done < size) {
        const std::size_t wanted = std::min(size - done, peer::File::kMaxTransfer);
        const peer::Data data = opened->read(offset + done, wanted)();
        const std::size_t came = std::min(data.bytes.size(), wanted);
        if (came > 0) std::memcpy(to + done, data.bytes.data(), came);
        done += came;
        if (came < wanted) break;
    }
    return done;
}

void MountedDrive::write(OpenFile& file, std::uint64_t offset, peer::View data) {
    file.writes().send(file.file(), offset, data);
    m_knowledge.wrote(file.path(), static_cast<std::int64_t>(offset + data.size()));
}

void MountedDrive::flush(OpenFile& file) {
    file.writes().report();
    giveLateMode(file);
}

bool MountedDrive::endGuessing(OpenFile& file) {
    if (!file.takeNew()) return false;
    m_knowledge.unsure(file.path());
    return true;
}

// The drive's file knows its mode, and its flush gives it. For all others a flush costs an
// exchange.
void MountedDrive::giveLateMode(OpenFile& file) {
    if (file.takeLateMode() == OpenFile::kNoMode) return;
    file.file()->flush();
    m_knowledge.changed(file.path());
}

void MountedDrive::sync(OpenFile& file) {
    file.writes().report();
    file.file()->flush();
}

void MountedDrive::close(OpenFile* file) {
    file->writes().settle();
    m_openFiles.remove(file);
}

}  // namespace fdmount
