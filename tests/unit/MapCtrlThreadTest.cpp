#include "common/LinuxServer/workthread/MapCtrlThread.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/LinuxServer/workthread/OpreatorThread.h"
#include "linux/comm/Opreator/FdCommon_linux.h"
#include "support/LinuxContextFixture.h"
#include "support/RefusedNew.h"
#include "support/ScarceMemory.h"

namespace {

using linuxframes::Bytes;
using linuxframes::Message;

std::string computerName() {
    char name[260] = {};
    getComputerName(name, sizeof name);
    return name;
}

class MapCtrlThreadTest : public LinuxContextFixture {
protected:
    MapCtrlThreadTest() {
        startSender();
        m_log.clear();
    }

    // Whether that node is the next one that the cache gives.
    bool isBack(fd_cmd_item* item) {
        fd_cmd_item* next = nullptr;
        m_context->m_cmd_cache.get_node(&next);
        const bool same = next == item;
        m_context->m_cmd_cache.put_node(next);
        return same;
    }

    void control(int subtype, int mapid, std::int64_t res = 0) {
        m_thread->handleMapCtrlCmd(nodeOf(
            {.mapid = mapid, .type = 1, .subtype = subtype, .payload = Bytes(16), .res = res}));
    }

    std::shared_ptr<MapCtrlThread> m_thread = std::make_shared<MapCtrlThread>(m_context.get());
};

TEST_F(MapCtrlThreadTest, AnnouncesANewMount) {
    EXPECT_TRUE(m_thread->handlePlugInfo(mountAt("/media/stick")));

    const Message plug = sent(1).front();
    EXPECT_EQ(plug.mapid, 1);
    EXPECT_EQ(plug.type, 1);
    EXPECT_EQ(plug.subtype, 4);
    EXPECT_EQ(plug.res, 0);
    EXPECT_EQ(plug.idx, 0);
    EXPECT_EQ(plug.headSize, 64U);
    EXPECT_EQ(plug.opaque, std::string(24, '\0'));
    const linuxframes::PlugRecord record = linuxframes::plugOf(plug.payload);
    EXPECT_EQ(record.rootFlag, 0);
    EXPECT_EQ(record.flag, 0);
    EXPECT_EQ(record.type, 8);
    EXPECT_EQ(record.policy, 0x5b);
    EXPECT_EQ(record.folder, "stick");
    EXPECT_EQ(record.computer, computerName());
    EXPECT_EQ(plug.payload.size(), 32 + 6 + computerName().size() + 1);
    const FdMapInfoPtr map = m_context->findMapInfoById(1);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->getStatu(), 2);
    EXPECT_EQ(std::string(map->getCompName()), computerName());
}

TEST_F(MapCtrlThreadTest, SaysWhatItDoesWithANewMount) {
    m_thread->handlePlugInfo(mountAt("/media/stick"));

    for (const char* text :
         {"new mount point plugin. type: 0x8, policy: 0x5b, flag: 0, path: /media/stick",
          "generete new map id: 1", "add an map info success", "send plugin info."}) {
        EXPECT_TRUE(m_log.has(3, text)) << text;
    }
}

TEST_F(MapCtrlThreadTest, AnnouncesAnEmptyPathAsTheRoot) {
    EXPECT_TRUE(m_thread->handlePlugInfo(mountAt("")));

    const linuxframes::PlugRecord record = linuxframes::plugOf(sent(1).front().payload);
    EXPECT_EQ(record.rootFlag, 1);
    EXPECT_EQ(record.folder, "");
    EXPECT_TRUE(m_log.has(2, "folder == NULL"));
}

TEST_F(MapCtrlThreadTest, SendsAnEmptyNameForAMapWithoutOne) {
    const FdMapInfoPtr map = addMap(9, 0, "/media/stick");

    EXPECT_TRUE(m_thread->sendPlugInfo(map.get()));

    EXPECT_EQ(linuxframes::plugOf(sent(1).front().payload).computer, "");
    EXPECT_TRUE(m_log.has(2, "compname == NULL"));
}

TEST_F(MapCtrlThreadTest, SendsAPlugRecordThatOutgrowsTheNode) {
    m_context->m_cmd_cache.set_node_size(40);
    const std::string name(200, 'n');

    EXPECT_TRUE(m_thread->handlePlugInfo(mountAt("/media/" + name)));

    EXPECT_EQ(linuxframes::plugOf(sent(1).front().payload).folder, name);
}

TEST_F(MapCtrlThreadTest, RefusesAMountThatIsOfferedAndSpendsAnId) {
    m_thread->handlePlugInfo(mountAt("/media/stick"));

    EXPECT_FALSE(m_thread->handlePlugInfo(mountAt("/media/stick")));
    EXPECT_TRUE(m_thread->handlePlugInfo(mountAt("/media/other")));

    EXPECT_TRUE(m_log.has(1, "plugin an exist mount point!  mapid: 2"));
    const std::vector<Message> messages = sent(2);
    EXPECT_EQ(messages[0].mapid, 1);
    EXPECT_EQ(messages[1].mapid, 3);
}

TEST_F(MapCtrlThreadTest, RefusesAnIdThatIsListed) {
    addMap(1);

    EXPECT_FALSE(m_thread->handlePlugInfo(mountAt("/media/stick")));

    EXPECT_TRUE(m_log.has(1, "plugin an exist mount point!  mapid: 1"));
}

TEST_F(MapCtrlThreadTest, RefusesAPathWithoutAFolderName) {
    EXPECT_FALSE(m_thread->handlePlugInfo(mountAt("/media/")));

    EXPECT_TRUE(m_log.has(1, "map handle plugin failure!"));
    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, TakesTheMapBackWhenThePlugCannotBeSent) {
    m_context->setSendThread(nullptr);

    EXPECT_FALSE(m_thread->handlePlugInfo(mountAt("/media/stick")));

    EXPECT_TRUE(m_log.has(1, "send mount plug info failure! "));
    EXPECT_FALSE(m_log.has(1, "memcpy_s failed"));
    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
    EXPECT_TRUE(m_log.contains(3, "map exist.  mapid: 1, mapinfo: "));
}

TEST_F(MapCtrlThreadTest, TakesTheMapBackWhenThereIsNoNodeForThePlug) {
    {
        const RefusedNew refused;
        EXPECT_FALSE(m_thread->handlePlugInfo(mountAt("/media/stick")));
    }

    EXPECT_TRUE(m_log.hasInOrder({{3, "send plugin info."},
                                  {2, "malloc cmd item failure. "},
                                  {1, "send mount plug info failure! "}}));
    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, APlugThatNoMemoryHoldsIsNotSent) {
    const std::string name(std::size_t{64} << 20U, 'n');
    const FdMapInfoPtr map = addMap(9, 0, "/" + name);
    bool isSent = true;
    {
        const ScarceMemory limit;
        isSent = m_thread->sendPlugInfo(map.get());
    }
    if (isSent) GTEST_SKIP() << "this system does not bound a program's memory";

    EXPECT_TRUE(m_log.has(
        2, "malloc cmd item pdata failure.  extsize: " + std::to_string(name.size() + 34)));
    EXPECT_TRUE(allSent().empty());
    EXPECT_EQ(m_log.count(3, "cmd cache create node. "), 0);
}

TEST_F(MapCtrlThreadTest, AcknowledgesTheServersMap) {
    m_thread->handlePlugInfo(mountAt("/media/stick"));
    const FdMapInfoPtr map = m_context->findMapInfoById(1);

    control(linuxframes::kMap, 1);

    EXPECT_EQ(sent(2)[1].subtype, linuxframes::kMapAck);
    EXPECT_EQ(m_context->findMapInfoById(1), map);
    EXPECT_EQ(map->getStatu(), 3);
    EXPECT_TRUE(m_log.has(3, "mapid: 1, subtype: 6 ..."));
    EXPECT_TRUE(m_log.has(3, "mapid: 1, res: 0"));
    EXPECT_TRUE(m_log.has(
        3, "client handle map cmd success. mapid: 1, mapinfo: " + pointerText(map.get())));
}

TEST_F(MapCtrlThreadTest, KeepsARefusedMapInTheList) {
    m_thread->handlePlugInfo(mountAt("/media/stick"));

    control(linuxframes::kMap, 1, -1);

    const FdMapInfoPtr map = m_context->findMapInfoById(1);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->getStatu(), 5);
    EXPECT_TRUE(m_log.has(3, "mapid: 1, res: -1"));
    EXPECT_TRUE(m_log.has(
        3, "client handle map cmd success. mapid: 1, mapinfo: " + pointerText(map.get())));
    EXPECT_EQ(allSent().size(), 1U);
}

TEST_F(MapCtrlThreadTest, ARefusedMapGoesWithALaterUnmap) {
    m_thread->handlePlugInfo(mountAt("/media/stick"));
    control(linuxframes::kMap, 1, -1);

    control(linuxframes::kUnmap, 1);

    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
    EXPECT_EQ(sent(2)[1].subtype, linuxframes::kUnmapAck);
}

TEST_F(MapCtrlThreadTest, DeletesAMapWhoseAcknowledgementCannotBeSent) {
    const FdMapInfoPtr map = addMap(1);
    m_context->setSendThread(nullptr);

    control(linuxframes::kMap, 1);

    EXPECT_TRUE(m_log.has(3, "delete mapinfo. mapid: 1, mapinfp: " + pointerText(map.get())));
    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
}

TEST_F(MapCtrlThreadTest, AMapMessageForAnUnknownIdIsAnErrorAndTheNodeGoesBack) {
    fd_cmd_item* item = nodeOf({.mapid = 44, .type = 1, .subtype = 6});

    m_thread->handleMapCtrlCmd(item);

    EXPECT_TRUE(m_log.has(1, "server map an not exist mapinfo! "));
    EXPECT_TRUE(isBack(item));
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, AnUnmapMessageForAnUnknownIdIsAnErrorAndTheNodeGoesBack) {
    fd_cmd_item* item = nodeOf({.mapid = 44, .type = 1, .subtype = 8});

    m_thread->handleMapCtrlCmd(item);

    EXPECT_TRUE(m_log.has(1, "server ummap an not exist mapinfo! "));
    EXPECT_TRUE(isBack(item));
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, AnUnmapDeletesTheMapAndIsAcknowledged) {
    const std::weak_ptr<FdMapInfo> map = addMap(1);

    control(linuxframes::kUnmap, 1);

    EXPECT_TRUE(map.expired());
    EXPECT_EQ(sent(1).front().subtype, linuxframes::kUnmapAck);
    EXPECT_TRUE(m_log.has(3, "mapid: 1, subtype: 8 ..."));
    EXPECT_TRUE(m_log.has(3, "mapid: 1, res: 0ld"));
    EXPECT_TRUE(m_log.has(3, "FdMapInfo wait stop, msecond: 20000  ..."));
}

TEST_F(MapCtrlThreadTest, AnUnmapThatFailedEndsTheMapJustTheSame) {
    addMap(1);

    control(linuxframes::kUnmap, 1, -16);

    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
    EXPECT_TRUE(m_log.has(3, "mapid: 1, res: -16ld"));
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, ASecondUnmapFindsNoMap) {
    addMap(1);
    control(linuxframes::kUnmap, 1);

    control(linuxframes::kUnmap, 1);

    EXPECT_TRUE(m_log.has(1, "server ummap an not exist mapinfo! "));
    EXPECT_EQ(allSent().size(), 1U);
}

TEST_F(MapCtrlThreadTest, AnUnmapUnderARequestTakesTheMapOutAndSaysThatItLeaks) {
    const FdMapInfoPtr map = addMap(1);
    const auto parked = std::make_shared<OpreatorThread>(m_context.get());  // never started
    m_context->addReadyThread(parked.get());
    map->handleOpreatorCmdItem(nodeOf({.mapid = 1}));

    control(linuxframes::kUnmap, 1);

    EXPECT_TRUE(m_log.has(
        1, "mapinfo stop error, mapinfo memory leak.  mapinfo: " + pointerText(map.get())));
    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
    EXPECT_EQ(map->getStatu(), 5);
}

TEST_F(MapCtrlThreadTest, IgnoresTheIgnoredMessage) {
    const FdMapInfoPtr map = addMap(1);
    fd_cmd_item* item = nodeOf({.mapid = 1, .type = 1, .subtype = 1});

    m_thread->handleMapCtrlCmd(item);

    EXPECT_TRUE(isBack(item));
    EXPECT_FALSE(m_log.contains(3, "unknow map ctrl message."));
    EXPECT_EQ(map->getStatu(), 1);
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, DropsUnknownMessages) {
    for (const int subtype : {0, 2, 3, 4, 5, 7, 9, 10, -1, 0x7fffffff}) {
        fd_cmd_item* item = nodeOf({.mapid = 1, .type = 1, .subtype = subtype});

        m_thread->handleMapCtrlCmd(item);

        EXPECT_TRUE(isBack(item));
        EXPECT_TRUE(m_log.has(3, "unknow map ctrl message. " + std::to_string(subtype)));
    }
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, WithdrawsAMountThatTheServerHasMounted) {
    m_thread->handlePlugInfo(mountAt("/media/stick"));
    control(linuxframes::kMap, 1);

    EXPECT_TRUE(m_thread->handleUnplugInfo(mountAt("/media/stick")));

    const Message unplug = sent(3)[2];
    EXPECT_EQ(unplug.mapid, 1);
    EXPECT_EQ(unplug.type, 1);
    EXPECT_EQ(unplug.subtype, 5);
    EXPECT_EQ(unplug.idx, 0);
    EXPECT_TRUE(unplug.payload.empty());
    EXPECT_NE(m_context->findMapInfoById(1), nullptr);  // it serves until the server answers
    EXPECT_TRUE(m_log.has(3, "unplug map. type: 8, path: /media/stick"));
    EXPECT_TRUE(m_log.has(3, "unplugin an map! mapid: 1, path: /media/stick"));
}

TEST_F(MapCtrlThreadTest, DoesNotWithdrawBeforeTheServerHasAnswered) {
    m_thread->handlePlugInfo(mountAt("/media/stick"));

    EXPECT_FALSE(m_thread->handleUnplugInfo(mountAt("/media/stick")));

    EXPECT_TRUE(m_log.has(2, "unplugin an not response map! mapid: 1, path: /media/stick"));
    EXPECT_EQ(allSent().size(), 1U);
}

TEST_F(MapCtrlThreadTest, CannotWithdrawWhatIsNotListed) {
    EXPECT_FALSE(m_thread->handleUnplugInfo(mountAt("/media/stick")));

    EXPECT_TRUE(m_log.has(1, "unplugin an not exist map !  path: /media/stick"));
}

TEST_F(MapCtrlThreadTest, SaysWhenAWithdrawalCannotBeSent) {
    addMap(1, 0, "/media/stick");
    m_context->setSendThread(nullptr);

    EXPECT_FALSE(m_thread->handleUnplugInfo(mountAt("/media/stick")));

    EXPECT_TRUE(m_log.has(2, "send unplugin message failure. send it latter please"));
}

TEST_F(MapCtrlThreadTest, ADisconnectLetsAllMapsGoWithoutAMessage) {
    const FdMapInfoPtr first = addMap(1, 0, "/media/a");
    const std::string second = pointerText(addMap(2, 0, "/media/b").get());
    m_log.clear();

    EXPECT_TRUE(m_thread->handleDisconnect());

    const std::string firstText = "mapid: 1, mapinfo: " + pointerText(first.get());
    const std::string secondText = "mapid: 2, mapinfo: " + second;
    const std::vector<LogLine> expected = {{3, "mapctrl thread handle disconnect"},
                                           {3, "free all opreator thread."},
                                           {3, "get map info. " + firstText},
                                           {3, "map stop, " + firstText},
                                           {3, "get map info. " + secondText},
                                           {3, "map stop, " + secondText},
                                           {3, "get map info. mapid: 0, mapinfo: (nil)"},
                                           {3, "all map in server unplugin ok. "}};
    EXPECT_EQ(m_log.lines(), expected);
    EXPECT_EQ(m_context->getMapInfo(), nullptr);
    EXPECT_TRUE(allSent().empty());
}

TEST_F(MapCtrlThreadTest, TreatsMessagesOnItsOwnThreadAndStops) {
    addMap(1);
    m_thread->start();
    EXPECT_EQ(m_thread->waitStatu(3, kStopMs), 3);

    EXPECT_TRUE(m_thread->addMapCtrlCmd(nodeOf({.mapid = 1, .type = 1, .subtype = 6})));
    EXPECT_EQ(sent(1).front().subtype, linuxframes::kMapAck);
    EXPECT_TRUE(waitUntil([&] { return m_context->findMapInfoById(1) != nullptr; }));

    EXPECT_TRUE(m_thread->waitStop(kStopMs));
    EXPECT_EQ(m_thread->getThreadStatu(), 5);
    EXPECT_EQ(m_context->findMapInfoById(1), nullptr);
    for (const char* text :
         {"MapCtrlThread start ...", "MapCtrlThread work ...", "wake up all waiter ...",
          "MapCtrlThread wait stop, msecond: 20000  ...", "MapCtrlThread finish ok"}) {
        EXPECT_TRUE(m_log.has(3, text)) << text;
    }
    EXPECT_TRUE(m_log.contains(3, "MapCtrlThread wait stop end,  m_exit_flag: 1, msecond: "));
}

TEST_F(MapCtrlThreadTest, ReturnsWhatIsQueuedToTheCacheAtItsEnd) {
    fd_cmd_item* item = nodeOf({.mapid = 1, .type = 1, .subtype = 6});
    m_thread->addMapCtrlCmd(item);
    m_log.clear();

    m_thread.reset();

    const std::vector<LogLine> expected = {{3, "destory MapCtrlThread ..."},
                                           {2, "free item. item: " + pointerText(item)},
                                           {3, "cmd queue size is zero"},
                                           {3, "destory MapCtrlThread ok "}};
    EXPECT_EQ(m_log.lines(), expected);
    EXPECT_TRUE(isBack(item));
}

}  // namespace
