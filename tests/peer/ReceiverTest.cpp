// Messages taken in by the receiver's own thread and by threads that linger.
#include "peer/Receiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <vector>

#include "peer/RawSide.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ReceiverTest : public ::testing::Test {
protected:
    ReceiverTest() {
        auto [near, far] = socketPair();
        m_far = std::move(far);
        m_channel = std::make_unique<peer::Channel>(std::move(near), "near");
        m_receiver = std::make_unique<peer::Receiver>(
            *m_channel, [this](const peer::Bytes& message) { take(message); },
            [this](const std::string& why) {
                const std::lock_guard lock(m_mutex);
                m_ends.push_back(why);
                m_changed.notify_all();
            });
    }

    void take(const peer::Bytes& message) {
        const std::lock_guard lock(m_mutex);
        if (message.empty()) throw peer::BadMessage("an empty message");
        m_messages.emplace_back(peer::textOf(message));
        m_takers.push_back(std::this_thread::get_id());
        m_changed.notify_all();
    }

    void say(const std::vector<std::string>& messages) {
        std::string bytes;
        for (const std::string& message : messages) {
            bytes += static_cast<char>(message.size()) + "\0\0\0"s + message;
        }
        writeAll(m_far.get(), bytes);
    }

    template <typename Condition>
    bool waitFor(Condition condition) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, 20s, condition);
    }
    bool waitForMessages(std::size_t count) {
        return waitFor([&] { return m_messages.size() >= count; });
    }
    bool waitForEnd() {
        return waitFor([&] { return !m_ends.empty(); });
    }
    bool isMissing(std::size_t count) {
        const std::lock_guard lock(m_mutex);
        return m_messages.size() < count;
    }

    // As a thread does that waits for the message number `count`, until this one has taken some in.
    void helpUntil(std::size_t count) {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (isMissing(count) && std::chrono::steady_clock::now() < deadline) {
            m_receiver->lingerWhile([&] { return isMissing(count); });
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_messages, m_ends;
    std::vector<std::thread::id> m_takers;
    peer::FileDescriptor m_far;
    std::unique_ptr<peer::Channel> m_channel;
    std::unique_ptr<peer::Receiver> m_receiver;
};

TEST_F(ReceiverTest, TakesInWhatNobodyWaitsFor) {
    say({"a"});
    EXPECT_TRUE(waitForMessages(1));
    say({"b", "c"});
    EXPECT_TRUE(waitForMessages(3));
    EXPECT_THAT(m_messages, ElementsAre("a", "b", "c"));
}

// One read brings several messages: the rest comes in although no more bytes come.
TEST_F(ReceiverTest, ALingeringThreadLeavesNothingBehindThatItHasRead) {
    for (std::size_t round = 0; round < 500; ++round) {
        say({"own", "of another", "third"});
        helpUntil(3 * round + 1);
        ASSERT_TRUE(waitForMessages(3 * round + 3)) << "round " << round;
    }
    EXPECT_THAT(m_messages, ::testing::SizeIs(1500));
    EXPECT_THAT(m_takers, ::testing::Contains(std::this_thread::get_id()));
}

TEST_F(ReceiverTest, AfterHelpItsOwnThreadGoesOn) {
    for (std::size_t i = 1; i <= 100; ++i) {
        say({"helped"});
        helpUntil(i);
    }
    say({"alone"});
    ASSERT_TRUE(waitForMessages(101));
    EXPECT_EQ(m_messages.back(), "alone");
}

TEST_F(ReceiverTest, WhoSleepsIsServedByItsOwnThread) {
    for (std::size_t i = 1; i <= 200; i += 2) {
        say({"helped"});
        helpUntil(i);
        const peer::Receiver::Sleeper sleeper(*m_receiver);
        say({"slept for"});
        ASSERT_TRUE(waitForMessages(i + 1));
    }
}

TEST_F(ReceiverTest, MessagesInPiecesComeInWhole) {
    std::thread writer([this] {
        for (int i = 0; i < 200; ++i) {
            for (const char byte : "\x05\x00\x00\x00hello"s) writeAll(m_far.get(), {&byte, 1});
        }
    });
    helpUntil(200);
    writer.join();
    ASSERT_TRUE(waitForMessages(200));
    EXPECT_THAT(m_messages, ::testing::Each("hello"));
}

TEST_F(ReceiverTest, SaysOnceWhyNothingMoreComes) {
    say({"a"});
    m_far.reset();
    EXPECT_TRUE(waitForEnd());
    m_receiver->lingerWhile([] { return true; });
    m_receiver->close();
    EXPECT_THAT(m_messages, ElementsAre("a"));
    EXPECT_THAT(m_ends, ElementsAre("near: the other side has hung up"));
}

TEST_F(ReceiverTest, AMessageThatMakesNoSenseIsTheEnd) {
    say({"", "behind it"});
    EXPECT_TRUE(waitForEnd());
    m_receiver->close();
    EXPECT_THAT(m_messages, IsEmpty());
    EXPECT_THAT(m_ends, ElementsAre("near: an empty message"));
}

TEST_F(ReceiverTest, BehindTheCloseNothingIsTakenIn) {
    m_receiver->close();
    EXPECT_THAT(m_ends, ElementsAre("near: the session has ended"));
    say({"late"});
    m_receiver->lingerWhile([] { return true; });
    EXPECT_THAT(m_messages, IsEmpty());
}

TEST_F(ReceiverTest, ClosesWhileItsThreadStaysAway) {
    say({"helped"});
    helpUntil(1);
    m_receiver->close();
    EXPECT_THAT(m_ends, ElementsAre("near: the session has ended"));
}

}  // namespace
