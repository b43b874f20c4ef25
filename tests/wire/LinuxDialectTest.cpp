// The Linux dialect as the remote desktop sees it, from the policy message on. The root of this
// machine's tree is the one map, so the paths of the requests are those of a temporary folder.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"
#include "support/FakeChannel.h"
#include "support/LinuxFrames.h"
#include "support/LogCapture.h"
#include "support/MountNamespace.h"
#include "support/PolicyMessage.h"
#include "support/Sanitizers.h"
#include "support/TempDir.h"
#include "support/WaitUntil.h"

namespace {

using linuxframes::Bytes;
using linuxframes::fileInfo;
using linuxframes::infoOf;
using linuxframes::Message;
using linuxframes::numberOf;
using linuxframes::Payload;
using linuxframes::readdirOf;
using linuxframes::readlinkOf;
using linuxframes::readOf;
using linuxframes::twoPathsOf;
using linuxframes::writeOf;
using std::chrono::steady_clock;

constexpr int kRootMap = 1;

class LinuxDialectTest : public testing::Test {
protected:
    LinuxDialectTest() : LinuxDialectTest(nullptr) {}
    explicit LinuxDialectTest(ChannelWriteFn write) {
        m_client.Init(write == nullptr ? m_channel.wholeWriter() : write, m_channel.metric());
        m_client.Start();
    }
    ~LinuxDialectTest() override {
        m_client.Stop();
        m_client.Release();
    }

    bool put(Bytes frame) { return m_client.PutMsg(frame.data(), static_cast<int>(frame.size())); }
    bool put(const Message& message) { return put(linuxframes::frameOf(message)); }

    static PolicyMessage rootPolicy(std::uint32_t more = 0) {
        return {.policy = PolicyMessage::kAllMedia | PolicyMessage::kLinuxDesktop | more,
                .rootDirEnable = 1,
                .mountPath = "/no such folder"};
    }

    void choose(const PolicyMessage& policy) {
        EXPECT_TRUE(put(policy.build()));
        EXPECT_TRUE(waitUntil([&] { return m_log.has(3, "handle connect work ok"); }));
    }

    // Until the root map has been announced, mounted and acknowledged.
    void mountRoot(std::uint32_t more = 0) {
        choose(rootPolicy(more));
        ASSERT_TRUE(m_channel.waitForWrites(1));
        answer(linuxframes::kMap, kRootMap);
        ASSERT_TRUE(m_channel.waitForWrites(2));
        EXPECT_TRUE(waitUntil([&] { return m_log.contains(3, "client handle map cmd success."); }));
        m_seen = 2;
    }

    void answer(int subtype, int mapid, std::int64_t res = 0) {
        EXPECT_TRUE(put({.mapid = mapid,
                         .type = linuxframes::kMapCtrl,
                         .subtype = subtype,
                         .payload = Payload().number(0).raw({"/mnt/server\0", 12}),
                         .res = res}));
    }

    // What has gone out since the map was acknowledged, once there are `wanted` messages.
    std::vector<Message> replies(std::size_t wanted) {
        EXPECT_TRUE(m_channel.waitForWrites(m_seen + wanted));
        const auto frames = m_channel.writes();
        std::vector<Message> messages;
        for (std::size_t i = m_seen; i < frames.size(); ++i) {
            messages.push_back(linuxframes::parse(frames[i]));
        }
        return messages;
    }

    // Sends a request and gives its reply.
    Message ask(int code, const Bytes& payload, std::int64_t res = 0) {
        const std::size_t before = m_channel.writes().size();
        const Message sent = {.mapid = kRootMap,
                              .subtype = code,
                              .idx = ++m_idx,
                              .payload = payload,
                              .res = res,
                              .reserved = 0x01020304,
                              .opaque = "24 bytes of the server's"};
        EXPECT_TRUE(put(sent));
        EXPECT_TRUE(m_channel.waitForWrites(before + 1));
        const auto frames = m_channel.writes();
        if (frames.size() <= before) return {};
        Message reply = linuxframes::parse(frames[before]);
        EXPECT_EQ(reply.mapid, kRootMap);
        EXPECT_EQ(reply.type, linuxframes::kOperation);
        EXPECT_EQ(reply.subtype, code);
        EXPECT_EQ(reply.idx, m_idx);
        EXPECT_EQ(reply.reserved, sent.reserved);
        EXPECT_EQ(reply.opaque, sent.opaque);
        return reply;
    }

    std::int64_t resOf(int code, const Bytes& payload) {
        const Message reply = ask(code, payload);
        EXPECT_TRUE(reply.payload.empty());
        return reply.res;
    }

    // The path of a name in the temporary folder, as the server sends it.
    std::string at(const std::string& name = {}) const { return m_dir.str(name); }

    FakeChannel m_channel;
    LogCapture m_log;
    TempDir m_dir;
    ZFdClientMgr m_client;
    std::size_t m_seen = 0;
    std::int64_t m_idx = 0x7000000000000000;
};

// ---- maps

TEST_F(LinuxDialectTest, TheRootIsOfferedMountedAndAcknowledged) {
    choose(rootPolicy());
    ASSERT_TRUE(m_channel.waitForWrites(1));
    const Message plug = linuxframes::parse(m_channel.onlyWrite());
    EXPECT_EQ(plug.mapid, kRootMap);
    EXPECT_EQ(plug.type, 1);
    EXPECT_EQ(plug.subtype, 4);
    EXPECT_EQ(plug.idx, 0);
    EXPECT_EQ(plug.res, 0);
    EXPECT_EQ(plug.headSize, 64U);
    EXPECT_EQ(plug.reserved, 0U);
    const linuxframes::PlugRecord record = linuxframes::plugOf(plug.payload);
    EXPECT_EQ(record.rootFlag, 0);
    EXPECT_EQ(record.flag, 0);
    EXPECT_EQ(record.type, 2);
    EXPECT_EQ(record.folder, "Root");
    EXPECT_FALSE(record.computer.empty());

    answer(linuxframes::kMap, kRootMap);

    ASSERT_TRUE(m_channel.waitForWrites(2));
    const Message ack = linuxframes::parse(m_channel.writes()[1]);
    EXPECT_EQ(ack.mapid, kRootMap);
    EXPECT_EQ(ack.type, 1);
    EXPECT_EQ(ack.subtype, 7);
    EXPECT_EQ(ack.idx, 0);
    EXPECT_TRUE(ack.payload.empty());
}

TEST_F(LinuxDialectTest, NothingIsOfferedWhileRedirectionIsOff) {
    choose({.policy = PolicyMessage::kLinuxDesktop, .rootDirEnable = 1});
    put({.mapid = 1, .type = 1, .subtype = 99});
    EXPECT_TRUE(waitUntil([&] { return m_log.has(3, "unknow map ctrl message. 99"); }));

    m_client.Stop();

    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(LinuxDialectTest, ARefusedMapStillServes) {
    choose(rootPolicy());
    ASSERT_TRUE(m_channel.waitForWrites(1));
    answer(linuxframes::kMap, kRootMap, -1);
    EXPECT_TRUE(waitUntil([&] { return m_log.contains(3, "client handle map cmd success."); }));

    EXPECT_EQ(ask(linuxframes::kGetattr, Payload(at())).res, 0);
    EXPECT_EQ(m_channel.writes().size(), 2U);  // the offer and the reply: nothing was acknowledged
}

TEST_F(LinuxDialectTest, ARequestIsServedBeforeTheServerHasAnsweredTheOffer) {
    choose(rootPolicy());
    ASSERT_TRUE(m_channel.waitForWrites(1));

    EXPECT_EQ(ask(linuxframes::kGetattr, Payload(at())).res, 0);
}

TEST_F(LinuxDialectTest, AnUnmapEndsTheMapAndItIsNotOfferedAgain) {
    mountRoot();

    answer(linuxframes::kUnmap, kRootMap);

    const Message ack = replies(1).front();
    EXPECT_EQ(ack.mapid, kRootMap);
    EXPECT_EQ(ack.type, 1);
    EXPECT_EQ(ack.subtype, 9);
    put({.mapid = kRootMap, .subtype = linuxframes::kGetattr, .payload = Payload(at())});
    EXPECT_TRUE(waitUntil(
        [&] { return m_log.has(1, "put item node to opreator thread failure. mapid: 1"); }));
    m_client.Stop();
    EXPECT_EQ(m_channel.writes().size(), 3U);
}

TEST_F(LinuxDialectTest, ControlMessagesOutOfOrderAndTwiceDoNoHarm) {
    choose(rootPolicy());
    ASSERT_TRUE(m_channel.waitForWrites(1));
    for (const int mapid : {0, -1, 2, 0x7fffffff}) {
        for (const int subtype : {0, 1, 4, 5, 6, 7, 8, 9, -1}) answer(subtype, mapid);
    }
    answer(linuxframes::kMap, kRootMap);
    answer(linuxframes::kMap, kRootMap);
    answer(linuxframes::kUnmap, kRootMap);
    answer(linuxframes::kUnmap, kRootMap);
    answer(linuxframes::kMap, kRootMap);

    ASSERT_TRUE(m_channel.waitForWrites(4));
    m_client.Stop();
    std::vector<int> subtypes;
    for (const auto& frame : m_channel.writes()) {
        subtypes.push_back(linuxframes::parse(frame).subtype);
    }
    EXPECT_EQ(subtypes, (std::vector<int>{4, 7, 7, 9}));
}

TEST_F(LinuxDialectTest, RealMountsAreOfferedWithdrawnAndOfferedAgain) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/stick");
        choose({.policy = PolicyMessage::kAllMedia | PolicyMessage::kLinuxDesktop,
                .mountPath = folder,
                .localFs = "tmpfs"});
        const Message plug = replies(1).front();
        EXPECT_EQ(plug.mapid, 1);
        EXPECT_EQ(linuxframes::plugOf(plug.payload).folder, "stick");
        answer(linuxframes::kMap, 1);
        EXPECT_EQ(replies(2)[1].subtype, linuxframes::kMapAck);

        unmount(folder + "/stick");
        EXPECT_EQ(replies(3)[2].subtype, linuxframes::kUnplug);
        answer(linuxframes::kUnmap, 1);
        EXPECT_EQ(replies(4)[3].subtype, linuxframes::kUnmapAck);

        mountTmpfs(folder + "/stick");
        const Message again = replies(5)[4];
        EXPECT_EQ(again.subtype, linuxframes::kPlug);
        EXPECT_EQ(again.mapid, 2);
    });
}

TEST_F(LinuxDialectTest, AMountThatGoesBeforeTheAnswerIsWithdrawnAfterIt) {
    inMountNamespace([this](const std::string& folder) {
        mountTmpfs(folder + "/stick");
        choose({.policy = PolicyMessage::kAllMedia | PolicyMessage::kLinuxDesktop,
                .mountPath = folder,
                .localFs = "tmpfs"});
        replies(1);
        unmount(folder + "/stick");
        EXPECT_TRUE(waitUntil(
            [&] { return m_log.contains(2, "unplugin an not response map! mapid: 1, path: "); }));
        EXPECT_EQ(replies(1).size(), 1U);

        answer(linuxframes::kMap, 1);

        EXPECT_EQ(replies(3)[2].subtype, linuxframes::kUnplug);
    });
}

// ---- operations

TEST_F(LinuxDialectTest, All31OperationsAnswer) {
    mountRoot();
    m_dir.file("file", "content");
    const std::string file = at("file");

    EXPECT_EQ(ask(linuxframes::kInit, Payload("/").number(0).raw("block"), 12).res, 12);
    EXPECT_EQ(ask(linuxframes::kGetattr, Payload(file)).payload.size(), 104U);
    EXPECT_EQ(resOf(linuxframes::kSymlink, twoPathsOf("/target", at("link"))), 0);
    const Message target = ask(linuxframes::kReadlink, readlinkOf(at("link"), 4096));
    EXPECT_EQ(std::string(target.payload.data(), target.payload.size()),
              std::string("/./target\0", 10));
    EXPECT_EQ(resOf(linuxframes::kMknod, linuxframes::mknodOf(at("made"), 0100644)), 0);
    EXPECT_EQ(resOf(linuxframes::kMkdir, numberOf(at("sub"), 0755)), 0);
    EXPECT_EQ(resOf(linuxframes::kRename, twoPathsOf(at("made"), at("sub/made"))), 0);
    EXPECT_EQ(resOf(linuxframes::kLink, twoPathsOf(at("sub/made"), at("second"))), 0);
    EXPECT_EQ(resOf(linuxframes::kChmod, numberOf(at("second"), 0600)), 0);
    EXPECT_EQ(resOf(linuxframes::kChown, Payload(file).number(0).number(0)), -38);
    const Bytes info = fileInfo(2, 9);
    EXPECT_EQ(ask(linuxframes::kOpen, infoOf(file, info)).payload, info);
    EXPECT_EQ(resOf(linuxframes::kWrite, writeOf(file, "ABC", 2)), 3);
    const Message read = ask(linuxframes::kRead, readOf(file, 100, 1));
    EXPECT_EQ(read.res, 6);
    EXPECT_EQ(std::string(read.payload.data(), read.payload.size()), "oABCnt");
    EXPECT_EQ(resOf(linuxframes::kTruncate, numberOf(file, 1)), 0);
    EXPECT_EQ(ask(linuxframes::kStatfs, Payload(file)).payload.size(), 88U);
    EXPECT_EQ(resOf(linuxframes::kFlush, infoOf(file)), 0);
    EXPECT_EQ(resOf(linuxframes::kFsync, Payload(file).info(info).number(0)), 0);
    EXPECT_EQ(resOf(linuxframes::kRelease, infoOf(file)), 0);
    EXPECT_EQ(
        resOf(linuxframes::kSetxattr, Payload(file).text("user.a").number(1).raw("x").number(0)),
        -38);
    EXPECT_EQ(resOf(linuxframes::kGetxattr, Payload(file).text("user.a").number(10)), -38);
    EXPECT_EQ(resOf(linuxframes::kListxattr, numberOf(file, 10)), -38);
    EXPECT_EQ(resOf(linuxframes::kRemovexattr, Payload(file).text("user.a")), -38);
    EXPECT_NE(linuxframes::wordAt(ask(linuxframes::kOpendir, infoOf(at())).payload, 32), 0);
    EXPECT_EQ(linuxframes::namesOf(ask(linuxframes::kReaddir, readdirOf(at(), 65536)).payload),
              (std::vector<std::string>{".", "..", "file", "link", "second", "sub"}));
    EXPECT_EQ(resOf(linuxframes::kReleasedir, infoOf(at())), 0);
    EXPECT_EQ(resOf(linuxframes::kAccess, numberOf(file, 4)), 0);
    EXPECT_EQ(resOf(linuxframes::kUtimens,
                    Payload(file).number(32).number(1).number(2).number(3).number(4)),
              -38);
    EXPECT_EQ(
        resOf(linuxframes::kFallocate, Payload(file).info(info).number(0).number(0).number(10)),
        -38);
    EXPECT_EQ(resOf(linuxframes::kUnlink, Payload(at("sub/made"))), 0);
    EXPECT_EQ(resOf(linuxframes::kRmdir, Payload(at("sub"))), 0);
    EXPECT_EQ(ask(linuxframes::kDestroy, Payload("/"), -3).res, -3);

    EXPECT_EQ(readFile(file), "c");
}

TEST_F(LinuxDialectTest, AReadOnlyMapRefusesWhatChanges) {
    mountRoot(PolicyMessage::kReadOnly);
    m_dir.file("file", "content");

    EXPECT_EQ(resOf(linuxframes::kWrite, writeOf(at("file"), "ABC", 0)), -30);
    EXPECT_EQ(resOf(linuxframes::kUnlink, Payload(at("file"))), -30);
    EXPECT_EQ(resOf(linuxframes::kAccess, numberOf("/", 2)), -13);
    EXPECT_EQ(ask(linuxframes::kRead, readOf(at("file"), 100, 0)).res, 7);
    EXPECT_EQ(readFile(at("file")), "content");
}

TEST_F(LinuxDialectTest, UnknownCodesComeBackAsTheyWere) {
    mountRoot();
    for (const int code : {0, 3, 14, 29, 33, 43, 45, -1, 0x7fffffff}) {
        const Bytes payload = {1, 2, 3, 4, 5};
        const Message reply = ask(code, payload, -77);
        EXPECT_EQ(reply.res, -77);
        EXPECT_EQ(reply.payload, payload);
    }
}

TEST_F(LinuxDialectTest, ALargeFileGoesOutAndInInBlocksOfAMebibyte) {
    mountRoot();
    constexpr std::size_t kBlock = 1 << 20;
    std::string content(3 * kBlock + 17, '\0');
    std::mt19937 random(7);
    for (char& byte : content) byte = static_cast<char>(random());
    EXPECT_EQ(resOf(linuxframes::kMknod, linuxframes::mknodOf(at("big"), 0100644)), 0);

    for (std::size_t offset = 0; offset < content.size(); offset += kBlock) {
        const std::string block = content.substr(offset, kBlock);
        EXPECT_EQ(resOf(linuxframes::kWrite,
                        writeOf(at("big"), block, static_cast<std::int64_t>(offset))),
                  static_cast<std::int64_t>(block.size()));
    }
    std::string back;
    while (true) {
        const Message reply = ask(
            linuxframes::kRead, readOf(at("big"), kBlock, static_cast<std::int64_t>(back.size())));
        if (reply.res <= 0) break;
        back.append(reply.payload.begin(), reply.payload.end());
    }

    EXPECT_TRUE(back == content);
    EXPECT_TRUE(readFile(at("big")) == content);
}

TEST_F(LinuxDialectTest, PayloadsCutAtEveryLengthAreAnswered) {
    mountRoot();
    m_dir.file("file", "content");
    int failed = 0;
    for (const int code : {1, 2, 10, 16, 17, 22, 23, 27, 44}) {
        const Bytes whole = linuxframes::anyPayloadOf(code);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(size));
            const Message reply = ask(code, cut);
            if (reply.res < 0) ++failed;
        }
    }
    EXPECT_GT(failed, 100);
    EXPECT_EQ(ask(linuxframes::kRead, readOf(at("file"), 100, 0)).res, 7);
}

TEST_F(LinuxDialectTest, FramesOf0To80BytesAreTakenOrDropped) {
    mountRoot();
    for (int size = 0; size <= 80; ++size) {
        put(Bytes(static_cast<std::size_t>(size)));
    }

    EXPECT_EQ(ask(linuxframes::kGetattr, Payload(at())).res, 0);
    EXPECT_EQ(m_log.count(1, "buffer size is not match."), 76);
}

// Of the random ones none may change this machine: they have no path of their own, and the
// operations that change something by an empty path fail on the root.
TEST_F(LinuxDialectTest, NothingIsLostOfTheValidRequestsBetweenTenThousandRandomFrames) {
    mountRoot(PolicyMessage::kReadOnly);
    std::mt19937_64 random(20250101);
    constexpr int kFrames = kThreadSanitizer ? 2000 : 10000;
    constexpr std::uint64_t kBits = kSanitizer ? 0x03 : 0xff;  // or it takes gigabytes
    constexpr std::int64_t kValid = 0x5a5a000000000000;
    const auto draw = [&](std::uint64_t below) { return static_cast<int>(random() % below); };
    int asked = 0;
    std::size_t next = 0;
    std::set<std::int64_t> answered;
    const auto isAnswered = [&](const std::vector<FakeChannel::Message>& frames) {
        for (; next < frames.size(); ++next) {
            const Message reply = linuxframes::parse(frames[next]);
            if (reply.idx < kValid || reply.subtype != linuxframes::kGetattr) continue;
            if (reply.res == 0) answered.insert(reply.idx);
        }
        return static_cast<int>(answered.size()) == asked;
    };

    for (int i = 0; i < kFrames; ++i) {
        Bytes bytes(static_cast<std::size_t>(draw(300)));
        for (char& byte : bytes) byte = static_cast<char>(random() & kBits);
        switch (draw(4)) {
            case 0:
                put(bytes);
                break;
            case 1:
                put({.mapid = draw(3),
                     .type = draw(5),
                     .subtype = 100 + draw(5),
                     .payload = bytes});
                break;
            default:
                if (draw(2) == 0) {  // with a path, so that what follows it is looked at as well
                    const Bytes path = Payload("/");
                    bytes.insert(bytes.begin(), path.begin(), path.end());
                }
                put({.mapid = kRootMap,
                     .subtype = draw(60) - 5,
                     .idx = i,
                     .payload = bytes,
                     .extsize = draw(2) == 0 ? draw(400) : static_cast<int>(bytes.size())});
        }
        if (i % 20 == 0) {
            put({.mapid = kRootMap,
                 .subtype = linuxframes::kGetattr,
                 .idx = kValid + i,
                 .payload = Payload(at())});
            ++asked;
            ASSERT_TRUE(m_channel.waitFor(isAnswered)) << i;
        }
    }

    EXPECT_EQ(static_cast<int>(answered.size()), asked);
}

TEST_F(LinuxDialectTest, SizesOfAllKindsAreAnswered) {
    mountRoot();
    m_dir.file("file", "content");
    std::vector<std::int64_t> sizes = {0, 1, -1, std::numeric_limits<std::int64_t>::max(),
                                       std::numeric_limits<std::int64_t>::min()};
    if (!kThreadSanitizer) sizes.insert(sizes.end(), {0x7fffffff, std::int64_t{1} << 32});
    for (const std::int64_t size : sizes) {
        const Message read = ask(linuxframes::kRead, readOf(at("file"), size, 0));
        EXPECT_TRUE(size > 1 ? read.res == 7 || read.res == -ENOMEM
                             : read.res == (size == 1 ? 1 : 0))
            << size << " gives " << read.res;
        const Message listing = ask(linuxframes::kReaddir, readdirOf(at(), size));
        EXPECT_EQ(listing.res < 0, size < 1 || listing.res == -ENOMEM) << size;
        Payload payload(at("file"));
        payload.number(size).raw("data").info(fileInfo(1)).number(0);
        const Message write = ask(linuxframes::kWrite, payload);
        EXPECT_LE(write.res, 4) << size;
    }
}

// ---- many at once

TEST_F(LinuxDialectTest, TwoHundredRequestsInFlightLoseNothing) {
    mountRoot();
    constexpr int kRequests = 200;
    constexpr int kBlocked = 40;
    const std::string fifo = at("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (int i = 0; i < kRequests; ++i) m_dir.file("f" + std::to_string(i), std::to_string(i));

    for (int i = 0; i < kBlocked; ++i) {
        put({.mapid = kRootMap,
             .subtype = linuxframes::kOpen,
             .idx = 1000 + i,
             .payload = infoOf(fifo)});
    }
    for (int i = 0; i < kRequests; ++i) {
        put({.mapid = kRootMap,
             .subtype = linuxframes::kRead,
             .idx = i,
             .payload = readOf(at("f" + std::to_string(i)), 100, 0)});
    }

    std::map<std::int64_t, std::string> contents;
    for (const Message& reply : replies(kRequests)) {
        contents[reply.idx] = std::string(reply.payload.begin(), reply.payload.end());
    }
    ASSERT_EQ(contents.size(), std::size_t{kRequests});  // and none of the blocked ones
    for (int i = 0; i < kRequests; ++i) EXPECT_EQ(contents[i], std::to_string(i));
    EXPECT_TRUE(m_log.contains(2, "opreator number over limit.  count: 31"));
    EXPECT_EQ(m_log.count(1, "unknow handle type. "), 0);

    const std::ofstream writer(fifo);
    EXPECT_EQ(replies(kRequests + kBlocked).size(), std::size_t{kRequests + kBlocked});
}

TEST_F(LinuxDialectTest, ABlockedOpenHoldsUpOnlyItsOwnThread) {
    mountRoot();
    const std::string fifo = at("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    put({.mapid = kRootMap, .subtype = linuxframes::kOpen, .idx = 1, .payload = infoOf(fifo)});

    for (int i = 0; i < 20; ++i) EXPECT_EQ(ask(linuxframes::kGetattr, Payload(at())).res, 0);

    const std::ofstream writer(fifo);
    EXPECT_EQ(replies(21)[20].idx, 1);
}

TEST_F(LinuxDialectTest, AnUnmapUnderARequestLeavesTheRequestItsMap) {
    mountRoot();
    const std::string fifo = at("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    put({.mapid = kRootMap, .subtype = linuxframes::kOpen, .idx = 1, .payload = infoOf(fifo)});
    EXPECT_TRUE(waitUntil([&] { return m_log.has(4, "path: /." + fifo); }));

    answer(linuxframes::kUnmap, kRootMap);

    EXPECT_EQ(replies(1)[0].subtype, linuxframes::kUnmapAck);
    EXPECT_TRUE(waitUntil(
        [&] { return m_log.contains(1, "mapinfo stop error, mapinfo memory leak.  mapinfo: "); }));
    const std::ofstream writer(fifo);
    EXPECT_EQ(replies(2)[1].idx, 1);
    EXPECT_EQ(replies(2)[1].res, 0);
}

// ---- disconnect

TEST_F(LinuxDialectTest, StopsBeforeTheFirstOfferIsAnswered) {
    choose(rootPolicy());
    ASSERT_TRUE(m_channel.waitForWrites(1));

    EXPECT_TRUE(m_client.Stop());

    EXPECT_EQ(m_channel.writes().size(), 1U);  // nothing goes out at a disconnect
    EXPECT_TRUE(m_log.has(3, "map ctrl thread stop success"));
    EXPECT_TRUE(m_log.has(3, "send thread stop success"));
    EXPECT_TRUE(m_log.has(3, "all map in server unplugin ok. "));
}

TEST_F(LinuxDialectTest, StopsRightAfterTheSwitch) {
    choose(rootPolicy());

    EXPECT_TRUE(m_client.Stop());

    EXPECT_TRUE(m_log.has(3, "send thread stop success"));
}

TEST_F(LinuxDialectTest, StopsWithAMountedMapWithoutAMessage) {
    mountRoot();

    EXPECT_TRUE(m_client.Stop());

    EXPECT_EQ(m_channel.writes().size(), 2U);
    EXPECT_TRUE(m_log.contains(3, "map stop, mapid: 1, mapinfo: "));
    EXPECT_TRUE(m_log.has(3, "destory FdContext!"));
}

TEST_F(LinuxDialectTest, StopsWithThreadsBusyAndTheyEndAfterTheirRequests) {
    mountRoot();
    const std::string fifo = at("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (int i = 0; i < 5; ++i) {
        put({.mapid = kRootMap, .subtype = linuxframes::kOpen, .idx = i, .payload = infoOf(fifo)});
    }
    EXPECT_TRUE(waitUntil([&] { return m_log.count(4, "path: /." + fifo) == 5; }));
    const auto start = steady_clock::now();

    EXPECT_TRUE(m_client.Stop());

    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(m_channel.writes().size(), 2U);
    EXPECT_FALSE(m_log.contains(3, "FdContext is gone."));
    const std::ofstream writer(fifo);
    EXPECT_TRUE(waitUntil([&] { return m_log.contains(3, "FdContext is gone."); }));
    EXPECT_EQ(m_log.count(1, "m_map_info != NULL"), 5);
    EXPECT_EQ(m_channel.writes().size(), 2U);
}

TEST_F(LinuxDialectTest, StopsUnderALoadOfRequests) {
    mountRoot();
    for (int i = 0; i < 300; ++i) {
        put({.mapid = kRootMap,
             .subtype = linuxframes::kReaddir,
             .idx = i,
             .payload = readdirOf(at(), 4096)});
    }

    EXPECT_TRUE(m_client.Stop());

    EXPECT_TRUE(m_log.has(3, "destory FdContext!"));
    EXPECT_TRUE(waitUntil([&] { return m_log.contains(3, "FdContext is gone."); }));
}

TEST_F(LinuxDialectTest, ALaterConnectionStartsWithTheFirstMapIdAgain) {
    mountRoot();
    m_client.Stop();
    m_channel.clear();
    m_log.clear();

    m_client.Start();
    choose(rootPolicy());

    ASSERT_TRUE(m_channel.waitForWrites(1));
    EXPECT_EQ(linuxframes::parse(m_channel.onlyWrite()).mapid, 1);
}

// A channel that fails or blocks, from a chosen message on.
class BrokenChannelTest : public LinuxDialectTest {
protected:
    BrokenChannelTest()
        : LinuxDialectTest([this](char* data, int size) { return write(data, size); }) {}
    ~BrokenChannelTest() override {
        m_isOpen = true;
        m_client.Stop();
    }

    int write(char* data, int size) {
        if (++m_count > m_failAfter) return -1;
        if (m_count > m_blockAfter) {
            m_isBlocked = true;
            waitUntil([this] { return m_isOpen.load(); }, std::chrono::seconds(100));
        }
        return m_channel.wholeWriter()(data, size);
    }

    static constexpr int kNever = 1 << 30;
    std::atomic<int> m_count{0};
    std::atomic<int> m_failAfter{kNever};
    std::atomic<int> m_blockAfter{kNever};
    std::atomic<bool> m_isOpen{false};
    std::atomic<bool> m_isBlocked{false};
};

TEST_F(BrokenChannelTest, AfterAFailedWriteTheServerHearsNothingMoreAndTheFilesGoOn) {
    mountRoot();
    m_dir.file("file", "content");
    m_failAfter = 2;
    put({.mapid = kRootMap, .subtype = linuxframes::kGetattr, .payload = Payload(at())});
    EXPECT_TRUE(waitUntil([&] { return m_log.has(1, "send fd msg fail."); }));
    m_failAfter = kNever;

    put({.mapid = kRootMap, .subtype = linuxframes::kUnlink, .payload = Payload(at("file"))});

    EXPECT_TRUE(waitUntil([&] { return !std::filesystem::exists(at("file")); }));
    EXPECT_TRUE(m_client.Stop());
    EXPECT_EQ(m_channel.writes().size(), 2U);
    EXPECT_TRUE(m_log.has(3, "send thread stop success"));
    EXPECT_TRUE(m_log.contains(2, "free item. item: "));
}

TEST_F(BrokenChannelTest, AFailedFirstWriteStopsInTime) {
    m_failAfter = 0;
    choose(rootPolicy());
    EXPECT_TRUE(waitUntil([&] { return m_log.has(1, "send fd msg fail."); }));

    EXPECT_TRUE(m_client.Stop());

    EXPECT_TRUE(m_log.has(3, "send thread stop success"));
    EXPECT_TRUE(m_channel.writes().empty());
}

TEST_F(BrokenChannelTest, ABlockedWriteHoldsBackWhatComesBehindIt) {
    mountRoot();
    m_blockAfter = 2;
    for (int i = 0; i < 10; ++i) {
        put({.mapid = kRootMap, .subtype = linuxframes::kGetattr, .payload = Payload(at())});
    }
    EXPECT_TRUE(waitUntil([&] { return m_isBlocked.load(); }));
    EXPECT_EQ(m_channel.writes().size(), 2U);

    m_isOpen = true;

    EXPECT_EQ(replies(10).size(), 10U);
}

TEST_F(BrokenChannelTest, AStopWithABlockedWriterComesBackWithinItsBounds) {
    mountRoot();
    m_blockAfter = 2;
    put({.mapid = kRootMap, .subtype = linuxframes::kGetattr, .payload = Payload(at())});
    EXPECT_TRUE(waitUntil([&] { return m_isBlocked.load(); }));
    const auto start = steady_clock::now();

    EXPECT_TRUE(m_client.Stop());

    EXPECT_GE(steady_clock::now() - start, std::chrono::seconds(19));
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(70));
    EXPECT_TRUE(m_log.has(2, "send thread stop failure"));
    EXPECT_TRUE(m_log.has(3, "destory FdContext!"));
    m_client.Release();
    m_isOpen = true;  // the writer comes back to memory that is still there
    EXPECT_TRUE(waitUntil([&] { return m_log.contains(3, "FdContext is gone."); }));
}

}  // namespace
