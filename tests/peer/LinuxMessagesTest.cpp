// Requests of the Linux dialect as bytes, and replies of a side that cannot be trusted.
#include "peer/linux/Messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <random>

#include "peer/LinuxSide.h"
#include "peer/linux/Results.h"
#include "peer/linux/Tracer.h"

namespace peer::linux {

namespace {

using namespace std::string_literals;

Bytes replyOf(Code code, std::int64_t res, View payload = {}) {
    return LinuxSide::frame({1, kOperation, code, res, 600}, payload);
}

template <typename Work>
int errorFrom(Work work) {
    try {
        work();
    } catch (const RemoteError& error) {
        return error.error();
    }
    return 0;
}

std::string payloadText(const Request& request) {
    Bytes whole = request.frame;
    whole.append(request.data);
    whole.append(request.tail);
    EXPECT_EQ(peer::loadLe<std::uint32_t>(whole.data() + 8), whole.size() - 12);
    EXPECT_EQ(peer::loadLe<std::uint32_t>(whole.data() + 72), whole.size() - 76);
    return std::string(peer::textOf(payloadOf(whole)));
}

std::string word(std::int64_t value) {
    char bytes[8];
    peer::storeLe(bytes, value);
    return {bytes, 8};
}

const std::string kPath = word(5) + "/a/b\0"s;

TEST(LinuxMessagesTest, ARequestIsAFrame) {
    Request request = pathRequest(kGetattr, "a/b");
    number(request, 3, 0x123456789);
    const std::string expected = "\0\0\0\0\0\0\0\0"s + "\x4D\0\0\0"s + "\x40\0\0\0"s + "\0\0\0\0"s +
                                 "\x03\0\0\0"s + "\x03\0\0\0"s + "\x01\0\0\0"s + word(0) +
                                 word(0x123456789) + std::string(24, '\0') + "\x0D\0\0\0"s + kPath;
    EXPECT_EQ(peer::textOf(request.frame), expected);
}

TEST(LinuxMessagesTest, EachRequestHasItsFieldsInTheirOrder) {
    const std::string none(40, '\0');
    EXPECT_EQ(payloadText(pathRequest(kStatfs, "")), word(2) + "/\0"s);
    EXPECT_EQ(payloadText(numberRequest(kTruncate, "a/b", 77)), kPath + word(77));
    EXPECT_EQ(payloadText(mknodRequest("a/b", 0100644, 5)), kPath + word(0100644) + word(5));
    EXPECT_EQ(payloadText(twoPathsRequest(kRename, "a/b", "c")), kPath + word(3) + "/c\0"s);
    EXPECT_EQ(payloadText(openRequest("a/b", 2)), kPath + word(48) + word(2) + none);
    EXPECT_EQ(payloadText(readRequest("a/b", 9, 4096)),
              kPath + word(48) + word(0) + none + word(4096) + word(9));
    EXPECT_EQ(payloadText(readdirRequest("a/b", 65536)),
              kPath + word(48) + word(0) + none + word(0) + word(65536));
    EXPECT_EQ(payloadText(writeRequest("a/b", 9, peer::viewOf("data"))),
              kPath + word(4) + "data" + word(48) + word(1) + none + word(9));
    EXPECT_EQ(payloadText(symlinkRequest("/sub/f", "a/b")), word(7) + "/sub/f\0"s + kPath);
}

TEST(LinuxMessagesTest, APathThatNoRequestCanCarryIsRefusedHere) {
    EXPECT_EQ(errorFrom([] { pathRequest(kGetattr, "a\0b"s); }), EINVAL);
    EXPECT_EQ(errorFrom([] { pathRequest(kGetattr, std::string(4094, 'x')); }), 0);
    EXPECT_EQ(errorFrom([] { pathRequest(kGetattr, std::string(4095, 'x')); }), ENAMETOOLONG);
}

TEST(LinuxMessagesTest, AFailureBecomesTheErrnoThatItNames) {
    for (const auto& [res, error] : std::vector<std::pair<std::int64_t, int>>{
             {-2, ENOENT},
             {-13, EACCES},
             {-30, EROFS},
             {-38, ENOSYS},
             {-39, ENOTEMPTY},
             {-4096, EIO},
             {std::numeric_limits<std::int64_t>::min(), EIO}}) {
        EXPECT_EQ(errorFrom([r = res] { parseDone(replyOf(kMkdir, r)); }), error) << res;
    }
    EXPECT_STREQ(errorOf(-2).what(), "no such file or directory (ENOENT)");
}

TEST(LinuxMessagesTest, AReadlinkFailureComesOneHigherThanItIs) {
    EXPECT_EQ(errorFrom([] { parseReadlink(replyOf(kReadlink, -1)); }), ENOENT);
    EXPECT_EQ(errorFrom([] { parseReadlink(replyOf(kReadlink, -21)); }), EINVAL);
    EXPECT_EQ(errorFrom([] { parseReadlink(replyOf(kReadlink, 0)); }), EPERM);
    EXPECT_EQ(errorFrom([] {
                  parseReadlink(replyOf(kReadlink, std::numeric_limits<std::int64_t>::min()));
              }),
              EIO);
    EXPECT_EQ(parseReadlink(replyOf(kReadlink, 0, peer::viewOf("/a\0"s))), "/a");
}

TEST(LinuxMessagesTest, AnAnswerThatDoesNotFitItsRequestIsAnInputError) {
    const auto reply = [](Code code, std::int64_t res, const std::string& payload) {
        return replyOf(code, res, peer::viewOf(payload));
    };
    EXPECT_EQ(errorFrom([&] { parseDone(reply(kMkdir, 1, "")); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseDone(reply(kMkdir, 0, "x")); }), EIO);
    for (const std::size_t size : {0U, 103U, 105U}) {
        EXPECT_EQ(errorFrom([&] { parseGetattr(reply(kGetattr, 0, std::string(size, 'x'))); }),
                  EIO);
    }
    EXPECT_EQ(errorFrom([&] { parseStatfs(reply(kStatfs, 0, std::string(87, 'x'))); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseRead(reply(kRead, 3, "data"), 10); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseRead(reply(kRead, 4, "data"), 3); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseWritten(reply(kWrite, 5, ""), 4); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseWritten(reply(kWrite, 4, "x"), 4); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseReadlink(reply(kReadlink, 0, "/a")); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseReadlink(reply(kReadlink, 0, "\0"s)); }), EIO);
    EXPECT_EQ(errorFrom([&] { parseReadlink(reply(kReadlink, 0, "a\0b\0"s)); }), EIO);
    const Bytes negative = replyOf(kGetattr, 0, LinuxSide::stat(0100644, -1));
    EXPECT_EQ(errorFrom([&] { parseGetattr(negative); }), EIO);
}

TEST(LinuxMessagesTest, AttributesComeWithWholeSecondsThatNanosecondsCanSay) {
    Bytes record = LinuxSide::stat(0120777, 12);
    peer::storeLe(record.data() + 88, std::int64_t{1700000000});
    peer::storeLe(record.data() + 96, std::numeric_limits<std::int64_t>::max());
    const peer::Attributes attributes = parseGetattr(replyOf(kGetattr, 0, record));
    EXPECT_TRUE(attributes.isLink());
    EXPECT_EQ(attributes.size, 12);
    EXPECT_EQ(attributes.modified, 1700000000000000000);
    EXPECT_EQ(attributes.changed, 9223372036000000000);
}

TEST(LinuxMessagesTest, AVolumeCountsInUnitsOfTheFragment) {
    Bytes record;
    for (const unsigned value : {4096U, 4096U, 100U, 50U, 40U, 10U, 5U, 5U, 0U, 1U, 255U}) {
        peer::appendLe(record, std::uint64_t{value});
    }
    const peer::Volume volume = parseStatfs(replyOf(kStatfs, 0, record));
    EXPECT_EQ(volume.blockSize, 4096U);
    EXPECT_EQ(volume.blocks, 100U);
    EXPECT_EQ(volume.availableBlocks, 40U);
    EXPECT_TRUE(volume.readOnly);
}

TEST(LinuxMessagesTest, ABlockGivesItsEntriesButTheFolderAndItsParent) {
    const Bytes reply = replyOf(kReaddir, 0, LinuxSide::block({".", "one", "..", "two"}));
    const Block block = parseReaddir(reply);
    ASSERT_EQ(block.entries.size(), 2U);
    EXPECT_EQ(block.entries[1].name, "two");
    EXPECT_EQ(block.entries[1].attributes.mode, 0100644U);
    EXPECT_TRUE(block.present);
    EXPECT_FALSE(parseReaddir(replyOf(kReaddir, 0)).present);
}

TEST(LinuxMessagesTest, ABlockThatDoesNotAddUpIsAnInputError) {
    const Bytes good = LinuxSide::block({"one", "two"});
    for (std::size_t size = 1; size < good.size(); ++size) {
        const Bytes cut = replyOf(kReaddir, 0, View(good).first(size));
        EXPECT_EQ(errorFrom([&] { parseReaddir(cut); }), EIO) << size;
    }
    for (const std::size_t at : {std::size_t{0}, std::size_t{8}, std::size_t{20}}) {
        for (const std::int64_t value :
             {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, std::int64_t{1} << 31,
              std::int64_t{1} << 32, std::numeric_limits<std::int64_t>::max()}) {
            Bytes bad = good;
            peer::storeLe(bad.data() + at, value);
            EXPECT_EQ(errorFrom([&] { parseReaddir(replyOf(kReaddir, 0, bad)); }), EIO)
                << at << " " << value;
        }
    }
    for (const std::string& name : {""s, "a/b"s, "a\0b"s}) {
        const Bytes bad = replyOf(kReaddir, 0, LinuxSide::block({name}));
        EXPECT_EQ(errorFrom([&] { parseReaddir(bad); }), EIO);
    }
}

TEST(LinuxMessagesTest, ABlockIsWholeIfAnyOtherEntryWouldHaveFitted) {
    EXPECT_TRUE(isWhole(65536 - 129 - 1023, 65536));
    EXPECT_FALSE(isWhole(65536 - 129 - 1023 + 1, 65536));
    EXPECT_FALSE(isWhole(65536 + 24, 65536));
}

TEST(LinuxMessagesTest, AnyBytesAreTracedOrTakenApartWithoutHarm) {
    std::mt19937 random(7);
    Tracer tracer;
    int lines = 0;
    for (int i = 0; i < 10000; ++i) {
        Bytes frame;
        const std::size_t size = random() % 300;
        for (std::size_t at = 0; at < size; ++at) frame.push_back(static_cast<char>(random() % 7));
        if (size >= 76 && i % 4 != 0) {  // let most of them get past the head
            std::fill(frame.begin(), frame.begin() + 8, '\0');
            peer::storeLe(frame.data() + 8, static_cast<std::uint32_t>(size - 12));
            peer::storeLe(frame.data() + 24, i % 2 == 0 ? 1 : 3);
            peer::storeLe(frame.data() + 28, static_cast<std::uint32_t>(random() % 46));
            peer::storeLe(frame.data() + 72, static_cast<std::uint32_t>(size - 76));
        }
        const auto direction =
            i % 3 == 0 ? peer::Direction::kToDrives : peer::Direction::kFromDrives;
        if (!tracer.line(direction, frame).empty()) ++lines;
    }
    EXPECT_EQ(lines, 10000);
}

TEST(LinuxMessagesTest, ATracedMessageIsOneLine) {
    Tracer tracer;
    Request request = readRequest("a\nb", 7, 4096);
    number(request, 1, 600);
    EXPECT_EQ(tracer.line(peer::Direction::kToDrives, request.frame),
              "> read map 1 idx 600: '/a\\nb', offset 7, length 4096 (161 bytes)");
    EXPECT_EQ(tracer.line(peer::Direction::kFromDrives, replyOf(kGetattr, -2)),
              "< getattr map 1 idx 600: res -2 no such file or directory (ENOENT) (76 bytes)");
}

}  // namespace

}  // namespace peer::linux
