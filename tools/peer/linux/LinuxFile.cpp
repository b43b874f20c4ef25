#include "peer/linux/LinuxFile.h"

#include <algorithm>
#include <cerrno>

#include "peer/linux/Results.h"

namespace peer::linux {

LinuxFile::LinuxFile(std::shared_ptr<LinuxFileSystem> files, std::string_view path,
                     std::optional<std::uint32_t> finalMode)
    : m_files(std::move(files)), m_path{std::string(path)}, m_finalMode(finalMode) {
    const std::lock_guard lock(m_files->m_openMutex);
    m_files->m_open.insert(&m_path);
}

LinuxFile::~LinuxFile() {
    try {
        setFinalMode();
    } catch (const std::exception&) {
        // Its owner had flush() to hear of it.
    }
    const std::lock_guard lock(m_files->m_openMutex);
    m_files->m_open.erase(&m_path);
}

File::Reading LinuxFile::read(std::uint64_t offset, std::size_t length) {
    const std::size_t asked = std::min(length, kMaxTransfer);
    const auto ticket = std::make_shared<Session::Ticket>(
        submit([&](std::string_view path) { return readRequest(path, offset, asked); }));
    return [this, ticket, asked] {
        Data data;
        data.message = m_files->m_session->wait(std::move(*ticket));
        data.bytes = parseRead(data.message, asked);
        return data;
    };
}

File::Writing LinuxFile::write(std::uint64_t offset, View data) {
    const View sent = data.first(std::min(data.size(), kMaxTransfer));
    const auto ticket = std::make_shared<Session::Ticket>(
        submit([&](std::string_view path) { return writeRequest(path, offset, sent); }));
    return [this, ticket, size = sent.size()] {
        return parseWritten(m_files->m_session->wait(std::move(*ticket)), size);
    };
}

Attributes LinuxFile::stat() {
    Attributes attributes =
        parseGetattr(ask([](std::string_view path) { return pathRequest(kGetattr, path); }));
    const std::lock_guard lock(m_modeMutex);
    if (m_finalMode) attributes.mode = (attributes.mode & ~07777U) | *m_finalMode;
    return attributes;
}

void LinuxFile::truncate(std::int64_t size) {
    parseDone(ask([=](std::string_view path) { return numberRequest(kTruncate, path, size); }));
}

std::optional<std::uint32_t> LinuxFile::chmod(std::uint32_t mode) {
    const std::lock_guard lock(m_modeMutex);
    parseDone(ask([=](std::string_view path) { return numberRequest(kChmod, path, mode); }));
    m_finalMode.reset();
    return mode;
}

void LinuxFile::setTimes(Time /*accessed*/, Time /*modified*/) {
    throw localError(ENOSYS);
}

void LinuxFile::flush() {
    setFinalMode();
}

void LinuxFile::setFinalMode() {
    std::optional<std::uint32_t> mode;
    {
        const std::lock_guard lock(m_modeMutex);
        mode.swap(m_finalMode);
    }
    if (!mode) return;
    parseDone(ask([&](std::string_view path) { return numberRequest(kChmod, path, *mode); }));
}

}  // namespace peer::linux
