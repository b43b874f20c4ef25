#include "fdmount/mount/LiveMount.h"

#include <chrono>
#include <exception>
#include <utility>

#include "fdmount/mount/MountPoint.h"

namespace fdmount {

namespace {

// For the kernel to let go of a mount that nobody works in.
constexpr std::chrono::seconds kPatience{2};

// For the closing of a folder to arrive: what libfuse holds for an open one it frees only then.
constexpr std::chrono::milliseconds kClosing{500};

}  // namespace

LiveMount::LiveMount(peer::Machine& machine, const MountOptions& options,
                     const std::string& mountPoint)
    : m_machine(machine),
      m_mountPoint(mountPoint),
      m_mount(options, [&machine] { return !machine.ending().empty(); }),
      m_session(m_mount, mountPoint) {
    m_mount.drives().update(machine.drives());
    m_machine.listen([this] { tell(&News::drives); });
}

LiveMount::~LiveMount() {
    m_machine.listen({});
}

LiveMount::End LiveMount::run(const std::function<void()>& started) {
    m_session.start([this] { tell(&News::ended); });
    raiseReadAhead(m_mountPoint);
    if (started) started();
    tell(&News::drives);  // what came before the listener was there
    while (true) {
        const News news = waitForNews();
        if (news.ended) {
            m_session.join();
            return End::kUnmounted;
        }
        const bool lost = !m_machine.ending().empty();
        if (news.stopped || lost) {
            const End end = news.stopped ? End::kStopped : End::kLost;
            takeOff(end);
            return end;
        }
        if (news.drives) updateDrives();
    }
}

void LiveMount::stop() {
    tell(&News::stopped);
}

LiveMount::News LiveMount::waitForNews() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_news.drives || m_news.ended || m_news.stopped; });
    return std::exchange(m_news, News{false, m_news.ended, m_news.stopped});
}

void LiveMount::tell(bool News::*what) {
    const std::lock_guard lock(m_mutex);
    m_news.*what = true;
    m_changed.notify_all();
}

void LiveMount::updateDrives() {
    for (const std::string& name : m_mount.drives().update(m_machine.drives())) {
        m_session.forgetName(name);
    }
}

void LiveMount::takeOff(End end) {
    if (end == End::kStopped) m_mount.settle();
    m_mount.awaitClosings(kClosing);
    detachMount(m_mountPoint);
    std::unique_lock lock(m_mutex);
    if (m_changed.wait_for(lock, kPatience, [&] { return m_news.ended; })) {
        lock.unlock();
        m_session.join();
        return;
    }
    m_busy = true;
    m_session.abandon();
}

}  // namespace fdmount
