// The policy command: how the server's message becomes the policy.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"
#include "support/FakeChannel.h"
#include "support/LogCapture.h"
#include "support/PolicyMessage.h"

namespace {
using testing::IsEmpty;

constexpr const char* kPastTheEnd =
    "policy message leads past the work buffer, the rest of it is ignored";

// A message whose every field differs from the defaults and from old().
PolicyMessage fresh() {
    PolicyMessage message;
    message.policy = 0x3;
    message.speed = 40000;
    message.endOfFileEnable = 2;
    message.endOfFileSize = 300;
    message.ramdiskEnable = 1;
    message.compressEnable = 1;
    message.threshold = 333;
    message.sizeBound = 444;
    message.compressType = "type";
    message.statisticTime = 77;
    message.logLevel = 8;
    message.rootDirEnable = 1;
    message.mountPath = "/new";
    message.localFs = "newlocal";
    message.removeFs = "newremove";
    message.cdromFs = "newcdrom";
    message.networkFs = "newnetwork";
    message.delimiter = ';';
    message.filterPath = "/new";
    return message;
}

PolicyMessage old() {
    PolicyMessage message;
    message.statisticTime = 11;
    message.logLevel = 12;
    message.rootDirEnable = 0;
    message.mountPath = "/old|/older";
    message.localFs = "oldlocal";
    message.removeFs = "oldremove";
    message.cdromFs = "oldcdrom";
    message.networkFs = "oldnetwork";
    message.filterPath = "/old";
    return message;
}

class PolicyCommandTest : public testing::Test {
protected:
    PolicyCommandTest() {
        m_manager.initNet(m_channel.writer(), m_channel.metric());
        m_manager.setOnLinuxDesktop([this] { ++m_switches; });
    }

    void handle(const std::vector<char>& message) {
        std::memset(m_buffer.data(), 0, m_buffer.size());
        std::ranges::copy(message, m_buffer.begin());
        m_manager.HandlePolicy(m_buffer.data(), static_cast<int>(message.size()));
    }

    // Sends `message` with another length for one of its strings.
    void handleWithLength(const PolicyMessage& message, std::size_t lengthAt, std::int32_t length) {
        std::vector<char> bytes = message.build();
        storeLe(bytes.data() + lengthAt, length);
        handle(bytes);
    }

    // The fields behind the fixed ones, in the message's order: are they those of fresh()?
    std::vector<bool> freshFields() {
        return {
            m_policy.getStatisticsTime() == 77,      m_policy.getLogLevel() == 8,
            m_policy.isLinuxRootDirEnable(),         m_policy.isLinuxDirEnable("/new/disk"),
            m_policy.isLocalFileSystem("newlocal"),  m_policy.isRemoveFileSystem("newremove"),
            m_policy.isCdRomeFileSystem("newcdrom"), m_policy.isNetworkFileSystem("newnetwork")};
    }

    // How many of them a message stores that ends at the nth string, -1 for the compress type.
    static std::size_t fieldsBefore(int string) {
        return string < 0 ? 0 : static_cast<std::size_t>(string) + 3;
    }

    // Whether the root filter names this folder, whatever the switch of the root map says.
    bool rootShows(const char* path) {
        m_policy.setItaPolicy(1);
        m_policy.setLinuxRootDirEnable(1);
        return !m_policy.isLinuxRootPathFilter(path);
    }

    FdClientPolicy m_policy;
    FakeChannel m_channel;
    MapManager m_manager{&m_policy, ZListener{}};
    int m_switches = 0;
    std::vector<char> m_buffer = std::vector<char>(MAX_CMD_BUFFER);
};

std::size_t lengthAt(const PolicyMessage& message, int string) {
    return string < 0 ? PolicyMessage::kTypeLengthAt : message.lengthAt(string);
}

std::string nameOf(int string) {
    return "string " + std::to_string(string);
}

TEST_F(PolicyCommandTest, StoresEveryField) {
    handle(fresh().build());

    EXPECT_EQ(m_policy.getItaPolicy(), 3);
    EXPECT_EQ(m_policy.getSpeed(), 40000);
    EXPECT_FALSE(m_policy.isSupportLinuxSetFileSize());
    EXPECT_EQ(m_policy.getLinuxSetFileBoundSize(), 300);
    EXPECT_TRUE(m_policy.isSupportRamdisk());
    EXPECT_TRUE(m_policy.isSupportCompress());
    EXPECT_EQ(m_policy.getCompressThreshold(), 333);
    EXPECT_EQ(m_policy.getCompressBoundSize(), 444);
    EXPECT_EQ(freshFields(), std::vector<bool>(8, true));
    EXPECT_FALSE(m_policy.isLinuxRootPathFilter("/./new/file"));
    EXPECT_TRUE(m_policy.isLinuxRootPathFilter("/./var/log"));
}

TEST_F(PolicyCommandTest, WorksAtVersion61WhateverTheMessageHolds) {
    EXPECT_FALSE(m_policy.isSupportChineseName());
    handle(PolicyMessage().build());

    EXPECT_EQ(m_policy.getWorkingClientVersion(), 61);
    EXPECT_EQ(m_policy.getWorkingServiceVersion(), 61);
    EXPECT_EQ(m_policy.getCurrentServerVersion(), 61);
    EXPECT_TRUE(m_policy.isSupportChineseName());
}

TEST_F(PolicyCommandTest, LogsWordSpeedAndTypeBehindTheEntryLine) {
    const LogCapture log;
    PolicyMessage message;
    message.policy = 0x8000005B;
    message.speed = -3;
    handle(message.build());

    const std::vector<LogLine> lines = log.lines();
    ASSERT_GT(lines.size(), 4U);
    EXPECT_EQ(lines[1], (LogLine{ZLOG_LEVEL_INFO, "Policy::policy: 8000005b"}));
    EXPECT_EQ(lines[2], (LogLine{ZLOG_LEVEL_INFO, "Policy::speed: -3"}));
    EXPECT_EQ(lines[3], (LogLine{ZLOG_LEVEL_INFO, "Policy::type: 521"}));
}

TEST_F(PolicyCommandTest, StoresTheFieldsInAFixedOrder) {
    PolicyMessage message = fresh();
    message.policy = 0x403;
    message.speed = 1;
    message.threshold = 1001;
    message.endOfFileSize = 5000;
    const LogCapture log;
    handle(message.build());

    const char* const order[] = {
        "Policy::policy: 403",
        "Policy::speed: 1",
        "Policy::type: 521",
        "FILE_DRIVER_REDIR_LOCAL  is enable",
        "speed is not support!!!   speed: 0",
        "serverVer: 61, clientVer: 61, workingServerVer: 61, workingClientVer: 61",
        "setendofsize size is not support!!!",
        "threashold is not support!!!   threashold: 900",
        "setLinuxMountPath    size: 5,  mountPath: /new",
        "setLinuxLocalfs    size: 9,  localFs: newlocal",
        "setLinuxRemovefs    size: 10,  removeFs: newremove",
        "setLinuxCdRomfs    size: 9,  cdromFs: newcdrom",
        "setLinuxNetworkfs    size: 11,  networkFs: newnetwork",
        "[path: /new] [delim: ;]",
        "str: /new",
        " ### setLinuxrootDir() ### [rootpath: /.]",
        "str: /./new",
        "Is Linux Desktop",
    };
    const std::vector<LogLine> lines = log.lines();
    auto from = lines.begin();
    for (const char* text : order) {
        from = std::find(from, lines.end(), LogLine{ZLOG_LEVEL_INFO, text});
        ASSERT_NE(from, lines.end()) << text;
    }
}

TEST_F(PolicyCommandTest, SendsNoReply) {
    std::vector<char> message = PolicyMessage().build();
    std::ranges::copy(message, m_buffer.begin());
    m_manager.HandleCmd(m_buffer.data(), static_cast<int>(message.size()));

    EXPECT_THAT(m_channel.writes(), IsEmpty());
    EXPECT_EQ(m_policy.getItaPolicy(), 0x5B);
}

TEST_F(PolicyCommandTest, SkipsTheCompressTypeAndReadsAllLaterFieldsBehindIt) {
    PolicyMessage message = fresh();
    message.compressType = "#zip!";
    handle(message.build());

    EXPECT_EQ(freshFields(), std::vector<bool>(8, true));
    const std::string_view stored(reinterpret_cast<const char*>(&m_policy), sizeof m_policy);
    EXPECT_EQ(stored.find("#zip!"), std::string_view::npos);
}

TEST_F(PolicyCommandTest, ClearsTheStoredCompressType) {
    std::string type = "#zip!";
    m_policy.setCompressType(5, type.data());
    handle(PolicyMessage().build());

    const std::string_view stored(reinterpret_cast<const char*>(&m_policy), sizeof m_policy);
    EXPECT_EQ(stored.find("#zip!"), std::string_view::npos);
}

TEST_F(PolicyCommandTest, NeverLeavesTheWindowsDialectWithoutTheLinuxBit) {
    const LogCapture log;
    PolicyMessage message = fresh();
    message.policy = 0xFFFFFBFF;
    handle(message.build());

    EXPECT_EQ(m_switches, 0);
    EXPECT_FALSE(log.has(ZLOG_LEVEL_INFO, "Is Linux Desktop"));
}

TEST_F(PolicyCommandTest, CallsForTheLinuxDialectOnceAMessageWithTheWholePolicyStored) {
    PolicyMessage message = fresh();
    message.policy = 0x403;
    bool complete = false;
    m_manager.setOnLinuxDesktop([&] {
        ++m_switches;
        complete = freshFields() == std::vector<bool>(8, true) &&
                   !m_policy.isLinuxRootPathFilter("/./new") &&
                   m_policy.isLinuxRootPathFilter("/./x");
    });

    const LogCapture log;
    handle(message.build());
    EXPECT_EQ(m_switches, 1);
    EXPECT_TRUE(complete);
    EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, "Is Linux Desktop"), 1);

    handle(message.build());
    EXPECT_EQ(m_switches, 2);
}

TEST_F(PolicyCommandTest, StaysQuietAboutTheLinuxBitWithoutAnybodyToCall) {
    m_manager.setOnLinuxDesktop({});
    const LogCapture log;
    PolicyMessage message;
    message.policy = 0x45B;
    handle(message.build());

    EXPECT_TRUE(m_policy.isLinuxSystem());
    EXPECT_FALSE(log.has(ZLOG_LEVEL_INFO, "Is Linux Desktop"));
}

TEST_F(PolicyCommandTest, StoresEmptyTextsForLengthsOfZero) {
    PolicyMessage message = fresh();
    for (std::string* text : {&message.compressType, &message.mountPath, &message.localFs,
                              &message.removeFs, &message.cdromFs, &message.networkFs}) {
        text->clear();
    }
    message.filterPath = "/a;/b";  // the delimiter right behind the fifth length is the one used
    const LogCapture log;
    handle(message.build());

    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxMountPath    size: 1,  mountPath: "));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxLocalfs    size: 1,  localFs: "));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxRemovefs    size: 1,  removeFs: "));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxCdRomfs    size: 1,  cdromFs: "));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxNetworkfs    size: 1,  networkFs: "));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "str: /./a"));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "str: /./b"));
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/media/disk"));
}

TEST_F(PolicyCommandTest, HidesTheWholeRootWithAnEmptyFilter) {
    PolicyMessage message;
    message.rootDirEnable = 1;
    message.filterPath.clear();
    handle(message.build());
    EXPECT_TRUE(m_policy.isLinuxRootPathFilter("/."));
}

TEST_F(PolicyCommandTest, EndsATextAtAZeroByteInsideIt) {
    PolicyMessage message;
    message.cdromFs = std::string("udf\0iso9660", 11);
    const LogCapture log;
    handle(message.build());

    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxCdRomfs    size: 4,  cdromFs: udf"));
    EXPECT_TRUE(m_policy.isNetworkFileSystem("cifs"));  // the length still counts the whole
}

TEST_F(PolicyCommandTest, OverwritesEverythingWithALaterMessage) {
    handle(old().build());
    handle(fresh().build());

    EXPECT_EQ(freshFields(), std::vector<bool>(8, true));
    EXPECT_FALSE(m_policy.isLocalFileSystem("oldlocal"));
    EXPECT_FALSE(m_policy.isLinuxRootPathFilter("/./new"));  // prefixed once, not twice
    EXPECT_TRUE(m_policy.isLinuxRootPathFilter("/./old"));
}

TEST_F(PolicyCommandTest, GoesOnWhenASetterRefusesItsValue) {
    PolicyMessage message = fresh();
    message.speed = 7;
    message.threshold = -1;
    message.sizeBound = INT_MAX;
    message.endOfFileSize = -1;
    handle(message.build());

    EXPECT_EQ(m_policy.getSpeed(), 0);
    EXPECT_EQ(m_policy.getCompressThreshold(), 900);
    EXPECT_EQ(m_policy.getCompressBoundSize(), 512);
    EXPECT_EQ(m_policy.getLinuxSetFileBoundSize(), 0);
    EXPECT_EQ(freshFields(), std::vector<bool>(8, true));
}

TEST_F(PolicyCommandTest, ReadsZerosBehindAMessageThatIsCutAtAnyByte) {
    const PolicyMessage message = fresh();
    const std::vector<char> whole = message.build();
    // Where the last byte of each of the eight fields ends that freshFields looks at.
    std::vector<std::size_t> ends;
    for (const int back : {8, 4, 0}) {
        ends.push_back(message.lengthAt(0) - static_cast<std::size_t>(back));
    }
    for (const int string : {1, 2, 3, 4}) ends.push_back(message.lengthAt(string));
    ends.push_back(message.lengthAt(5) - 1);
    ASSERT_EQ(whole[ends.back()], ';');

    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
        handle(old().build());
        const LogCapture log;
        handle({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut)});

        ASSERT_FALSE(log.contains(ZLOG_LEVEL_ERROR, "")) << cut;
        ASSERT_EQ(m_policy.getItaPolicy(), cut > 4 ? 3 : 0) << cut;
        if (cut > 4) {  // and the root switch can be seen
            const std::vector<bool> fields = freshFields();
            for (std::size_t i = 0; i < fields.size(); ++i) {
                // Numbers below 256 stand in the first of their four bytes.
                const std::size_t needed = i < 3 ? ends[i] - 3 : ends[i];
                ASSERT_EQ(fields[i], cut >= needed) << "field " << i << " cut at " << cut;
            }
        }
        // No filter hides all. One that is cut shows more, and its "/" alone shows everything.
        ASSERT_EQ(rootShows("/./new"), cut > whole.size() - 4) << cut;
        ASSERT_EQ(rootShows("/./old"), cut == whole.size() - 3) << cut;
    }
}

TEST_F(PolicyCommandTest, KeepsWhatStandsBeforeALengthPastTheWorkBuffer) {
    for (int string = -1; string <= 5; ++string) {
        const PolicyMessage message = fresh();
        const std::size_t at = lengthAt(message, string);
        const auto room = static_cast<std::int32_t>(MAX_CMD_BUFFER - at - 4);
        for (const std::int32_t length : {INT_MAX, INT_MAX - 3, room + 1}) {
            handle(old().build());
            const LogCapture log;
            handleWithLength(message, at, length);

            EXPECT_EQ(log.count(ZLOG_LEVEL_ERROR, kPastTheEnd), 1) << nameOf(string);
            std::vector<bool> expected(8, false);
            std::fill_n(expected.begin(), fieldsBefore(std::min(string, 5)), true);
            EXPECT_EQ(freshFields(), expected) << nameOf(string) << ", length " << length;
            EXPECT_EQ(m_policy.getSpeed(), 40000);  // what stands at a fixed place is always stored
            EXPECT_TRUE(rootShows("/./old")) << nameOf(string);
            EXPECT_FALSE(rootShows("/./new")) << nameOf(string);
        }
    }
}

TEST_F(PolicyCommandTest, KeepsTheOldDelimiterIfItIsNotReached) {
    const PolicyMessage message = fresh();
    handle(old().build());
    handleWithLength(message, message.lengthAt(4), INT_MAX);
    m_policy.setLinuxLocalfs("one|two");
    EXPECT_TRUE(m_policy.isLocalFileSystem("two"));

    handleWithLength(message, message.lengthAt(5), INT_MAX);
    m_policy.setLinuxLocalfs("one;two");
    EXPECT_TRUE(m_policy.isLocalFileSystem("two"));
}

TEST_F(PolicyCommandTest, TakesATextThatFillsTheRestOfTheWorkBuffer) {
    for (int string = -1; string <= 5; ++string) {
        const PolicyMessage message = fresh();
        const std::size_t at = lengthAt(message, string);
        handle(old().build());
        const LogCapture log;
        handleWithLength(message, at, static_cast<std::int32_t>(MAX_CMD_BUFFER - at - 4));

        // The text itself is inside; nothing but the filter path may be the last field.
        EXPECT_EQ(log.count(ZLOG_LEVEL_ERROR, kPastTheEnd), string == 5 ? 0 : 1) << nameOf(string);
        EXPECT_EQ(log.contains(ZLOG_LEVEL_INFO, "setLinuxMountPath "), string >= 0);
        EXPECT_EQ(log.contains(ZLOG_LEVEL_INFO, "setLinuxNetworkfs "), string >= 4);
        EXPECT_EQ(rootShows("/./new"), string == 5);
    }
}

TEST_F(PolicyCommandTest, EndsWhereANumberNoLongerFits) {
    const PolicyMessage message = fresh();
    for (const int left : {3, 4}) {
        handle(old().build());
        const LogCapture log;
        handleWithLength(message, PolicyMessage::kTypeLengthAt, MAX_CMD_BUFFER - 52 - left);

        EXPECT_EQ(log.count(ZLOG_LEVEL_ERROR, kPastTheEnd), 1);
        EXPECT_EQ(m_policy.getStatisticsTime(), left < 4 ? 11 : 0);  // the buffer ends in zeros
        EXPECT_EQ(m_policy.getLogLevel(), 12);
    }
}

TEST_F(PolicyCommandTest, AddsLengthsUpWithoutWrapping) {
    PolicyMessage message = fresh();
    message.mountPath = std::string(600000, 'm');
    handle(old().build());
    const LogCapture log;
    handleWithLength(message, message.lengthAt(1), 600000);

    EXPECT_EQ(log.count(ZLOG_LEVEL_ERROR, kPastTheEnd), 1);
    EXPECT_FALSE(m_policy.isLinuxDirEnable("/old/disk"));
    EXPECT_TRUE(m_policy.isLocalFileSystem("oldlocal"));
}

TEST_F(PolicyCommandTest, ReadsLaterFieldsFromTheZerosThatALongerLengthReaches) {
    const PolicyMessage message = fresh();
    handle(old().build());
    const LogCapture log;
    handleWithLength(message, message.lengthAt(2), 5000);

    EXPECT_FALSE(log.contains(ZLOG_LEVEL_ERROR, ""));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxCdRomfs    size: 1,  cdromFs: "));
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "setLinuxNetworkfs    size: 1,  networkFs: "));
    EXPECT_FALSE(rootShows("/."));
}

TEST_F(PolicyCommandTest, ReadsTheFieldsBehindATextOfNoByteOrOne) {
    std::string PolicyMessage::*const texts[] = {
        &PolicyMessage::compressType, &PolicyMessage::mountPath, &PolicyMessage::localFs,
        &PolicyMessage::removeFs,     &PolicyMessage::cdromFs,   &PolicyMessage::networkFs};
    for (int string = -1; string < 5; ++string) {
        for (const char* text : {"", "x"}) {
            PolicyMessage message = fresh();
            message.*texts[string + 1] = text;
            handle(old().build());
            handle(message.build());

            std::vector<bool> expected(8, true);
            if (string >= 0) expected[fieldsBefore(string)] = false;
            EXPECT_EQ(freshFields(), expected) << nameOf(string);
            EXPECT_FALSE(m_policy.isLinuxRootPathFilter("/./new"));
        }
    }
}

TEST_F(PolicyCommandTest, TakesAFilterOfOneByte) {
    const PolicyMessage message = fresh();
    const LogCapture log;
    handleWithLength(message, message.lengthAt(5), 1);

    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "[path: /] [delim: ;]"));
    EXPECT_FALSE(m_policy.isLinuxRootPathFilter("/./etc"));  // the entry "/./" begins every path
}

TEST_F(PolicyCommandTest, LetsTheExceptionOfANegativeLengthThrough) {
    for (int string = -1; string <= 5; ++string) {
        for (const std::int32_t length : {-1, -4, INT_MIN}) {
            const PolicyMessage message = fresh();
            handle(old().build());
            EXPECT_THROW(handleWithLength(message, lengthAt(message, string), length),
                         std::length_error)
                << nameOf(string);

            std::vector<bool> expected(8, false);
            std::fill_n(expected.begin(), fieldsBefore(string), true);
            EXPECT_EQ(freshFields(), expected) << nameOf(string);
        }
    }
}

TEST_F(PolicyCommandTest, NeverSwitchesOnHalfAPolicy) {
    PolicyMessage message = fresh();
    message.policy = 0x403;
    for (int string = -1; string <= 5; ++string) {
        handleWithLength(message, lengthAt(message, string), INT_MAX);
        EXPECT_THROW(handleWithLength(message, lengthAt(message, string), -1), std::length_error);
    }
    EXPECT_EQ(m_switches, 0);
}

TEST_F(PolicyCommandTest, LeavesTheMessageAsItIs) {
    const std::vector<char> message = fresh().build();
    handle(message);
    EXPECT_TRUE(std::equal(message.begin(), message.end(), m_buffer.begin()));
}
}  // namespace
