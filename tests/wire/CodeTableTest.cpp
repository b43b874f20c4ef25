// The whole table of message codes: what the channel gets for each code that a server can send, and
// for those that nobody knows.
#include <gtest/gtest.h>

#include <csignal>
#include <ostream>
#include <string>
#include <vector>

#include "RootMapFixture.h"
#include "support/WireMessage.h"

namespace {

constexpr int kNoMap = 9;
constexpr int kInvalidParameter = -2;
constexpr int kNoMoreFiles = -201;

// What the channel gets for a code.
enum class Outcome { Result, Nothing, EndOfProcess };

struct Row {
    int code;
    const char* name;
    Outcome outcome;
    int resultSize = 0;          // of a well-formed request, without the header
    bool isFileRequest = false;  // the results of these begin with a status
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.code << ' ' << row.name;
}

// The path "\f" and a name of 5 characters set the sizes of the map queries.
const std::vector<Row> kTable = {
    {0, "none", Outcome::EndOfProcess, 0, true},
    {1, "CREATE", Outcome::Result, 139, true},
    {2, "CLOSE", Outcome::Result, 12, true},
    {3, "READ", Outcome::Result, 16, true},
    {4, "WRITE", Outcome::Result, 12, true},
    {5, "FLUSH", Outcome::Result, 12, true},
    {6, "DIR_LIST", Outcome::Result, 142, true},
    {7, "none", Outcome::EndOfProcess, 0, true},
    {8, "QUERY_FILE_INFO", Outcome::Result, 103, true},
    {9, "SET_FILE_INFO", Outcome::Result, 103, true},
    {10, "QUERY_VOLUME_INFO", Outcome::Result, 49, true},
    {11, "none", Outcome::EndOfProcess, 0, true},
    {12, "SET_END_OF_FILE", Outcome::Result, 103, true},
    {13, "RENAME", Outcome::Result, 12, true},
    {14, "REMOVE", Outcome::Result, 12, true},
    {15, "LOCKS", Outcome::Result, 12, true},
    {16, "GET_MAP_NUM", Outcome::Result, 4},
    {17, "GET_MAP_NAME", Outcome::Result, 20},
    {18, "GET_MAP_FOLDER", Outcome::Result, 8},
    {19, "GET_UNMAP_FOLDER", Outcome::Result, 4},
    {515, "MAP_RSP", Outcome::Nothing},
    {516, "UNMAP_RSP", Outcome::Nothing},
    {517, "EJECT_USB", Outcome::Nothing},
    {518, "EJECT_CDROM", Outcome::Nothing},
    {519, "reserved", Outcome::Nothing},
    {520, "reserved", Outcome::Nothing},
    {521, "POLICY", Outcome::Nothing},
    {22222, "unknown", Outcome::Nothing},
};

std::vector<Row> rowsOf(Outcome outcome) {
    std::vector<Row> rows;
    for (const Row& row : kTable) {
        if (row.outcome == outcome) rows.push_back(row);
    }
    return rows;
}

class CodeTableTest : public RootMapFixture {
protected:
    // A request that the code's handler serves.
    std::vector<char> requestOf(int code) {
        m_path = m_dir.file("f", "hello");  // as new, whatever the code before did
        const std::string path = wirePath(m_path);
        const auto file = [&] { return openFile(m_path, kOpenToChange); };
        switch (code) {
            case 1:
                return createRequest(path, kOpenExisting);
            case 2:
                return closeRequest(file());
            case 3:
                return readRequest(file(), 0, 512);
            case 4:
                return writeRequest(file(), 0, "HELLO");
            case 5:
                return flushRequest(file());
            case 6:
                return listRequest(openFile(m_dir.str()), wirePath(m_path), 65536);
            case 8:
                return queryFileRequest(file());
            case 9:
                return setFileInfoRequest(file(), {});
            case 10:
                return queryVolumeRequest(file());
            case 12:
                return setEndOfFileRequest(file(), 2);
            case 13:
                return renameRequest(path, wirePath(m_dir.str("g")));
            case 14:
                return removeRequest(path);
            case 15:
                return wireMessage(15, 0, kSeq,
                                   leText(file()) + leText(std::uint64_t{0}) +
                                       leText(std::uint64_t{1}) + leText(std::uint32_t{2}));
            case 18: {
                const Request name = utf16Of("Mac r-rt");
                return wireMessage(18, 0, kSeq,
                                   leText(static_cast<std::uint16_t>(name.size())) +
                                       std::string(name.begin(), name.end()));
            }
            case 521:
                return PolicyMessage{.rootDirEnable = 1, .mountPath = ""}.build();
            default:
                return wireMessage(code, 0, kSeq, std::string(8, '\0'), 0x01020304);
        }
    }

    static constexpr int kSeq = 7;  // as the builders of the requests have it

    std::string m_path;
};

TEST_F(CodeTableTest, EveryCodeWithAHandlerIsAnsweredWithOneResultOfItsSize) {
    for (const Row& row : rowsOf(Outcome::Result)) {
        SCOPED_TRACE(testing::PrintToString(row));
        const std::vector<char> reply = exchange(requestOf(row.code));

        ASSERT_EQ(reply.size(), 12U + static_cast<unsigned>(row.resultSize));
        EXPECT_EQ(loadLe<std::uint8_t>(reply.data() + 2), 0);  // the map
        EXPECT_EQ(loadLe<std::uint8_t>(reply.data() + 3), kSeq);
        EXPECT_EQ(loadLe<std::uint32_t>(reply.data() + 4), 0U);
        EXPECT_EQ(loadLe<std::int32_t>(reply.data() + 8), row.resultSize);
        if (row.isFileRequest) {
            const bool endsAListing = row.code == 6;
            EXPECT_EQ(statusOf(reply), endsAListing ? kNoMoreFiles : 0);
        }
        EXPECT_EQ(m_channel.writes().size(), 1U);
    }
}

TEST_F(CodeTableTest, ANoticePutsNothingOnTheChannel) {
    for (const Row& row : rowsOf(Outcome::Nothing)) {
        SCOPED_TRACE(testing::PrintToString(row));
        m_channel.clear();
        put(requestOf(row.code));
        put(wireMessage(16, 0, kSeq));  // its answer shows that the notice has been handled

        EXPECT_TRUE(m_channel.waitForWrites(1));
        EXPECT_EQ(m_channel.onlyWrite().size(), 16U);
    }
}

TEST_F(CodeTableTest, CodesOutsideTheTableAreSilent) {
    std::vector<bool> isKnown(0x10000);
    for (const Row& row : kTable) isKnown[static_cast<std::size_t>(row.code)] = true;
    m_channel.clear();
    constexpr int kNear = 2048;  // all codes around the table, and some of those far from it
    for (int code = 0; code < 0x10000; code += code < kNear ? 1 : 97) {
        if (!isKnown[static_cast<std::size_t>(code)]) put(wireMessage(code));
    }
    put(wireMessage(16, 0, kSeq));

    EXPECT_TRUE(m_channel.waitForWrites(1));
    EXPECT_EQ(m_channel.onlyWrite().size(), 16U);
}

TEST_F(CodeTableTest, EveryFileRequestForAnUnknownMapIsAnInvalidParameter) {
    for (const Row& row : kTable) {
        if (!row.isFileRequest) continue;
        const std::vector<char> reply =
            exchange(wireMessage(row.code, kNoMap, kSeq, std::string(8, '\1') + "xyz"));

        ASSERT_EQ(reply.size(), 23U) << row.code;
        EXPECT_EQ(reply, wireMessage(kResult, kNoMap, kSeq,
                                     leText(std::int32_t{kInvalidParameter}) +
                                         leText(std::uint32_t{0}) + "xyz"))
            << row.code;
    }
}

// A code without a handler, for a map that exists, is the end of the host's process.
class DyingClient : public RootMapFixture {
public:
    void TestBody() override {}
    void die(int code) {
        put(wireMessage(code));
        m_channel.waitFor([](const auto&) { return false; });
    }
};

TEST(CodeTableDeathTest, AnEmptyCodeEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const Row& row : rowsOf(Outcome::EndOfProcess)) {
        EXPECT_EXIT(DyingClient().die(row.code), testing::KilledBySignal(SIGABRT),
                    "bad_function_call")
            << row.code;
    }
}

}  // namespace
