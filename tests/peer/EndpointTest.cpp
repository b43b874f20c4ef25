// Sockets and commands that a channel leads to.
#include "peer/Endpoint.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <future>

#include "support/TempDir.h"

namespace {

std::string connectFailure(const std::string& endpoint) {
    try {
        peer::connectTo(endpoint);
    } catch (const peer::ChannelError& error) {
        return error.what();
    }
    return "(none)";
}

TEST(EndpointTest, ASocketThatIsNotThereIsNamed) {
    const TempDir folder;
    const std::string endpoint = "unix:" + folder.str("none");
    EXPECT_EQ(connectFailure(endpoint), endpoint + ": cannot connect: No such file or directory");
}

TEST(EndpointTest, AFileThatIsNoSocketIsNamed) {
    const TempDir folder;
    const std::string endpoint = "unix:" + folder.file("plain");
    EXPECT_EQ(connectFailure(endpoint), endpoint + ": is not a socket");
}

TEST(EndpointTest, APathTooLongForASocketIsRefused) {
    const TempDir folder;
    EXPECT_THROW(peer::Listener("unix:" + folder.str(std::string(200, 'x'))), peer::ChannelError);
}

TEST(EndpointTest, OtherTextsAreNoEndpoints) {
    for (const char* text : {"", "unix:", "exec:", "http://x", "/tmp/x"}) {
        EXPECT_THROW(peer::connectTo(text), std::invalid_argument) << text;
    }
}

TEST(EndpointTest, ASocketIsPrivateAndGoesWithItsListener) {
    const TempDir folder;
    const std::string path = folder.str("socket");
    {
        const peer::Listener listener("unix:" + path);
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0600U);
        EXPECT_THROW(peer::Listener("unix:" + path), peer::ChannelError);
    }
    EXPECT_NE(::access(path.c_str(), F_OK), 0);
}

TEST(EndpointTest, ASocketThatNobodyListensOnIsReplaced) {
    const TempDir folder;
    const std::string path = folder.str("socket");
    {
        const peer::Listener listener("unix:" + path);
        ASSERT_EQ(::link(path.c_str(), folder.str("kept").c_str()), 0);
    }
    ASSERT_EQ(::rename(folder.str("kept").c_str(), path.c_str()), 0);
    const peer::Listener listener("unix:" + path);
}

TEST(EndpointTest, AFileInTheWayOfASocketStays) {
    const TempDir folder;
    const std::string path = folder.file("plain", "text");
    EXPECT_THROW(peer::Listener("unix:" + path), peer::ChannelError);
    EXPECT_EQ(readFile(path), "text");
}

TEST(EndpointTest, MessagesGoThroughASocket) {
    const TempDir folder;
    const std::string endpoint = "unix:" + folder.str("socket");
    peer::Listener listener(endpoint);
    const peer::WakePipe wake;
    const peer::Connection connection = peer::connectTo(endpoint);
    const std::unique_ptr<peer::Channel> accepted = listener.accept(wake);

    connection.channel->send(peer::viewOf("there"));
    EXPECT_EQ(peer::textOf(*accepted->receive()), "there");
}

TEST(EndpointTest, AWaitForAConnectionEndsWhenItIsWoken) {
    const TempDir folder;
    peer::Listener listener("unix:" + folder.str("socket"));
    const peer::WakePipe wake;
    wake.wake();
    EXPECT_EQ(listener.accept(wake), nullptr);
}

TEST(EndpointTest, MessagesGoThroughACommand) {
    const peer::Connection connection = peer::connectTo("exec:cat");
    connection.channel->send(peer::viewOf("echo"));
    EXPECT_EQ(peer::textOf(*connection.channel->receive()), "echo");
}

TEST(EndpointTest, ACommandThatEndsTellsHow) {
    const peer::Connection connection = peer::connectTo("exec:exit 7");
    EXPECT_FALSE(connection.channel->receive());
    EXPECT_EQ(connection.child->ending(), "the command ended with status 7");
}

}  // namespace
