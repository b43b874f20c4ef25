// Any bytes as the server's policy message, and then as the questions to the policy that it left.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZLogger.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"

namespace {
constexpr std::size_t kLongestQuestion = 300;  // mount paths are answered up to 255 bytes

void ask(FdClientPolicy& policy, const std::string& question) {
    policy.isLinuxDirEnable(question.c_str());
    policy.isLinuxRootPathFilter(question.c_str());
    policy.isLocalFileSystem(question.c_str());
    policy.isRemoveFileSystem(question.c_str());
    policy.isCdRomeFileSystem(question.c_str());
    policy.isNetworkFileSystem(question.c_str());
    policy.getStatisticsTime();
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_DEBUG);  // the texts are formatted, and dropped
    ZLogger::GetInstance()->SetSink([](const ZLogRecord& /*record*/) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static std::vector<char> buffer(MAX_CMD_BUFFER);  // zero behind the message, as always
    if (size > buffer.size()) return 0;
    std::copy_n(data, size, buffer.begin());

    FdClientPolicy policy;
    MapManager manager(&policy, ZListener{});
    manager.setOnLinuxDesktop([] {});
    try {
        manager.HandlePolicy(buffer.data(), static_cast<int>(size));
    } catch (const std::length_error&) {  // a negative length: the one way out that is meant
    }
    std::fill_n(buffer.begin(), size, '\0');

    // The message ends in the filter path, so these are also the paths that the filter is about.
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (const std::size_t length : {std::size_t{4}, std::size_t{8}, kLongestQuestion}) {
        ask(policy, bytes.substr(size - std::min(length, size)));
    }
    return 0;
}
