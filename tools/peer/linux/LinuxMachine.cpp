#include "peer/linux/LinuxMachine.h"

#include <algorithm>

#include "peer/linux/LinuxFileSystem.h"

namespace peer::linux {

namespace {

Offer::Kind kindOf(const PlugRecord& plug) {
    if (plug.root || plug.folder == "Root") return Offer::Kind::kRoot;
    switch (plug.type) {
        case kDiskMount:
            return Offer::Kind::kDisk;
        case kRemovableMount:
            return Offer::Kind::kRemovable;
        case kOpticalMount:
            return Offer::Kind::kOptical;
        case kNetworkMount:
            return Offer::Kind::kNetwork;
        default:
            return Offer::Kind::kUnknown;
    }
}

}  // namespace

LinuxMachine::LinuxMachine(Channel& channel, Options options)
    : m_session(std::make_shared<Session>(channel, std::move(options))) {}

LinuxMachine::~LinuxMachine() {
    m_session->close();
}

// Each drive keeps the file system that it was first offered with.
std::vector<Offer> LinuxMachine::offersOf(const std::vector<DrivePtr>& drives) {
    const std::lock_guard lock(m_knownMutex);
    std::erase_if(m_known, [](const Known& known) { return known.drive->gone.load(); });
    std::vector<Offer> offers;
    for (const DrivePtr& drive : drives) {
        const auto known = std::find_if(m_known.begin(), m_known.end(),
                                        [&](const Known& k) { return k.drive == drive; });
        if (known != m_known.end()) {
            offers.push_back(known->offer);
            continue;
        }
        const PlugRecord& plug = drive->plug;
        offers.push_back({static_cast<std::uint32_t>(drive->map), plug.folder, kindOf(plug),
                          plug.computer, plug.folder,
                          std::make_shared<LinuxFileSystem>(m_session, drive)});
        m_known.push_back({drive, offers.back()});
    }
    return offers;
}

std::vector<Offer> LinuxMachine::drives() {
    return offersOf(m_session->drives());
}

bool LinuxMachine::waitForDrives(const std::function<bool(const std::vector<Offer>&)>& found,
                                 std::chrono::milliseconds limit) {
    return m_session->waitForDrives(
        [&](const std::vector<DrivePtr>& drives) { return found(offersOf(drives)); }, limit);
}

}  // namespace peer::linux
