#include "peer/linux/Session.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <stdexcept>

#include "peer/linux/Results.h"
#include "peer/windows/Messages.h"

namespace peer::linux {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMaxDrives = 4096;
constexpr auto kQuiet = 300ms;  // all drives of a pass of the other side's come in one go
constexpr auto kNoDrivesAfter = 3000ms;
constexpr auto kFirstProbePause = 2ms;  // the other side lists a drive at once, or nearly so
constexpr auto kLongestProbePause = 500ms;

// Told to the other side, which only keeps it.
std::string placeOf(const PlugRecord& plug) {
    return "/" + plug.folder;
}

// The number of a request that asks whether the drive is there yet. All others are above zero.
std::int64_t probeNumber(std::int32_t map) {
    return -1 - std::int64_t{map};
}

}  // namespace

Session::Ticket::~Ticket() {
    if (m_slot != nullptr) m_session->release(*m_slot);
}

Session::Session(Channel& channel, Machine::Options options)
    : m_channel(channel),
      m_options(std::move(options)),
      m_name(channel.name()),
      m_slots(kMaxInFlight),
      m_lastNews(Clock::now()),
      m_receiver(
          channel, [this](Bytes message) { handle(std::move(message)); },
          [this](const std::string& why) { end(why); }) {
    m_free.reserve(kMaxInFlight);
    for (Slot& slot : m_slots) m_free.push_back(&slot);
    m_driveKeeper = std::thread([this] { driveLoop(); });
}

Session::~Session() {
    close();
}

void Session::close() {
    if (m_closing.exchange(true)) return;
    m_channel.interrupt();
    {
        const std::lock_guard lock(m_sendMutex);
        m_closed = true;
    }
    m_receiver.close();
    m_driveKeeper.join();
}

// --- messages of the other side, on a thread that receives

void Session::end(const std::string& why) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_ending.empty()) m_ending = why;
        m_ended = true;
    }
    m_changed.notify_all();
    forAllSlots([](Slot&) { return true; });
    const std::lock_guard lock(m_freeMutex);
    m_freed.notify_all();
}

void Session::trace(Direction direction, View message) {
    if (!m_options.trace) return;
    const std::lock_guard lock(m_traceMutex);
    m_options.trace(m_tracer.line(direction, message));
}

void Session::handle(Bytes message) {
    trace(Direction::kFromDrives, message);
    {
        const std::lock_guard lock(m_mutex);
        if (!m_shaken) {
            windows::parseHandshake(message);
            m_shaken = true;
            m_changed.notify_all();
            return;
        }
    }
    const Head head = Head::parse(message);
    if (head.type == kMapControl) return handleControl(head, message);
    if (head.type != kOperation) {
        throw BadMessage("a message of the unknown class " + std::to_string(head.type));
    }
    if (head.idx < 0) return handleProbed(head.map);
    deliver(head, std::move(message));
}

void Session::deliver(const Head& head, Bytes message) {
    const auto number = static_cast<std::uint64_t>(head.idx);
    const auto use = static_cast<std::int64_t>(number / kMaxInFlight);
    Slot& slot = m_slots[number % kMaxInFlight];
    {
        const std::lock_guard lock(slot.mutex);
        if (use > slot.use || (use == slot.use && !slot.waiting)) {
            throw BadMessage("an answer with the number " + std::to_string(head.idx) +
                             ", which no request has");
        }
        if (use < slot.use || slot.done) return;  // nobody waits for it any more
        if (head.map != slot.map || head.subtype != slot.code) {
            throw BadMessage("the answer number " + std::to_string(head.idx) +
                             " answers something else");
        }
        slot.reply = std::move(message);
        slot.done = true;
    }
    slot.answered.notify_one();
}

void Session::handleControl(const Head& head, View message) {
    switch (head.subtype) {
        case kPlug:
            return handlePlug(head, message);
        case kUnplug:
            return handleUnplug(head.map);
        case kMapAck: {
            const std::lock_guard lock(m_mutex);
            const auto guest = find(head.map);
            if (guest == m_guests.end() || guest->state != Guest::State::kMapped) return;
            guest->state = Guest::State::kAcknowledged;
            guest->nextProbe = Clock::now();
            guest->pause = kFirstProbePause;
            m_changed.notify_all();
            return;
        }
        case kUnmapAck:
            return;
        default:
            throw BadMessage("a map control message of the unknown kind " +
                             std::to_string(head.subtype));
    }
}

void Session::handlePlug(const Head& head, View message) {
    PlugRecord plug = PlugRecord::parse(payloadOf(message));
    const std::lock_guard lock(m_mutex);
    if (head.map < 0) throw BadMessage("a drive with a number below zero is announced");
    if (find(head.map) != m_guests.end()) throw BadMessage("a drive is announced twice");
    if (m_guests.size() >= kMaxDrives) throw BadMessage("too many drives are announced");
    m_guests.push_back(
        {std::make_shared<Drive>(head.map, std::move(plug)), Guest::State::kPlugged, {}, {}});
    m_lastNews = Clock::now();
    m_changed.notify_all();
}

// Nobody waits for an answer from a drive that has gone: its last ones may never come.
void Session::handleUnplug(std::int32_t map) {
    {
        const std::lock_guard lock(m_mutex);
        const auto guest = find(map);
        if (guest == m_guests.end()) return;
        guest->drive->gone = true;
        m_guests.erase(guest);
        m_goodbyes.push_back(controlMessage(map, kUnmap));
        m_lastNews = Clock::now();
        m_news = true;
        m_changed.notify_all();
    }
    forAllSlots([map](Slot& slot) {
        if (!slot.waiting || slot.map != map) return false;
        slot.driveGone = true;
        return true;
    });
}

void Session::handleProbed(std::int32_t map) {
    const std::lock_guard lock(m_mutex);
    const auto guest = find(map);
    if (guest == m_guests.end() || guest->state != Guest::State::kAcknowledged) return;
    guest->state = Guest::State::kOffered;
    m_lastNews = Clock::now();
    m_news = true;
    m_changed.notify_all();
}

// --- drives, on the thread of the drives

void Session::driveLoop() {
    std::unique_lock lock(m_mutex);
    try {
        while (!m_ended) {
            if (driveWork(lock)) continue;
            auto next = Clock::time_point::max();
            for (const Guest& guest : m_guests) {
                if (guest.state == Guest::State::kAcknowledged) {
                    next = std::min(next, guest.nextProbe);
                }
            }
            if (next == Clock::time_point::max()) {
                m_changed.wait(lock);
            } else {
                m_changed.wait_until(lock, next);
            }
        }
        lock.unlock();
    } catch (const std::exception& error) {  // of a send, which holds no lock
        end(error.what());
    }
    tellListener();
}

// One thing that waits to be done, with the lock let go meanwhile. False if there is none.
bool Session::driveWork(std::unique_lock<std::mutex>& lock) {
    if (!m_goodbyes.empty()) {
        const Bytes goodbye = std::move(m_goodbyes.front());
        m_goodbyes.pop_front();
        lock.unlock();
        send(goodbye);
        lock.lock();
        return true;
    }
    const auto now = Clock::now();
    for (Guest& guest : m_guests) {
        const DrivePtr drive = guest.drive;
        if (guest.state == Guest::State::kPlugged) {
            guest.state = Guest::State::kMapped;
            lock.unlock();
            send(mapMessage(drive->map, placeOf(drive->plug)));
            lock.lock();
            return true;
        }
        if (guest.state == Guest::State::kAcknowledged && guest.nextProbe <= now) {
            guest.nextProbe = now + guest.pause;
            guest.pause = std::min<Clock::duration>(2 * guest.pause, kLongestProbePause);
            lock.unlock();
            probe(drive->map);
            lock.lock();
            return true;
        }
    }
    if (!m_news) return false;
    m_news = false;
    lock.unlock();
    tellListener();
    lock.lock();
    return true;
}

void Session::probe(std::int32_t map) {
    Request request = pathRequest(kGetattr, "");
    number(request, map, probeNumber(map));
    send(request.frame);
}

void Session::listen(std::function<void()> listener) {
    const std::lock_guard lock(m_listenerMutex);
    m_listener = std::move(listener);
}

void Session::tellListener() {
    const std::lock_guard lock(m_listenerMutex);
    if (m_listener) m_listener();
}

std::vector<Session::Guest>::iterator Session::find(std::int32_t map) {
    return std::find_if(m_guests.begin(), m_guests.end(),
                        [map](const Guest& guest) { return guest.drive->map == map; });
}

std::vector<DrivePtr> Session::drivesLocked() const {
    std::vector<DrivePtr> drives;
    for (const Guest& guest : m_guests) {
        if (guest.state == Guest::State::kOffered) drives.push_back(guest.drive);
    }
    return drives;
}

// Without those that an earlier one of the same name, which has not answered yet, goes before.
std::vector<DrivePtr> Session::drivesInOrderLocked() const {
    std::vector<DrivePtr> drives;
    std::set<std::string_view> awaited;
    for (const Guest& guest : m_guests) {
        const std::string& name = guest.drive->plug.folder;
        if (guest.state != Guest::State::kOffered) {
            awaited.insert(name);
        } else if (!awaited.contains(name)) {
            drives.push_back(guest.drive);
        }
    }
    return drives;
}

std::vector<DrivePtr> Session::drives() const {
    const std::lock_guard lock(m_mutex);
    return drivesLocked();
}

bool Session::isSettledLocked() const {
    return std::all_of(m_guests.begin(), m_guests.end(),
                       [](const Guest& guest) { return guest.state == Guest::State::kOffered; });
}

bool Session::waitForDrives(const std::function<bool(const std::vector<DrivePtr>&)>& found,
                            std::chrono::milliseconds limit) {
    const auto start = Clock::now();
    const auto deadline = start + limit;
    std::unique_lock lock(m_mutex);
    while (true) {
        if (found(drivesInOrderLocked())) return true;
        if (m_cancelled) throw Cancelled();
        if (m_ended) throw SessionError(m_ending);
        const auto quiet = m_guests.empty() ? start + kNoDrivesAfter : m_lastNews + kQuiet;
        const auto end =
            isSettledLocked() ? std::min<Clock::time_point>(quiet, deadline) : deadline;
        if (Clock::now() >= end) return false;
        m_changed.wait_until(lock, end);
    }
}

std::string Session::ending() const {
    const std::lock_guard lock(m_mutex);
    return m_ending;
}

// --- requests, on any thread

void Session::open() {
    {
        std::unique_lock lock(m_mutex);
        const bool over = !m_changed.wait_for(
            lock, m_options.timeout, [this] { return m_shaken || m_ended || m_cancelled; });
        if (over) throw SessionError(m_name + ": no handshake came");
        if (m_cancelled) throw Cancelled();
        if (!m_shaken) throw SessionError(m_ending);
        m_lastNews = Clock::now();
    }
    windows::Policy policy = m_options.policy;
    policy.word |= windows::kLinuxDesktop;
    send(policy.encode());
}

void Session::send(View head, View data, View tail) {
    const std::array<View, 3> parts{head, data, tail};
    const std::lock_guard lock(m_sendMutex);
    if (m_closed) throw SessionError(m_name + ": the session has ended");
    if (m_options.trace) {
        Bytes whole;
        for (const View part : parts) whole.append(part);
        trace(Direction::kToDrives, whole);
    }
    try {
        m_channel.send(parts);
    } catch (const ChannelError& error) {
        throw SessionError(error.what());
    }
}

void Session::check() const {
    if (m_cancelled) throw Cancelled();
    if (m_ended) throw SessionError(ending());
}

std::int64_t Session::numberOf(const Slot& slot) const {
    return slot.use * static_cast<std::int64_t>(kMaxInFlight) + (&slot - m_slots.data());
}

template <typename Work>
void Session::forAllSlots(Work work) {
    for (Slot& slot : m_slots) {
        bool wake = false;
        {
            const std::lock_guard lock(slot.mutex);
            wake = work(slot);
        }
        if (wake) slot.answered.notify_all();
    }
}

Session::Slot& Session::takeSlot() {
    std::unique_lock lock(m_freeMutex);
    const bool over = !m_freed.wait_for(
        lock, m_options.timeout, [this] { return !m_free.empty() || m_ended || m_cancelled; });
    if (m_free.empty()) {
        lock.unlock();
        check();
    }
    if (over) throw NoAnswer(m_name + ": no answer came in time");
    Slot& slot = *m_free.back();
    m_free.pop_back();
    return slot;
}

void Session::release(Slot& slot) {
    {
        const std::lock_guard lock(slot.mutex);
        ++slot.use;
        slot.waiting = slot.done = slot.driveGone = false;
        slot.reply = Bytes();
    }
    const std::lock_guard lock(m_freeMutex);
    m_free.push_back(&slot);
    m_freed.notify_one();
}

Session::Ticket Session::submit(const Drive& drive, Request request) {
    check();
    Slot& slot = takeSlot();
    Ticket ticket(*this, slot);
    {
        const std::lock_guard lock(slot.mutex);
        slot.map = drive.map;
        slot.code = request.code();
        slot.waiting = true;
        number(request, drive.map, numberOf(slot));
    }
    // After the slot can be found: a drive that goes from here on takes the request along.
    if (drive.gone) throw localError(ENODEV);
    try {
        send(request.frame, request.data, request.tail);
    } catch (const SessionError&) {
        check();
        throw;
    }
    return ticket;
}

Bytes Session::wait(Ticket ticket) {
    Slot& slot = *ticket.m_slot;
    const auto isOpen = [&slot] {
        const std::lock_guard lock(slot.mutex);
        return !slot.done && !slot.driveGone;
    };
    m_receiver.lingerWhile(isOpen);
    std::optional<Receiver::Sleeper> sleeper;
    if (isOpen()) sleeper.emplace(m_receiver);
    {
        std::unique_lock lock(slot.mutex);
        slot.answered.wait_for(lock, m_options.timeout, [&] {
            return slot.done || slot.driveGone || m_ended || m_cancelled;
        });
        if (slot.done && !m_cancelled) return std::move(slot.reply);
        if (slot.driveGone) throw localError(ENODEV);
    }
    check();
    throw NoAnswer(m_name + ": no answer came in time");
}

void Session::cancel() {
    {
        const std::lock_guard lock(m_mutex);
        m_cancelled = true;
    }
    m_changed.notify_all();
    forAllSlots([](Slot&) { return true; });
    const std::lock_guard lock(m_freeMutex);
    m_freed.notify_all();
}

void Session::resume() {
    m_cancelled = false;
}

}  // namespace peer::linux
