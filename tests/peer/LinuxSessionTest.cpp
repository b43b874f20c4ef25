// A session in the Linux dialect with a far end that answers as the test says.
#include "peer/linux/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include "peer/LinuxSide.h"

namespace peer::linux {

namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

class LinuxSessionTest : public ::testing::Test {
protected:
    Session& make(std::chrono::milliseconds timeout = 20s) {
        peer::Machine::Options options;
        options.timeout = timeout;
        m_session = std::make_unique<Session>(m_side.channel(), std::move(options));
        return *m_session;
    }

    // Past the handshake, with the policy taken in.
    Session& session(std::chrono::milliseconds timeout = 20s) {
        make(timeout);
        m_side.shakeHands();
        m_session->open();
        m_policy = m_side.next();
        return *m_session;
    }

    // With the drive "Data", number 1, offered.
    Session& withDrive(std::chrono::milliseconds timeout = 20s) {
        session(timeout);
        m_side.offer(1, "Data");
        EXPECT_TRUE(waitForDrives(1));
        m_drive = m_session->drives().at(0);
        return *m_session;
    }

    bool waitForDrives(std::size_t count) {
        return m_session->waitForDrives(
            [count](const auto& drives) { return drives.size() == count; }, 20s);
    }

    Session::Ticket ask(const std::string& path = "x") {
        return m_session->submit(*m_drive, pathRequest(kGetattr, path));
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

    LinuxSide m_side;
    Bytes m_policy;
    std::unique_ptr<Session> m_session;
    DrivePtr m_drive;
};

TEST_F(LinuxSessionTest, AnswersTheHandshakeWithThePolicyOfALinuxDesktop) {
    session();
    peer::windows::Policy expected;
    expected.word |= 0x400;
    EXPECT_EQ(m_policy, expected.encode());
}

TEST_F(LinuxSessionTest, ReportsThatNoHandshakeComes) {
    make(10ms);
    EXPECT_EQ(problem([this] { m_session->open(); }), "near: no handshake came");
}

TEST_F(LinuxSessionTest, AnswersAPlugWithAMapAndAnUnplugWithAnUnmap) {
    session();
    m_side.say({7, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("Data"));
    const auto map = m_side.nextFrame();
    EXPECT_EQ(map.head.map, 7);
    EXPECT_EQ(map.head.type, kMapControl);
    EXPECT_EQ(map.head.subtype, kMap);
    EXPECT_EQ(map.head.res, 0);
    EXPECT_EQ(peer::textOf(map.payload().subspan(8)), std::string_view("/Data\0", 6));

    m_side.say({7, kMapControl, kUnplug, 0, 0});
    const auto unmap = m_side.nextFrame();
    EXPECT_EQ(unmap.head.map, 7);
    EXPECT_EQ(unmap.head.subtype, kUnmap);
    EXPECT_EQ(unmap.head.res, 0);
}

TEST_F(LinuxSessionTest, ProbesAnAcknowledgedDriveUntilItAnswersAndOffersItThen) {
    session();
    m_side.say({1, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("Data"));
    m_side.nextFrame();
    m_side.say({1, kMapControl, kMapAck, 0, 0});
    for (int i = 0; i < 4; ++i) {  // the other side drops the first ones
        const auto probe = m_side.nextProbe(1);
        EXPECT_EQ(probe.head.subtype, kGetattr);
        EXPECT_EQ(probe.path(), "/");
        EXPECT_TRUE(m_session->drives().empty());
    }
    m_side.reply(m_side.nextProbe(1), 0, LinuxSide::stat(0040755));
    ASSERT_TRUE(waitForDrives(1));
    EXPECT_EQ(m_session->drives()[0]->plug.folder, "Data");
    EXPECT_EQ(m_session->drives()[0]->plug.computer, "Mac");
}

TEST_F(LinuxSessionTest, WhoWaitsForADriveSeesTheEarlierOfItsNameFirst) {
    session();
    m_side.say({1, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("Data"));
    m_side.nextFrame();
    m_side.offer(2, "Data");
    m_side.offer(3, "More");
    std::vector<std::int32_t> seen;
    const auto see = [&](const std::vector<DrivePtr>& drives) {
        seen.clear();
        for (const DrivePtr& drive : drives) seen.push_back(drive->map);
        return !seen.empty() && seen.back() == 3;
    };
    EXPECT_TRUE(m_session->waitForDrives(see, 20s));
    EXPECT_THAT(seen, ::testing::ElementsAre(3));
    EXPECT_EQ(m_session->drives().size(), 2U);

    m_side.say({1, kMapControl, kMapAck, 0, 0});
    m_side.reply(m_side.nextProbe(1), 0, LinuxSide::stat(0040755));
    EXPECT_TRUE(waitForDrives(3));
    EXPECT_TRUE(m_session->waitForDrives(see, 20s));
    EXPECT_THAT(seen, ::testing::ElementsAre(1, 2, 3));
}

TEST_F(LinuxSessionTest, ADriveThatIsNotAcknowledgedIsNotProbed) {
    session();
    m_side.say({1, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("Data"));
    EXPECT_EQ(m_side.anyFrame().head.subtype, kMap);
    m_side.say({2, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("More"));
    EXPECT_EQ(m_side.anyFrame().head.subtype, kMap);
}

TEST_F(LinuxSessionTest, MatchesAnswersThatComeInAnyOrder) {
    withDrive();
    std::vector<Session::Ticket> tickets;
    std::vector<LinuxSide::Message> requests;
    for (int i = 0; i < 100; ++i) {
        tickets.push_back(ask(std::to_string(i)));
        requests.push_back(m_side.nextFrame());
    }
    for (int i = 99; i >= 0; --i) {
        const auto& request = requests[static_cast<std::size_t>(i)];
        m_side.reply(request, 0, LinuxSide::stat(0100644, std::stoi(request.path().substr(1))));
    }
    for (int i = 0; i < 100; ++i) {
        const Bytes answer = m_session->wait(std::move(tickets[static_cast<std::size_t>(i)]));
        EXPECT_EQ(parseGetattr(answer).size, i);
    }
}

TEST_F(LinuxSessionTest, ServesSixteenThreadsWithTwoHundredRequestsInFlight) {
    withDrive();
    constexpr int kThreads = 16;
    constexpr int kEach = 13;
    std::thread far([this] {  // all are under way before the first is answered, the last one first
        std::vector<LinuxSide::Message> requests;
        for (int i = 0; i < kThreads * kEach; ++i) requests.push_back(m_side.nextFrame());
        for (auto request = requests.rbegin(); request != requests.rend(); ++request) {
            m_side.reply(*request, 0,
                         LinuxSide::stat(0100644, std::stoi(request->path().substr(1))));
        }
    });
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            std::vector<Session::Ticket> tickets;
            for (int i = 0; i < kEach; ++i)
                tickets.push_back(ask(std::to_string(thread * 100 + i)));
            for (int i = 0; i < kEach; ++i) {
                const Bytes answer =
                    m_session->wait(std::move(tickets[static_cast<std::size_t>(i)]));
                if (parseGetattr(answer).size == thread * 100 + i) ++right;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    far.join();
    EXPECT_EQ(right, kThreads * kEach);
}

TEST_F(LinuxSessionTest, ARequestWithoutAnAnswerIsTheOnlyOneLost) {
    withDrive(50ms);
    auto lost = ask("lost");
    const auto request = m_side.nextFrame();
    EXPECT_THROW(m_session->wait(std::move(lost)), peer::NoAnswer);

    m_side.reply(request, 0, LinuxSide::stat(0100644, 1));  // too late, and nobody minds
    auto next = ask("next");
    m_side.reply(m_side.nextFrame(), 0, LinuxSide::stat(0100644, 2));
    EXPECT_EQ(parseGetattr(m_session->wait(std::move(next))).size, 2);
}

TEST_F(LinuxSessionTest, ARequestThatIsLetGoLeavesNoTrace) {
    withDrive();
    { const auto unwanted = ask("unwanted"); }
    const auto request = m_side.nextFrame();
    auto wanted = ask("wanted");
    m_side.reply(request, 0, LinuxSide::stat(0100644, 1));
    m_side.reply(m_side.nextFrame(), 0, LinuxSide::stat(0100644, 2));
    EXPECT_EQ(parseGetattr(m_session->wait(std::move(wanted))).size, 2);
}

TEST_F(LinuxSessionTest, ADriveThatGoesTakesItsRequestsAlongAndNoOthers) {
    withDrive();
    m_side.offer(2, "More");
    ASSERT_TRUE(waitForDrives(2));
    const DrivePtr other = m_session->drives().at(1);
    auto gone = ask();
    m_side.nextFrame();
    auto stays = m_session->submit(*other, pathRequest(kGetattr, "y"));
    const auto request = m_side.nextFrame();

    m_side.say({1, kMapControl, kUnplug, 0, 0});
    try {
        m_session->wait(std::move(gone));
        FAIL() << "answered by a drive that went";
    } catch (const peer::RemoteError& error) {
        EXPECT_EQ(error.error(), ENODEV);
    }
    EXPECT_THAT(problem([this] { ask(); }), HasSubstr("ENODEV"));
    m_side.reply(request, 0, LinuxSide::stat(0100644, 3));
    EXPECT_EQ(parseGetattr(m_session->wait(std::move(stays))).size, 3);
    EXPECT_EQ(m_session->drives().size(), 1U);
}

TEST_F(LinuxSessionTest, ALostChannelEndsEveryWait) {
    withDrive();
    std::vector<std::future<std::string>> waits;
    for (int i = 0; i < 8; ++i) {
        waits.push_back(std::async(std::launch::async,
                                   [this] { return problem([this] { m_session->wait(ask()); }); }));
        m_side.nextFrame();
    }
    m_side.hangUp();
    for (auto& wait : waits) {
        ASSERT_EQ(wait.wait_for(20s), std::future_status::ready);
        EXPECT_EQ(wait.get(), "near: the other side has hung up");
    }
    EXPECT_EQ(m_session->ending(), "near: the other side has hung up");
    EXPECT_EQ(problem([this] { ask(); }), "near: the other side has hung up");
}

TEST_F(LinuxSessionTest, CancelEndsAWaitUntilResume) {
    withDrive();
    auto ticket = ask();
    m_side.nextFrame();
    std::thread other([this] { m_session->cancel(); });
    EXPECT_THROW(m_session->wait(std::move(ticket)), peer::Cancelled);
    other.join();
    EXPECT_THROW(ask(), peer::Cancelled);
    m_session->resume();
    auto again = ask();
    m_side.reply(m_side.nextFrame(), 0, LinuxSide::stat(0100644, 4));
    EXPECT_EQ(parseGetattr(m_session->wait(std::move(again))).size, 4);
}

TEST_F(LinuxSessionTest, AfterCloseEveryOperationFailsAndNoneHangs) {
    withDrive();
    m_session->close();
    EXPECT_EQ(problem([this] { ask(); }), "near: the session has ended");
    EXPECT_THROW(m_session->waitForDrives([](const auto&) { return false; }, 20s),
                 peer::SessionError);
}

TEST_F(LinuxSessionTest, TellsItsListenerOfDrivesAndOfTheEnd) {
    session();
    std::promise<std::size_t> came, ended;
    std::atomic<int> calls{0};
    m_session->listen([&] {
        if (!m_session->ending().empty()) return ended.set_value(m_session->drives().size());
        if (calls++ == 0) came.set_value(m_session->drives().size());
    });
    m_side.offer(1, "Data");
    EXPECT_EQ(came.get_future().get(), 1U);
    m_side.hangUp();
    auto end = ended.get_future();
    EXPECT_EQ(end.wait_for(20s), std::future_status::ready);
    m_session->listen({});
}

TEST_F(LinuxSessionTest, KnowsAllDrivesWhenNoMoreHaveComeForAWhile) {
    withDrive();
    EXPECT_FALSE(m_session->waitForDrives([](const auto&) { return false; }, 60s));
    EXPECT_EQ(m_session->drives().size(), 1U);
}

// --- a far end that cannot be trusted

struct Attack {
    const char* name;
    Bytes frame;
    const char* text;
};

class LinuxSessionAttackTest : public LinuxSessionTest,
                               public ::testing::WithParamInterface<Attack> {};

TEST_P(LinuxSessionAttackTest, EndsTheSession) {
    withDrive();
    auto ticket = ask();
    m_side.nextFrame();
    m_side.far().send(GetParam().frame);
    EXPECT_THAT(problem([&] { m_session->wait(std::move(ticket)); }), HasSubstr(GetParam().text));
}

Bytes changed(Bytes frame, std::size_t at, std::uint32_t value) {
    peer::storeLe(frame.data() + at, value);
    return frame;
}

const Bytes kPlain = LinuxSide::frame({1, kOperation, kGetattr, 0, 0});

INSTANTIATE_TEST_SUITE_P(
    Frames, LinuxSessionAttackTest,
    ::testing::Values(
        Attack{"Empty", Bytes(), "a frame of 0 bytes"},
        Attack{"Short", Bytes(kPlain.begin(), kPlain.begin() + 75), "a frame of 75 bytes"},
        Attack{"Length", changed(kPlain, 8, 65), "says it has another length"},
        Attack{"Extsize", changed(kPlain, 72, 1), "does not fill it"},
        Attack{"HugeExtsize", changed(kPlain, 72, 0x7FFFFFFF), "does not fill it"},
        Attack{"Class", LinuxSide::frame({1, 2, 1, 0, 0}), "unknown class 2"},
        Attack{"Control", LinuxSide::frame({1, kMapControl, kMap, 0, 0}), "unknown kind 6"},
        Attack{"Number", LinuxSide::frame({1, kOperation, kGetattr, 0, std::int64_t{1} << 62}),
               "which no request has"},
        Attack{"Twice",
               LinuxSide::frame({1, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("Data")),
               "announced twice"},
        Attack{"Negative",
               LinuxSide::frame({-5, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("Data")),
               "below zero"},
        Attack{"NoRecord", LinuxSide::frame({2, kMapControl, kPlug, 0, 0}), "cut short"},
        Attack{"Slash",
               LinuxSide::frame({2, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("../x")),
               "no name"},
        Attack{"Dots", LinuxSide::frame({2, kMapControl, kPlug, 0, 0}, LinuxSide::plugRecord("..")),
               "no name"}),
    [](const auto& attack) { return std::string(attack.param.name); });

TEST_F(LinuxSessionTest, AnAnswerToSomethingElseEndsTheSession) {
    withDrive();
    auto ticket = ask();
    auto request = m_side.nextFrame();
    request.head.subtype = kRead;
    m_side.reply(request, 0);
    EXPECT_THAT(problem([&] { m_session->wait(std::move(ticket)); }),
                HasSubstr("answers something else"));
}

TEST_F(LinuxSessionTest, AnUnplugOfAnUnknownDriveAndASecondAcknowledgementAreNothing) {
    withDrive();
    m_side.say({9, kMapControl, kUnplug, 0, 0});
    m_side.say({1, kMapControl, kMapAck, 0, 0});
    m_side.say({9, kMapControl, kUnmapAck, 0, 0});
    auto ticket = ask();
    m_side.reply(m_side.nextFrame(), 0, LinuxSide::stat(0100644, 5));
    EXPECT_EQ(parseGetattr(m_session->wait(std::move(ticket))).size, 5);
}

}  // namespace

}  // namespace peer::linux
