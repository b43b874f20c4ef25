// The filter of the root map.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/Policy/FdClientPolicy.h"
#include "support/LogCapture.h"

namespace {
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<LogLine>;

LogLine info(const char* text) {
    return {ZLOG_LEVEL_INFO, text};
}

class PolicyRootFilterTest : public testing::Test {
protected:
    // As the policy command leaves it, with the root map on.
    void applyFilter(const char* filter) {
        m_policy.setItaPolicy(1);
        m_policy.setLinuxRootDirEnable(1);
        m_policy.setLinuxDirFilterPath(filter);
        m_policy.setLinuxrootDir("/.");
    }

    bool hides(const std::string& path) { return m_policy.isLinuxRootPathFilter(path.c_str()); }

    // The entries, as the log lists them after the prefix `root` was put before them.
    std::vector<std::string> entriesUnder(const char* root) {
        const LogCapture log;
        EXPECT_TRUE(m_policy.setLinuxrootDir(root));
        std::vector<std::string> entries;
        for (const LogLine& line : log.lines()) {
            if (line.message.starts_with("str: ")) entries.push_back(line.message.substr(5));
        }
        return entries;
    }

    FdClientPolicy m_policy;
};

TEST_F(PolicyRootFilterTest, SplitsAndListsTheDefaultWhenTheStoreIsMade) {
    const LogCapture log;
    const FdClientPolicy policy;

    EXPECT_EQ(log.lines(), (Lines{info("[path: /var/log] [delim: |]"),
                                  info("[tmppath: /var/log] [delimlen: 8] [idx: 0]"),
                                  info(" ### logRootDirFilterVec() ### "), info("str: /var/log")}));
}

TEST_F(PolicyRootFilterTest, SplitsATextIntoItsEntries) {
    const LogCapture log;
    EXPECT_THAT(m_policy.filterPathToVec("/a|/bc", '|'), ElementsAre("/a", "/bc"));

    EXPECT_EQ(log.lines(), (Lines{info("[path: /a|/bc] [delim: |]"),
                                  info("[tmppath: /a] [delimlen: 2] [idx: 0]"),
                                  info("[tmppath: /bc] [delimlen: 3] [idx: 3]")}));
}

TEST_F(PolicyRootFilterTest, LeavesTheSecondOfTwoDelimitersAtTheNextEntry) {
    const LogCapture log;
    EXPECT_THAT(m_policy.filterPathToVec("a||b", '|'), ElementsAre("a", "|b"));

    EXPECT_EQ(log.lines(), (Lines{info("[path: a||b] [delim: |]"),
                                  info("[tmppath: a] [delimlen: 1] [idx: 0]"),
                                  {ZLOG_LEVEL_WARNING, "[path: a||b] [delimlen: 0] [idx: 2]"},
                                  info("[tmppath: |b] [delimlen: 1] [idx: 2]")}));
}

TEST_F(PolicyRootFilterTest, SplitsOddTextsAsItAlwaysDid) {
    EXPECT_THAT(m_policy.filterPathToVec("", '|'), IsEmpty());
    EXPECT_THAT(m_policy.filterPathToVec("|", '|'), ElementsAre("|"));
    EXPECT_THAT(m_policy.filterPathToVec("||", '|'), ElementsAre("||"));
    EXPECT_THAT(m_policy.filterPathToVec("|a", '|'), ElementsAre("|a"));
    EXPECT_THAT(m_policy.filterPathToVec("|a|b", '|'), ElementsAre("|a", "b"));
    EXPECT_THAT(m_policy.filterPathToVec("a|", '|'), ElementsAre("a"));
    EXPECT_THAT(m_policy.filterPathToVec("a||", '|'), ElementsAre("a", "|"));
    EXPECT_THAT(m_policy.filterPathToVec("a|||b", '|'), ElementsAre("a", "||b"));
    EXPECT_THAT(m_policy.filterPathToVec("a|b", ';'), ElementsAre("a|b"));
}

TEST_F(PolicyRootFilterTest, LogsAListWithItsHeading) {
    const LogCapture log;
    m_policy.logRootDirFilterVec({"one", "two"});
    EXPECT_EQ(log.lines(),
              (Lines{info(" ### logRootDirFilterVec() ### "), info("str: one"), info("str: two")}));
}

TEST_F(PolicyRootFilterTest, KeepsTheFilterWhenItIsGivenNone) {
    const LogCapture log;
    EXPECT_FALSE(m_policy.setLinuxDirFilterPath(nullptr));
    EXPECT_EQ(log.lines(), (Lines{{ZLOG_LEVEL_ERROR, "filterPath == NULL"}}));
    EXPECT_THAT(entriesUnder("/."), ElementsAre("/./var/log"));
}

TEST_F(PolicyRootFilterTest, ReplacesTheWholeFilterAndLogsIt) {
    const LogCapture log;
    EXPECT_TRUE(m_policy.setLinuxDirFilterPath("/a|/b"));

    EXPECT_EQ(log.lines(),
              (Lines{info("[path: /a|/b] [delim: |]"), info("[tmppath: /a] [delimlen: 2] [idx: 0]"),
                     info("[tmppath: /b] [delimlen: 2] [idx: 3]"),
                     info(" ### logRootDirFilterVec() ### "), info("str: /a"), info("str: /b")}));
}

TEST_F(PolicyRootFilterTest, SplitsByTheDelimiterOfTheMomentAndNeverAgain) {
    m_policy.setDelimiter(';');
    m_policy.setLinuxDirFilterPath("/a;/b");
    m_policy.setDelimiter('|');
    EXPECT_THAT(entriesUnder("/."), ElementsAre("/./a", "/./b"));
}

TEST_F(PolicyRootFilterTest, PutsTheRootBeforeEachEntry) {
    m_policy.setLinuxDirFilterPath("/var/log|//|\\x");
    const LogCapture log;
    EXPECT_TRUE(m_policy.setLinuxrootDir("/."));

    EXPECT_EQ(log.lines(),
              (Lines{info(" ### setLinuxrootDir() ### [rootpath: /.]"), info("root_prefix: /."),
                     info("[filterStr: /var/log] [filterstr2: var/log]"),
                     info("[filterStr: /./var/log]"),  //
                     info("[filterStr: /./]"),         //
                     info("[filterStr: \\x] [filterstr2: x]"), info("[filterStr: /./x]"),
                     info(" ### logRootDirFilterVec() ### "), info("str: /./var/log"),
                     info("str: /./"), info("str: /./x")}));
}

TEST_F(PolicyRootFilterTest, StripsTheSeparatorsThatARootEndsWith) {
    m_policy.setLinuxDirFilterPath("a");
    EXPECT_THAT(entriesUnder("/mnt/\\//"), ElementsAre("/mnt/a"));
}

TEST_F(PolicyRootFilterTest, TakesARootOfSeparatorsForAnEmptyPrefix) {
    const LogCapture log;
    EXPECT_THAT(entriesUnder("/\\/"), ElementsAre("/var/log"));
    EXPECT_TRUE(m_policy.setLinuxrootDir("/"));
    EXPECT_TRUE(m_policy.setLinuxrootDir("\\"));
}

TEST_F(PolicyRootFilterTest, LogsAnEmptyPrefix) {
    const LogCapture log;
    m_policy.setLinuxrootDir("//");
    EXPECT_TRUE(log.has(ZLOG_LEVEL_INFO, "root_prefix: "));
}

TEST_F(PolicyRootFilterTest, PrefixesAgainWhenItIsCalledAgain) {
    EXPECT_THAT(entriesUnder("/."), ElementsAre("/./var/log"));
    EXPECT_THAT(entriesUnder("/."), ElementsAre("/././var/log"));
}

TEST_F(PolicyRootFilterTest, RefusesAnEmptyRootOrNone) {
    const LogCapture log;
    EXPECT_FALSE(m_policy.setLinuxrootDir(nullptr));
    EXPECT_FALSE(m_policy.setLinuxrootDir(""));

    EXPECT_EQ(log.lines(), (Lines{info(" ### setLinuxrootDir() ### [rootpath: (null)]"),
                                  {ZLOG_LEVEL_ERROR, "rootpath == NULL"},
                                  info(" ### setLinuxrootDir() ### [rootpath: ]"),
                                  {ZLOG_LEVEL_ERROR, "len <= 0. [rootpath: ]"}}));
}

TEST_F(PolicyRootFilterTest, ShowsAnEntryItsAncestorsAndAllBelowIt) {
    applyFilter("/var/log");

    for (const char* path : {"/.", "/./", "/./var", "/./var/log", "/./var/log/syslog", "/", ""}) {
        EXPECT_FALSE(hides(path)) << path;
    }
}

TEST_F(PolicyRootFilterTest, HidesWhatNoEntryNames) {
    applyFilter("/var/log");

    for (const char* path : {"/./etc", "/./var/lib", "/./usr/log", "/./VAR", "/var/log", "x"}) {
        EXPECT_TRUE(hides(path)) << path;
    }
}

TEST_F(PolicyRootFilterTest, ShowsASiblingThatBeginsLikeAnEntry) {
    applyFilter("/var/log");
    EXPECT_FALSE(hides("/./var/logs/secret"));
    EXPECT_FALSE(hides("/./va"));
}

TEST_F(PolicyRootFilterTest, ShowsWhatAnyEntryNames) {
    applyFilter("/var/log|/home/user");
    EXPECT_FALSE(hides("/./home/user/file"));
    EXPECT_FALSE(hides("/./var/log/file"));
    EXPECT_TRUE(hides("/./home/other"));
}

TEST_F(PolicyRootFilterTest, HidesEveryPathWithAnEmptyFilter) {
    applyFilter("");
    for (const char* path : {"", "/.", "/./var/log"}) EXPECT_TRUE(hides(path)) << path;
}

TEST_F(PolicyRootFilterTest, HidesNothingWhileTheRootMapIsOff) {
    applyFilter("");
    for (const int off : {0, 2, -1}) {
        m_policy.setLinuxRootDirEnable(off);
        EXPECT_FALSE(hides("/./etc")) << off;
    }
    m_policy.setLinuxRootDirEnable(1);
    EXPECT_TRUE(hides("/./etc"));
    m_policy.setItaPolicy(2);
    EXPECT_FALSE(hides("/./etc"));
}

TEST_F(PolicyRootFilterTest, HidesNothingWithoutAPath) {
    applyFilter("");
    EXPECT_FALSE(m_policy.isLinuxRootPathFilter(nullptr));
}
}  // namespace
