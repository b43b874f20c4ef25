// An open file in the Linux dialect: a path that is asked anew for each read and write.
#pragma once

#include <memory>
#include <mutex>
#include <optional>

#include "peer/linux/LinuxFileSystem.h"

namespace peer::linux {

class LinuxFile : public File {
public:
    // `finalMode`: a file that is being made has its owner's permission to write until flush() or
    // its end, as each write opens it again; then it gets these.
    LinuxFile(std::shared_ptr<LinuxFileSystem> files, std::string_view path,
              std::optional<std::uint32_t> finalMode = {});
    ~LinuxFile() override;
    LinuxFile(const LinuxFile&) = delete;
    LinuxFile& operator=(const LinuxFile&) = delete;

    Reading read(std::uint64_t offset, std::size_t length) override;
    Writing write(std::uint64_t offset, View data) override;
    Attributes stat() override;
    void truncate(std::int64_t size) override;
    std::optional<std::uint32_t> chmod(std::uint32_t mode) override;
    void setTimes(Time accessed, Time modified) override;
    void flush() override;

private:
    void setFinalMode();

    // Sends what `build` makes of the path.
    template <typename Build>
    Session::Ticket submit(Build build) {
        return m_files->m_session->submit(*m_files->m_drive, m_files->withPath(m_path, build));
    }
    template <typename Build>
    Bytes ask(Build build) {
        return m_files->m_session->wait(submit(build));
    }

    const std::shared_ptr<LinuxFileSystem> m_files;
    LinuxFileSystem::OpenPath m_path;
    std::mutex m_modeMutex;  // guards m_finalMode
    std::optional<std::uint32_t> m_finalMode;
};

}  // namespace peer::linux
