#include "fdmount/Client.h"

#include <unistd.h>

#include <algorithm>

#include "fdmount/Signals.h"
#include "peer/Text.h"

namespace fdmount {

using peer::windows::Drive;
using peer::windows::Session;

namespace {

void traceLine(const std::string& text) {
    const std::string line = text + "\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

const Drive* find(const std::vector<Drive>& drives, const std::string& name) {
    const auto drive =
        std::find_if(drives.begin(), drives.end(), [&](const Drive& d) { return d.name == name; });
    return drive == drives.end() ? nullptr : &*drive;
}

std::string namesOf(const std::vector<Drive>& drives) {
    std::string names;
    for (const Drive& drive : drives) {
        names += (names.empty() ? "" : ", ") + peer::quoted(drive.name);
    }
    return names;
}

}  // namespace

Client::Client(const Options& options)
    : m_options(options), m_connection(peer::connectTo(options.channel)) {
    Session::Options session;
    session.policy = options.policy;
    session.timeout = options.timeout;
    if (options.trace) session.trace = traceLine;
    m_session = std::make_unique<Session>(*m_connection.channel, std::move(session));
    onStopSignal([this] { m_session->cancel(); });
    try {
        m_session->open();
    } catch (const peer::SessionError& error) {
        onStopSignal({});
        const std::string ending = m_connection.child ? m_connection.child->ending() : "";
        throw CommandError(error.what() + (ending.empty() ? "" : " (" + ending + ")"));
    }
}

Client::~Client() {
    onStopSignal({});
}

std::vector<Drive> Client::allDrives() {
    m_session->waitForDrives([](const std::vector<Drive>&) { return false; }, m_options.timeout);
    return m_session->drives();
}

RemotePath Client::resolve(const std::string& name) {
    RemotePath path;
    path.shown = name;
    const std::size_t slash = name.find('/');
    path.drive = name.substr(0, slash);
    if (slash != std::string::npos) path.path = name.substr(slash + 1);
    while (path.path.ends_with('/')) path.path.pop_back();

    m_session->waitForDrives(
        [&](const std::vector<Drive>& drives) { return find(drives, path.drive) != nullptr; },
        m_options.timeout);
    const std::vector<Drive> drives = m_session->drives();
    const Drive* drive = find(drives, path.drive);
    if (drive == nullptr) {
        throw CommandError(peer::quoted(path.drive) + ": no such drive; " +
                           (drives.empty() ? "none is offered" : "offered: " + namesOf(drives)));
    }
    if (drive->id > 255) throw CommandError(path.drive + ": out of reach, its number is too large");
    path.map = static_cast<std::uint8_t>(drive->id);
    return path;
}

}  // namespace fdmount
