// The dispatcher and the result path: every code, every notice, and what the channel gets to see.
#include "common/Map/MapManager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <thread>

#include "common/Comm/HandleManage.h"
#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Policy/FdClientPolicy.h"
#include "support/FakeChannel.h"
#include "support/LogCapture.h"
#include "support/OpenMapManager.h"
#include "support/WireMessage.h"

using testing::ElementsAre;
using testing::SizeIs;

namespace {
class MapManagerTest : public testing::Test {
protected:
    MapManagerTest() {
        m_manager.initNet(m_channel.writer(), m_channel.metric());
        m_log.clear();
    }

    MapFolderPtr addMap(const std::string& path) {
        const MapFolderPtr map =
            m_manager.addMapInfo(path.c_str(), static_cast<int>(path.size() + 1), 0x8);
        m_log.clear();
        return map;
    }

    // Has the message handled in a work buffer that is fresh behind it.
    void handle(const std::vector<char>& message) {
        std::memset(m_buffer.data(), 0, m_buffer.size());
        std::ranges::copy(message, m_buffer.begin());
        m_manager.HandleCmd(m_buffer.data(), static_cast<int>(message.size()));
    }

    std::vector<char> replyTo(const std::vector<char>& message) {
        m_channel.clear();
        handle(message);
        return m_channel.onlyWrite();
    }

    // Makes the read slot answer `size` bytes of 'r'.
    void answerReadsWith(int size) {
        m_manager.m_fsHandlers[FD_CMD_READ] = [size](char*& buffer, int, int* resultSize,
                                                     MapFolder*) {
            const int room = std::clamp(size, 0, MAX_CMD_BUFFER - kHeaderSize);
            std::fill_n(buffer + kHeaderSize, room, 'r');
            *resultSize = size;
        };
    }

    bool isZeroBehindDirtyBytes() const {
        return std::all_of(m_buffer.begin() + m_manager.dirtyBytes(), m_buffer.end(),
                           [](char byte) { return byte == 0; });
    }

    LogCapture m_log;
    FakeChannel m_channel;
    FdClientPolicy m_policy;
    OpenMapManager m_manager{&m_policy, ZListener{}};
    std::vector<char> m_buffer = std::vector<char>(MAX_CMD_BUFFER);
};
}  // namespace

// Dispatch of file requests

TEST_F(MapManagerTest, TheTableHoldsThirteenHandlersAndSevenEmptySlots) {
    for (std::size_t slot = 0; slot < m_manager.m_fsHandlers.size(); ++slot) {
        const bool empty = slot == 0 || slot == 7 || slot == 11 || slot > 15;
        EXPECT_EQ(m_manager.m_fsHandlers[slot] == nullptr, empty) << "slot " << slot;
    }
}

TEST_F(MapManagerTest, AFileRequestForAnUnknownMapIsAnsweredWith23Bytes) {
    const auto reply = replyTo(wireMessage(FD_CMD_READ, 9, 7, "statcbBuxyz123", 77));

    // The three bytes behind the zero word are the request's.
    EXPECT_EQ(reply, bytesOf("\x02\x02\x09\x07\0\0\0\0\x0B\0\0\0\xFE\xFF\xFF\xFF\0\0\0\0xyz"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "can not find the map by id. id: 9"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "mapfolder is null. pcmdhead->mapId : 9"));
}

TEST_F(MapManagerTest, AFileRequestReachesTheHandlerOfItsCodeWithItsMap) {
    addMap("/zfd/one");
    const MapFolderPtr two = addMap("/zfd/two");
    MapFolder* seen = nullptr;
    int seenSize = 0;
    m_manager.m_fsHandlers[FD_CMD_LOCKS] = [&](char*&, int size, int*, MapFolder* map) {
        seen = map;
        seenSize = size;
    };

    handle(wireMessage(FD_CMD_LOCKS, 1, 0, "12345"));

    EXPECT_EQ(seen, two.get());
    EXPECT_EQ(seenSize, 17);
    EXPECT_THAT(m_channel.writes(), SizeIs(0));  // the handler left the size at 0
}

TEST_F(MapManagerTest, ACallThroughAnEmptySlotThrows) {
    addMap("/zfd/one");
    for (const int code : {0, 7, 11}) {
        EXPECT_THROW(handle(wireMessage(code)), std::bad_function_call) << code;
    }
}

TEST_F(MapManagerTest, AnEmptySlotIsNotReachedForAnUnknownMap) {
    EXPECT_THAT(replyTo(wireMessage(7, 3)), SizeIs(23));
}

TEST_F(MapManagerTest, ACodeBeyondTheTableIsLoggedAndNotAnswered) {
    addMap("/zfd/one");
    const auto message = wireMessage(20);
    std::ranges::copy(message, m_buffer.begin());
    int resultSize = 0;

    m_manager.HandleFSCmd(m_buffer.data(), static_cast<int>(message.size()), &resultSize);

    EXPECT_EQ(resultSize, 0);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "Unsupported cmd = 20 Or error map_id = 0"));
}

TEST_F(MapManagerTest, ARunningHandlerKeepsItsMapAlive) {
    std::weak_ptr<MapFolder> map = addMap("/zfd/one");
    m_manager.m_fsHandlers[FD_CMD_READ] = [&](char*&, int, int*, MapFolder* used) {
        EXPECT_NE(m_manager.deleteMapInfoByMapIndex(0), nullptr);  // and nobody keeps it
        EXPECT_STREQ(used->m_clientFolder, "/zfd/one");
    };

    handle(wireMessage(FD_CMD_READ));

    EXPECT_TRUE(map.expired());
}

TEST_F(MapManagerTest, ReservedAndUnknownCodesDoNothingAtAll) {
    addMap("/zfd/one");
    for (const int code : {20, 511, 512, 513, 514, 519, 520, 522, 523, 1000, 0xCDEF, 0xFFFF}) {
        handle(wireMessage(code, 0, 1, "payload of no meaning"));
        EXPECT_THAT(m_channel.writes(), SizeIs(0)) << code;
        EXPECT_THAT(m_log.lines(), SizeIs(0)) << code;
    }
}

// Map queries

TEST_F(MapManagerTest, TwoMapsAreCountedInA16ByteMessage) {
    addMap("/zfd/one");
    addMap("/zfd/two");

    EXPECT_EQ(replyTo(wireMessage(FD_CMD_GET_MAP_NUM, 0, 5)),
              bytesOf("\x02\x02\0\x05\0\0\0\0\x04\0\0\0\x02\0\0\0"));
}

TEST_F(MapManagerTest, TheNameOfAMapIsItsUtf16NameWithItsSize) {
    const MapFolderPtr map = addMap("/zfd/one");
    ASSERT_EQ(map->m_utf16_mapName_size, 16);  // "Mac-one" and its terminator

    EXPECT_EQ(replyTo(wireMessage(FD_CMD_GET_MAP_NAME, 0, 5, leText(0U))),
              bytesOf("\x02\x02\0\x05\0\0\0\0\x12\0\0\0\x10\0M\0a\0c\0-\0o\0n\0e\0\0\0"));
}

TEST_F(MapManagerTest, TheNameOfAnUnknownMapIsEmpty) {
    EXPECT_EQ(replyTo(wireMessage(FD_CMD_GET_MAP_NAME, 0, 5, leText(4U))),
              bytesOf("\x02\x02\0\x05\0\0\0\0\x02\0\0\0\0\0"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "can not find the map by id. id: 4"));
}

TEST_F(MapManagerTest, AnIdBeyondTheSignedRangeIsAnUnknownMap) {
    addMap("/zfd/one");
    EXPECT_THAT(replyTo(wireMessage(FD_CMD_GET_MAP_NAME, 0, 0, leText(0xFFFFFFFFU))), SizeIs(14));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "can not find the map by id. id: -1"));
}

TEST_F(MapManagerTest, AMapIsFoundByItsShareName) {
    addMap("/zfd/one");
    const MapFolderPtr map = addMap("/zfd/two");
    const std::string name(map->m_utf16_mapName, map->m_utf16_mapName_size);

    EXPECT_EQ(replyTo(wireMessage(FD_CMD_GET_MAP_FOLDER, 0, 5,
                                  leText(static_cast<std::uint16_t>(name.size())) + name)),
              bytesOf("\x02\x02\0\x05\0\0\0\0\x08\0\0\0\0\0\0\0\x01\0\0\0"));
}

TEST_F(MapManagerTest, AnUnknownShareNameIsAnsweredWithTheNextMapId) {
    addMap("/zfd/one");
    addMap("/zfd/two");

    EXPECT_EQ(replyTo(wireMessage(FD_CMD_GET_MAP_FOLDER, 0, 5,
                                  leText(std::uint16_t{4}) + std::string("nope"))),
              bytesOf("\x02\x02\0\x05\0\0\0\0\x08\0\0\0\x9A\xFF\xFF\xFF\x02\0\0\0"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR,
                          "VERR_FILE_NOT_FOUND, [findMapId: 0], [m_mapNum: 2] [sc2_name: nope]"));
}

TEST_F(MapManagerTest, AShareNameOfTheLargestSizeIsReadWithinItsBounds) {
    handle(wireMessage(
        FD_CMD_GET_MAP_FOLDER, 0, 0,
        leText(std::uint16_t{0xFFFF}) + std::string(MAX_CMD_BUFFER - kHeaderSize - 2, 'x')));

    EXPECT_THAT(m_channel.onlyWrite(), SizeIs(20));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_ERROR, "[sc2_name: xxx"));
}

TEST_F(MapManagerTest, TheUnmapQueryListsTheMapsAndRemovesNone) {
    addMap("/zfd/one");
    addMap("/zfd/two");

    EXPECT_EQ(replyTo(wireMessage(FD_CMD_GET_UNMAP_FOLDER, 0, 5, "\x01\x02\x03\x04")),
              bytesOf("\x02\x02\0\x05\0\0\0\0\x04\0\0\0\0\0\0\0"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "mapId: 0, mapName: Mac-one"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "mapId: 1, mapName: Mac-two"));
    EXPECT_EQ(m_manager.getMapNum(), 2);
}

TEST_F(MapManagerTest, TheUnmapQueryPrintsTheHandlesOfEveryMap) {
    for (const char* path : {"/zfd/one", "/zfd/two"}) {
        const MapFolderPtr map = addMap(path);
        const int fd = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_TRUE(map->m_handleManage->InsertHandleByName(fd, path, HANDLE_TYPE_DIR));
    }
    m_log.clear();

    handle(wireMessage(FD_CMD_GET_UNMAP_FOLDER));

    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_INFO, "/zfd/one"));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_INFO, "/zfd/two"));
}

// Notices

TEST_F(MapManagerTest, AMapReplyStoresTheDriveLetter) {
    const MapFolderPtr map = addMap("/zfd/one");

    handle(wireMessage(FD_CMD_MAP_RSP, 0, 0, "A"));

    EXPECT_EQ(map->m_vmName, 'A');
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "clientPath: /zfd/one"));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_WARNING, "vmName"));
    EXPECT_THAT(m_channel.writes(), SizeIs(0));
}

TEST_F(MapManagerTest, ALetterBelowAIsStoredAllTheSameAfterAWarning) {
    const MapFolderPtr map = addMap("/zfd/one");

    handle(wireMessage(FD_CMD_MAP_RSP, 0, 0, "@"));
    EXPECT_EQ(map->m_vmName, 64);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "vmName < 'A'' , vmName: 64"));

    handle(wireMessage(FD_CMD_MAP_RSP, 0, 0, "0"));
    EXPECT_EQ(map->m_vmName, 48);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "vmName < 'A'' , vmName: 48"));

    handle(wireMessage(FD_CMD_MAP_RSP, 0, 0, "\xFF"));
    EXPECT_EQ(map->m_vmName, -1);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "vmName < 'A'' , vmName: -1"));
}

TEST_F(MapManagerTest, AMapReplyForAnUnknownMapIsLogged) {
    handle(wireMessage(FD_CMD_MAP_RSP, 3, 0, "C"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "can not find the map. "));
    EXPECT_THAT(m_channel.writes(), SizeIs(0));
}

TEST_F(MapManagerTest, AnUnmapReplyIsLoggedOnly) {
    addMap("/zfd/one");

    handle(wireMessage(FD_CMD_UNMAP_RSP, 0, 0, "\xFB"));

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "mapId: 0, rc: -5"));
    EXPECT_EQ(m_manager.getMapNum(), 1);
    EXPECT_THAT(m_channel.writes(), SizeIs(0));
}

TEST_F(MapManagerTest, AnUnmapReplyForAnUnknownMapLogsAnError) {
    handle(wireMessage(FD_CMD_UNMAP_RSP, 2, 0, "\x01"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "mapId: 2, rc: 1"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "HandleUmMapRsp Error.  can't get the map"));
}

TEST_F(MapManagerTest, AnEjectOfAUsbDriveIsLoggedOnly) {
    handle(wireMessage(FD_CMD_EJECT_USB));
    char text[64];
    std::snprintf(text, sizeof(text), "Handle Eject Usb. pbuffer: %p",
                  static_cast<const void*>(m_buffer.data()));
    EXPECT_THAT(m_log.lines(), ElementsAre(LogLine{ZLOG_LEVEL_INFO, text}));
    EXPECT_THAT(m_channel.writes(), SizeIs(0));
}

TEST_F(MapManagerTest, AnEjectOfAnOpticalDriveIsLoggedOnly) {
    handle(wireMessage(FD_CMD_EJECT_CDROM, 0, 0, leText(3) + "cd0 and more"));
    EXPECT_THAT(m_log.lines(),
                ElementsAre(LogLine{ZLOG_LEVEL_INFO, "driveName: cd0"},
                            LogLine{ZLOG_LEVEL_INFO, "Try Eject CDRom In Linux. TODO ********"}));
    EXPECT_THAT(m_channel.writes(), SizeIs(0));
}

TEST_F(MapManagerTest, ADriveNameOf2048BytesIsTheLongest) {
    const std::string name(2049, 'n');
    handle(wireMessage(FD_CMD_EJECT_CDROM, 0, 0, leText(2048) + name));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "driveName: " + name.substr(1)));

    m_log.clear();
    handle(wireMessage(FD_CMD_EJECT_CDROM, 0, 0, leText(2049) + name));
    EXPECT_THAT(m_log.lines(),
                ElementsAre(LogLine{ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"}));
}

TEST_F(MapManagerTest, ANegativeOrHugeDriveNameSizeFailsTheCopy) {
    for (const std::int32_t size :
         {-1, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
        m_log.clear();
        handle(wireMessage(FD_CMD_EJECT_CDROM, 0, 0, leText(size) + "cd0"));
        EXPECT_THAT(m_log.lines(),
                    ElementsAre(LogLine{ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"}));
    }
}

// Results

TEST_F(MapManagerTest, AResultCarriesTheRequestsSeqAndParam0WhateverTheHandlerLeft) {
    addMap("/zfd/one");
    m_manager.m_fsHandlers[FD_CMD_READ] = [](char*& buffer, int, int* resultSize, MapFolder*) {
        std::fill_n(buffer, kHeaderSize, 'h');
        std::copy_n("data", 4, buffer + kHeaderSize);
        *resultSize = 4;
    };

    // The map id is what the handler left.
    EXPECT_EQ(replyTo(wireMessage(FD_CMD_READ, 0, 0xC8, {}, 0xFFFFFFFF)),
              bytesOf("\x02\x02h\xC8\0\0\0\0\x04\0\0\0data"));
}

TEST_F(MapManagerTest, WithCompressionOffAResultOfAnySizeLeavesInOneWrite) {
    addMap("/zfd/one");
    for (const int size : {1, 511, 512, 100000, MAX_CMD_BUFFER - 12}) {
        answerReadsWith(size);
        EXPECT_THAT(replyTo(wireMessage(FD_CMD_READ)), SizeIs(static_cast<std::size_t>(size) + 12));
    }
}

TEST_F(MapManagerTest, AResultBelow1SendsNothing) {
    addMap("/zfd/one");
    for (const int size : {0, -1, std::numeric_limits<int>::min()}) {
        answerReadsWith(size);
        handle(wireMessage(FD_CMD_READ));
        EXPECT_THAT(m_channel.writes(), SizeIs(0)) << size;
    }
}

TEST_F(MapManagerTest, AResultBeyondTheWorkBufferIsCutToIt) {
    addMap("/zfd/one");
    for (const int size : {MAX_CMD_BUFFER - 11, std::numeric_limits<int>::max()}) {
        answerReadsWith(size);
        const auto reply = replyTo(wireMessage(FD_CMD_READ));
        ASSERT_THAT(reply, SizeIs(MAX_CMD_BUFFER));
        EXPECT_EQ(loadLe<std::uint32_t>(reply.data() + 8), 1049588U);
    }
}

TEST_F(MapManagerTest, AFailedWriteIsLoggedAndTheResultLost) {
    m_channel.m_result = -5;
    EXPECT_THAT(replyTo(wireMessage(FD_CMD_GET_MAP_NUM)), SizeIs(16));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "write info error.   ret: -5"));
}

TEST_F(MapManagerTest, WithCompressionOn511BytesLeaveInOneWrite) {
    addMap("/zfd/one");
    m_policy.setCompressPolicy(1, 0, 900, 512);
    answerReadsWith(511);
    EXPECT_THAT(replyTo(wireMessage(FD_CMD_READ)), SizeIs(523));
}

TEST_F(MapManagerTest, WithCompressionOn512BytesLeaveAsTwoHeadersAndAnEmptyBody) {
    addMap("/zfd/one");
    m_policy.setCompressPolicy(1, 0, 900, 512);
    answerReadsWith(512);

    handle(wireMessage(FD_CMD_READ, 0, 9, {}, 3));

    EXPECT_THAT(m_channel.writes(),
                ElementsAre(bytesOf("\x0E\x02\0\x09\x05\0\0\0\x0C\0\0\0"),
                            bytesOf("\x02\x02\0\x09\0\0\0\0\0\x02\0\0"), bytesOf("")));
}

TEST_F(MapManagerTest, TheEmptyBodyIsANullPointer) {
    addMap("/zfd/one");
    m_policy.setCompressPolicy(1, 0, 900, 512);
    answerReadsWith(512);
    std::vector<char*> pointers;
    const auto remember = [&](char* data, int) {
        pointers.push_back(data);
        return 0;
    };
    m_manager.initNet(remember, m_channel.metric());

    handle(wireMessage(FD_CMD_READ));

    ASSERT_THAT(pointers, SizeIs(3));
    EXPECT_EQ(pointers[1], m_buffer.data());
    EXPECT_EQ(pointers[2], nullptr);
}

TEST_F(MapManagerTest, ACompressedResultWhoseBodyFailsIsSentPlainAgain) {
    addMap("/zfd/one");
    m_policy.setCompressPolicy(1, 0, 900, 512);
    answerReadsWith(600);
    m_channel.m_result = -1;

    handle(wireMessage(FD_CMD_READ));

    EXPECT_THAT(m_channel.writes(), ElementsAre(SizeIs(12), SizeIs(12), SizeIs(0), SizeIs(612)));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "send compress data error. compressDataSize: 0"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "write info error.   ret: -1"));
}

TEST_F(MapManagerTest, OnlyTheThirdWriteOfACompressedResultIsLookedAt) {
    addMap("/zfd/one");
    m_policy.setCompressPolicy(1, 0, 900, 512);
    answerReadsWith(600);
    int writes = 0;
    m_manager.initNet([&](char*, int) { return ++writes < 3 ? -1 : 0; }, m_channel.metric());

    handle(wireMessage(FD_CMD_READ));

    EXPECT_EQ(writes, 3);
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_WARNING, "send compress data error"));
}

TEST_F(MapManagerTest, AFinishedMessageMayGoBetweenTheWritesOfACompressedResult) {
    addMap("/zfd/one");
    m_policy.setCompressPolicy(1, 0, 900, 512);
    answerReadsWith(600);
    std::vector<int> sizes;
    const auto write = [&](char*, int size) {
        sizes.push_back(size);
        // On this thread: it would wait for itself if the result held the send lock.
        if (sizes.size() == 1 || sizes.size() == 3) {
            std::string data = "finished";
            EXPECT_TRUE(m_manager.sendData(data.data(), 8));
        }
        return size;
    };
    m_manager.initNet(write, m_channel.metric());

    handle(wireMessage(FD_CMD_READ));

    EXPECT_THAT(sizes, ElementsAre(12, 8, 12, 8, 0));
}

TEST_F(MapManagerTest, LaterPolicyValuesDoNotReachTheCompressor) {
    addMap("/zfd/one");
    m_policy.setCompressPolicy(1, 0, 900, 100000);
    answerReadsWith(512);
    handle(wireMessage(FD_CMD_READ));
    EXPECT_THAT(m_channel.writes(), SizeIs(3));
}

TEST_F(MapManagerTest, TheCompressorTakesThePolicysValuesOnce) {
    m_policy.setCompressPolicy(1, 0, 900, 600);
    OpenMapManager manager(&m_policy, ZListener{});
    manager.initNet(m_channel.writer(), m_channel.metric());

    EXPECT_FALSE(manager.sendCompressData(m_buffer.data(), 599, 0));
    EXPECT_TRUE(manager.sendCompressData(m_buffer.data(), 600, 0));
}

// The way out

TEST_F(MapManagerTest, AFinishedMessageIsSentAsItIs) {
    std::string data = "finished";
    EXPECT_TRUE(m_manager.sendData(data.data(), 8));
    EXPECT_EQ(m_channel.onlyWrite(), bytesOf("finished"));
}

TEST_F(MapManagerTest, AFinishedMessageThatCannotBeWrittenIsLogged) {
    std::string data = "finished";
    m_channel.m_result = -7;
    EXPECT_FALSE(m_manager.sendData(data.data(), 8));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "Write failed.  ret: -7"));
}

TEST_F(MapManagerTest, ResultsAndFinishedMessagesNeverOverlap) {
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::atomic<int> writes{0};
    const auto write = [&](char*, int) {
        if (inside++ != 0) overlapped = true;
        std::this_thread::yield();
        --inside;
        ++writes;
        return 0;
    };
    m_manager.initNet(write, m_channel.metric());

    std::thread control([this] {
        std::string data = "finished";
        for (int i = 0; i < 500; ++i) m_manager.sendData(data.data(), 8);
    });
    for (int i = 0; i < 500; ++i) handle(wireMessage(FD_CMD_GET_MAP_NUM));
    control.join();

    EXPECT_FALSE(overlapped);
    EXPECT_EQ(writes, 1000);
}

TEST_F(MapManagerTest, WithoutAWriteCallableAResultThrows) {
    m_manager.initNet({}, {});
    EXPECT_THROW(handle(wireMessage(FD_CMD_GET_MAP_NUM)), std::bad_function_call);
    EXPECT_THROW(m_manager.reportMetric(1, "text"), std::bad_function_call);
    m_manager.initNet(m_channel.writer(), m_channel.metric());
    EXPECT_THAT(replyTo(wireMessage(FD_CMD_GET_MAP_NUM)), SizeIs(16));  // the send lock is free
}

TEST_F(MapManagerTest, AMetricsSizeCountsTheTerminator) {
    std::string seen;
    m_manager.initNet(m_channel.writer(), [&](int code, char* text, unsigned size) {
        EXPECT_EQ(code, 0x150B0000);
        seen.assign(text, size);
        return -1;  // ignored
    });
    m_manager.reportMetric(0x150B0000, "disks");
    EXPECT_EQ(seen, std::string("disks\0", 6));
}

// What a message leaves in the work buffer

TEST_F(MapManagerTest, DirtyBytesCoverTheMessageOrItsReplyWhicheverIsLonger) {
    addMap("/zfd/one");
    handle(wireMessage(FD_CMD_GET_MAP_NUM, 0, 0, std::string(1000, 'x')));
    EXPECT_EQ(m_manager.dirtyBytes(), 1012);
    EXPECT_TRUE(isZeroBehindDirtyBytes());

    answerReadsWith(5000);
    handle(wireMessage(FD_CMD_READ));
    EXPECT_EQ(m_manager.dirtyBytes(), 5012);
    EXPECT_TRUE(isZeroBehindDirtyBytes());
}

TEST_F(MapManagerTest, DirtyBytesCoverWhatEveryCodeWritesForAShortMessage) {
    addMap("/zfd/one");
    for (const int code : {16, 17, 18, 19, 515, 516, 517, 518, 519, 1000}) {
        handle(wireMessage(code));
        EXPECT_TRUE(isZeroBehindDirtyBytes()) << code;
    }
    handle(wireMessage(FD_CMD_READ, 200));
    EXPECT_TRUE(isZeroBehindDirtyBytes());
    handle({'\x10'});  // one byte, which is the code 16
    EXPECT_TRUE(isZeroBehindDirtyBytes());
}

TEST_F(MapManagerTest, DirtyBytesNeverExceedTheWorkBuffer) {
    addMap("/zfd/one");
    answerReadsWith(std::numeric_limits<int>::max());
    handle(wireMessage(FD_CMD_READ));
    EXPECT_EQ(m_manager.dirtyBytes(), MAX_CMD_BUFFER);
}
