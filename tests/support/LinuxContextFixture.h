// A connection of the Linux dialect without its front door, for the unit tests of its workers: a
// context over a temporary folder, with or without a send thread that writes to a fake channel.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/LinuxServer/comm/fd_cmd_cache.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"
#include "common/LinuxServer/workthread/SendThread.h"
#include "common/Policy/FdClientPolicy.h"
#include "support/FakeChannel.h"
#include "support/LinuxFrames.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "support/WaitUntil.h"

class LinuxContextFixture : public ::testing::Test {
protected:
    static constexpr int kStopMs = 20000;

    LinuxContextFixture() : m_context(std::make_shared<FdContext>()) {
        m_context->m_channel_write = m_channel.wholeWriter();
        m_context->m_client_policy = &m_policy;
    }

    ~LinuxContextFixture() override {
        if (m_context == nullptr) return;
        m_context->freeAllOpreatorThread();
        if (const auto sender = m_context->sendThread()) sender->waitStop(kStopMs);
        m_context->dismiss();
    }

    // Runs when this returns, and says nothing more until it has something to send.
    std::shared_ptr<SendThread> startSender() {
        const auto sender = std::make_shared<SendThread>(m_context.get());
        m_context->setSendThread(sender);
        sender->start();
        EXPECT_TRUE(waitUntil([this] { return m_log.has(3, "SendThread work ..."); }));
        return sender;
    }

    // A listed map over the temporary folder.
    FdMapInfoPtr addMap(int mapid = 1, int policy = 0) {
        return addMap(mapid, policy, m_dir.str());
    }
    FdMapInfoPtr addMap(int mapid, int policy, const std::string& path) {
        auto map = std::make_shared<FdMapInfo>(mapid, m_context.get());
        map->setMountPolicy(policy);
        EXPECT_TRUE(map->setMountPath(path.c_str()));
        EXPECT_TRUE(m_context->addMapInfo(map));
        return map;
    }

    // A node from the cache that holds the message.
    fd_cmd_item* nodeOf(const linuxframes::Message& message) {
        fd_cmd_item* item = nullptr;
        EXPECT_TRUE(m_context->m_cmd_cache.get_node(&item));
        const linuxframes::Bytes frame = linuxframes::frameOf(message);
        std::memcpy(&item->head, frame.data() + 12, sizeof(item->head));
        const auto size = static_cast<int>(message.payload.size());
        EXPECT_TRUE(ensurePayload(item, size));
        if (size > 0) std::memcpy(item->pdata, message.payload.data(), message.payload.size());
        markPayload(item, size);
        return item;
    }

    // What has gone out so far, once there are `wanted` messages.
    std::vector<linuxframes::Message> sent(std::size_t wanted) {
        EXPECT_TRUE(m_channel.waitForWrites(wanted));
        std::vector<linuxframes::Message> messages;
        for (const auto& frame : m_channel.writes()) messages.push_back(linuxframes::parse(frame));
        return messages;
    }

    // All that has gone out, nothing of which is still on its way.
    std::vector<linuxframes::Message> allSent() {
        constexpr int kMark = 0x7fff;
        EXPECT_TRUE(m_context->sendThread()->sendCmdItem(kMark, 1, 1, 0));
        const auto isMark = [](const FakeChannel::Message& frame) {
            return linuxframes::parse(frame).mapid == kMark;
        };
        EXPECT_TRUE(m_channel.waitFor(
            [&](const auto& frames) { return !frames.empty() && isMark(frames.back()); }));
        std::vector<linuxframes::Message> messages;
        for (const auto& frame : m_channel.writes()) {
            if (!isMark(frame)) messages.push_back(linuxframes::parse(frame));
        }
        return messages;
    }

    // A mount as the monitor finds it: by default removable, with all media offered.
    static MountInfo mountAt(const std::string& path, int type = 0x8, int policy = 0x5b) {
        MountInfo info{-1, type, policy, 0, {}};
        path.copy(info.path, sizeof info.path - 1);
        return info;
    }

    LogCapture m_log;
    TempDir m_dir;
    FakeChannel m_channel;
    FdClientPolicy m_policy;
    std::shared_ptr<FdContext> m_context;
};
