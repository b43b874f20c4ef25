// fdmount and a far end that is not there, or not what it should be.
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <thread>

#include "e2e/ToolsFixture.h"
#include "peer/Endpoint.h"
#include "peer/windows/Messages.h"

namespace {

using namespace std::string_literals;
using ::testing::HasSubstr;

const std::string kHandshake = "\x0F\0\0\0\xEF\xCD\0\0\x3D\0\0\0\x03\0\0\0wgq"s;

class ChannelFailureTest : public InEachDialect {
protected:
    // A far end that says `bytes`, takes the policy in, and hangs up.
    Outcome against(const std::string& bytes) {
        const std::string file = m_folder.file("says", bytes);
        return run({FDMOUNT, "--dialect", m_dialect.name, command(file), "drives"}, {});
    }
    static std::string command(const std::string& file) {
        return "exec:cat '" + file + "'; head -c 100 >/dev/null";
    }
    std::string failureText(const std::string& what) const {
        return command(m_folder.str("says")) + ": " + what;
    }
};

TEST_P(ChannelFailureTest, ASocketThatIsNotThere) {
    expectFailure(fdmount({"drives"}), m_endpoint + ": cannot connect: No such file or directory");
}

TEST_P(ChannelFailureTest, ASocketThatNobodyListensOn) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, m_folder.str("socket").c_str());
    ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
    expectFailure(fdmount({"drives"}), m_endpoint + ": cannot connect: Connection refused");
}

TEST_P(ChannelFailureTest, AFileThatIsNoSocket) {
    m_folder.file("socket");
    expectFailure(fdmount({"drives"}), m_endpoint + ": is not a socket");
}

TEST_P(ChannelFailureTest, AFarEndThatHangsUpAtOnce) {
    const Outcome outcome =
        run({FDMOUNT, "--dialect", m_dialect.name, "exec:exit 3", "drives"}, {});
    expectFailure(outcome,
                  "exec:exit 3: the other side has hung up (the command ended with status 3)");
}

TEST_P(ChannelFailureTest, AFarEndThatHangsUpInTheMiddleOfAMessage) {
    expectFailure(against(kHandshake + "\x40\0\0\0abc"s),
                  failureText("the other side hung up in the middle of a message (3 of 64 bytes)"));
}

TEST_P(ChannelFailureTest, AMessageOfFourGigabytes) {
    expectFailure(against(kHandshake + "\xFF\xFF\xFF\xFF"s),
                  failureText("the other side announces a message of 4294967295 bytes, more than "
                              "the 67108864 that a message may have"));
}

TEST_P(ChannelFailureTest, AFarEndThatDoesNotShakeHands) {
    const Outcome outcome = against("\x10\0\0\0HTTP/1.1 200 OK\r"s);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("the other side does not begin with a handshake"));
}

TEST_P(ChannelFailureTest, AFarEndThatSaysNothing) {
    const Outcome outcome = run(
        {FDMOUNT, "--dialect", m_dialect.name, "--timeout", "0.1", "exec:cat >/dev/null", "drives"},
        {});
    expectFailure(outcome, "exec:cat >/dev/null: no handshake came");
}

TEST_P(ChannelFailureTest, AFarEndThatHangsUpDuringACopyLeavesNothing) {
    const std::string file = m_folder.file("Data/big");
    ASSERT_EQ(::truncate(file.c_str(), off_t{64} << 30), 0);
    share();
    Program get(mountCommand({"--trace", "get", at("big"), m_here}), {});
    ASSERT_TRUE(get.waitForError(m_dialect.tracedRead));
    m_host->signal(SIGTERM);
    const Outcome outcome = get.finish();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, HasSubstr("\nfdmount: " + m_endpoint + ": the other side h"));
    EXPECT_TRUE(namesIn(m_here).empty());
}

INSTANTIATE_TEST_SUITE_P(Dialects, ChannelFailureTest, ::testing::Values(kLinux, kWindows),
                         dialectName);

}  // namespace
