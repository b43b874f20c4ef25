// Both dialects from end to end: the other side's library over a channel to fdshare, which runs the
// plug-in in a process of its own, as sftp-server runs in one.
#include <benchmark/benchmark.h>
#include <fcntl.h>

#include <chrono>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "Contest.h"
#include "TestTree.h"
#include "peer/Endpoint.h"
#include "peer/linux/LinuxFileSystem.h"
#include "peer/windows/WindowsFileSystem.h"

namespace {

constexpr std::chrono::seconds kPatience{20};
const std::string kFile = "read.bin";

peer::windows::Policy policy() {
    peer::windows::Policy policy;
    policy.mountParents = "/media";
    policy.localTypes = "ext4|xfs|btrfs|tmpfs|overlay|fuse";
    policy.filter = "/";
    return policy;
}

// A connection to an fdshare that shares the test tree as its only drive.
template <typename Session, typename Options>
struct Share {
    Share()
        : connection(
              peer::connectTo("exec:exec '" FDSHARE "' --stdio '" + testTree().root() + "'")) {
        Options options;
        options.policy = policy();
        session = std::make_shared<Session>(*connection.channel, options);
        session->open();
        session->waitForDrives([](const auto& drives) { return !drives.empty(); }, kPatience);
        if (session->drives().empty()) throw std::runtime_error("no drive was offered");
    }

    peer::Connection connection;
    std::shared_ptr<Session> session;
};

class LinuxShare {
public:
    peer::FileSystem& files() { return *m_files; }

    auto askAttributes() {
        return m_share.session->submit(*m_drive,
                                       peer::linux::pathRequest(peer::linux::kGetattr, kFile));
    }
    void takeAttributes(peer::linux::Session::Ticket ticket) {
        peer::linux::parseGetattr(m_share.session->wait(std::move(ticket)));
    }

private:
    Share<peer::linux::Session, peer::Machine::Options> m_share;
    peer::linux::DrivePtr m_drive = m_share.session->drives().front();
    std::shared_ptr<peer::FileSystem> m_files =
        std::make_shared<peer::linux::LinuxFileSystem>(m_share.session, m_drive);
};

class WindowsShare {
public:
    peer::FileSystem& files() { return *m_files; }

    auto askAttributes() {
        return m_share.session->submit(peer::windows::queryInfoRequest(m_map, m_handle));
    }
    void takeAttributes(const peer::windows::Session::Ticket& ticket) {
        peer::windows::parseInfo(m_share.session->wait(ticket));
    }

private:
    static constexpr std::uint32_t kOpenFlags =
        peer::windows::kOpenIfExists | peer::windows::kFailIfNew | peer::windows::kAccessRead;

    Share<peer::windows::Session, peer::windows::Session::Options> m_share;
    peer::windows::Drive m_drive = m_share.session->drives().front();
    std::uint8_t m_map = static_cast<std::uint8_t>(m_drive.id);
    std::uint64_t m_handle = m_share.session->open(m_map, kFile, kOpenFlags).handle;
    std::shared_ptr<peer::FileSystem> m_files =
        std::make_shared<peer::windows::WindowsFileSystem>(m_share.session, m_drive);
};

// Each is started when its first benchmark is, and stays.
template <typename Dialect>
Dialect& share() {
    static Dialect dialect;
    return dialect;
}

template <typename Dialect>
void statByPeer(benchmark::State& state, int depth) {
    auto& dialect = share<Dialect>();
    std::deque<decltype(dialect.askAttributes())> asked;
    pump(
        state, depth, [&] { asked.push_back(dialect.askAttributes()); },
        [&] {
            dialect.takeAttributes(std::move(asked.front()));
            asked.pop_front();
        });
    countOperations(state);
}

template <typename Dialect>
void readByPeer(benchmark::State& state, int depth, std::size_t size) {
    const auto file = share<Dialect>().files().open(kFile, O_RDONLY);
    BlockWalk walk(size);
    std::deque<peer::File::Reading> asked;
    pump(
        state, depth, [&] { asked.push_back(file->read(walk.next(), size)); },
        [&] {
            expect(asked.front()().bytes.size() == size, "read failed");
            asked.pop_front();
        });
    countOperations(state);
}

template <typename Dialect>
void writeByPeer(benchmark::State& state, int depth, std::size_t size) {
    const auto file = share<Dialect>().files().open("write.bin", O_RDWR);
    const std::string data(size, 'w');
    BlockWalk walk(size);
    std::deque<peer::File::Writing> asked;
    pump(
        state, depth, [&] { asked.push_back(file->write(walk.next(), peer::viewOf(data))); },
        [&] {
            expect(asked.front()() == size, "write failed");
            asked.pop_front();
        });
    countOperations(state);
}

template <typename Dialect>
void listByPeer(benchmark::State& state) {
    std::size_t count = 0;
    for (auto _ : state) {
        count = 0;
        share<Dialect>().files().list(
            "entries", [&](std::vector<peer::DirEntry> entries) { count += entries.size(); });
    }
    expect(count == TestTree::kEntries, "listing failed");
    countOperations(state);
}

[[maybe_unused]] const bool added = [] {
    for (const int depth : {1, 16}) {
        const std::string work = workName("getattr", depth);
        add(work + "/linux", statByPeer<LinuxShare>, depth);
        add(work + "/windows", statByPeer<WindowsShare>, depth);
        addOthersOfStat(work, depth);
        for (const auto& [name, size] : {std::pair{" 4 KiB", std::size_t{4} << 10},
                                         {" 64 KiB", std::size_t{64} << 10},
                                         {" 1 MiB", std::size_t{1} << 20}}) {
            const std::string reading = workName(std::string("read") + name, depth);
            add(reading + "/linux", readByPeer<LinuxShare>, depth, size);
            add(reading + "/windows", readByPeer<WindowsShare>, depth, size);
            addOthersOfRead(reading, depth, size);
            const std::string writing = workName(std::string("write") + name, depth);
            add(writing + "/linux", writeByPeer<LinuxShare>, depth, size);
            add(writing + "/windows", writeByPeer<WindowsShare>, depth, size);
            addOthersOfWrite(writing, depth, size);
        }
    }
    add("list 10,000 entries/linux", listByPeer<LinuxShare>);
    add("list 10,000 entries/windows", listByPeer<WindowsShare>);
    addOthersOfList("list 10,000 entries");
    return true;
}();

}  // namespace
