// The documents of the two wire formats, played against the real client: what a dump says that the
// server sends is sent, and what it says that the client sends has to come, byte by byte.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"
#include "common/Comm/WireNumbers.h"
#include "support/FakeChannel.h"
#include "support/HexDump.h"
#include "support/LogCapture.h"
#include "support/MountNamespace.h"
#include "support/WaitUntil.h"
#include "support/WireMessage.h"

// The documents' machine has this name. The library finds this function before the system's.
extern "C" [[gnu::visibility("default")]] int gethostname(char* name, size_t size) {
    constexpr char kName[] = "desk";
    if (size < sizeof kName) return -1;
    std::memcpy(name, kName, sizeof kName);
    return 0;
}

namespace {

constexpr char kParent[] = "/media";
constexpr char kPictures[] = "/media/Pictures";

constexpr char kMounted[] = "map acknowledged";

constexpr std::size_t kLinuxClassAt = 24;
constexpr std::size_t kLinuxCodeAt = 28;

std::string documentOf(const char* name) {
    std::ifstream file(std::string(ZFD_DOCS) + "/" + name);
    EXPECT_TRUE(file) << name;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void makeFile(const std::string& path, const std::string& content) {
    std::ofstream(path) << content;
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
}

// The drive that the documents speak of.
void mountDrive() {
    mountTmpfs(kParent);
    mountTmpfs(kPictures);
    makeFile(kPictures + std::string("/hello.txt"), "Hello, desktop!\n");
    std::filesystem::create_directory(kPictures + std::string("/beach"));
    ASSERT_EQ(chmod((kPictures + std::string("/beach")).c_str(), 0755), 0);
}

template <std::integral T>
T fieldOf(const HexDump& dump, std::size_t at) {
    std::vector<char> bytes;
    for (std::size_t i = at; i < at + sizeof(T) && i < dump.cells.size(); ++i) {
        bytes.push_back(dump.cells[i].value);
    }
    bytes.resize(sizeof(T));
    return loadLe<T>(bytes.data());
}

class DocsTest : public testing::Test {
protected:
    // `isWithdrawal` tells the message that says that the drive has gone.
    void play(const char* name, bool (*isWithdrawal)(const HexDump&)) {
        if (!std::filesystem::is_directory(kParent)) GTEST_SKIP() << "there is no " << kParent;
        inMountNamespace([&](const std::string&) {
            umask(022);  // the modes in the dumps are those of an ordinary session
            mountDrive();
            m_client.Init(m_channel.wholeWriter(), m_channel.metric());
            m_client.Start();
            m_client.SendHandShake();
            for (const HexDump& dump : hexDumpsOf(documentOf(name))) {
                SCOPED_TRACE(std::string(name) + ":" + std::to_string(dump.line) + " " +
                             dump.title);
                if (isWithdrawal(dump)) unmount(kPictures);
                step(dump);
                if (HasFatalFailure()) break;
            }
            m_client.Stop();
            m_client.Release();
            EXPECT_EQ(m_channel.writes().size(), m_seen) << "messages that no dump shows";
        });
    }

    void step(const HexDump& dump) {
        if (dump.sender == Sender::Server) {
            std::vector<char> message = bytesOf(dump, m_names);
            ASSERT_TRUE(m_client.PutMsg(message.data(), static_cast<int>(message.size())));
        } else if (dump.sender == Sender::Client) {
            ASSERT_TRUE(m_channel.waitForWrites(m_seen + 1)) << "nothing comes";
            ASSERT_EQ(differenceOf(dump, m_channel.writes().at(m_seen), m_names), "");
            ++m_seen;
            if (dump.title == kMounted) waitUntilServed();
        }
    }

    // The client lists a map again only after it has sent the acknowledgement.
    void waitUntilServed() {
        ASSERT_TRUE(waitUntil(
            [&] { return m_log.contains(ZLOG_LEVEL_INFO, "client handle map cmd success."); }));
    }

    LogCapture m_log;
    FakeChannel m_channel;
    ZFdClientMgr m_client;
    DumpNames m_names;
    std::size_t m_seen = 0;
};

TEST_F(DocsTest, TheWindowsDialectIsAsItsDocumentSays) {
    play("wire-windows.md", [](const HexDump& dump) {
        return dump.sender == Sender::Client && fieldOf<std::uint16_t>(dump, 0) == kMapDelete;
    });
}

TEST_F(DocsTest, TheLinuxDialectIsAsItsDocumentSays) {
    constexpr int kMapCtrl = 1;
    constexpr int kUnplug = 5;
    play("wire-linux.md", [](const HexDump& dump) {
        return dump.cells.size() == 76 && fieldOf<std::int32_t>(dump, kLinuxClassAt) == kMapCtrl &&
               fieldOf<std::int32_t>(dump, kLinuxCodeAt) == kUnplug;
    });
}

TEST_F(DocsTest, TheWindowsDocumentShowsEveryMessage) {
    std::set<int> missing = {512, 513, 514, 515, 516, 517, 518, 521, 523, 525, 526, 527, 0xCDEF};
    for (int code = 1; code < 20; ++code) {
        if (code != 7 && code != 11) missing.insert(code);
    }
    for (const HexDump& dump : hexDumpsOf(documentOf("wire-windows.md"))) {
        missing.erase(fieldOf<std::uint16_t>(dump, 0));
    }
    EXPECT_EQ(missing, std::set<int>{});
}

// As "class.code", with the sender in front.
TEST_F(DocsTest, TheLinuxDocumentShowsEveryMessage) {
    std::set<std::string> missing = {"client 1.4", "client 1.5", "server 1.6", "client 1.7",
                                     "server 1.8", "client 1.9", "server 1.1"};
    for (const int code : {1,  2,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 15, 16, 17, 18,
                           19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 30, 31, 32, 37, 44}) {
        missing.insert("server 3." + std::to_string(code));
        missing.insert("client 3." + std::to_string(code));
    }
    for (const HexDump& dump : hexDumpsOf(documentOf("wire-linux.md"))) {
        missing.erase((dump.sender == Sender::Server ? "server " : "client ") +
                      std::to_string(fieldOf<std::int32_t>(dump, kLinuxClassAt)) + "." +
                      std::to_string(fieldOf<std::int32_t>(dump, kLinuxCodeAt)));
    }
    EXPECT_EQ(missing, std::set<std::string>{});
}

// A message of the Windows dialect that a client sends says how long it is.
TEST_F(DocsTest, TheSizesOfTheDumpsAddUp) {
    for (const HexDump& dump : hexDumpsOf(documentOf("wire-windows.md"))) {
        constexpr int kCompressed = 526;  // this one speaks of the messages behind it
        if (dump.sender == Sender::Server || dump.cells.size() <= 12) continue;
        if (fieldOf<std::uint16_t>(dump, 0) == kCompressed) continue;
        EXPECT_EQ(fieldOf<std::uint32_t>(dump, 8) + 12, dump.cells.size()) << dump.line;
    }
    for (const HexDump& dump : hexDumpsOf(documentOf("wire-linux.md"))) {
        if (dump.cells.size() < 76 || fieldOf<std::uint16_t>(dump, 0) != 0) continue;
        EXPECT_EQ(fieldOf<std::uint32_t>(dump, 72) + 76, dump.cells.size()) << dump.line;
    }
}

// ---- how the dumps are read

TEST(HexDumpTest, ReadsWhoSendsWhatAndIgnoresRemarks) {
    const auto dumps = hexDumpsOf(
        "Text 00\n```dump\nserver -> client: a title\n0  0a ff  | be ad\n2  00*3\n```\n"
        "```\n0 0b\n```\n```dump\nclient -> server: other\n```\n");
    ASSERT_EQ(dumps.size(), 2U);
    EXPECT_EQ(dumps[0].sender, Sender::Server);
    EXPECT_EQ(dumps[0].title, "a title");
    EXPECT_EQ(dumps[0].line, 3);
    EXPECT_EQ(bytesOf(dumps[0], {}), (std::vector<char>{'\x0a', '\xff', 0, 0, 0}));
    EXPECT_EQ(dumps[1].sender, Sender::Client);
    EXPECT_TRUE(dumps[1].cells.empty());
}

TEST(HexDumpTest, RefusesWrongOffsetsAndWhatIsNoByte) {
    const auto read = [](const std::string& line) {
        return hexDumpsOf("```dump\nserver -> client: x\n0  00 01\n" + line + "\n```\n");
    };
    EXPECT_NO_THROW(read("2  02"));
    for (const char* line :
         {"3  02", "x  02", "2  2", "2  020", "2  xy", "2  00*", "2  00*x", ""}) {
        EXPECT_THROW(read(line), std::runtime_error) << line;
    }
    EXPECT_THROW(hexDumpsOf("```dump\nsomebody: x\n```\n"), std::runtime_error);
}

TEST(HexDumpTest, ComparesAndLearnsNames) {
    const HexDump dump =
        hexDumpsOf("```dump\nclient -> server: x\n0  05 ..*2 {file} 06\n```\n").front();
    DumpNames names;
    std::vector<char> message = {5, 9, 9, 1, 2, 3, 4, 5, 6, 7, 8, 6};
    EXPECT_EQ(differenceOf(dump, message, names), "");
    EXPECT_EQ(names["file"], (std::vector<char>{1, 2, 3, 4, 5, 6, 7, 8}));

    message[10] = 0;
    EXPECT_EQ(differenceOf(dump, message, names), "offset 10 is 00 instead of 08");
    message[0] = '\xf0';
    EXPECT_EQ(differenceOf(dump, message, names), "offset 0 is f0 instead of 05");
    message.pop_back();
    EXPECT_EQ(differenceOf(dump, message, names), "11 bytes instead of 12");
    EXPECT_THROW(bytesOf(dump, names), std::runtime_error);  // bytes are open
}

}  // namespace
