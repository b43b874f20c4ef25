// Requests as bytes, and results and announcements of a side that cannot be trusted.
#include "peer/windows/Messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "peer/RawSide.h"
#include "peer/Text.h"
#include "peer/windows/Policy.h"
#include "peer/windows/Status.h"
#include "peer/windows/Tracer.h"

namespace peer::windows {

namespace {

using namespace std::string_literals;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string text(const Bytes& bytes) {
    return std::string(peer::textOf(bytes));
}

Bytes resultOf(std::int32_t status, std::uint32_t count, View data = {}) {
    const Bytes request = closeRequest(0, 0);
    return FakeDrives::result(request, FakeDrives::payload(status, count, data));
}

template <typename Parse>
std::string problem(Parse parse) {
    try {
        parse();
    } catch (const peer::BadMessage& bad) {
        return bad.what();
    }
    return "(none)";
}

Bytes entry(const std::string& name) {
    Bytes bytes;
    ObjectInfo{}.appendTo(bytes);
    bytes.append(30, '\0');
    const Bytes wide = peer::utf16FromUtf8(name).value();
    peer::appendLe(bytes, static_cast<std::uint16_t>(wide.size() + 2));
    peer::appendLe(bytes, static_cast<std::uint16_t>(wide.size()));
    peer::append(bytes, wide);
    bytes.append(2, '\0');
    return bytes;
}

Bytes listingOf(const std::vector<Bytes>& entries, std::int32_t status, std::uint32_t count) {
    Bytes all;
    for (const Bytes& one : entries) peer::append(all, one);
    Bytes payload;
    peer::appendLe(payload, status);
    peer::appendLe(payload, static_cast<std::uint32_t>(all.size()));
    peer::appendLe(payload, count);
    peer::append(payload, all);
    return FakeDrives::result(closeRequest(0, 0), payload);
}

TEST(RequestTest, PathsAreWideAndHaveBackslashes) {
    EXPECT_EQ(text(wirePath("a/b")), "\\\0a\0\\\0b\0"s);
    EXPECT_EQ(text(wirePath("/a//./b/")), "\\\0a\0\\\0b\0"s);
    EXPECT_EQ(text(wirePath("")), "");
}

TEST(RequestTest, PathsThatTheDialectCannotSayAreRefused) {
    const std::pair<std::string, int> paths[] = {
        {"a\\b"s, EINVAL},
        {"../a"s, EINVAL},
        {"a/.."s, EINVAL},
        {"a\0b"s, EINVAL},
        {"\xFF"s, EILSEQ},
        {std::string(256, 'x'), ENAMETOOLONG},
        {"\xF0\x9F\x98\x80" + std::string(254, 'x'), ENAMETOOLONG},  // a pair counts twice
        {std::string(250, 'a') + "/" + std::string(250, 'b') + "/" + std::string(250, 'c') + "/" +
             std::string(250, 'd'),
         ENAMETOOLONG}};
    for (const auto& [path, error] : paths) {
        try {
            wirePath(path);
            ADD_FAILURE() << path;
        } catch (const peer::RemoteError& refused) {
            EXPECT_EQ(refused.error(), error) << path;
        }
    }
    EXPECT_EQ(wirePath(std::string(255, 'x')).size(), 512U);
}

TEST(RequestTest, ACreateCarriesPathAndBlock) {
    const Bytes request = createRequest(3, wirePath("a"), 0x1100, 0x81A4, 5);

    ASSERT_EQ(request.size(), 12U + 2 + 4 + 128);
    EXPECT_EQ(text(request).substr(0, 18), "\x01\0\x03\0\0\0\0\0\x86\0\0\0\x04\0\\\0a\0"s);
    EXPECT_EQ(peer::loadLe<std::uint64_t>(&request[18]), ~std::uint64_t{0});
    EXPECT_EQ(peer::loadLe<std::uint32_t>(&request[18 + 12]), 0x1100U);
    EXPECT_EQ(peer::loadLe<std::int64_t>(&request[18 + 16]), 5);
    EXPECT_EQ(peer::loadLe<std::uint32_t>(&request[18 + 16 + 48]), 0x81A4U);
}

TEST(RequestTest, AReadHasItsFieldsInPlace) {
    const Bytes request = readRequest(1, 7, 0x100000000, 4096);
    EXPECT_EQ(text(request),
              "\x03\0\x01\0\0\0\0\0\x14\0\0\0\x07\0\0\0\0\0\0\0\0\0\0\0\x01\0\0\0\0\x10\0\0"s);
}

TEST(RequestTest, AWriteHasItsDataAtOffset32) {
    const Bytes request = writeRequest(1, 7, 9, peer::viewOf("data"));
    EXPECT_EQ(text(request).substr(28), "\x04\0\0\0data"s);
}

TEST(RequestTest, AListEndsWithTheLimit) {
    const Bytes request = listRequest(0, 7, wirePath("d"), 1, 65536);
    EXPECT_EQ(text(request).substr(20), "\x04\0\\\0d\0\x01\0\0\0\0\0\0\0\0\0\x01\0"s);
}

TEST(RequestTest, ARenameHasBothPathsBeforeTheFlags) {
    const Bytes request = renameRequest(0, wirePath("a"), wirePath("b"), 5);
    EXPECT_EQ(text(request).substr(12), "\x04\0\\\0a\0\x04\0\\\0b\0\x05\0\0\0"s);
}

TEST(RequestTest, SetInfoSaysTheLengthOfItsRecord) {
    const Bytes request = setInfoRequest(0, 7, {});
    ASSERT_EQ(request.size(), 24U + 92);
    EXPECT_EQ(peer::loadLe<std::uint32_t>(&request[20]), 92U);
}

TEST(RequestTest, SetEndOfFileHasTheSizeAtOffset24) {
    const Bytes request = setEndOfFileRequest(0, 7, -2);
    ASSERT_EQ(request.size(), 32U);
    EXPECT_EQ(peer::loadLe<std::int64_t>(&request[24]), -2);
}

TEST(ResultTest, AReadMayNotCarryMoreThanWasAsked) {
    const std::string data(600, 'x');
    EXPECT_EQ(parseRead(resultOf(0, 600, peer::viewOf(data)), 600).size(), 600U);
    EXPECT_THAT(problem([&] { parseRead(resultOf(0, 600, peer::viewOf(data)), 599); }),
                HasSubstr("600 bytes, asked were 599"));
}

TEST(ResultTest, AShortReadIsClippedToWhatWasAsked) {
    const std::string data(512, 'x');
    EXPECT_EQ(parseRead(resultOf(0, 512, peer::viewOf(data)), 100).size(), 100U);
    EXPECT_EQ(parseRead(resultOf(0, 0), 100).size(), 0U);
}

TEST(ResultTest, ACountBeyondTheMessageIsRefused) {
    EXPECT_THAT(problem([] { parseRead(resultOf(0, 4096), 4096); }), HasSubstr("cut short"));
    EXPECT_NE(problem([] { parseRead(resultOf(0, 0xFFFFFFFF), 4096); }), "(none)");
    EXPECT_NE(problem([] { parseWritten(resultOf(0, 5), 4); }), "(none)");
    EXPECT_NE(problem([] { parseInfo(resultOf(0, 91)); }), "(none)");
    EXPECT_NE(problem([] { parseInfo(resultOf(0, 92)); }), "(none)");
    EXPECT_NE(problem([] { parseVolume(resultOf(0, 38)); }), "(none)");
    EXPECT_NE(problem([] { parseCreated(resultOf(0, 128)); }), "(none)");
}

TEST(ResultTest, AFailureIsThrownAsItsStatus) {
    try {
        parseStatus(resultOf(-38, 0));
        FAIL();
    } catch (const StatusError& error) {
        EXPECT_EQ(error.status(), -38);
        EXPECT_STREQ(error.what(), "permission denied (VERR_ACCESS_DENIED)");
    }
    EXPECT_EQ(describeStatus(-9999), "status -9999");
}

TEST(ResultTest, ACreateWithoutAHandleSaysWhy) {
    Created created;
    created.result = kFileNotFound;
    EXPECT_EQ(created.outcome(), kStatusFileNotFound);
    created.result = kPathNotFound;
    EXPECT_EQ(created.outcome(), kStatusPathNotFound);
    created.result = kFileExists;
    EXPECT_EQ(created.outcome(), kAlreadyExists);
    created.result = 77;
    EXPECT_EQ(created.outcome(), kGeneralFailure);
    created.handle = 5;
    EXPECT_EQ(created.outcome(), 0);
}

TEST(ResultTest, ADriveThatIsGoneAnswersACreateWithItsStatusAlone) {
    EXPECT_EQ(parseCreated(resultOf(-2, 0)).outcome(), -2);
}

TEST(ListingTest, GivesTheEntriesAndWhetherItEnded) {
    const Bytes entries[] = {entry("one"), entry("zw\u00F6lf")};
    const Listing some = parseListing(listingOf({entries[0], entries[1]}, 0, 2));
    ASSERT_EQ(some.entries.size(), 2U);
    EXPECT_EQ(some.entries[1].name, "zw\u00F6lf");
    EXPECT_FALSE(some.ended);
    EXPECT_TRUE(parseListing(listingOf({}, -201, 0)).ended);
    EXPECT_THROW(parseListing(listingOf({}, -2, 0)), StatusError);
}

TEST(ListingTest, EmptyListsMayEndBeforeTheNumberOfEntries) {
    Bytes result = resultOf(-201, 0);
    result.resize(20);
    EXPECT_TRUE(parseListing(result).ended);
}

TEST(ListingTest, ANumberOfEntriesBeyondTheBytesIsRefused) {
    EXPECT_NE(problem([] { parseListing(listingOf({entry("a")}, 0, 2)); }), "(none)");
    EXPECT_NE(problem([] { parseListing(listingOf({entry("a")}, 0, 0xFFFFFFFF)); }), "(none)");
}

TEST(ListingTest, NamesThatAreNoNamesAreRefused) {
    EXPECT_THAT(problem([] { parseListing(listingOf({entry("../x")}, 0, 1)); }),
                HasSubstr("'../x' is no name of a file"));
    EXPECT_NE(problem([] { parseListing(listingOf({entry("")}, 0, 1)); }), "(none)");
    EXPECT_NE(problem([] { parseListing(listingOf({entry("a\0b"s)}, 0, 1)); }), "(none)");
}

TEST(ListingTest, ANameLongerThanItsFieldIsRefused) {
    Bytes bad = entry("abc");
    peer::storeLe(&bad[124], std::uint16_t{10});
    EXPECT_NE(problem([&] { parseListing(listingOf({bad}, 0, 1)); }), "(none)");
    peer::storeLe(&bad[124], std::uint16_t{3});
    EXPECT_NE(problem([&] { parseListing(listingOf({bad}, 0, 1)); }), "(none)");
}

TEST(ListingTest, NamesWithNewlinesAndLoneSurrogatesSurvive) {
    const std::string odd = "a\nb\xED\xA0\x80";
    EXPECT_EQ(parseListing(listingOf({entry(odd)}, 0, 1)).entries[0].name, odd);
}

// Whatever is missing at the end, the reader stops there.
template <typename Parse>
void cutAtEveryByte(const Bytes& message, std::size_t needed, Parse parse) {
    for (std::size_t size = 0; size < message.size(); ++size) {
        const View part = View(message).first(size);
        const std::string result = problem([&] { parse(part); });
        if (size < needed) {
            EXPECT_NE(result, "(none)") << size;
        }
    }
}

TEST(CutShortTest, EveryMessageFromTheDrives) {
    cutAtEveryByte(FakeDrives::driveAdded(1, "Mac-Data"), 69, parseDriveAdded);
    cutAtEveryByte(FakeDrives::driveNamed(1, "Data"), 42, parseDriveNamed);
    cutAtEveryByte(FakeDrives::driveDeleted(1), 21, parseDriveDeleted);
    cutAtEveryByte(FakeDrives::handshake(), 15, parseHandshake);
    cutAtEveryByte(listingOf({entry("a")}, 0, 1), 24, parseListing);
    cutAtEveryByte(resultOf(0, 4, peer::viewOf("data")), 24, [](View part) { parseRead(part, 4); });
}

TEST(CutShortTest, EveryPolicy) {
    Policy policy;
    policy.compressType = "type";
    policy.mountParents = "/media";
    policy.filter = "/home";
    const Bytes message = policy.encode();
    cutAtEveryByte(message, message.size(), Policy::decode);
}

TEST(PolicyTest, HasItsFieldsInPlace) {
    Policy policy;
    policy.word = 0x5B;
    policy.rootMap = 1;
    policy.mountParents = "/media";
    policy.localTypes = "ext4";
    policy.filter = "/home";
    const Bytes message = policy.encode();

    EXPECT_EQ(peer::loadLe<std::uint16_t>(&message[0]), 521);
    EXPECT_EQ(peer::loadLe<std::uint32_t>(&message[4]), 0x5BU);
    EXPECT_EQ(peer::loadLe<std::uint32_t>(&message[20]), 1U);
    EXPECT_EQ(peer::loadLe<std::uint32_t>(&message[60]), 1U);
    EXPECT_EQ(text(message).substr(64, 10), "\x06\0\0\0/media"s);
    EXPECT_EQ(text(message).substr(74, 8), "\x04\0\0\0ext4"s);
    EXPECT_EQ(text(message).substr(94), "|\x05\0\0\0/home"s);
}

TEST(PolicyTest, ReadsBackWhatItWrote) {
    Policy policy;
    policy.compressType = "abc";
    policy.opticalTypes = "udf";
    policy.networkTypes = "nfs|cifs";
    policy.delimiter = '\x1F';
    policy.filter = "/a";
    EXPECT_EQ(Policy::decode(policy.encode()).encode(), policy.encode());
}

TEST(PolicyTest, ANegativeLengthIsRefused) {
    Bytes message = Policy().encode();
    peer::storeLe(&message[64], std::int32_t{-1});
    EXPECT_EQ(problem([&] { Policy::decode(message); }),
              "policy: the length of mount parents is negative");
}

TEST(TracerTest, SaysWhatEachMessageIs) {
    Tracer tracer;
    Bytes read = readRequest(2, 7, 10, 4096);
    read[3] = 9;
    EXPECT_EQ(tracer.line(peer::Direction::kToDrives, read),
              "> read map 2 seq 9: handle 7, offset 10, length 4096 (32 bytes)");
    const Bytes result = FakeDrives::result(read, FakeDrives::payload(0, 3, peer::viewOf("abc")));
    EXPECT_EQ(tracer.line(peer::Direction::kFromDrives, result),
              "< result seq 9 of read: status 0, count 3 (26 bytes)");
    EXPECT_EQ(tracer.line(peer::Direction::kFromDrives, FakeDrives::handshake()),
              "< handshake: version 61 (15 bytes)");
    EXPECT_THAT(tracer.line(peer::Direction::kFromDrives, FakeDrives::driveAdded(4, "Mac-a\n")),
                StartsWith("< map-add: id 4, 'Mac-a\\n', total 1000000, free 400000"));
}

TEST(TracerTest, SaysWhatIsWrongWithAMalformedMessage) {
    Tracer tracer;
    EXPECT_EQ(tracer.line(peer::Direction::kFromDrives, peer::viewOf("\x02\x02")),
              "< MALFORMED: message is cut short: map needs 1 bytes, 0 are left (2 bytes)");
    EXPECT_EQ(tracer.line(peer::Direction::kFromDrives, {}),
              "< MALFORMED: message is cut short: type needs 2 bytes, 0 are left (0 bytes)");
}

TEST(TracerTest, TakesEveryPrefixOfEveryRequest) {
    Tracer tracer;
    const Bytes path = wirePath("a");
    const Bytes requests[] = {createRequest(0, path, 0, 0),
                              writeRequest(0, 1, 2, peer::viewOf("x")),
                              listRequest(0, 1, path, 0, 9),
                              setInfoRequest(0, 1, {}),
                              setEndOfFileRequest(0, 1, 2),
                              removeRequest(0, path, 1),
                              renameRequest(0, path, path, 1),
                              mapCountRequest(),
                              Policy().encode()};
    for (const Bytes& request : requests) {
        for (std::size_t size = 0; size <= request.size(); ++size) {
            const std::string line =
                tracer.line(peer::Direction::kToDrives, View(request).first(size));
            EXPECT_EQ(line.find('\n'), std::string::npos);
            if (size == request.size()) {
                EXPECT_THAT(line, Not(HasSubstr("MALFORMED")));
            }
        }
    }
}

}  // namespace

}  // namespace peer::windows
