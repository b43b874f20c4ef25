#include "Contest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "BareCalls.h"
#include "SftpServer.h"
#include "TestTree.h"

namespace {

struct Descriptor {
    Descriptor(const std::string& path, int flags) : fd(open(path.c_str(), flags | O_CLOEXEC)) {
        if (fd < 0) throw std::runtime_error("cannot open " + path);
    }
    ~Descriptor() { ::close(fd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int fd;
};

SftpServer& sftp() {
    static SftpServer server;
    return server;
}

void statBySftp(benchmark::State& state, int depth) {
    const std::string path = testTree().readFile();
    pump(
        state, depth, [&] { sftp().sendLstat(path); }, [] { sftp().receiveAttributes(); });
    countOperations(state);
}

void statBare(benchmark::State& state) {
    const Descriptor file(testTree().readFile(), O_RDONLY);
    struct stat info {};
    for (auto _ : state) expect(fstat(file.fd, &info) == 0, "fstat failed");
    countOperations(state);
}

// A block above what the server takes at once travels as several requests.
void readBySftp(benchmark::State& state, int depth, std::size_t size) {
    constexpr std::size_t kMost = SftpServer::kMaxTransfer;
    const std::string handle = sftp().openFile(testTree().readFile(), /*forWriting=*/false);
    BlockWalk walk(size);
    std::size_t got = 0;
    pump(
        state, depth,
        [&] {
            const std::size_t offset = walk.next();
            for (std::size_t at = 0; at < size; at += kMost) {
                sftp().sendRead(handle, offset + at, std::min(kMost, size - at));
            }
        },
        [&] {
            got = 0;
            for (std::size_t at = 0; at < size; at += kMost) got += sftp().receiveData();
        });
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

void writeBySftp(benchmark::State& state, int depth, std::size_t size) {
    constexpr std::size_t kMost = SftpServer::kMaxTransfer;
    const std::string handle = sftp().openFile(testTree().writeFile(), /*forWriting=*/true);
    const std::string data(size, 'w');
    BlockWalk walk(size);
    pump(
        state, depth,
        [&] {
            const std::size_t offset = walk.next();
            for (std::size_t at = 0; at < size; at += kMost) {
                sftp().sendWrite(handle, offset + at, std::string_view(data).substr(at, kMost));
            }
        },
        [&] {
            for (std::size_t at = 0; at < size; at += kMost) sftp().receiveOk();
        });
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

}  // namespace

void expect(bool right, const char* what) {
    if (!right) throw std::runtime_error(what);
}

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

std::string workName(const std::string& work, int depth) {
    return depth == 1 ? work : work + ", " + std::to_string(depth) + " in flight";
}

bool takesPart(const std::string& name) {
    return !name.ends_with("/sftp") || SftpServer::isInstalled();
}

void addOthersOfStat(const std::string& work, int depth) {
    add(work + "/sftp", statBySftp, depth);
    add(work + "/bare", statBare);
}

void addOthersOfRead(const std::string& work, int depth, std::size_t size) {
    add(work + "/sftp", readBySftp, depth, size);
    add(work + "/bare", readBare, size);
}

void addOthersOfWrite(const std::string& work, int depth, std::size_t size) {
    add(work + "/sftp", writeBySftp, depth, size);
    add(work + "/bare", writeBare, size);
}

void addOthersOfList(const std::string& work) {
    add(work + "/sftp", listBySftp);
    add(work + "/bare", listBare);
}
