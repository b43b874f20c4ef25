#include "peer/windows/WindowsFile.h"

#include <algorithm>
#include <cerrno>

#include "peer/windows/FileAttributes.h"
#include "peer/windows/Status.h"

namespace peer::windows {

namespace {

std::size_t written(View result, std::uint32_t asked) {
    try {
        return parseWritten(result, asked);
    } catch (const StatusError& error) {
        // A drive that cannot be written opens files for reading, whatever was asked.
        if (error.error() == EBADF) throw RemoteError(EROFS, error.what());
        throw;
    }
}

}  // namespace

File::Reading WindowsFile::read(std::uint64_t offset, std::size_t length) {
    const auto asked = static_cast<std::uint32_t>(std::min(length, kMaxTransfer));
    if (asked == 0) return [] { return Data(); };
    Session::Ticket ticket =
        m_handle.session().submit(readRequest(m_handle.map(), m_handle.value(), offset, asked));
    return [this, asked, ticket = std::move(ticket)] {
        return checked([&] {
            Data data;
            data.message = m_handle.session().wait(ticket);
            data.bytes = parseRead(data.message, asked);
            return data;
        });
    };
}

File::Writing WindowsFile::write(std::uint64_t offset, View data) {
    const View sent = data.first(std::min(data.size(), kMaxTransfer));
    if (sent.empty()) return [] { return std::size_t{0}; };
    Session::Ticket ticket =
        m_handle.session().submit(writeRequest(m_handle.map(), m_handle.value(), offset, sent));
    return [this, asked = static_cast<std::uint32_t>(sent.size()), ticket = std::move(ticket)] {
        return checked([&] { return written(m_handle.session().wait(ticket), asked); });
    };
}

Attributes WindowsFile::stat() {
    return checked([this] {
        return attributesOf(m_handle.session().queryInfo(m_handle.map(), m_handle.value()), m_path);
    });
}

void WindowsFile::truncate(std::int64_t size) {
    checked([&] { setSize(m_handle, size); });
}

std::optional<std::uint32_t> WindowsFile::chmod(std::uint32_t mode) {
    return checked([&] { return setMode(m_handle, mode); });
}

void WindowsFile::setTimes(Time accessed, Time modified) {
    checked([&] { windows::setTimes(m_handle, accessed, modified); });
}

void WindowsFile::flush() {
    checked([this] { m_handle.session().flush(m_handle.map(), m_handle.value()); });
}

}  // namespace peer::windows
