// A session with a far end that answers as the test says.
#include "peer/windows/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "peer/RawSide.h"
#include "peer/Text.h"
#include "peer/windows/Status.h"

namespace peer::windows {

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using ::testing::HasSubstr;

class SessionTest : public ::testing::Test {
protected:
    // Past the handshake, with the policy taken in.
    Session& session(std::chrono::milliseconds timeout = 20s) {
        make(timeout);
        m_drives.shakeHands();
        m_session->open();
        m_policy = m_drives.next();
        return *m_session;
    }

    Session& make(std::chrono::milliseconds timeout = 20s) {
        Session::Options options;
        options.timeout = timeout;
        options.trace = [this](const std::string& line) { m_trace.push_back(line); };
        m_session = std::make_unique<Session>(m_drives.channel(), std::move(options));
        return *m_session;
    }

    template <typename Work>
    static std::string problem(Work work) {
        try {
            work();
        } catch (const std::exception& error) {
            return error.what();
        }
        return "(none)";
    }

    std::vector<std::string> m_trace;  // before what fills it
    FakeDrives m_drives;
    Bytes m_policy;
    std::unique_ptr<Session> m_session;
};

TEST_F(SessionTest, AnswersTheHandshakeWithThePolicy) {
    session();
    EXPECT_EQ(m_policy, Policy().encode());
}

TEST_F(SessionTest, RefusesWhatIsNoHandshake) {
    make();
    m_drives.far().send(peer::viewOf("GET / HTTP/1.1\r\n"));
    EXPECT_EQ(problem([this] { m_session->open(); }),
              "near: the other side does not begin with a handshake");
}

TEST_F(SessionTest, ReportsThatNoHandshakeComes) {
    make(10ms);
    EXPECT_EQ(problem([this] { m_session->open(); }), "near: no handshake came");
}

TEST_F(SessionTest, ReportsAHangUpBeforeTheHandshake) {
    make();
    m_drives.hangUp();
    EXPECT_EQ(problem([this] { m_session->open(); }), "near: the other side has hung up");
}

TEST_F(SessionTest, GivesEachRequestItsResult) {
    session();
    std::vector<Session::Ticket> tickets;
    for (std::uint32_t i = 0; i < 100; ++i) {
        tickets.push_back(m_session->submit(readRequest(0, 1, i, 4)));
    }
    for (int i = 0; i < 100; ++i) {
        const Bytes request = m_drives.next();
        m_drives.answer(request, FakeDrives::payload(0, 4, peer::View(request).subspan(20, 4)));
    }
    for (std::uint32_t i = 0; i < 100; ++i) {
        const Bytes result = m_session->wait(tickets[i]);
        EXPECT_EQ(peer::loadLe<std::uint32_t>(parseRead(result, 4).data()), i);
    }
}

TEST_F(SessionTest, Keeps255RequestsInFlightAndNoMore) {
    session();
    std::promise<void> last;
    std::thread sender([&] {
        for (int i = 0; i < 256; ++i) m_session->submit(closeRequest(0, 1));
        last.set_value();
    });
    const Bytes first = m_drives.next();
    for (int i = 1; i < 255; ++i) m_drives.next();
    auto future = last.get_future();
    EXPECT_EQ(future.wait_for(50ms), std::future_status::timeout);

    m_drives.answer(first, FakeDrives::payload(0, 0));
    EXPECT_EQ(future.wait_for(20s), std::future_status::ready);
    sender.join();
}

TEST_F(SessionTest, ARequestWhoseFollowerIsAnsweredWasDropped) {
    session();
    const auto dropped = m_session->submit(closeRequest(0, 1));
    const auto answered = m_session->submit(closeRequest(0, 2));
    m_drives.next();
    m_drives.answer(m_drives.next(), FakeDrives::payload(0, 0));

    EXPECT_NO_THROW(m_session->wait(answered));
    EXPECT_EQ(problem([&] { m_session->wait(dropped); }),
              "the request was dropped without an answer");
}

TEST_F(SessionTest, ARequestWithoutAnAnswerTimesOut) {
    session(10ms);
    EXPECT_EQ(problem([this] { m_session->ask(closeRequest(0, 1)); }),
              "near: no answer came in time");
}

TEST_F(SessionTest, AResultThatNobodyAskedForEndsTheSession) {
    session();
    Bytes request = closeRequest(0, 1);
    request[3] = 99;
    m_drives.answer(request, FakeDrives::payload(0, 0));
    EXPECT_EQ(problem([this] { m_session->ask(closeRequest(0, 1)); }),
              "near: a result with the number 99, which no request has");
}

TEST_F(SessionTest, AnUnknownMessageEndsTheSession) {
    session();
    m_drives.far().send(peer::viewOf("\x21\x43\0\0\0\0\0\0\0\0\0\0"s));
    EXPECT_THAT(problem([this] { m_session->ask(closeRequest(0, 1)); }),
                HasSubstr("a message of the unknown kind 17185"));
}

TEST_F(SessionTest, AHangUpEndsAWait) {
    session();
    const auto ticket = m_session->submit(closeRequest(0, 1));
    m_drives.hangUp();
    EXPECT_EQ(problem([&] { m_session->wait(ticket); }), "near: the other side has hung up");
}

TEST_F(SessionTest, CancelEndsAWaitAndResumeTakesItBack) {
    session();
    const auto ticket = m_session->submit(closeRequest(0, 1));
    std::thread other([this] { m_session->cancel(); });
    EXPECT_THROW(m_session->wait(ticket), peer::Cancelled);
    other.join();
    m_session->resume();
    m_drives.answer(m_drives.next(), FakeDrives::payload(0, 0));
    EXPECT_NO_THROW(m_session->wait(ticket));
}

TEST_F(SessionTest, DrivesComeGetTheirNamesAndGo) {
    session();
    const auto has = [](std::size_t count, bool named) {
        return [=](const std::vector<Drive>& drives) {
            return drives.size() == count && (count == 0 || drives[0].hasNames == named);
        };
    };
    m_drives.far().send(FakeDrives::driveAdded(3, "Mac-Data"));
    ASSERT_TRUE(m_session->waitForDrives(has(1, false), 20s));
    m_drives.far().send(FakeDrives::driveNamed(3, "Data"));
    ASSERT_TRUE(m_session->waitForDrives(has(1, true), 20s));

    const Drive drive = m_session->drives().front();
    EXPECT_EQ(drive.id, 3U);
    EXPECT_EQ(drive.name, "Mac-Data");
    EXPECT_EQ(drive.share, "Data");
    EXPECT_EQ(drive.computer, "host");
    EXPECT_EQ(drive.type, 8);
    EXPECT_EQ(drive.volume.available, 400000U);

    m_drives.far().send(FakeDrives::driveDeleted(3));
    EXPECT_TRUE(m_session->waitForDrives(has(0, false), 20s));
}

TEST_F(SessionTest, WaitsForDrivesNoLongerThanThereAreSome) {
    session();
    m_drives.far().send(FakeDrives::driveAdded(0, "Mac-Data"));
    std::thread far([this] {
        const Bytes asked = m_drives.next();
        Bytes number;
        peer::appendLe(number, std::uint32_t{1});
        m_drives.answer(asked, number);
    });
    EXPECT_FALSE(m_session->waitForDrives([](const auto&) { return false; }, 20s));
    EXPECT_EQ(m_session->drives().size(), 1U);
    far.join();
}

TEST_F(SessionTest, ADriveThatIsAnnouncedTwiceEndsTheSession) {
    session();
    m_drives.far().send(FakeDrives::driveAdded(0, "a"));
    m_drives.far().send(FakeDrives::driveAdded(0, "b"));
    EXPECT_THAT(
        problem([this] { m_session->waitForDrives([](const auto&) { return false; }, 20s); }),
        HasSubstr("announced twice"));
}

TEST_F(SessionTest, AHandleThatComesWithAFailureIsClosed) {
    session();
    std::thread far([this] {
        const Bytes create = m_drives.next();
        Bytes block;
        peer::appendLe(block, std::uint64_t{7});
        block.append(120, '\0');
        m_drives.answer(create, FakeDrives::payload(-38, 128, block));
        const Bytes close = m_drives.next();
        EXPECT_EQ(close[0], 2);
        m_drives.answer(close, FakeDrives::payload(0, 0));
    });
    EXPECT_THROW(m_session->open(0, "x", kAccessRead), StatusError);
    far.join();
}

TEST_F(SessionTest, TracesEachMessageBothWays) {
    session();
    std::thread far([this] { m_drives.answer(m_drives.next(), FakeDrives::payload(0, 0)); });
    m_session->close(1, 5);
    far.join();
    m_session.reset();
    ASSERT_EQ(m_trace.size(), 4U);
    EXPECT_THAT(m_trace[0], HasSubstr("< handshake"));
    EXPECT_THAT(m_trace[1], HasSubstr("> policy"));
    EXPECT_EQ(m_trace[2], "> close map 1 seq 0: handle 5 (20 bytes)");
    EXPECT_EQ(m_trace[3], "< result seq 0 of close: status 0, count 0 (23 bytes)");
}

}  // namespace

}  // namespace peer::windows
