// Thousands of messages from a fixed seed, half well formed and half broken, against a real drive.
// The process lives in a root of its own that holds nothing but that drive and the mount table, so
// no path of any message reaches anything else.
//
// What is never sent, because it may end the process or the thread, and nobody promises otherwise:
// - the codes 0, 7 and 11 for a map that exists: they call through an empty slot of the handler
//   table, and std::bad_function_call ends the process. Map 255, which never exists, has them.
// - a policy message with a negative string length: the string's exception ends the process. So
//   policy messages are whole, and a message that got their code by chance gets another.
// - more than 1049600 bytes: the processing thread ends, and no later message would be handled.
// And because the test could no longer tell what it tests:
// - the Linux bit of the policy word: it leaves the dialect for good.
// - a change of the policy word or of the lists: it takes the drive away.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"
#include "ZLogger.h"
#include "support/FakeChannel.h"
#include "support/FileRequests.h"
#include "support/MountNamespace.h"
#include "support/PolicyMessage.h"
#include "support/Sanitizers.h"
#include "support/WaitUntil.h"
#include "support/WireMessage.h"

namespace {
constexpr int kMessages = kThreadSanitizer ? 3000 : 10000;
constexpr int kMaxMessage = 1049600;
constexpr int kUnknownMap = 255;
constexpr char kDrive[] = "/media/drive";

constexpr std::uint16_t kReserved = 519;
constexpr int kPolicy = 521;

bool isEmptySlot(int code) {
    return code == 0 || code == 7 || code == 11;
}

class RandomMessages {
public:
    Request next() {
        if (below(95) == 0) return policy();
        Request message = wellFormed();
        switch (below(4)) {
            case 0:
                message.resize(1 + below(message.size()));  // cut short
                break;
            case 1:
                scribble(message);
                break;
            default:
                break;
        }
        return harmless(std::move(message));
    }

    // Offers what is mounted below /media.
    static PolicyMessage drivePolicy() {
        return {.mountPath = "/media", .localFs = "tmpfs", .filterPath = ""};
    }

private:
    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(m_engine);
    }

    template <typename T>
    T any() {
        return static_cast<T>(m_engine());
    }

    // Often an end of the range, where things break.
    std::int64_t number() {
        const std::int64_t ends[] = {0, -1, 1, INT32_MAX, INT32_MIN, INT64_MAX, INT64_MIN, 1049600};
        return below(2) == 0 ? ends[below(std::size(ends))] : static_cast<std::int64_t>(m_engine());
    }

    std::int64_t handle() { return below(10) == 0 ? number() : static_cast<int>(below(60)); }
    int mapId() { return below(20) == 0 ? any<std::uint8_t>() : 0; }

    std::string path() {
        const char* const names[] = {"",    "\\",       "\\a",         "\\folder\\b", "\\FOLDER\\c",
                                     "\\*", "\\folder", "\\folder\\*", "\\\xC3\xA4",  "\\a\\b"};
        std::string result = names[below(std::size(names))];
        if (below(50) == 0) result += "\\" + std::string(below(2000), 'n');
        return result;
    }

    std::string bytes(std::size_t size) {
        std::string result(size, '\0');
        for (char& byte : result) byte = any<char>();
        return result;
    }

    Request createOne() {
        _SHFLCREATEPARMS parms{};
        parms.CreateFlags = any<std::uint32_t>();
        parms.Handle = number();
        return createRequest(path(), parms, mapId());
    }

    Request setInfoOfOne() {
        SHFLFSOBJINFO info{};
        const std::string random = bytes(sizeof info);
        std::memcpy(&info, random.data(), sizeof info);
        return setFileInfoRequest(handle(), info, mapId());
    }

    // Whole, with the word and the lists of drivePolicy().
    Request policy() {
        PolicyMessage message = drivePolicy();
        message.speed = any<std::int32_t>();
        message.endOfFileSize = static_cast<int>(below(2));
        message.ramdiskEnable = any<std::int32_t>();
        message.compressEnable = static_cast<int>(below(2));
        message.compressPolicy = any<std::int32_t>();
        message.threshold = any<std::int32_t>();
        message.sizeBound = any<std::int32_t>();
        message.compressType = bytes(below(40));
        message.statisticTime = any<std::int32_t>();
        message.logLevel = any<std::int32_t>();
        message.filterPath = bytes(below(300));
        return message.build();
    }

    Request wellFormed() {
        switch (below(19)) {
            case 0:
            case 1:
                return createOne();
            case 2:
            case 3:
            case 4:
                return closeRequest(handle(), mapId());
            case 5:
                return readRequest(handle(), number(), any<std::uint32_t>(), mapId());
            case 6:
                return readRequest(handle(), 0, static_cast<unsigned>(below(2000)), mapId());
            case 7:
                return writeRequest(handle(), static_cast<int>(below(100000)), bytes(below(3000)),
                                    mapId());
            case 8:
                return flushRequest(handle(), mapId());
            case 9:
                return listRequest(handle(), path(), any<std::int32_t>(), any<std::uint32_t>(),
                                   mapId());
            case 10:
                return queryFileRequest(handle(), mapId());
            case 11:
                return queryVolumeRequest(handle(), mapId());
            case 12:
                return setInfoOfOne();
            case 13:
                return setEndOfFileRequest(handle(), number(), mapId());
            case 14:
                return removeRequest(path(), any<std::uint32_t>(), mapId());
            case 15:
                return renameRequest(path(), path(), any<std::uint32_t>(), mapId());
            case 16:
                return wireMessage(15, mapId(), 0, bytes(60));  // locks
            case 17:
                return wireMessage(static_cast<int>(16 + below(4)), mapId(), any<std::uint8_t>(),
                                   bytes(below(40)));
            default:
                return anything();
        }
    }

    // A code that somebody listens to or any other, and bytes of no meaning.
    Request anything() {
        const int code =
            below(2) == 0 ? static_cast<int>(below(20)) : static_cast<int>(510 + below(20));
        const std::size_t size = below(100) == 0 ? kMaxMessage - 12 : below(200);
        return wireMessage(code, mapId(), any<std::uint8_t>(), bytes(size), any<std::uint32_t>());
    }

    void scribble(Request& message) {
        for (std::size_t i = below(8); i > 0; --i) {
            message[below(message.size())] = any<char>();
        }
    }

    // Takes out what the head of this file excludes, now that all the bytes are there.
    static Request harmless(Request message) {
        const int type = message.size() == 1 ? static_cast<unsigned char>(message[0])
                                             : loadLe<std::uint16_t>(message.data());
        if (type == kPolicy) storeLe<std::uint16_t>(message.data(), kReserved);
        if (isEmptySlot(type)) {
            message.resize(std::max<std::size_t>(message.size(), 12));
            message[2] = static_cast<char>(kUnknownMap);
        }
        return message;
    }

    std::mt19937_64 m_engine{20240229};
};

// Judges what goes out to the server.
class Judge {
public:
    int write(char* data, int size) {
        const bool bodyOfCompressed = data == nullptr && size == 0;
        if (bodyOfCompressed) return 0;
        if (size < 12 || size > kMaxMessage) ++m_malformed;
        const int type = loadLe<std::uint16_t>(data);
        if (type == kMapAdd) m_hasDrive = true;
        if (type == kMapDelete) ++m_deletions;
        if (type == kResult && size > 12 &&
            loadLe<std::uint32_t>(data + 8) + 12 != static_cast<std::uint32_t>(size)) {
            ++m_malformed;
        }
        if (type == kResult && static_cast<unsigned char>(data[2]) == kUnknownMap - 1 &&
            static_cast<unsigned char>(data[3]) == 0xA5) {
            m_atEnd = true;
        }
        if (type == kResult) ++m_results;
        if (type == kResult && size >= 23 && loadLe<std::int32_t>(data + 12) == 0) ++m_successes;
        return 0;
    }

    std::atomic<bool> m_hasDrive{false};
    std::atomic<bool> m_atEnd{false};
    std::atomic<int> m_malformed{0};
    std::atomic<int> m_deletions{0};
    std::atomic<int> m_results{0};
    std::atomic<int> m_successes{0};
};

void check(bool done, const char* what) {
    if (!done) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

// An open conversion keeps in memory what the system's library loads for it from its own folders.
class LoadedConversion {
public:
    LoadedConversion(const char* to, const char* from) : m_conversion(iconv_open(to, from)) {}
    ~LoadedConversion() { iconv_close(m_conversion); }
    LoadedConversion(const LoadedConversion&) = delete;
    LoadedConversion& operator=(const LoadedConversion&) = delete;

private:
    iconv_t m_conversion;
};

// From here on the process sees the drive and, unchangeable, the mount table.
void enterRootOf(const std::string& folder) {
    mountTmpfs(folder + kDrive);
    const std::string proc = folder + "/proc";
    check(mkdir(proc.c_str(), 0755) == 0, "mkdir");
    check(mount("/proc", proc.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind /proc");
    check(mount(nullptr, proc.c_str(), nullptr,
                MS_BIND | MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0,
          "make /proc read-only");
    check(chroot(folder.c_str()) == 0 && chdir("/") == 0, "chroot");
}

void putAll(ZFdClientMgr& client, Judge& judge) {
    RandomMessages messages;
    for (int i = 0; i < kMessages; ++i) {
        Request message = messages.next();
        ASSERT_TRUE(client.PutMsg(message.data(), static_cast<int>(message.size())));
    }
    auto last = wireMessage(kMapCount, kUnknownMap - 1, 0xA5);
    ASSERT_TRUE(client.PutMsg(last.data(), static_cast<int>(last.size())));
    EXPECT_TRUE(waitUntil([&] { return judge.m_atEnd.load(); }, std::chrono::seconds(100)));
}

void throwRandomMessagesAtADrive(const std::string& folder) {
    const LoadedConversion toServer("UTF-16LE", "UTF-8");
    const LoadedConversion fromServer("UTF-8", "UTF-16LE");
    enterRootOf(folder);
    ASSERT_EQ(mkdir("/media/drive/folder", 0755), 0);
    ZLogger::GetInstance()->SetSink([](const ZLogRecord&) {});
    ZLogger::GetInstance()->SetLevel(ZLOG_LEVEL_DEBUG);  // every log text is formatted

    Judge judge;
    ZFdClientMgr client;
    ASSERT_TRUE(client.Init([&](char* data, int size) { return judge.write(data, size); },
                            [](int, char*, unsigned) { return 0; }));
    client.Start();
    auto policy = RandomMessages::drivePolicy().build();
    client.PutMsg(policy.data(), static_cast<int>(policy.size()));
    ASSERT_TRUE(waitUntil([&] { return judge.m_hasDrive.load(); }));

    putAll(client, judge);

    client.Stop();
    client.Release();
    EXPECT_EQ(judge.m_malformed, 0);
    EXPECT_EQ(judge.m_deletions, 0);
    EXPECT_GT(judge.m_results, kMessages / 2);
    EXPECT_GT(judge.m_successes, kMessages / 20);  // so the others had open files to work on
    ZLogger::GetInstance()->SetSink({});
}
}  // namespace

TEST(RandomMessagesTest, TenThousandAreAnsweredOrDroppedAndTheServiceStandsUp) {
    inMountNamespace(throwRandomMessagesAtADrive);
}
