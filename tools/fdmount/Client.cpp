#include "fdmount/Client.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "fdmount/DriveNames.h"
#include "fdmount/Signals.h"
#include "peer/Text.h"

namespace fdmount {

using peer::Machine;
using peer::Offer;

namespace {

void traceLine(const std::string& text) {
    const std::string line = text + "\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

const Offer* find(const std::vector<Offer>& drives, const std::string& name) {
    const auto drive =
        std::find_if(drives.begin(), drives.end(), [&](const Offer& d) { return d.name == name; });
    return drive == drives.end() ? nullptr : &*drive;
}

// Without the slashes and dots that lead nowhere, which not every drive would see through.
std::string plain(std::string_view path) {
    std::string names;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (name.empty() || name == ".") continue;
        if (!names.empty()) names.push_back('/');
        names += name;
    }
    return names;
}

std::string namesOf(const std::vector<Offer>& drives) {
    std::string names;
    for (const Offer& drive : drives) {
        names += (names.empty() ? "" : ", ") + peer::quoted(drive.name);
    }
    return names;
}

}  // namespace

Client::Client(const Options& options)
    : m_options(options), m_connection(peer::connectTo(options.channel)) {
    Machine::Options machine;
    machine.policy = options.policy;
    machine.timeout = options.timeout;
    if (options.trace) machine.trace = traceLine;
    onStopSignal([this] { m_connection.channel->interrupt(); });
    try {
        m_machine = Machine::connect(*m_connection.channel, options.dialect, std::move(machine));
    } catch (const peer::SessionError& error) {
        onStopSignal({});
        const std::string ending = m_connection.child ? m_connection.child->ending() : "";
        throw CommandError(error.what() + (ending.empty() ? "" : " (" + ending + ")"));
    } catch (...) {
        onStopSignal({});
        throw;
    }
    stopOnSignals();
}

Client::~Client() {
    onStopSignal({});
}

void Client::stopOnSignals() {
    onStopSignal([this] { m_machine->cancel(); });
}

std::vector<Offer> Client::allDrives() {
    m_machine->waitForDrives([](const std::vector<Offer>&) { return false; }, m_options.timeout);
    return named(m_machine->drives());
}

RemotePath Client::resolve(const std::string& name) {
    const std::size_t slash = name.find('/');
    const std::string driveName = name.substr(0, slash);
    m_machine->waitForDrives(
        [&](const std::vector<Offer>& drives) { return find(named(drives), driveName) != nullptr; },
        m_options.timeout);
    const std::vector<Offer> drives = named(m_machine->drives());
    const Offer* drive = find(drives, driveName);
    if (drive == nullptr) {
        throw CommandError(peer::quoted(driveName) + ": no such drive; " +
                           (drives.empty() ? "none is offered" : "offered: " + namesOf(drives)));
    }
    return {name, drive->files, slash == std::string::npos ? "" : plain(name.substr(slash + 1))};
}

}  // namespace fdmount
