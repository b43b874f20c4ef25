// The policy word, the numbers of the policy and their queries.
#include "common/Policy/FdClientPolicy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "support/WaitUntil.h"
#include "support/WireMessage.h"

namespace {
using testing::ElementsAre;
using testing::IsEmpty;

class FdClientPolicyTest : public testing::Test {
protected:
    // What the feature lines of setItaPolicy say, without the word itself.
    std::vector<std::string> featureLines(unsigned word) {
        const LogCapture log;
        EXPECT_TRUE(m_policy.setItaPolicy(static_cast<int>(word)));
        std::vector<std::string> texts;
        for (const LogLine& line : log.lines()) {
            EXPECT_EQ(line.level, ZLOG_LEVEL_INFO);
            if (line.message.find("enable") != std::string::npos) texts.push_back(line.message);
        }
        return texts;
    }

    void setWord(unsigned word) { m_policy.setItaPolicy(static_cast<int>(word)); }

    // For what no query gives away, such as the compress type: looked for in the whole object.
    bool holdsBytes(std::string_view bytes) const {
        const std::string_view object(reinterpret_cast<const char*>(&m_policy), sizeof m_policy);
        return object.find(bytes) != std::string_view::npos;
    }

    FdClientPolicy m_policy;
};

struct NamedQuery {
    const char* name;
    unsigned mask;
    bool (FdClientPolicy::*query)() const;
};

const NamedQuery kQueries[] = {
    {"isFdRedirEnable", 0x00000001, &FdClientPolicy::isFdRedirEnable},
    {"isLocalEnable", 0x00000003, &FdClientPolicy::isLocalEnable},
    {"isRemoveEnable", 0x00000009, &FdClientPolicy::isRemoveEnable},
    {"isCdromEnable", 0x00000011, &FdClientPolicy::isCdromEnable},
    {"isNetworkEnable", 0x00000041, &FdClientPolicy::isNetworkEnable},
    {"isWin7System", 0x00000100, &FdClientPolicy::isWin7System},
    {"isXpSystem", 0x00000200, &FdClientPolicy::isXpSystem},
    {"isLinuxSystem", 0x00000400, &FdClientPolicy::isLinuxSystem},
    {"isMobileClientEnable", 0x00000801, &FdClientPolicy::isMobileClientEnable},
    {"isLptEnable", 0x00001000, &FdClientPolicy::isLptEnable},
    {"isLptDefaultEnable", 0x00002000, &FdClientPolicy::isLptDefaultEnable},
    {"isLptAllEnable", 0x00004000, &FdClientPolicy::isLptAllEnable},
    {"isPolicyExtend", 0x80000000, &FdClientPolicy::isPolicyExtend},
};

TEST_F(FdClientPolicyTest, HoldsTheDefaultsUntilAServerSpeaks) {
    EXPECT_EQ(m_policy.getItaPolicy(), 0);
    EXPECT_EQ(m_policy.getSpeed(), 0);
    EXPECT_FALSE(m_policy.IsSupportLinuxDirCache());
    EXPECT_EQ(m_policy.getWorkingClientVersion(), 10);
    EXPECT_EQ(m_policy.getWorkingServiceVersion(), 10);
    EXPECT_EQ(m_policy.getCurrentClientVersion(), 61);
    EXPECT_EQ(m_policy.getCurrentServerVersion(), 10);
    EXPECT_EQ(m_policy.getBaseClientVersion(), 10);
    EXPECT_FALSE(m_policy.isSupportChineseName());
    EXPECT_FALSE(m_policy.isSupportCompress());
    EXPECT_EQ(m_policy.getCompressThreshold(), 900);
    EXPECT_EQ(m_policy.getCompressBoundSize(), 512);
    EXPECT_TRUE(m_policy.isSupportLinuxSetFileSize());
    EXPECT_EQ(m_policy.getLinuxSetFileBoundSize(), 100);
    EXPECT_FALSE(m_policy.isSupportRamdisk());
    EXPECT_EQ(m_policy.getStatisticsTime(), 0);
    EXPECT_EQ(m_policy.getLogLevel(), 0);
    EXPECT_FALSE(m_policy.isLinuxRootDirEnable());
}

TEST_F(FdClientPolicyTest, EnablesNothingButWritingWithAnEmptyWord) {
    setWord(0);

    for (const NamedQuery& query : kQueries) {
        EXPECT_FALSE((m_policy.*query.query)()) << query.name;
    }
    EXPECT_TRUE(m_policy.isWritable());
}

TEST_F(FdClientPolicyTest, AnswersAQueryOnlyIfEveryBitOfItsMaskIsSet) {
    for (const NamedQuery& query : kQueries) {
        setWord(query.mask);
        EXPECT_TRUE((m_policy.*query.query)()) << query.name;
        for (unsigned bit = 1; bit != 0; bit <<= 1U) {
            if ((query.mask & bit) == 0) continue;
            setWord(~bit);
            EXPECT_FALSE((m_policy.*query.query)()) << query.name << " without " << bit;
        }
    }
}

TEST_F(FdClientPolicyTest, EnablesNoMediaKindWithoutTheMasterSwitch) {
    for (const unsigned bit : {0x2U, 0x8U, 0x10U, 0x40U}) {
        setWord(bit);
        EXPECT_FALSE(m_policy.isFdRedirEnable());
        EXPECT_FALSE(m_policy.isLocalEnable());
        EXPECT_FALSE(m_policy.isRemoveEnable());
        EXPECT_FALSE(m_policy.isCdromEnable());
        EXPECT_FALSE(m_policy.isNetworkEnable());
    }
}

TEST_F(FdClientPolicyTest, IsReadOnlyWhenTheReadOnlyBitIsSetWhateverTheMasterSwitchSays) {
    setWord(0x20);
    EXPECT_FALSE(m_policy.isWritable());
    setWord(0x21);
    EXPECT_FALSE(m_policy.isWritable());
    setWord(~0x20U);
    EXPECT_TRUE(m_policy.isWritable());
}

TEST_F(FdClientPolicyTest, GivesTheWordInThreeWays) {
    setWord(0x80000023);

    const int word = static_cast<int>(0x80000023U);
    EXPECT_EQ(m_policy.getItaPolicy(), word);
    EXPECT_EQ(m_policy.getLocalPolicy(), word);
    EXPECT_EQ(m_policy.getWorkingPolicy(), word);
}

TEST_F(FdClientPolicyTest, LogsEveryEnabledFeatureInAFixedOrder) {
    EXPECT_THAT(featureLines(0xFFFFFFDF),
                ElementsAre("FILE_DRIVER_REDIR_LOCAL  is enable",        //
                            "FILE_DRIVER_REDIR_REMOVE  is enable",       //
                            "FILE_DRIVER_REDIR_CDROM  is enable",        //
                            "FILE_DRIVER_REDIR_REMOTE  is enable",       //
                            "LPT_PORT_REDIR            is enable",       //
                            "LPT_PORT_REDIR_DEFAULT    is enable",       //
                            "LPT_PORT_REDIR_ALL        is enable",       //
                            "FILE_DRIVER_REDIR_WINXP   is enable",       //
                            "FILE_DRIVER_REDIR_WIN7    is enable",       //
                            "FILE_DRIVER_REDIR_READONLY is not enable",  //
                            "FILE_DRIVER_REDIR_MOBILE is enable"));
}

TEST_F(FdClientPolicyTest, LogsTheWordInHexadecimalAheadOfTheFeatures) {
    const LogCapture log;
    setWord(0xABCDE0FF);

    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines().front().level, ZLOG_LEVEL_INFO);
    EXPECT_NE(log.lines().front().message.find("abcde0ff"), std::string::npos);
}

TEST_F(FdClientPolicyTest, LogsOnlyTheWritableLineForAnEmptyWord) {
    EXPECT_THAT(featureLines(0), ElementsAre("FILE_DRIVER_REDIR_READONLY is not enable"));
}

TEST_F(FdClientPolicyTest, LogsNoReadOnlyLineForAReadOnlyConnection) {
    EXPECT_THAT(featureLines(0x23), ElementsAre("FILE_DRIVER_REDIR_LOCAL  is enable"));
    EXPECT_TRUE(m_policy.isLocalEnable());
    EXPECT_FALSE(m_policy.isWritable());
    EXPECT_THAT(featureLines(0x20), IsEmpty());
}

TEST_F(FdClientPolicyTest, RefusesSpeedsFromOneTo32767AndNegativeOnes) {
    for (const int refused : {-1, INT_MIN, 1, 32767}) {
        m_policy.setSpeed(40000);
        const LogCapture log;
        EXPECT_TRUE(m_policy.setSpeed(refused));
        EXPECT_EQ(m_policy.getSpeed(), 0) << refused;
        EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, "speed is not support!!!   speed: 0"), 1) << refused;
    }
}

TEST_F(FdClientPolicyTest, KeepsSpeedZeroAndSpeedsAbove32767) {
    for (const int kept : {32768, INT_MAX, 0}) {
        const LogCapture log;
        EXPECT_TRUE(m_policy.setSpeed(kept));
        EXPECT_EQ(m_policy.getSpeed(), kept);
        EXPECT_FALSE(log.contains(ZLOG_LEVEL_INFO, "not support"));
    }
}

TEST_F(FdClientPolicyTest, KeepsCompressionBoundsUpToTheirLimits) {
    const LogCapture log;
    EXPECT_TRUE(m_policy.setCompressPolicy(1, 7, 1000, 10240));

    EXPECT_EQ(m_policy.getCompressThreshold(), 1000);
    EXPECT_EQ(m_policy.getCompressBoundSize(), 10240);
    EXPECT_FALSE(log.contains(ZLOG_LEVEL_INFO, "not support"));

    EXPECT_TRUE(m_policy.setCompressPolicy(1, 7, 0, 0));
    EXPECT_EQ(m_policy.getCompressThreshold(), 0);
    EXPECT_EQ(m_policy.getCompressBoundSize(), 0);
}

TEST_F(FdClientPolicyTest, ReplacesAThresholdOutOfRangeWith900) {
    for (const int refused : {1001, INT_MAX, -1, INT_MIN}) {
        m_policy.setCompressPolicy(0, 0, 5, 5);
        const LogCapture log;
        EXPECT_TRUE(m_policy.setCompressPolicy(0, 0, refused, 6));
        EXPECT_EQ(m_policy.getCompressThreshold(), 900) << refused;
        EXPECT_EQ(m_policy.getCompressBoundSize(), 6);
        EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, "threashold is not support!!!   threashold: 900"), 1);
        EXPECT_FALSE(log.contains(ZLOG_LEVEL_INFO, "bound size is not support"));
    }
}

TEST_F(FdClientPolicyTest, ReplacesABoundSizeOutOfRangeWith512) {
    for (const int refused : {10241, INT_MAX, -1, INT_MIN}) {
        m_policy.setCompressPolicy(0, 0, 5, 5);
        const LogCapture log;
        EXPECT_TRUE(m_policy.setCompressPolicy(0, 0, 6, refused));
        EXPECT_EQ(m_policy.getCompressThreshold(), 6);
        EXPECT_EQ(m_policy.getCompressBoundSize(), 512) << refused;
        EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, "bound size is not support!!!   threshold: 512"), 1);
        EXPECT_FALSE(log.contains(ZLOG_LEVEL_INFO, "threashold"));
    }
}

TEST_F(FdClientPolicyTest, SupportsCompressionOnlyAtExactlyOne) {
    for (const int value : {0, 2, -1}) {
        m_policy.setCompressPolicy(value, 0, 900, 512);
        EXPECT_FALSE(m_policy.isSupportCompress()) << value;
    }
    m_policy.setCompressPolicy(1, 0, 1001, 10241);  // refused bounds do not touch the switch
    EXPECT_TRUE(m_policy.isSupportCompress());
}

TEST_F(FdClientPolicyTest, RefusesANegativeCompressTypeSizeAndChangesNothing) {
    std::string type = "!type-A!";
    EXPECT_TRUE(m_policy.setCompressType(8, type.data()));

    EXPECT_FALSE(m_policy.setCompressType(-1, type.data()));
    EXPECT_FALSE(m_policy.setCompressType(INT_MIN, nullptr));
    EXPECT_TRUE(holdsBytes("!type-A!"));
}

TEST_F(FdClientPolicyTest, ClearsTheCompressTypeForSizeZeroOrNoBuffer) {
    std::string type = "!type-A!";
    m_policy.setCompressType(8, type.data());
    EXPECT_TRUE(m_policy.setCompressType(0, type.data()));
    EXPECT_FALSE(holdsBytes("!type-A!"));

    m_policy.setCompressType(8, type.data());
    EXPECT_TRUE(m_policy.setCompressType(8, nullptr));
    EXPECT_FALSE(holdsBytes("!type-A!"));
}

TEST_F(FdClientPolicyTest, LeavesOldBytesBehindAShorterCompressType) {
    std::string type = "!type-A!";
    m_policy.setCompressType(8, type.data());
    std::string shorter = "#TYPE";
    EXPECT_TRUE(m_policy.setCompressType(5, shorter.data()));

    EXPECT_TRUE(holdsBytes("#TYPE-A!"));
}

TEST_F(FdClientPolicyTest, TakesTheFirst2048BytesOfALongerCompressType) {
    std::string type = std::string(2047, 'x') + "$%&";
    {
        const LogCapture log;
        EXPECT_TRUE(m_policy.setCompressType(2048, type.data()));
        EXPECT_FALSE(log.contains(ZLOG_LEVEL_WARNING, "typeSize"));
    }
    m_policy.setCompressType(0, nullptr);

    const LogCapture log;
    EXPECT_TRUE(m_policy.setCompressType(2049, type.data()));
    EXPECT_EQ(log.count(ZLOG_LEVEL_WARNING, "typeSize: 2049, bufferSize: 2048"), 1);
    EXPECT_TRUE(holdsBytes("xxx$"));
    EXPECT_FALSE(holdsBytes("$%"));
}

TEST_F(FdClientPolicyTest, ReportsACompressTypeThatCannotBeCopied) {
    std::string type = "!type-A!";
    m_policy.setCompressType(8, type.data());
    auto* object = reinterpret_cast<char*>(&m_policy);
    const std::string_view bytes(object, sizeof m_policy);
    char* stored = object + bytes.find("type-A!");  // overlaps the destination

    const LogCapture log;
    EXPECT_FALSE(m_policy.setCompressType(7, stored));
    EXPECT_EQ(log.count(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 182"), 1);
}

TEST_F(FdClientPolicyTest, KeepsAnEndOfFileLimitUpTo4096) {
    const LogCapture log;
    EXPECT_TRUE(m_policy.setLinuxSetEndOfFile(1, 4096));

    EXPECT_TRUE(m_policy.isSupportLinuxSetFileSize());
    EXPECT_EQ(m_policy.getLinuxSetFileBoundSize(), 4096);
    EXPECT_FALSE(log.has(ZLOG_LEVEL_INFO, "setendofsize size is not support!!!"));
}

TEST_F(FdClientPolicyTest, TakesAnEndOfFileLimitOutOfRangeAsNoLimit) {
    for (const int refused : {4097, INT_MAX, -1, INT_MIN}) {
        m_policy.setLinuxSetEndOfFile(1, 7);
        const LogCapture log;
        EXPECT_TRUE(m_policy.setLinuxSetEndOfFile(2, refused));
        EXPECT_EQ(m_policy.getLinuxSetFileBoundSize(), 0) << refused;
        EXPECT_FALSE(m_policy.isSupportLinuxSetFileSize());  // exactly 1 means yes
        EXPECT_EQ(log.count(ZLOG_LEVEL_INFO, "setendofsize size is not support!!!"), 1);
    }
}

TEST_F(FdClientPolicyTest, SupportsARamdiskOnlyAtExactlyOne) {
    EXPECT_TRUE(m_policy.setLinuxRamdiskEmable(1));
    EXPECT_TRUE(m_policy.isSupportRamdisk());
    EXPECT_TRUE(m_policy.setLinuxRamdiskEmable(2));
    EXPECT_FALSE(m_policy.isSupportRamdisk());
}

TEST_F(FdClientPolicyTest, KeepsTheLogLevelUnchecked) {
    EXPECT_TRUE(m_policy.setLogLevel(-5));
    EXPECT_EQ(m_policy.getLogLevel(), -5);
}

TEST_F(FdClientPolicyTest, SwitchesTheDirectoryCache) {
    m_policy.SetLinuxDirCacheEnable(true);
    EXPECT_TRUE(m_policy.IsSupportLinuxDirCache());
    m_policy.SetLinuxDirCacheEnable(false);
    EXPECT_FALSE(m_policy.IsSupportLinuxDirCache());
}

TEST_F(FdClientPolicyTest, CorrectsTheStatisticTimeWhenItIsRead) {
    struct Case {
        int given, read;
    };
    for (const auto& [given, read] :
         {Case{500, 120}, Case{121, 120}, Case{120, 120}, Case{119, 119}, Case{1, 1}, Case{0, 0},
          Case{-1, 0}, Case{INT_MIN, 0}}) {
        EXPECT_TRUE(m_policy.setStatisticTime(given));
        EXPECT_EQ(m_policy.getStatisticsTime(), read) << given;
        EXPECT_EQ(m_policy.getStatisticsTime(), read) << given;
    }
}

TEST_F(FdClientPolicyTest, StoresTheStatisticTimeUncheckedUntilItIsRead) {
    const std::string bytes = leText(0x5EC0FFEE);
    m_policy.setStatisticTime(0x5EC0FFEE);
    EXPECT_TRUE(holdsBytes(bytes));
    m_policy.getStatisticsTime();
    EXPECT_FALSE(holdsBytes(bytes));
}

TEST_F(FdClientPolicyTest, StoresTheCompressionPolicyThoughNobodyReadsIt) {
    m_policy.setCompressPolicy(0, 0x5EC0FFEE, 900, 512);
    EXPECT_TRUE(holdsBytes(leText(0x5EC0FFEE)));
}

TEST_F(FdClientPolicyTest, WorksAtTheLowerOfTheTwoVersions) {
    const LogCapture log;

    EXPECT_TRUE(m_policy.setServerVersion(5));
    EXPECT_EQ(m_policy.getWorkingClientVersion(), 5);
    EXPECT_EQ(m_policy.getWorkingServiceVersion(), 5);
    EXPECT_EQ(m_policy.getCurrentClientVersion(), 61);
    EXPECT_EQ(m_policy.getCurrentServerVersion(), 5);
    EXPECT_EQ(m_policy.getBaseClientVersion(), 10);
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO,
                        "serverVer: 5, clientVer: 61, workingServerVer: 5, workingClientVer: 5"));

    EXPECT_TRUE(m_policy.setServerVersion(100));
    EXPECT_EQ(m_policy.getWorkingClientVersion(), 61);
    EXPECT_EQ(m_policy.getWorkingServiceVersion(), 61);
    EXPECT_EQ(m_policy.getCurrentClientVersion(), 61);
    EXPECT_EQ(m_policy.getCurrentServerVersion(), 100);
    EXPECT_EQ(m_policy.getBaseClientVersion(), 10);
    EXPECT_TRUE(
        log.has(ZLOG_LEVEL_INFO,
                "serverVer: 100, clientVer: 61, workingServerVer: 61, workingClientVer: 61"));
}

TEST_F(FdClientPolicyTest, SupportsChineseNamesFromWorkingVersion31On) {
    m_policy.setServerVersion(30);
    EXPECT_FALSE(m_policy.isSupportChineseName());
    m_policy.setServerVersion(31);
    EXPECT_TRUE(m_policy.isSupportChineseName());
}

TEST_F(FdClientPolicyTest, OffersTheRootOnlyAtExactlyOneAndWithTheMasterSwitch) {
    setWord(1);
    EXPECT_TRUE(m_policy.setLinuxRootDirEnable(2));
    EXPECT_FALSE(m_policy.isLinuxRootDirEnable());
    EXPECT_TRUE(m_policy.setLinuxRootDirEnable(1));
    EXPECT_TRUE(m_policy.isLinuxRootDirEnable());
    setWord(0xFFFFFFFE);
    EXPECT_FALSE(m_policy.isLinuxRootDirEnable());
}

TEST_F(FdClientPolicyTest, LogsARoutineLineForEverySetter) {
    const auto logs = [](const auto& set) {
        const LogCapture log;
        set();
        return log.contains(ZLOG_LEVEL_INFO, "");
    };
    EXPECT_TRUE(logs([&] { m_policy.setSpeed(0); }));
    EXPECT_TRUE(logs([&] { m_policy.setCompressPolicy(0, 0, 0, 0); }));
    EXPECT_TRUE(logs([&] { m_policy.setCompressType(0, nullptr); }));
    EXPECT_TRUE(logs([&] { m_policy.setLinuxSetEndOfFile(0, 0); }));
    EXPECT_TRUE(logs([&] { m_policy.setLinuxRamdiskEmable(0); }));
    EXPECT_TRUE(logs([&] { m_policy.setStatisticTime(0); }));
    EXPECT_TRUE(logs([&] { m_policy.setLogLevel(0); }));
    EXPECT_TRUE(logs([&] { m_policy.setLinuxRootDirEnable(0); }));
    EXPECT_TRUE(logs([&] { m_policy.SetLinuxDirCacheEnable(false); }));
    EXPECT_TRUE(logs([&] { m_policy.setDelimiter('|'); }));
}

TEST_F(FdClientPolicyTest, HasOneProcessWideInstanceBesideAllOthers) {
    FdClientPolicy* shared = FdClientPolicy::getInstance();

    EXPECT_EQ(shared, FdClientPolicy::getInstance());
    EXPECT_NE(shared, &m_policy);
    m_policy.setLogLevel(3);
    EXPECT_EQ(shared->getLogLevel(), 0);
}

TEST_F(FdClientPolicyTest, LetsReadersWorkWhileItIsWritten) {
    m_policy.setItaPolicy(1);
    m_policy.setLinuxRootDirEnable(1);
    m_policy.setLinuxDirFilterPath("/./home");
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    std::thread reader([&] {
        while (!stop) {
            EXPECT_TRUE(m_policy.isLinuxDirEnable("/media/disk"));
            EXPECT_TRUE(m_policy.isRemoveFileSystem("vfat"));
            EXPECT_FALSE(m_policy.isLinuxRootPathFilter("/."));
            m_policy.getStatisticsTime();
            ++rounds;
        }
    });
    EXPECT_TRUE(waitUntil([&] { return rounds > 0; }));

    for (int i = 0; i < 200; ++i) {
        m_policy.setStatisticTime(i);
        m_policy.setLinuxMountPath(i % 2 == 0 ? "/x|/media" : "/media");
        m_policy.setLinuxRemovefs(i % 2 == 0 ? "ntfs|vfat" : "vfat");
        m_policy.setLinuxDirFilterPath("/./home");
    }
    stop = true;
    reader.join();
}
}  // namespace
