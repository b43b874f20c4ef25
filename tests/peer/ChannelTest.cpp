// Framing over a byte stream.
#include "peer/Channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "peer/RawSide.h"

namespace {

using namespace std::string_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Lt;
using ::testing::Not;
using ::testing::SizeIs;

class ChannelTest : public ::testing::Test {
protected:
    ChannelTest() {
        peer::ignoreBrokenPipes();
        auto [near, far] = socketPair();
        m_far = std::move(far);
        m_channel = std::make_unique<peer::Channel>(std::move(near), "pipe:test");
    }

    std::string received() {
        const std::optional<peer::Bytes> message = m_channel->receive();
        return message ? std::string(peer::textOf(*message)) : "(end)";
    }

    std::string failure() {
        try {
            received();
        } catch (const peer::ChannelError& error) {
            return error.what();
        }
        return "(none)";
    }

    // Everything that is still to come at the far end, to the end of the stream.
    std::string rest() const {
        std::string bytes;
        char piece[4096];
        ssize_t got = 0;
        while ((got = ::read(m_far.get(), piece, sizeof piece)) > 0) {
            bytes.append(piece, static_cast<std::size_t>(got));
        }
        return bytes;
    }

    peer::FileDescriptor m_far;
    std::unique_ptr<peer::Channel> m_channel;
};

TEST_F(ChannelTest, WritesTheLengthBeforeTheMessage) {
    m_channel->send(peer::viewOf("abc"));

    char bytes[16];
    ASSERT_EQ(::read(m_far.get(), bytes, sizeof bytes), 7);
    EXPECT_EQ(std::string(bytes, 7), "\x03\x00\x00\x00"s + "abc");
}

TEST_F(ChannelTest, ReadsMessagesThatComeInOnePiece) {
    writeAll(m_far.get(),
             "\x03\x00\x00\x00"s + "abc" + "\x00\x00\x00\x00"s + "\x01\x00\x00\x00"s + "d");

    EXPECT_EQ(received(), "abc");
    EXPECT_EQ(received(), "");
    EXPECT_EQ(received(), "d");
}

TEST_F(ChannelTest, ReadsAMessageThatComesByteByByte) {
    std::thread writer([this] {
        for (const char byte : "\x05\x00\x00\x00"s + "hello") writeAll(m_far.get(), {&byte, 1});
    });
    EXPECT_EQ(received(), "hello");
    writer.join();
}

TEST_F(ChannelTest, WithoutWaitingItTellsWhatIsThere) {
    using peer::Arrival;
    peer::Bytes message;
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kNothing);
    writeAll(m_far.get(), "\x03\x00"s);
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kNothing);
    writeAll(m_far.get(), "\x00\x00"s + "ab");
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kNothing);
    EXPECT_FALSE(m_channel->hasMore());
    writeAll(m_far.get(), "c\x01\x00\x00\x00"s + "d" + "\x01\x00"s);
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kMessage);
    EXPECT_EQ(peer::textOf(message), "abc");
    EXPECT_TRUE(m_channel->hasMore());
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kMessage);
    EXPECT_EQ(peer::textOf(message), "d");
    EXPECT_FALSE(m_channel->hasMore());
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kNothing);
    writeAll(m_far.get(), "\x00\x00"s + "e");
    m_far.reset();
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kMessage);
    EXPECT_EQ(m_channel->tryReceive(message), Arrival::kEnd);
}

TEST_F(ChannelTest, AnImpossibleLengthThatHasBeenReadIsThereToBeFound) {
    peer::Bytes message;
    writeAll(m_far.get(), "\x00\x00\x00\x00\xFF\xFF\xFF\xFF"s);
    EXPECT_EQ(m_channel->tryReceive(message), peer::Arrival::kMessage);
    EXPECT_TRUE(m_channel->hasMore());
    EXPECT_THROW(m_channel->tryReceive(message), peer::ChannelError);
}

TEST_F(ChannelTest, CarriesALongMessageBothWays) {
    const std::string text(3 << 20, 'x');
    peer::Channel far(std::move(m_far), "far");
    std::thread other([&] { far.send(*far.receive()); });

    m_channel->send(peer::viewOf(text));
    EXPECT_TRUE(received() == text);
    other.join();
}

TEST_F(ChannelTest, SaysNothingMoreComesWhenTheStreamEndsBetweenMessages) {
    writeAll(m_far.get(), "\x01\x00\x00\x00"s + "a");
    m_far.reset();

    EXPECT_EQ(received(), "a");
    EXPECT_EQ(received(), "(end)");
}

TEST_F(ChannelTest, ReportsAHangUpInTheMiddleOfALength) {
    writeAll(m_far.get(), "\x01\x00"s);
    m_far.reset();

    EXPECT_EQ(failure(), "pipe:test: the other side hung up in the middle of a message");
}

TEST_F(ChannelTest, ReportsAHangUpInTheMiddleOfAMessage) {
    writeAll(m_far.get(), "\x0A\x00\x00\x00"s + "abc");
    m_far.reset();

    EXPECT_EQ(failure(),
              "pipe:test: the other side hung up in the middle of a message (3 of 10 bytes)");
}

TEST_F(ChannelTest, RefusesALengthOfFourGigabytes) {
    writeAll(m_far.get(), "\xFF\xFF\xFF\xFF"s);

    EXPECT_EQ(failure(),
              "pipe:test: the other side announces a message of 4294967295 bytes, more than the "
              "67108864 that a message may have");
}

TEST_F(ChannelTest, RefusesOneByteAboveTheLimitAndTakesTheLimit) {
    writeAll(m_far.get(), "\x01\x00\x00\x04"s);
    EXPECT_THAT(failure(), HasSubstr("67108865"));

    auto [near, far] = socketPair();
    peer::Channel channel(std::move(near), "limit");
    writeAll(far.get(), "\x00\x00\x00\x04"s);
    far.reset();
    EXPECT_THROW(
        try { channel.receive(); } catch (const peer::ChannelError& error) {
            EXPECT_THAT(error.what(), HasSubstr("(0 of 67108864 bytes)"));
            throw;
        },
        peer::ChannelError);
}

TEST_F(ChannelTest, AnInterruptEndsAWaitForAMessage) {
    std::thread other([this] { m_channel->interrupt(); });
    EXPECT_THROW(m_channel->receive(), peer::ChannelInterrupted);
    other.join();
    EXPECT_THROW(m_channel->receive(), peer::ChannelInterrupted);
}

TEST_F(ChannelTest, AnInterruptEndsASendThatNobodyReads) {
    const std::string text(32 << 20, 'x');
    std::thread other([this] { m_channel->interrupt(); });
    EXPECT_THROW(m_channel->send(peer::viewOf(text)), peer::ChannelInterrupted);
    other.join();
}

TEST_F(ChannelTest, ASendToASideThatHungUpFails) {
    m_far.reset();
    EXPECT_THROW(m_channel->send(peer::viewOf("abc")), peer::ChannelError);
}

TEST_F(ChannelTest, AnInterruptEndsAlsoWhatCouldGoOn) {
    writeAll(m_far.get(), "\x01\x00\x00\x00"s + "a");
    m_channel->interrupt();
    EXPECT_THROW(m_channel->receive(), peer::ChannelInterrupted);
    EXPECT_THROW(m_channel->send(peer::viewOf("abc")), peer::ChannelInterrupted);
    m_channel.reset();
    EXPECT_EQ(rest(), "");
}

TEST_F(ChannelTest, NothingFollowsAMessageThatLeftInPart) {
    std::thread other([this] {
        char byte = 0;
        EXPECT_EQ(::recv(m_far.get(), &byte, 1, MSG_PEEK), 1);  // something has left
        m_channel->interrupt();
    });
    const std::string text(32 << 20, 'x');
    EXPECT_THROW(m_channel->send(peer::viewOf(text)), peer::ChannelInterrupted);
    other.join();
    EXPECT_THROW(m_channel->send(peer::viewOf("abc")), peer::ChannelError);
    m_channel.reset();
    EXPECT_THAT(rest(), AllOf(SizeIs(Lt(text.size())), Not(HasSubstr("abc"))));
}

TEST_F(ChannelTest, MessagesOfSeveralThreadsStayWhole) {
    constexpr int kThreads = 4, kMessages = 50;
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([this, t] {
            const std::string text(100000, static_cast<char>('a' + t));
            for (int i = 0; i < kMessages; ++i) m_channel->send(peer::viewOf(text));
        });
    }
    peer::Channel far(std::move(m_far), "far");
    for (int i = 0; i < kThreads * kMessages; ++i) {
        const peer::Bytes message = far.receive().value();
        ASSERT_EQ(message.size(), 100000U);
        EXPECT_EQ(std::string(peer::textOf(message)), std::string(100000, message[0]));
    }
    for (std::thread& sender : senders) sender.join();
}

}  // namespace
