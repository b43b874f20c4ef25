#include "peer/windows/WindowsMachine.h"

#include <algorithm>
#include <limits>

#include "peer/windows/WindowsFileSystem.h"

namespace peer::windows {

namespace {

Offer::Kind kindOf(const Drive& drive) {
    if (drive.printer) return Offer::Kind::kPrinter;
    switch (drive.type) {
        case kRootMap:
            return Offer::Kind::kRoot;
        case kDiskMap:
            return Offer::Kind::kDisk;
        case kOpticalMap:
            return Offer::Kind::kOptical;
        case kNetworkMap:
            return Offer::Kind::kNetwork;
        default:
            return Offer::Kind::kUnknown;
    }
}

// The second of the two messages that announce a drive says what it is, and a request has one byte
// for its number.
bool canBeUsed(const Drive& drive) {
    return (drive.hasNames || drive.printer) &&
           drive.id <= std::numeric_limits<std::uint8_t>::max();
}

Session::Options sessionOptions(Machine::Options options, Session::DriveListener listener) {
    Session::Options session;
    session.policy = std::move(options.policy);
    session.policy.word &= ~std::uint32_t{kLinuxDesktop};
    session.timeout = options.timeout;
    session.trace = std::move(options.trace);
    session.driveListener = std::move(listener);
    return session;
}

}  // namespace

WindowsMachine::WindowsMachine(Channel& channel, Options options)
    : m_session(std::make_shared<Session>(channel, sessionOptions(std::move(options), [this] {
                                              const std::lock_guard lock(m_newsMutex);
                                              m_news = true;
                                              m_newsCame.notify_one();
                                          }))) {
    m_teller = std::thread([this] { tellLoop(); });
}

WindowsMachine::~WindowsMachine() {
    m_session->close();
    {
        const std::lock_guard lock(m_newsMutex);
        m_stops = true;
        m_newsCame.notify_one();
    }
    m_teller.join();
}

// The session's own listener may not call back, and this one's may.
void WindowsMachine::tellLoop() {
    while (true) {
        {
            std::unique_lock lock(m_newsMutex);
            m_newsCame.wait(lock, [this] { return m_news || m_stops; });
            if (!m_news) return;
            m_news = false;
        }
        const std::lock_guard lock(m_listenerMutex);
        if (m_listener) m_listener();
    }
}

void WindowsMachine::listen(Listener listener) {
    const std::lock_guard lock(m_listenerMutex);
    m_listener = std::move(listener);
}

// Each drive keeps the file system that it was first offered with.
std::vector<Offer> WindowsMachine::offersOf(const std::vector<Drive>& drives) {
    const std::lock_guard lock(m_offersMutex);
    std::vector<Offer> offers;
    for (const Drive& drive : drives) {
        if (!canBeUsed(drive)) continue;
        const auto known = std::find_if(m_offers.begin(), m_offers.end(),
                                        [&](const Offer& offer) { return offer.id == drive.id; });
        if (known != m_offers.end()) {
            offers.push_back(*known);
            continue;
        }
        offers.push_back({drive.id, drive.name, kindOf(drive), drive.computer, drive.share,
                          std::make_shared<WindowsFileSystem>(m_session, drive)});
        m_offers.push_back(offers.back());
    }
    return offers;
}

std::vector<Offer> WindowsMachine::drives() {
    return offersOf(m_session->drives());
}

bool WindowsMachine::waitForDrives(const std::function<bool(const std::vector<Offer>&)>& found,
                                   std::chrono::milliseconds limit) {
    return m_session->waitForDrives(
        [&](const std::vector<Drive>& drives) { return found(offersOf(drives)); }, limit);
}

}  // namespace peer::windows
