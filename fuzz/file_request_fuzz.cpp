// Any bytes as one request on open handles: data, flushes, listings, queries, metadata and locks.
// Requests that name objects to make or to remove are left out, since a path may lead anywhere.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "ZLogger.h"
#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Funcdef.h"

namespace {
using Handler = void (*)(char*& buffer, int size, int* resultSize, MapFolder* map);

// The handle values that the seeds speak of.
constexpr int kFile = 500;
constexpr int kReadOnlyFile = 501;
constexpr int kFolder = 502;

constexpr rlim_t kLargestFile = 8 << 20;

Handler handlerOf(unsigned type) {
    switch (type) {
        case FD_CMD_READ:
            return ZrsfRead;
        case FD_CMD_WRITE:
            return ZrsfWrite;
        case FD_CMD_FLUSH:
            return ZrsfFlush;
        case FD_CMD_DIR_LIST:
            return ZrsfDirList;
        case FD_CMD_QUERY_FILE_INFO:
            return ZrsfQueryFileInfo;
        case FD_CMD_SET_FILE_INFO:
            return ZrsfSetFileInfo;
        case FD_CMD_QUERY_VOLUME_INFO:
            return ZrsfQueryVolumeInfo;
        case FD_CMD_SET_END_OF_FILE:
            return ZrsfSetEndOfFile;
        case FD_CMD_LOCKS:
            return ZrsfLocks;
        default:
            return nullptr;
    }
}

// A folder with one file, as it is again before each request.
class SharedFolder {
public:
    SharedFolder() {
        char name[] = "/tmp/zfd-fuzz-XXXXXX";
        if (mkdtemp(name) == nullptr) std::abort();
        m_path = name;
        std::signal(SIGXFSZ, SIG_IGN);  // now: the fuzzer took the signal when it started
    }
    ~SharedFolder() { std::filesystem::remove_all(m_path); }
    SharedFolder(const SharedFolder&) = delete;
    SharedFolder& operator=(const SharedFolder&) = delete;

    void offer(MapFolder* map) const {
        m_path.copy(map->m_clientFolder, sizeof map->m_clientFolder - 1);
        map->m_clientFolder_size = static_cast<std::uint16_t>(m_path.size() + 1);
        map->m_bWritable = 1;
        const std::string file = m_path + "/file";
        insert(map, kFile, file, O_RDWR | O_CREAT | O_TRUNC, HANDLE_TYPE_FILE);
        if (pwrite(kFile, "content", 7, 0) != 7) std::abort();
        insert(map, kReadOnlyFile, file, O_RDONLY, HANDLE_TYPE_FILE);
        insert(map, kFolder, m_path, O_RDONLY | O_DIRECTORY, HANDLE_TYPE_DIR);
    }

private:
    static void insert(MapFolder* map, int handle, const std::string& path, int flags,
                       HANDLE_TYPE type) {
        const int fd = open(path.c_str(), flags | O_CLOEXEC, 0600);
        if (fd < 0 || dup2(fd, handle) != handle) std::abort();
        close(fd);
        map->m_handleManage->InsertHandleByName(handle, path.c_str(), type);
    }

    std::string m_path;
};

// Behind the request and its reply lie zeros: what else stood there would be in a later reply.
void expectZerosFrom(const std::vector<char>& buffer, std::size_t at) {
    if (at > buffer.size()) std::abort();
    if (at == buffer.size()) return;
    const char* rest = buffer.data() + at;  // compared as a block: a loop is traced at each step
    if (*rest != 0 || std::memcmp(rest, rest + 1, buffer.size() - at - 1) != 0) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_DEBUG);  // the texts are formatted, and dropped
    ZLogger::GetInstance()->SetSink([](const ZLogRecord& /*record*/) {});
    const rlimit limit = {kLargestFile, kLargestFile};
    return setrlimit(RLIMIT_FSIZE, &limit);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const SharedFolder folder;
    static FdClientPolicy policy;
    static std::vector<char> buffer(MAX_CMD_BUFFER);
    if (size < kHeaderSize || size > buffer.size()) return 0;
    const Handler handler = handlerOf(loadLe<std::uint16_t>(data + kTypeAt));
    if (handler == nullptr) return 0;

    std::copy_n(data, size, buffer.begin());
    MapFolder map(&policy, ZListener{});
    folder.offer(&map);
    char* request = buffer.data();
    int resultSize = 0;
    handler(request, static_cast<int>(size), &resultSize, &map);

    const int replySize = kHeaderSize + std::max(resultSize, 0);  // below 1: no reply
    const std::size_t dirty = std::max(size, static_cast<std::size_t>(replySize));
    expectZerosFrom(buffer, dirty);
    std::memset(buffer.data(), 0, dirty);
    return 0;
}
