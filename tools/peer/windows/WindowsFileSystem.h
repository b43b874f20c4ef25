// A drive of the Windows dialect as files.
//
// What the dialect lacks: links of both kinds, devices and sockets (EPERM), owners (everything
// belongs to the user of this process), times and permissions of folders (left alone without a
// word). A symbolic link on the other side is what it leads to, and if that is nothing, it is not
// there. Nothing but files and folders is ever opened: an open that waits, as that of a pipe does,
// would hold up all requests behind it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "peer/FileSystem.h"
#include "peer/windows/KnownKinds.h"
#include "peer/windows/RemoteHandle.h"
#include "peer/windows/Session.h"
#include "peer/windows/SpareHandles.h"

namespace peer::windows {

class WindowsFileSystem final : public FileSystem {
public:
    WindowsFileSystem(std::shared_ptr<Session> session, const Drive& drive);

    Attributes stat(std::string_view path) override;
    Volume volume() override;
    void list(std::string_view path, const Take& take) override;
    std::unique_ptr<File> open(std::string_view path, int flags) override;
    std::unique_ptr<File> create(std::string_view path, int flags, std::uint32_t mode) override;
    void makeNode(std::string_view path, std::uint32_t mode, std::uint64_t device) override;
    void makeFolder(std::string_view path, std::uint32_t mode) override;
    void remove(std::string_view path) override;
    void removeFolder(std::string_view path) override;
    void rename(std::string_view from, std::string_view to) override;
    void link(std::string_view from, std::string_view to) override;
    void makeLink(const std::string& target, std::string_view path) override;
    std::string readLink(std::string_view path) override;
    void truncate(std::string_view path, std::int64_t size) override;
    std::optional<std::uint32_t> chmod(std::string_view path, std::uint32_t mode) override;
    void setTimes(std::string_view path, Time accessed, Time modified) override;
    bool keepsTimes() const override { return true; }

private:
    enum class Protection { kUnknown, kNone, kReadOnly };

    RemoteHandle opened(std::string_view path, std::uint32_t flags, std::uint32_t mode = 0);
    RemoteHandle openedFile(std::string_view path, std::uint32_t flags);
    RemoteHandle openedForChange(std::string_view path);
    Bytes exactPath(std::string_view path) const;
    Bytes listedPath(std::string_view path) const;
    bool isWholeTree() const;
    ObjectInfo lookUp(std::string_view path);
    ObjectInfo lookUpAny(std::string_view path);
    RemoteHandle anyHandle(std::string_view near);
    ObjectInfo lookUpFolder(std::string_view path);
    ObjectInfo searchFor(std::string_view path);
    std::uint32_t typeOf(std::string_view path);
    bool isChangeable(std::string_view path);
    void listEntries(std::string_view path, const std::function<void(std::vector<Entry>)>& take);
    Listing firstPart(const Session::Ticket& ticket, std::string_view path);
    bool isProtected();
    void requireWritable();

    const std::shared_ptr<Session> m_session;
    const std::uint8_t m_map;
    std::atomic<Protection> m_protection{Protection::kUnknown};
    KnownKinds m_kinds;
    SpareHandles m_spares;  // last, since its thread uses what stands before it
};

}  // namespace peer::windows
