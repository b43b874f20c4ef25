// The Windows dialect: each kind of work by the plug-in, by sftp-server and by the bare system
// calls, with one request in flight, and with 16 where the name says so.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>

#include "BareCalls.h"
#include "PluginHost.h"
#include "SftpServer.h"
#include "TestTree.h"
#include "common/Comm/WireNumbers.h"

namespace {
constexpr std::uint32_t kOpenRead = 0x1100;       // read, fail if new
constexpr std::uint32_t kOpenReadWrite = 0x3100;  // read and write, fail if new
constexpr std::uint32_t kOpenFolder = 0x1104;
constexpr std::int32_t kNoMoreFiles = -201;
constexpr std::size_t kOffsetAt = 20;

struct Descriptor {
    Descriptor(const std::string& path, int flags) : fd(open(path.c_str(), flags | O_CLOEXEC)) {
        if (fd < 0) throw std::runtime_error("cannot open " + path);
    }
    ~Descriptor() { ::close(fd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int fd;
};

void expect(bool right, const char* what) {
    if (!right) throw std::runtime_error(what);
}

// Keeps `depth` requests in flight: every pass of the loop is one request sent and one answered.
void pump(benchmark::State& state, int depth, const std::function<void()>& send,
          const std::function<void()>& receive) {
    for (int i = 1; i < depth; ++i) send();
    for (auto _ : state) {
        send();
        receive();
    }
    for (int i = 1; i < depth; ++i) receive();
}

void countOperations(benchmark::State& state) {
    state.counters["ops"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

PluginHost& plugin() {
    static PluginHost host(testTree().root());
    return host;
}

SftpServer& sftp() {
    static SftpServer server;
    return server;
}

void queryByPlugin(benchmark::State& state, int depth) {
    const auto handle = plugin().open(testTree().readFile(), kOpenRead);
    auto request = plugin().queryRequest(handle);
    pump(
        state, depth, [&] { plugin().send(request); }, [] { plugin().receive(); });
    expect(plugin().lastStatus() == 0 && plugin().lastCount() == 92, "query failed");
    plugin().close(handle);
    countOperations(state);
}

void queryBySftp(benchmark::State& state, int depth) {
    const std::string path = testTree().readFile();
    pump(
        state, depth, [&] { sftp().sendLstat(path); }, [] { sftp().receiveAttributes(); });
    countOperations(state);
}

void queryBare(benchmark::State& state) {
    const Descriptor file(testTree().readFile(), O_RDONLY);
    struct stat info {};
    for (auto _ : state) expect(fstat(file.fd, &info) == 0, "fstat failed");
    countOperations(state);
}

// Sends the request again and again with the offset of the next block, then closes the handle.
void moveBlocksByPlugin(benchmark::State& state, std::int64_t handle, PluginHost::Message& request,
                        std::uint32_t size) {
    BlockWalk walk(size);
    pump(
        state, 1,
        [&] {
            storeLe(request.data() + kOffsetAt, std::uint64_t{walk.next()});
            plugin().send(request);
        },
        [] { plugin().receive(); });
    expect(plugin().lastStatus() == 0 && plugin().lastCount() == size, "read or write failed");
    plugin().close(handle);
    countOperations(state);
}

void readByPlugin(benchmark::State& state, std::uint32_t size) {
    const auto handle = plugin().open(testTree().readFile(), kOpenRead);
    auto request = plugin().readRequest(handle, 0, size);
    moveBlocksByPlugin(state, handle, request, size);
}

// A block above what the server answers at once travels as several requests in flight.
void readBySftp(benchmark::State& state, std::size_t size) {
    const std::string handle = sftp().openFile(testTree().readFile(), /*forWriting=*/false);
    BlockWalk walk(size);
    std::size_t got = 0;
    for (auto _ : state) {
        const std::size_t offset = walk.next();
        for (std::size_t at = 0; at < size; at += SftpServer::kMaxRead) {
            sftp().sendRead(handle, offset + at, std::min(SftpServer::kMaxRead, size - at));
        }
        got = 0;
        for (std::size_t at = 0; at < size; at += SftpServer::kMaxRead) got += sftp().receiveData();
    }
    expect(got == size, "sftp read failed");
    sftp().close(handle);
    countOperations(state);
}

void readBare(benchmark::State& state, std::size_t size) {
    const Descriptor file(testTree().readFile(), O_RDONLY);
    std::vector<char> buffer(size);
    BlockWalk walk(size);
    for (auto _ : state) {
        const auto offset = static_cast<off_t>(walk.next());
        expect(pread(file.fd, buffer.data(), size, offset) == static_cast<ssize_t>(size), "pread");
    }
    countOperations(state);
}

void writeByPlugin(benchmark::State& state, std::uint32_t size) {
    const auto handle = plugin().open(testTree().writeFile(), kOpenReadWrite);
    auto request = plugin().writeRequest(handle, 0, size);
    moveBlocksByPlugin(state, handle, request, size);
}

void writeBySftp(benchmark::State& state, std::size_t size) {
    const std::string handle = sftp().openFile(testTree().writeFile(), /*forWriting=*/true);
    const std::string data(size, 'w');
    BlockWalk walk(size);
    pump(
        state, 1, [&] { sftp().sendWrite(handle, walk.next(), data); }, [] { sftp().receiveOk(); });
    sftp().close(handle);
    countOperations(state);
}

void writeBare(benchmark::State& state, std::size_t size) {
    const Descriptor file(testTree().writeFile(), O_RDWR);
    const std::vector<char> data(size, 'w');
    BlockWalk walk(size);
    for (auto _ : state) {
        const auto offset = static_cast<off_t>(walk.next());
        expect(pwrite(file.fd, data.data(), size, offset) == static_cast<ssize_t>(size), "pwrite");
    }
    countOperations(state);
}

void listByPlugin(benchmark::State& state) {
    for (auto _ : state) {
        const auto handle = plugin().open(testTree().folder(), kOpenFolder);
        auto request = plugin().listRequest(handle, testTree().folder());
        do {
            plugin().send(request);
            plugin().receive();
        } while (plugin().lastStatus() == 0);
        expect(plugin().lastStatus() == kNoMoreFiles, "listing failed");
        plugin().close(handle);
    }
    countOperations(state);
}

void listBySftp(benchmark::State& state) {
    std::size_t count = 0;
    for (auto _ : state) {
        const std::string handle = sftp().openFolder(testTree().folder());
        count = 0;
        while (const std::size_t more = sftp().readFolder(handle)) count += more;
        sftp().close(handle);
    }
    expect(count == TestTree::kEntries + 2, "sftp listing failed");
    countOperations(state);
}

void listBare(benchmark::State& state) {
    for (auto _ : state) {
        expect(listWithAttributes(testTree().folder()) == TestTree::kEntries + 2, "listing");
    }
    countOperations(state);
}

template <typename Function, typename... Arguments>
void add(const std::string& name, Function function, Arguments... arguments) {
    if (name.ends_with("/sftp") && !SftpServer::isInstalled()) return;
    benchmark::RegisterBenchmark(name.c_str(), function, arguments...)->UseRealTime();
}

void addReads(const std::string& work, std::uint32_t size) {
    add(work + "/plugin", readByPlugin, size);
    add(work + "/sftp", readBySftp, size);
    add(work + "/bare", readBare, size);
}

[[maybe_unused]] const bool added = [] {
    for (const int depth : {1, 16}) {
        const std::string work = "query file info" + std::string(depth > 1 ? ", 16 in flight" : "");
        add(work + "/plugin", queryByPlugin, depth);
        add(work + "/sftp", queryBySftp, depth);
        add(work + "/bare", queryBare);
    }
    addReads("read 4 KiB", 4096);
    addReads("read 64 KiB", 65536);
    addReads("read 1 MiB", 1048576);
    add("write 64 KiB/plugin", writeByPlugin, 65536U);
    add("write 64 KiB/sftp", writeBySftp, std::size_t{65536});
    add("write 64 KiB/bare", writeBare, std::size_t{65536});
    add("list 10,000 entries/plugin", listByPlugin);
    add("list 10,000 entries/sftp", listBySftp);
    add("list 10,000 entries/bare", listBare);
    return true;
}();
}  // namespace
