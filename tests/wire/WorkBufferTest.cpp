// No reply shows anything of an earlier message, however the work buffer is kept clean.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"
#include "support/FakeChannel.h"
#include "support/FileRequests.h"
#include "support/PolicyMessage.h"
#include "support/TempDir.h"

namespace {
constexpr std::uint32_t kOpenExisting = 0x1100;  // read, fail if new
constexpr std::size_t kHandleInReplyAt = 20;
constexpr std::size_t kLargeSize = 1 << 20;

class WorkBufferTest : public testing::Test {
protected:
    WorkBufferTest() {
        m_client.Init(m_channel.writer(), m_channel.metric());
        m_client.Start();
        PolicyMessage policy;
        policy.mountPath = "";
        policy.rootDirEnable = 1;
        policy.filterPath = m_dir.str();
        put(policy.build());
        m_channel.waitFor([](const auto& writes) {
            return std::ranges::any_of(writes, [](const auto& message) {
                return loadLe<std::uint16_t>(message.data()) == 512;
            });
        });
    }
    ~WorkBufferTest() override {
        m_client.Stop();
        m_client.Release();
    }

    void put(std::vector<char> message) {
        m_client.PutMsg(message.data(), static_cast<int>(message.size()));
    }

    std::vector<char> exchange(const std::vector<char>& request) {
        const auto isResult = [](const auto& message) {
            return loadLe<std::uint16_t>(message.data()) == 514;
        };
        m_channel.clear();
        put(request);
        EXPECT_TRUE(m_channel.waitFor(
            [&](const auto& writes) { return std::ranges::any_of(writes, isResult); }));
        const auto writes = m_channel.writes();
        const auto result = std::ranges::find_if(writes, isResult);
        return result == writes.end() ? std::vector<char>(64) : *result;
    }

    std::int64_t openFile(const std::string& path) {
        std::string name = path;
        std::ranges::replace(name, '/', '\\');
        const auto reply = exchange(createRequest(name, kOpenExisting));
        return loadLe<std::int64_t>(reply.data() + kHandleInReplyAt);
    }

    TempDir m_dir;
    FakeChannel m_channel;
    ZFdClientMgr m_client;
};

TEST_F(WorkBufferTest, AShortReadBehindALargeOneEndsInZeros) {
    const auto large = openFile(m_dir.file("large", std::string(kLargeSize, 'L')));
    const auto small = openFile(m_dir.file("small", std::string(600, 's')));

    EXPECT_EQ(exchange(readRequest(large, 0, kLargeSize)).size(), kLargeSize + 23);
    const auto reply = exchange(readRequest(small, 0, 600));

    ASSERT_EQ(reply.size(), 623U);
    EXPECT_EQ(std::string(reply.begin() + 20, reply.end()),
              std::string(600, 's') + std::string(3, '\0'));
}

TEST_F(WorkBufferTest, ARequestCutShortReadsZerosBehindLargeReads) {
    const auto large = openFile(m_dir.file("large", std::string(kLargeSize, 'L')));
    exchange(readRequest(large, 0, kLargeSize));
    exchange(readRequest(large, 0, 4096));

    auto request = readRequest(large, 0, 4096);
    request.resize(28);  // the length is missing, so it is 0, which is made 512
    EXPECT_EQ(exchange(request).size(), 512U + 23);
    auto create = createRequest("", 0);
    create.resize(12);  // without a path: the map's folder, with flags and parameters of zeros
    const auto reply = exchange(create);
    EXPECT_TRUE(std::all_of(reply.end() - 23, reply.end(), [](char byte) { return byte == 0; }));
}
}  // namespace
