#include "peer/windows/Session.h"

#include <algorithm>
#include <optional>

#include "peer/windows/Status.h"

namespace peer::windows {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t kMaxDrives = 4096;
constexpr std::chrono::milliseconds kQuiet{300};  // longer than the other side's pause
constexpr std::chrono::milliseconds kNoDrivesAfter{3000};

}  // namespace

// Guarded by the session's mutex.
class Session::Pending {
public:
    bool done = false;
    bool dropped = false;    // a later request was answered
    bool abandoned = false;  // nobody waits any longer
    bool opens = false;      // the result may bring a handle
    std::uint8_t seq = 0;
    std::uint8_t map = 0;
    Bytes result;
    std::condition_variable woken;
};

Session::Session(Channel& channel, Options options)
    : m_channel(channel),
      m_options(std::move(options)),
      m_resizable(m_options.policy.setEndOfFile == 1),
      m_lastNews(Clock::now()),
      m_receiver(
          channel, [this](Bytes message) { handle(std::move(message)); },
          [this](const std::string& why) { end(why); }) {}

Session::~Session() {
    close();
}

void Session::close() {
    m_receiver.close();
    const std::lock_guard lastSend(m_submitMutex);
}

std::string Session::ending() const {
    const std::lock_guard lock(m_mutex);
    return m_ending;
}

void Session::end(const std::string& why) {
    const std::lock_guard lock(m_mutex);
    m_ending = why;
    wakeAllLocked();
    if (m_options.driveListener) m_options.driveListener();
}

void Session::wakeAllLocked() {
    m_changed.notify_all();
    for (const Ticket& ticket : m_inFlight) ticket->woken.notify_all();
}

void Session::trace(Direction direction, View message) {
    if (m_options.trace) m_options.trace(m_tracer.line(direction, message));
}

void Session::handle(Bytes message) {
    {
        const std::lock_guard lock(m_mutex);
        trace(Direction::kFromDrives, message);
    }
    const Header header = Header::parse(message);

    std::unique_lock lock(m_mutex);
    if (!m_shaken) {
        parseHandshake(message);
        m_shaken = true;
        m_changed.notify_all();
        return;
    }
    switch (header.type) {
        case kResult: {
            const Ticket answered = handleResult(std::move(message));
            lock.unlock();  // or the waiter would wake up only to wait for the lock
            return answered->woken.notify_one();
        }
        case kMapAdd:
        case kPrinterAdd:
        case kDriveName:
        case kMapDelete:
            return handleDrive(header, message);
        case kUserProfile:
            return;
        case kCompressed:
            throw BadMessage("a compressed result, which was not asked for");
        default:
            throw BadMessage("a message of the unknown kind " + std::to_string(header.type));
    }
}

Session::Ticket Session::handleResult(Bytes message) {
    const auto seq = loadLe<std::uint8_t>(message.data() + kSeqAt);
    const auto found = std::find_if(m_inFlight.begin(), m_inFlight.end(),
                                    [seq](const Ticket& t) { return t->seq == seq; });
    if (found == m_inFlight.end()) {
        throw BadMessage("a result with the number " + std::to_string(seq) +
                         ", which no request has");
    }
    for (auto before = m_inFlight.begin(); before != found; ++before) {
        (*before)->done = (*before)->dropped = true;
        (*before)->woken.notify_one();
    }
    Ticket answered = *found;
    answered->result = std::move(message);
    answered->done = true;
    if (answered->abandoned) abandonLocked(*answered);
    const bool wasFull = m_inFlight.size() >= kMaxInFlight;
    m_inFlight.erase(m_inFlight.begin(), std::next(found));
    if (wasFull) m_changed.notify_all();
    return answered;
}

void Session::abandonLocked(Pending& ticket) {
    ticket.abandoned = true;
    if (!ticket.opens || !ticket.done || ticket.dropped) return;
    const Created created = parseCreated(ticket.result);
    if (created.handle != kNoHandle) m_orphans.emplace_back(ticket.map, created.handle);
}

void Session::handleDrive(const Header& header, View message) {
    const auto find = [this](std::uint32_t id) {
        return std::find_if(m_drives.begin(), m_drives.end(),
                            [id](const Drive& d) { return d.id == id; });
    };
    if (header.type == kMapDelete) {
        const auto drive = find(parseDriveDeleted(message).id);
        if (drive != m_drives.end()) m_drives.erase(drive);
    } else if (header.type == kDriveName) {
        const DriveNamed named = parseDriveNamed(message);
        const auto drive = find(named.id);
        if (drive == m_drives.end()) throw BadMessage("names for a drive that was not announced");
        drive->hasNames = true;
        drive->type = named.type;
        drive->computer = named.computer;
        drive->share = named.share;
    } else {
        const DriveAdded added = parseDriveAdded(message);
        if (find(added.id) != m_drives.end()) throw BadMessage("a drive is announced twice");
        if (m_drives.size() >= kMaxDrives) throw BadMessage("too many drives are announced");
        m_drives.push_back({added.id, added.name, added.volume, added.printer, false, 0, {}, {}});
    }
    m_lastNews = Clock::now();
    m_changed.notify_all();
    if (m_options.driveListener) m_options.driveListener();
}

void Session::checkLocked() const {
    if (m_cancelled) throw Cancelled();
    if (!m_ending.empty()) throw SessionError(m_ending);
}

void Session::open() {
    {
        std::unique_lock lock(m_mutex);
        const bool over = !m_changed.wait_for(lock, m_options.timeout,
                                              [this] { return m_shaken || isOverLocked(); });
        if (over) throw SessionError(m_channel.name() + ": no handshake came");
        if (!m_shaken) checkLocked();
    }
    sendPolicy(m_options.policy);
}

void Session::sendPolicy(const Policy& policy) {
    const Bytes message = policy.encode();
    {
        const std::lock_guard lock(m_mutex);
        checkLocked();
        trace(Direction::kToDrives, message);
        m_lastNews = Clock::now();
    }
    m_resizable = policy.setEndOfFile == 1;
    m_channel.send(message);
}

std::vector<Drive> Session::drives() const {
    const std::lock_guard lock(m_mutex);
    return m_drives;
}

bool Session::mapsAreKnown() {
    const std::uint32_t maps = parseMapCount(ask(mapCountRequest()));
    const std::lock_guard lock(m_mutex);
    return maps > 0 && maps == m_drives.size();
}

bool Session::waitForDrives(const std::function<bool(const std::vector<Drive>&)>& found,
                            std::chrono::milliseconds limit) {
    const auto start = Clock::now();
    const auto deadline = start + limit;
    std::unique_lock lock(m_mutex);
    while (true) {
        if (found(m_drives)) return true;
        checkLocked();
        const auto now = Clock::now();
        const bool none = m_drives.empty();
        const auto settled = none ? start + kNoDrivesAfter : m_lastNews + kQuiet;
        if (now >= deadline || (none && now >= settled)) return false;
        if (now >= settled) {
            lock.unlock();
            const bool known = mapsAreKnown();
            lock.lock();
            if (known && Clock::now() >= m_lastNews + kQuiet) return found(m_drives);
            m_changed.wait_for(lock, kQuiet);
        } else {
            m_changed.wait_until(lock, std::min(settled, deadline));
        }
    }
}

Session::Ticket Session::submit(Bytes request) {
    const std::lock_guard order(m_submitMutex);
    closeOrphans();
    return send(std::move(request));
}

void Session::closeOrphans() {
    decltype(m_orphans) orphans;
    {
        const std::lock_guard lock(m_mutex);
        orphans.swap(m_orphans);
    }
    for (const auto& [map, handle] : orphans) closeOrKeep(map, handle);
}

void Session::closeOrKeep(std::uint8_t map, std::uint64_t handle) noexcept {
    try {
        send(closeRequest(map, handle));
    } catch (const std::exception&) {
        // Cancelled, and closed with the next request, or the connection has gone.
        const std::lock_guard lock(m_mutex);
        m_orphans.emplace_back(map, handle);
    }
}

Session::Ticket Session::send(Bytes request) {
    auto ticket = std::make_shared<Pending>();
    ticket->opens = loadLe<std::uint16_t>(request.data() + kTypeAt) == kCreate;
    ticket->map = loadLe<std::uint8_t>(request.data() + kMapAt);
    {
        std::unique_lock lock(m_mutex);
        const bool over = !m_changed.wait_for(lock, m_options.timeout, [this] {
            return m_inFlight.size() < kMaxInFlight || isOverLocked();
        });
        checkLocked();
        if (over) throw NoAnswer(m_channel.name() + ": no answer came in time");
        ticket->seq = m_nextSeq++;
        storeLe(request.data() + kSeqAt, ticket->seq);
        m_inFlight.push_back(ticket);
        trace(Direction::kToDrives, request);
    }
    try {
        m_channel.send(request);
    } catch (const ChannelError& error) {
        throw SessionError(error.what());
    }
    return ticket;
}

Bytes Session::wait(const Ticket& ticket) {
    const auto isOpen = [&] {
        const std::lock_guard lock(m_mutex);
        return !ticket->done;
    };
    m_receiver.lingerWhile(isOpen);
    std::optional<Receiver::Sleeper> sleeper;
    if (isOpen()) sleeper.emplace(m_receiver);
    std::unique_lock lock(m_mutex);
    const bool over = !ticket->woken.wait_for(lock, m_options.timeout,
                                              [&] { return ticket->done || isOverLocked(); });
    if (m_cancelled || over) abandonLocked(*ticket);
    if (!ticket->done || m_cancelled) checkLocked();
    if (over) throw NoAnswer(m_channel.name() + ": no answer came in time");
    if (ticket->dropped) throw NoAnswer("the request was dropped without an answer");
    return std::move(ticket->result);
}

Created Session::open(std::uint8_t map, std::string_view path, std::uint32_t flags,
                      std::uint32_t mode) {
    const Created created = parseCreated(ask(createRequest(map, wirePath(path), flags, mode)));
    if (created.status != kSuccess && created.handle != kNoHandle) {
        close(map, created.handle);  // opened, and then something else failed
    }
    if (const std::int32_t outcome = created.outcome(); outcome != kSuccess) {
        throw StatusError(outcome);
    }
    return created;
}

void Session::close(std::uint8_t map, std::uint64_t handle) {
    parseStatus(ask(closeRequest(map, handle)));
}

void Session::release(std::uint8_t map, std::uint64_t handle) noexcept {
    const std::lock_guard order(m_submitMutex);
    closeOrKeep(map, handle);
}

ObjectInfo Session::queryInfo(std::uint8_t map, std::uint64_t handle) {
    return parseInfo(ask(queryInfoRequest(map, handle)));
}

VolumeInfo Session::volume(std::uint8_t map, std::uint64_t handle) {
    return parseVolume(ask(volumeRequest(map, handle)));
}

ObjectInfo Session::setInfo(std::uint8_t map, std::uint64_t handle, const ObjectInfo& info) {
    return parseInfo(ask(setInfoRequest(map, handle, info)));
}

ObjectInfo Session::setEndOfFile(std::uint8_t map, std::uint64_t handle, std::int64_t size) {
    return parseInfo(ask(setEndOfFileRequest(map, handle, size)));
}

void Session::flush(std::uint8_t map, std::uint64_t handle) {
    parseStatus(ask(flushRequest(map, handle)));
}

void Session::remove(std::uint8_t map, std::string_view path, std::uint32_t flags) {
    parseStatus(ask(removeRequest(map, wirePath(path), flags)));
}

void Session::rename(std::uint8_t map, std::string_view from, std::string_view to,
                     std::uint32_t flags) {
    parseStatus(ask(renameRequest(map, wirePath(from), wirePath(to), flags)));
}

void Session::cancel() {
    const std::lock_guard lock(m_mutex);
    m_cancelled = true;
    wakeAllLocked();
}

void Session::resume() {
    const std::lock_guard lock(m_mutex);
    m_cancelled = false;
}

}  // namespace peer::windows
