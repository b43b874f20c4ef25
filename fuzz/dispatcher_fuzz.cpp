// Any bytes as one inbound message of the Windows dialect. The file handlers are stand-ins that
// answer with a size from the message, so nothing here reaches the file system.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <vector>

#include "ZLogger.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"

namespace {
class StandInManager : public MapManager {
public:
    StandInManager(FdClientPolicy* policy, const ZListener& listener)
        : MapManager(policy, listener) {
        for (ZrsfHandler& handler : m_fsHandlers) {
            if (handler != nullptr) handler = answerWithTheSizeAsked;
        }
    }

private:
    static void answerWithTheSizeAsked(char*& buffer, int /*size*/, int* resultSize, MapFolder*) {
        *resultSize = loadLe<std::int32_t>(buffer + kStatusAt);
    }
};

bool isZero(const std::vector<char>& bytes, std::size_t from) {
    const std::size_t count = bytes.size() - from;
    return count == 0 || (bytes[from] == 0 && std::memcmp(bytes.data() + from,
                                                          bytes.data() + from + 1, count - 1) == 0);
}

int readAll(char* data, int size) {
    unsigned sum = 0;
    for (int i = 0; i < size; ++i) sum += static_cast<unsigned char>(data[i]);
    return sum == 0 ? -1 : 0;  // reads every byte, and fails now and then
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_DEBUG);  // the texts are formatted, and dropped
    ZLogger::GetInstance()->SetSink([](const ZLogRecord& /*record*/) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static std::vector<char> buffer(MAX_CMD_BUFFER);
    if (size == 0 || size > buffer.size()) return 0;

    FdClientPolicy policy;
    if (data[size - 1] % 2 != 0) policy.setCompressPolicy(1, 0, 900, 512);
    StandInManager manager(&policy, ZListener{});
    manager.initNet(readAll, [](int, char*, unsigned) { return 0; });
    manager.addMapInfo("/media/one", 11, 0x8);
    manager.addMapInfo("/dev/lp0", 9, 0x1000);

    std::memcpy(buffer.data(), data, size);
    std::size_t dirty = size;  // both exceptions come before anything is written
    try {
        manager.HandleCmd(buffer.data(), static_cast<int>(size));
        dirty = static_cast<std::size_t>(manager.dirtyBytes());
    } catch (const std::bad_function_call&) {  // an empty slot
    } catch (const std::length_error&) {       // a negative length in a policy message
    }
    if (!isZero(buffer, dirty)) std::abort();  // the next message would find what is there
    std::memset(buffer.data(), 0, dirty);
    return 0;
}
