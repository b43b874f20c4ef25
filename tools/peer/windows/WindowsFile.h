// A file that is open on the other side.
#pragma once

#include <string>

#include "peer/FileSystem.h"
#include "peer/windows/RemoteHandle.h"

namespace peer::windows {

class WindowsFile final : public File {
public:
    WindowsFile(RemoteHandle handle, std::string path)
        : m_handle(std::move(handle)), m_path(std::move(path)) {}

    Reading read(std::uint64_t offset, std::size_t length) override;
    Writing write(std::uint64_t offset, View data) override;
    Attributes stat() override;
    void truncate(std::int64_t size) override;
    std::optional<std::uint32_t> chmod(std::uint32_t mode) override;
    void setTimes(Time accessed, Time modified) override;
    void flush() override;

private:
    const RemoteHandle m_handle;
    const std::string m_path;  // at the time of opening
};

}  // namespace peer::windows
