// The files of one offered drive, whichever dialect carries the requests. Every operation may be
// called from any thread, blocks until it is answered, and throws RemoteError for a refusal and
// SessionError if no answer can come.
//
// A path is "folder/file" in UTF-8, without a slash at either end, and empty for the drive itself.
// A symbolic link is never followed, unless an operation opens it.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "peer/Bytes.h"
#include "peer/Errors.h"

namespace peer {

// Nanoseconds since 1970.
using Time = std::int64_t;
constexpr Time kSecond = 1'000'000'000;

// Of a mode: who may read, write and execute.
constexpr std::uint32_t kPermissions = 0777;

struct Attributes {
    std::uint32_t mode = 0;  // as st_mode
    std::uint32_t uid = 0, gid = 0;
    std::uint64_t inode = 0;
    std::uint64_t fileSystem = 0;  // the number of the one it lies on; 0: not known
    std::uint64_t links = 1;
    std::uint64_t device = 0;  // of a device node
    std::int64_t size = 0;
    std::int64_t blockSize = 4096;
    std::int64_t blocks = 0;  // of 512 bytes
    Time accessed = 0, modified = 0, changed = 0;
    Time born = 0;                        // 0: not known
    std::uint32_t windowsAttributes = 0;  // FILE_ATTRIBUTE_ bits; 0: not known

    bool isDirectory() const { return (mode & 0170000U) == 0040000U; }
    bool isRegular() const { return (mode & 0170000U) == 0100000U; }
    bool isLink() const { return (mode & 0170000U) == 0120000U; }
};

struct DirEntry {
    std::string name;
    Attributes attributes;
};

struct Volume {
    std::uint64_t blockSize = 4096;
    std::uint64_t blocks = 0, freeBlocks = 0, availableBlocks = 0;
    std::uint64_t files = 0, freeFiles = 0;  // 0: not known
    std::uint64_t maxName = 255;             // bytes
    bool readOnly = false;
};

// A part of a file as it came: `bytes` lies within `message`.
struct Data {
    Bytes message;
    View bytes;
};

// An open file, closed with its owner. It follows a rename that goes through the same drive.
class File {
public:
    // Waits for the answer. Called once, on any thread; until then the file must live.
    using Reading = std::function<Data()>;                // fewer bytes than asked: the end was met
    using Writing = std::function<std::size_t()>;         // the bytes taken, which may be fewer
    static constexpr std::size_t kMaxTransfer = 1 << 20;  // bytes of one read or write

    virtual ~File() = default;

    // Sends the request, so that many can be under way at a time.
    virtual Reading read(std::uint64_t offset, std::size_t length) = 0;
    virtual Writing write(std::uint64_t offset, View data) = 0;

    virtual Attributes stat() = 0;
    virtual void truncate(std::int64_t size) = 0;

    // Gives the permissions that it has now; none: they are what they were.
    virtual std::optional<std::uint32_t> chmod(std::uint32_t mode) = 0;

    virtual void setTimes(Time accessed, Time modified) = 0;
    virtual void flush() = 0;  // to the disk
};

class FileSystem {
public:
    using Take = std::function<void(std::vector<DirEntry>)>;

    virtual ~FileSystem() = default;

    virtual Attributes stat(std::string_view path) = 0;
    virtual Volume volume() = 0;

    // All entries but "." and "..", handed out in portions as they come.
    virtual void list(std::string_view path, const Take& take) = 0;

    // `flags` are those of open(2): the access mode, O_TRUNC and O_APPEND count, others do not.
    virtual std::unique_ptr<File> open(std::string_view path, int flags) = 0;

    // A new file. EEXIST if there is an object of the name.
    virtual std::unique_ptr<File> create(std::string_view path, int flags, std::uint32_t mode) = 0;

    virtual void makeNode(std::string_view path, std::uint32_t mode, std::uint64_t device) = 0;
    virtual void makeFolder(std::string_view path, std::uint32_t mode) = 0;
    virtual void remove(std::string_view path) = 0;                       // all but folders
    virtual void removeFolder(std::string_view path) = 0;                 // an empty one
    virtual void rename(std::string_view from, std::string_view to) = 0;  // replaces
    virtual void link(std::string_view from, std::string_view to) = 0;
    virtual void makeLink(const std::string& target, std::string_view path) = 0;  // symbolic
    virtual std::string readLink(std::string_view path) = 0;
    virtual void truncate(std::string_view path, std::int64_t size) = 0;
    virtual std::optional<std::uint32_t> chmod(std::string_view path, std::uint32_t mode) = 0;
    virtual void setTimes(std::string_view path, Time accessed, Time modified) = 0;

    // Whether the operations that a drive may lack work here: ENOSYS is what they throw if not.
    virtual bool keepsTimes() const = 0;
};

}  // namespace peer
