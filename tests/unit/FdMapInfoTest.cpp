#include "common/LinuxServer/workthread/FdMapInfo.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>

#include "common/LinuxServer/workthread/OpreatorThread.h"
#include "support/LinuxContextFixture.h"

namespace {

using linuxframes::Bytes;
using linuxframes::Message;

MountInfo mountOf(const std::string& path) {
    MountInfo info{-1, 2, 0x5b, 0x11, {}};
    path.copy(info.path, sizeof info.path - 1);
    return info;
}

class FdMapInfoTest : public LinuxContextFixture {
protected:
    // The payload of the server's answer to a plug.
    static Bytes serverPath(const std::string& path) {
        Bytes payload(8, '\x33');  // not read
        payload.insert(payload.end(), path.begin(), path.end());
        payload.push_back('\0');
        return payload;
    }

    std::shared_ptr<FdMapInfo> m_map = std::make_shared<FdMapInfo>(5, m_context.get());
};

TEST_F(FdMapInfoTest, IsCreatedWithAnIdAndNothingElse) {
    EXPECT_TRUE(m_log.has(3, "mapid: 5"));
    EXPECT_EQ(m_map->getMapId(), 5);
    EXPECT_EQ(m_map->getStatu(), 1);
    EXPECT_EQ(m_map->getMountFlag(), 0);
    EXPECT_EQ(m_map->getMountType(), 0);
    EXPECT_EQ(m_map->getMountPolicy(), 0);
    EXPECT_FALSE(m_map->isRootFlag());
    EXPECT_EQ(m_map->getMountPath(), nullptr);
    EXPECT_EQ(m_map->getMountFolderName(), nullptr);
    EXPECT_EQ(m_map->getCompName(), nullptr);
    EXPECT_EQ(m_map->getServerMountPath(), nullptr);
}

TEST_F(FdMapInfoTest, TheSettersLogTheValueThatTheyReplace) {
    EXPECT_TRUE(m_map->setMountFlag(0x11));
    EXPECT_TRUE(m_map->setMountFlag(0x12));
    EXPECT_TRUE(m_map->setMountType(0x21));
    EXPECT_TRUE(m_map->setMountType(0x22));
    EXPECT_TRUE(m_map->setMountPolicy(0x31));
    EXPECT_TRUE(m_map->setMountPolicy(0x32));

    for (const char* text : {"set mount flag. flag: 0", "set mount flag. flag: 0x11",
                             "set mount type. type: 0", "set mount type. type: 0x21",
                             "set mount policy. policy: 0", "set mount policy. policy: 0x31"}) {
        EXPECT_TRUE(m_log.has(3, text)) << text;
    }
    EXPECT_EQ(m_map->getMountFlag(), 0x12);
    EXPECT_EQ(m_map->getMountType(), 0x22);
    EXPECT_EQ(m_map->getMountPolicy(), 0x32);
}

TEST_F(FdMapInfoTest, KeepsCopiesOfTheTexts) {
    std::string name = "machine";
    EXPECT_TRUE(m_map->setCompName(name.c_str()));
    EXPECT_TRUE(m_map->setServerMountPath(name.c_str()));
    name = "another";

    EXPECT_STREQ(m_map->getCompName(), "machine");
    EXPECT_STREQ(m_map->getServerMountPath(), "machine");
}

TEST_F(FdMapInfoTest, SaysWhenATextCannotBeCopied) {
    EXPECT_FALSE(m_map->setCompName(nullptr));
    EXPECT_FALSE(m_map->setServerMountPath(nullptr));
    EXPECT_FALSE(m_map->setMountPath(nullptr));

    EXPECT_TRUE(m_log.has(3, "set computer name failure."));
    EXPECT_TRUE(m_log.has(3, "set server mount path failure."));
    EXPECT_TRUE(m_log.has(3, "set mount path failure."));
}

TEST_F(FdMapInfoTest, NamesTheFolderByTheLastComponent) {
    EXPECT_TRUE(m_map->setMountPath("/media/user/stick"));

    EXPECT_STREQ(m_map->getMountPath(), "/media/user/stick");
    EXPECT_STREQ(m_map->getMountFolderName(), "stick");
    EXPECT_FALSE(m_map->isRootFlag());
    EXPECT_TRUE(m_log.has(3, "set mount path. path: /media/user/stick"));
    EXPECT_TRUE(m_log.has(3, "set mount path ok. folder: stick"));
}

TEST_F(FdMapInfoTest, RefusesThePathOfTheRoot) {
    EXPECT_FALSE(m_map->setMountPath("/"));

    EXPECT_EQ(m_map->getMountFolderName(), nullptr);
    EXPECT_TRUE(m_log.has(3, "can not get folder name.  path: /"));
}

TEST_F(FdMapInfoTest, NamesTheRootPseudoMountRoot) {
    EXPECT_TRUE(m_map->setMountPath("/."));

    EXPECT_STREQ(m_map->getMountFolderName(), "Root");
    EXPECT_FALSE(m_map->isRootFlag());
}

TEST_F(FdMapInfoTest, AnEmptyPathIsTheRootAndHasNoFolderName) {
    EXPECT_TRUE(m_map->setMountPath("/media/stick"));

    EXPECT_TRUE(m_map->setMountPath(""));

    EXPECT_TRUE(m_map->isRootFlag());
    EXPECT_EQ(m_map->getMountFolderName(), nullptr);
    EXPECT_STREQ(m_map->getMountPath(), "");
    EXPECT_TRUE(m_log.has(3, "mount point is root path"));

    EXPECT_TRUE(m_map->setMountPath("/media/stick"));
    EXPECT_FALSE(m_map->isRootFlag());
}

TEST_F(FdMapInfoTest, TakesThePlugInformationOn) {
    EXPECT_TRUE(m_map->handlePlugInfo(mountOf("/media/stick")));

    EXPECT_EQ(m_map->getStatu(), 2);
    EXPECT_EQ(m_map->getMountFlag(), 0x11);
    EXPECT_EQ(m_map->getMountType(), 2);
    EXPECT_EQ(m_map->getMountPolicy(), 0x5b);
    EXPECT_STREQ(m_map->getMountPath(), "/media/stick");
    EXPECT_TRUE(m_log.has(3, "mount pint plugin.  path: /media/stick"));
}

TEST_F(FdMapInfoTest, StaysCreatedWhenThePathIsRefused) {
    EXPECT_FALSE(m_map->handlePlugInfo(mountOf("/media/")));

    EXPECT_EQ(m_map->getStatu(), 1);
    EXPECT_TRUE(m_log.has(2, "set mount path failure!"));
}

TEST_F(FdMapInfoTest, UnplugInformationFinishesTheMap) {
    EXPECT_TRUE(m_map->handleUnplugInfo());

    EXPECT_EQ(m_map->getStatu(), 5);
    EXPECT_TRUE(m_log.has(3, "mount point unplugin. "));
}

TEST_F(FdMapInfoTest, AcknowledgesThatTheServerHasMountedIt) {
    startSender();

    EXPECT_TRUE(m_map->handleMapCmd(
        nodeOf({.mapid = 5, .type = 1, .subtype = 6, .payload = serverPath("/mnt/5")})));

    EXPECT_EQ(m_map->getStatu(), 3);
    EXPECT_STREQ(m_map->getServerMountPath(), "/mnt/5");
    const Message ack = sent(1).front();
    EXPECT_EQ(ack.mapid, 5);
    EXPECT_EQ(ack.type, 1);
    EXPECT_EQ(ack.subtype, 7);
    EXPECT_EQ(ack.idx, 0);
    EXPECT_EQ(ack.res, 0);
    EXPECT_TRUE(ack.payload.empty());
}

TEST_F(FdMapInfoTest, ReadsTheServersPathInsideThePayloadOnly) {
    startSender();
    Bytes unterminated(70000, 'x');

    EXPECT_TRUE(m_map->handleMapCmd(nodeOf({.mapid = 5, .subtype = 6, .payload = unterminated})));
    EXPECT_EQ(std::strlen(m_map->getServerMountPath()), 70000U - 8);

    EXPECT_TRUE(m_map->handleMapCmd(nodeOf({.mapid = 5, .subtype = 6})));
    EXPECT_STREQ(m_map->getServerMountPath(), "");
}

TEST_F(FdMapInfoTest, FailsWhenTheAcknowledgementCannotBeSent) {
    EXPECT_FALSE(m_map->handleMapCmd(nodeOf({.mapid = 5, .subtype = 6})));  // there is no sender

    EXPECT_TRUE(m_log.has(3, "send map information failure."));
}

TEST_F(FdMapInfoTest, ARefusalFinishesTheMapWithoutAnAnswer) {
    startSender();
    for (const std::int64_t res : {std::int64_t{-1}, std::int64_t{1}, std::int64_t{1} << 32}) {
        m_log.clear();
        fd_cmd_item* item = nodeOf({.mapid = 5, .subtype = 6, .res = res});

        EXPECT_TRUE(m_map->handleMapCmd(item));

        EXPECT_EQ(m_map->getStatu(), 5);
        EXPECT_TRUE(m_log.has(2, "server handle map failure! mapid: 5"));
        EXPECT_EQ(nodeOf({}), item);  // it went back to the cache
        m_context->m_cmd_cache.put_node(item);
    }
    EXPECT_TRUE(allSent().empty());
}

TEST_F(FdMapInfoTest, AcknowledgesAnUnmap) {
    startSender();

    EXPECT_TRUE(m_map->handleUnmapCmd(nodeOf({.mapid = 5, .type = 1, .subtype = 8})));

    EXPECT_EQ(m_map->getStatu(), 5);
    const Message ack = sent(1).front();
    EXPECT_EQ(ack.mapid, 5);
    EXPECT_EQ(ack.type, 1);
    EXPECT_EQ(ack.subtype, 9);
    EXPECT_EQ(ack.idx, 0);
}

TEST_F(FdMapInfoTest, AnUnmapThatFailedFinishesTheMapWithoutAnAnswer) {
    startSender();

    EXPECT_TRUE(m_map->handleUnmapCmd(nodeOf({.mapid = 5, .subtype = 8, .res = -16})));

    EXPECT_EQ(m_map->getStatu(), 5);
    EXPECT_TRUE(m_log.has(2, "server handle unmap failure! mapid: 5"));
    EXPECT_TRUE(allSent().empty());
}

TEST_F(FdMapInfoTest, AnUnmapSucceedsEvenIfItCannotBeAcknowledged) {
    EXPECT_TRUE(m_map->handleUnmapCmd(nodeOf({.mapid = 5, .subtype = 8})));

    EXPECT_EQ(m_map->getStatu(), 5);
    EXPECT_TRUE(m_log.has(3, "send unmap information failure."));
}

TEST_F(FdMapInfoTest, HandsARequestToAThreadAndCountsIt) {
    startSender();
    const FdMapInfoPtr map = addMap(6);

    EXPECT_TRUE(map->handleOpreatorCmdItem(nodeOf({.mapid = 6, .subtype = 3, .idx = 77})));

    EXPECT_EQ(sent(1).front().idx, 77);
    EXPECT_TRUE(waitUntil([&] { return map->waitStop(1); }));
}

TEST_F(FdMapInfoTest, CountsRequests) {
    EXPECT_EQ(m_map->decreaseRef(), -1);
    EXPECT_EQ(m_map->decreaseRef(), -2);
}

TEST_F(FdMapInfoTest, GivesARequestBackAfterTenTriesWithoutAThread) {
    m_context->dismiss();  // no thread is made any more
    fd_cmd_item* item = nodeOf({.mapid = 5});
    const auto start = std::chrono::steady_clock::now();

    EXPECT_FALSE(m_map->handleOpreatorCmdItem(item));

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(9800));

    EXPECT_EQ(m_log.count(1, "can not find ready opreator thread"), 10);
    EXPECT_TRUE(m_map->waitStop(20000));
    m_context->m_cmd_cache.put_node(item);
}

TEST_F(FdMapInfoTest, WaitStopSucceedsAtOnceWithoutRequests) {
    EXPECT_TRUE(m_map->waitStop(20000));

    EXPECT_TRUE(m_log.has(3, "FdMapInfo wait stop, msecond: 20000  ..."));
    EXPECT_TRUE(m_log.has(3, "FdMapInfo wait stop end,  count: 0, msecond: 20000"));
}

// Requests in progress: handed over, but with a thread that never gets to them.
class BusyMapInfoTest : public FdMapInfoTest {
protected:
    BusyMapInfoTest() {
        m_parked = std::make_shared<OpreatorThread>(m_context.get());  // not started
        m_context->addReadyThread(m_parked.get());
        EXPECT_TRUE(m_map->handleOpreatorCmdItem(nodeOf({.mapid = 5})));
        m_log.clear();
    }

    std::shared_ptr<OpreatorThread> m_parked;
};

TEST_F(BusyMapInfoTest, WaitStopFailsWithoutAnyDelay) {
    const auto start = std::chrono::steady_clock::now();

    EXPECT_FALSE(m_map->waitStop(20000));

    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(m_log.has(3, "FdMapInfo wait stop end,  count: 1, msecond: 0"));
}

TEST_F(BusyMapInfoTest, WaitStopLooksOnceMoreAsLongAsMoreThan100WereLeft) {
    for (const auto& [msecond, left] : {std::pair{100, 0}, {101, -99}, {150, -50}, {1, -99}}) {
        EXPECT_FALSE(m_map->waitStop(msecond));
        EXPECT_TRUE(
            m_log.has(3, "FdMapInfo wait stop end,  count: 1, msecond: " + std::to_string(left)))
            << msecond;
    }
}

TEST_F(BusyMapInfoTest, WaitStopOfZeroDoesNotLook) {
    EXPECT_TRUE(m_map->waitStop(0));
    EXPECT_TRUE(m_map->waitStop(-100));

    EXPECT_TRUE(m_log.has(3, "FdMapInfo wait stop end,  count: 0, msecond: 0"));
    EXPECT_TRUE(m_log.has(3, "FdMapInfo wait stop end,  count: 0, msecond: -100"));
}

TEST_F(BusyMapInfoTest, WaitStopSucceedsOnceTheRequestIsDone) {
    EXPECT_EQ(m_map->decreaseRef(), 0);

    EXPECT_TRUE(m_map->waitStop(20000));
}

}  // namespace
