// A running client of the Windows dialect with one map, number 0: the root of this machine's tree,
// so that the paths of requests are those of a temporary folder.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"
#include "common/Comm/WireNumbers.h"
#include "support/FakeChannel.h"
#include "support/FileRequests.h"
#include "support/LogCapture.h"
#include "support/PolicyMessage.h"
#include "support/TempDir.h"
#include "support/WireMessage.h"

constexpr std::uint32_t kOpenExisting = 0x1100;  // read, fail if new
constexpr std::uint32_t kOpenToChange = 0x3100;  // read and write, fail if new
constexpr std::size_t kHandleInReplyAt = 20;

class RootMapFixture : public testing::Test {
protected:
    RootMapFixture() {
        m_client.Init(m_channel.writer(), m_channel.metric());
        m_client.Start();
        PolicyMessage policy;
        policy.mountPath = "";
        policy.rootDirEnable = 1;
        policy.filterPath = m_dir.str();
        put(policy.build());
        EXPECT_TRUE(m_channel.waitForWrites(2));  // the map and its names
    }
    ~RootMapFixture() override {
        m_client.Stop();
        m_client.Release();
    }

    static int typeOf(const std::vector<char>& message) {
        return message.size() < 2 ? -1 : loadLe<std::uint16_t>(message.data());
    }

    void put(std::vector<char> message) {
        m_client.PutMsg(message.data(), static_cast<int>(message.size()));
    }

    std::vector<char> exchange(const std::vector<char>& request) {
        const auto isResult = [](const auto& message) { return typeOf(message) == kResult; };
        m_channel.clear();
        put(request);
        EXPECT_TRUE(m_channel.waitFor(
            [&](const auto& writes) { return std::ranges::any_of(writes, isResult); }));
        const auto writes = m_channel.writes();
        const auto result = std::ranges::find_if(writes, isResult);
        return result == writes.end() ? std::vector<char>(64) : *result;
    }

    // A path of this machine as a request names it.
    static std::string wirePath(std::string path) {
        std::ranges::replace(path, '/', '\\');
        return path;
    }

    std::int64_t openFile(const std::string& path, std::uint32_t flags = kOpenExisting) {
        const auto reply = exchange(createRequest(wirePath(path), flags));
        return loadLe<std::int64_t>(reply.data() + kHandleInReplyAt);
    }

    LogCapture m_log;
    TempDir m_dir;
    FakeChannel m_channel;
    ZFdClientMgr m_client;
};
