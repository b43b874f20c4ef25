// Sockets and commands that a channel leads to.
#include "peer/Endpoint.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "peer/Sockets.h"
#include "peer/TcpPort.h"
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
    for (const char* text : {"", "unix:", "exec:", "tcp:", "http://x", "/tmp/x"}) {
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

std::string listenFailure(const std::string& endpoint) {
    try {
        const peer::Listener listener(endpoint);
    } catch (const peer::ChannelError& error) {
        return error.what();
    }
    return "(none)";
}

bool sendsAtOnce(const peer::FileDescriptor& socket) {
    int on = 0;
    socklen_t size = sizeof on;
    ::getsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, &size);
    return on != 0;
}

TEST(EndpointTest, MessagesGoThroughATcpPortThatTheSystemChose) {
    peer::Listener listener("tcp:0");
    EXPECT_THAT(listener.name(), ::testing::MatchesRegex("tcp:[1-9][0-9]*"));
    const peer::WakePipe wake;
    const peer::Connection connection = peer::connectTo(listener.name());
    const std::unique_ptr<peer::Channel> accepted = listener.accept(wake);

    connection.channel->send(peer::viewOf("there"));
    EXPECT_EQ(peer::textOf(*accepted->receive()), "there");
    accepted->send(peer::viewOf("back"));
    EXPECT_EQ(peer::textOf(*connection.channel->receive()), "back");
    EXPECT_EQ(connection.channel->name(), listener.name());
}

TEST(EndpointTest, APortThatIsTakenIsNamed) {
    const peer::Listener listener("tcp:0");
    EXPECT_EQ(listenFailure(listener.name()),
              listener.name() + ": cannot listen: Address already in use");
}

TEST(EndpointTest, APortThatNobodyListensOnIsNamed) {
    std::string endpoint;
    {
        const peer::Listener listener("tcp:0");
        endpoint = listener.name();
    }
    EXPECT_EQ(connectFailure(endpoint), endpoint + ": cannot connect: Connection refused");
}

TEST(EndpointTest, APortIsServedAgainRightAfterAConnection) {
    std::string endpoint;
    {
        peer::Listener listener("tcp:0");
        endpoint = listener.name();
        const peer::WakePipe wake;
        const peer::Connection connection = peer::connectTo(endpoint);
        listener.accept(wake).reset();  // the end that closes first keeps the port
        EXPECT_FALSE(connection.channel->receive());
    }
    EXPECT_EQ(listenFailure(endpoint), "(none)");
}

TEST(EndpointTest, APortIsANumberOfThisMachine) {
    for (const char* port : {"", "0", "65536", "-1", "+1", " 1", "1 ", "0x10", "80a", "http",
                             "192.168.0.1:80", "localhost:80", "127.0.0.1:80", "[::1]:80"}) {
        const std::string endpoint = std::string("tcp:") + port;
        EXPECT_EQ(peer::endpointFault(endpoint),
                  endpoint +
                      ": is not tcp:PORT with a number from 1 to 65535; the address is "
                      "always 127.0.0.1");
        EXPECT_THROW(peer::connectTo(endpoint), std::invalid_argument) << endpoint;
    }
    for (const char* port : {"", "65536", "-1", "192.168.0.1:80"}) {
        EXPECT_THROW(peer::Listener(std::string("tcp:") + port), std::invalid_argument) << port;
    }
    EXPECT_EQ(peer::endpointFault("tcp:1"), "");
    EXPECT_EQ(peer::endpointFault("tcp:65535"), "");
    EXPECT_EQ(peer::listenerFault("tcp:0"), "");
    EXPECT_THROW(peer::Listener("exec:cat"), std::invalid_argument);
}

TEST(EndpointTest, APortIsReachedByTheLoopbackAddressOnly) {
    const peer::FileDescriptor socket = peer::listenOnPort("tcp:0", 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_LOOPBACK);
}

TEST(EndpointTest, ASmallMessageDoesNotWaitForTheNext) {
    const peer::FileDescriptor listening = peer::listenOnPort("tcp:0", 0);
    EXPECT_TRUE(sendsAtOnce(peer::connectToPort("tcp", peer::portOf(listening))));
}

TEST(EndpointTest, AConnectionToItselfIsSeen) {
    const peer::FileDescriptor socket = peer::streamSocket("tcp", AF_INET);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto* any = reinterpret_cast<const sockaddr*>(&address);
    ASSERT_EQ(::bind(socket.get(), any, sizeof address), 0);
    EXPECT_FALSE(peer::isConnectedToItself(socket));
    address.sin_port = htons(peer::portOf(socket));
    ASSERT_EQ(::connect(socket.get(), any, sizeof address), 0);
    EXPECT_TRUE(peer::isConnectedToItself(socket));
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
