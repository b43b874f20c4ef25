// The names of this machine and its user, and the tick readings. Who is logged in and what the host
// is called is made up here: the functions of the executable go before those of the C library.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "common/Map/MapFolder.h"
#include "common/Map/MapNaming.h"
#include "common/Policy/FdClientPolicy.h"
#include "linux/comm/Opreator/FdCommon_linux.h"
#include "linux/comm/Opreator/Ticks.h"
#include "support/LogCapture.h"

using namespace std::string_literals;

namespace {
char* s_login = nullptr;
std::string s_host = "desk.example";
}  // namespace

extern "C" char* getlogin() {
    return s_login;
}

// Like that of the C library it leaves what fits where the whole does not.
extern "C" int gethostname(char* name, size_t size) {
    strncpy(name, s_host.c_str(), size);
    return s_host.size() < size ? 0 : -1;
}

namespace {

using Lines = std::vector<LogLine>;

constexpr int kRoom = 256;

class HostIdentityTest : public testing::Test {
protected:
    ~HostIdentityTest() override { s_login = nullptr; }

    static void logIn(std::string name) {
        static std::string kept;
        kept = std::move(name);
        s_login = kept.data();
    }

    LogCapture m_log;
};

TEST_F(HostIdentityTest, GivesTheHostsName) {
    char name[kRoom] = {};
    EXPECT_EQ(getHostName(name, kRoom), 12);
    EXPECT_STREQ(name, "desk.example");
    EXPECT_EQ(getHostName(name, 13), 12);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(HostIdentityTest, GivesTheFixedNameAndWarnsWhereTheHostsNameCannotBeHad) {
    char name[kRoom] = {};
    EXPECT_EQ(getHostName(name, 12), 3);
    EXPECT_STREQ(name, "Mac");
    EXPECT_EQ(m_log.lines(), (Lines{{ZLOG_LEVEL_WARNING, "set the name: Mac"}}));
}

TEST_F(HostIdentityTest, NeedsFourBytesForTheFixedName) {
    char name[] = "\0\0\0\0###";
    EXPECT_EQ(getHostName(name, 4), 3);
    EXPECT_EQ(std::string(name, 7), "Mac\0###"s);
    m_log.clear();

    char small[] = "\0\0\0###";
    EXPECT_EQ(getHostName(small, 3), -1);
    EXPECT_EQ(std::string(small, 6), "\0\0\0###"s);
    EXPECT_EQ(m_log.lines(), (Lines{{ZLOG_LEVEL_ERROR, "memcpy_s failed"}}));
}

TEST_F(HostIdentityTest, FailsWithoutABuffer) {
    char name[] = "##";
    EXPECT_EQ(getHostName(name, 0), -1);
    EXPECT_EQ(getHostName(name, -1), -1);
    EXPECT_EQ(getHostName(nullptr, 8), -1);
    EXPECT_STREQ(name, "##");
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_ERROR, "memcpy_s failed"), 3);
}

TEST_F(HostIdentityTest, AMapOfAHostWithoutANameShowsTheFixedOne) {
    const std::string host = std::exchange(s_host, "");
    FdClientPolicy policy;
    MapFolder map(&policy, ZListener{});

    EXPECT_TRUE(setComputerName(map));
    s_host = host;

    EXPECT_STREQ(map.m_utf8_computerName, "Mac");
    EXPECT_EQ(map.m_utf8_computerName_size, 4);
}

TEST_F(HostIdentityTest, GivesTheLoginNameInAClearedBuffer) {
    logIn("user");
    char name[9] = "########";
    EXPECT_EQ(getLoginName(name, 8), 4);
    EXPECT_EQ(std::string(name, 9), "user\0\0\0\0\0"s);
}

TEST_F(HostIdentityTest, RefusesARoomOfTheLoginNamesLength) {
    logIn("user");
    char name[8] = "#######";
    EXPECT_EQ(getLoginName(name, 4), -1);
    EXPECT_STREQ(name, "#######");
    EXPECT_EQ(getLoginName(name, -1), -1);
    EXPECT_EQ(getLoginName(name, 5), 4);
    EXPECT_STREQ(name, "user");
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(HostIdentityTest, HasNoLoginNameWhereNobodyIsLoggedIn) {
    char name[8] = "#######";
    EXPECT_EQ(getLoginName(name, 8), -1);
    EXPECT_STREQ(name, "#######");
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(HostIdentityTest, LogsALoginNameThatCannotBeCopied) {
    logIn("user");
    EXPECT_EQ(getLoginName(nullptr, 8), -1);
    EXPECT_EQ(m_log.lines(), (Lines{{ZLOG_LEVEL_ERROR, "memcpy_s failed"}}));
}

class AccountNameTest : public HostIdentityTest {
protected:
    void SetUp() override {
        const passwd* const account = getpwuid(geteuid());
        if (account == nullptr) GTEST_SKIP() << "this user has no account";
        m_name = account->pw_name;
    }

    std::string m_name;
};

TEST_F(AccountNameTest, IsTheNameOfTheEffectiveUser) {
    char name[kRoom] = {};
    EXPECT_EQ(getAccountName(name, kRoom), static_cast<int>(m_name.size()));
    EXPECT_EQ(name, m_name);
}

TEST_F(AccountNameTest, NeedsOneByteMoreThanItsLength) {
    const int length = static_cast<int>(m_name.size());
    char name[kRoom] = "#";
    EXPECT_EQ(getAccountName(name, length), -1);
    EXPECT_STREQ(name, "#");
    EXPECT_EQ(getAccountName(name, length + 1), length);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(AccountNameTest, LogsTheCodeOfACopyThatFailed) {
    EXPECT_EQ(getAccountName(nullptr, kRoom), -1);
    EXPECT_EQ(m_log.lines(), (Lines{{ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 22"}}));
}

TEST_F(HostIdentityTest, CallsEveryComputerMac) {
    char name[8] = "#######";
    EXPECT_EQ(getComputerName(name, sizeof(name)), 3);
    EXPECT_STREQ(name, "Mac");
    EXPECT_EQ(getComputerName(name, 4), 3);
}

TEST_F(HostIdentityTest, GivesWhatIsLeftInARoomTooSmallForTheComputerName) {
    char name[] = "###";
    EXPECT_EQ(getComputerName(name, 3), 0);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(getComputerName(name, 0), 0);
    EXPECT_EQ(getComputerName(nullptr, 8), -1);
}

TEST(TicksTest, CountMilliseconds) {
    EXPECT_EQ(ticksOf({2, 345'678}), 2345U);
    EXPECT_DOUBLE_EQ(highTicksOf({2, 345'678}), 2345.678);
}

TEST(TicksTest, WrapFromTheLargestValueBackThroughZero) {
    const unsigned int last = ticksOf({4'294'967, 295'999});
    const unsigned int first = ticksOf({4'294'967, 296'000});
    EXPECT_EQ(last, 0xFFFFFFFFU);
    EXPECT_EQ(first, 0U);
    EXPECT_EQ(ticksOf({4'294'967, 300'000}) - last, 5U);
}

TEST(TicksTest, FollowTheWallClock) {
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    const unsigned int tick = GetCurrentTick();
    const double highTick = GetCurrentTick_high();
    gettimeofday(&after, nullptr);

    EXPECT_LE(tick - ticksOf(before), ticksOf(after) - ticksOf(before));
    EXPECT_GE(highTick, highTicksOf(before));
    EXPECT_LE(highTick, highTicksOf(after));
}

}  // namespace
