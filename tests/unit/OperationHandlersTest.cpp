// The operation handlers of the Linux dialect, called as an operator thread calls them: on a node
// that holds the request, with a map over a folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/LinuxServer/opreator/fd_handlers.h"
#include "support/LinuxContextFixture.h"
#include "support/PolicyMessage.h"
#include "support/Sanitizers.h"

namespace {

using linuxframes::Bytes;
using linuxframes::fileInfo;
using linuxframes::infoOf;
using linuxframes::numberOf;
using linuxframes::Payload;
using linuxframes::readdirOf;
using linuxframes::readOf;
using linuxframes::twoPathsOf;
using linuxframes::writeOf;

using Handler = int (*)(FdMapInfo*, fd_cmd_item*);

const std::map<int, Handler>& handlers() {
    static const std::map<int, Handler> table = {
        {1, fd_getattr_c},   {2, fd_readlink_c},    {4, fd_mknod_c},        {5, fd_mkdir_c},
        {6, fd_unlink_c},    {7, fd_rmdir_c},       {8, fd_symlink_c},      {9, fd_rename_c},
        {10, fd_link_c},     {11, fd_chmod_c},      {12, fd_chown_c},       {13, fd_truncate_c},
        {15, fd_open_c},     {16, fd_read_c},       {17, fd_write_c},       {18, fd_statfs_c},
        {19, fd_flush_c},    {20, fd_release_c},    {21, fd_fsync_c},       {22, fd_setxattr_c},
        {23, fd_getxattr_c}, {24, fd_listxattr_c},  {25, fd_removexattr_c}, {26, fd_opendir_c},
        {27, fd_readdir_c},  {28, fd_releasedir_c}, {30, fd_init_c},        {31, fd_destroy_c},
        {32, fd_access_c},   {37, fd_utimens_c},    {44, fd_fallocate_c}};
    return table;
}

struct Reply {
    int result;
    std::int64_t res;
    Bytes payload;
    std::int32_t room;  // of the node's buffer afterwards
};

constexpr std::int64_t kOldRes = 4711;
constexpr std::int64_t kTooMuch = std::int64_t{1} << 62;

class OperationHandlersTest : public LinuxContextFixture {
protected:
    OperationHandlersTest() : m_root(m_dir.folder("map")) {
        fill();
        for (const std::string& folder : {m_dir.str(), m_root}) keepAccessTime(folder);
        m_map = addMap(1, 0, m_root);
        m_log.clear();
    }

    void fill() {
        m_dir.file("map/file", "content");
        m_dir.folder("map/sub");
        if (!std::filesystem::is_symlink(local("/link"))) {
            std::filesystem::create_symlink("file", local("/link"));
        }
    }

    // A listing may move the access time of its folder on, but not one that lies ahead.
    static void keepAccessTime(const std::string& folder) {
        const timespec times[2] = {{time(nullptr) + 3600, 0}, {0, UTIME_OMIT}};
        EXPECT_EQ(utimensat(AT_FDCWD, folder.c_str(), times, 0), 0);
    }

    std::string local(const std::string& path) const { return m_root + path; }

    Reply call(Handler handler, const Bytes& payload) {
        return callIn(m_context->m_cmd_cache, handler, payload);
    }
    Reply callIn(FdCmdCache& cache, Handler handler, const Bytes& payload) {
        fd_cmd_item* item = nullptr;
        EXPECT_TRUE(cache.get_node(&item));
        const auto size = static_cast<int>(payload.size());
        EXPECT_TRUE(ensurePayload(item, size));
        if (size > 0) std::memcpy(item->pdata, payload.data(), payload.size());
        markPayload(item, size);
        item->head.idx = 8;
        item->head.res = kOldRes;
        item->head.extsize = size;

        const int result = handler(m_map.get(), item);
        Reply reply{result, std::int64_t{item->head.res}, {}, item->pdatasize};
        EXPECT_EQ(std::int64_t{item->head.idx}, 8);
        EXPECT_GE(item->head.extsize, 0);
        EXPECT_LE(item->head.extsize, item->pdatasize);
        if (item->head.extsize > 0) {
            reply.payload.assign(item->pdata, item->pdata + item->head.extsize);
        }
        cache.put_node(item);
        EXPECT_TRUE(isClear(*item)) << "what the reply leaves for the next request";
        return reply;
    }

    // Of a huge buffer the first part: nothing comes to lie further behind.
    static bool isClear(const fd_cmd_item& item) {
        const int size = std::min(item.pdatasize, 1 << 20);
        if (size == 0) return true;
        const auto rest = static_cast<std::size_t>(size - 1);
        return item.pdata[0] == 0 && std::memcmp(item.pdata, item.pdata + 1, rest) == 0;
    }

    // The result of an operation that answers without a payload.
    std::int64_t resOf(Handler handler, const Bytes& payload) {
        const Reply reply = call(handler, payload);
        EXPECT_EQ(reply.result, reply.res);
        EXPECT_TRUE(reply.payload.empty());
        return reply.res;
    }

    void makeReadOnly() {
        m_map->setMountPolicy(PolicyMessage::kReadOnly | 0x5b);
        m_log.clear();
    }

    std::string m_root;
    FdMapInfoPtr m_map;
};

// ---- the common course

TEST_F(OperationHandlersTest, SaysWhatItParsedAndHowItFinished) {
    resOf(fd_unlink_c, Payload("/file"));

    EXPECT_TRUE(m_log.has(4, "parse data, path: /file"));
    EXPECT_TRUE(m_log.has(4, "finish!  res: 0, item res: 0, extsize: 0"));
}

TEST_F(OperationHandlersTest, EachLogsItsFieldsUnderTheNameOfItsOperation) {
    const std::map<int, std::string> names = {
        {1, "getattr"},   {2, "readlink"},    {4, "mknod"},        {5, "mkdir"},
        {6, "unlink"},    {7, "rmdir"},       {8, "symlink"},      {9, "rename"},
        {10, "link"},     {11, "chmod"},      {12, "chown"},       {13, "truncate"},
        {15, "open"},     {16, "read"},       {17, "write"},       {18, "statfs"},
        {19, "flush"},    {20, "release"},    {21, "fsync"},       {22, "setxattr"},
        {23, "getxattr"}, {24, "listxattr"},  {25, "removexattr"}, {26, "opendir"},
        {27, "readdir"},  {28, "releasedir"}, {30, "init"},        {31, "destroy"},
        {32, "access"},   {37, "utimens"},    {44, "fallocate"}};
    std::string tag;
    ZLogger::GetInstance()->SetSink([&](const ZLogRecord& record) {
        if (record.message.starts_with("parse data, path: /")) tag = record.tag;
    });

    for (const auto& [code, handler] : handlers()) {
        tag.clear();
        call(handler, linuxframes::anyPayloadOf(code));
        EXPECT_EQ(tag, names.at(code)) << code;
    }
    ZLogger::GetInstance()->SetSink([](const ZLogRecord&) {});  // the end of the test
}

TEST_F(OperationHandlersTest, TakesThePathAsItComes) {
    m_dir.file("outside", "x");

    EXPECT_EQ(resOf(fd_unlink_c, Payload("/sub/../../outside")), 0);

    EXPECT_FALSE(std::filesystem::exists(m_dir.str("outside")));
}

TEST_F(OperationHandlersTest, OnlyTheLow32BitsOfAPathLengthAreRead) {
    Bytes payload = numberOf("/file", 4);
    payload[4] = 0x7f;  // 2^32 and more

    EXPECT_EQ(resOf(fd_access_c, payload), 0);
}

TEST_F(OperationHandlersTest, APathOf4095BytesFitsAndOneMoreDoesNot) {
    std::string path;
    while (m_root.size() + path.size() + 2 <= 4095) path += "/.";
    if (m_root.size() + path.size() < 4095) path += "/";
    ASSERT_EQ(m_root.size() + path.size(), 4095U);
    EXPECT_EQ(call(fd_getattr_c, Payload(path)).res, 0);
    m_log.clear();

    EXPECT_EQ(resOf(fd_getattr_c, Payload(path + "/")), -11);

    EXPECT_TRUE(m_log.has(2, "sprintf_s failed!!!."));
    EXPECT_TRUE(m_log.has(4, "finish!  res: -11, item res: -11, extsize: 0"));
}

TEST_F(OperationHandlersTest, ATooLongPathComesBeforeNotSupported) {
    const std::string path = "/" + std::string(4096, 'x');
    for (const auto& [handler, payload] : std::vector<std::pair<Handler, Bytes>>{
             {fd_chown_c, Payload(path).number(0).number(0)},
             {fd_listxattr_c, numberOf(path, 10)},
             {fd_getxattr_c, Payload(path).text("user.a").number(10)},
             {fd_setxattr_c, Payload(path).text("user.a").number(0).number(0)},
             {fd_removexattr_c, Payload(path).text("user.a")},
             {fd_utimens_c, Payload(path).number(0).number(0).number(0).number(0).number(0)},
             {fd_fallocate_c, Payload(path).info(fileInfo()).number(0).number(0).number(0)}}) {
        EXPECT_EQ(resOf(handler, payload), -11);
    }
}

TEST_F(OperationHandlersTest, EachFormatFailureOfTwoPathsIsSaid) {
    const std::string longPath = "/" + std::string(4096, 'x');
    for (const Handler handler : {fd_symlink_c, fd_rename_c, fd_link_c}) {
        m_log.clear();
        EXPECT_EQ(resOf(handler, twoPathsOf("/file", longPath)), -11);
        EXPECT_EQ(m_log.count(2, "sprintf_s failed!!!."), 1);
        EXPECT_EQ(resOf(handler, twoPathsOf(longPath, "/file")), -11);
        EXPECT_EQ(m_log.count(2, "sprintf_s failed!!!."), 2);
    }
    EXPECT_EQ(readFile(local("/file")), "content");
}

TEST_F(OperationHandlersTest, WithoutAPathBufferItIsTryAgain) {
    m_context->m_cmd_cache.set_path_size(0);
    for (const auto& [code, handler] : handlers()) {
        if (code == linuxframes::kInit || code == linuxframes::kDestroy) continue;
        m_log.clear();
        EXPECT_EQ(resOf(handler, linuxframes::anyPayloadOf(code)), -11) << code;
        EXPECT_EQ(m_log.count(2, "get cache buf node failure."), 1) << code;
    }
    EXPECT_EQ(readFile(local("/file")), "content");
}

TEST_F(OperationHandlersTest, WithoutASecondPathBufferTheFirstIsGivenBack) {
    const Bytes payload = twoPathsOf("/file", "/second");
    fd_buf_node only{};
    ASSERT_TRUE(m_context->m_cmd_cache.get_path_buf(&only));
    m_context->m_cmd_cache.put_path_buf(only);
    m_context->m_cmd_cache.set_path_size(0);  // so there is that one and no other
    for (const Handler handler : {fd_symlink_c, fd_rename_c, fd_link_c}) {
        m_log.clear();
        EXPECT_EQ(resOf(handler, payload), -11);
        EXPECT_EQ(m_log.count(2, "get cache buf node failure."), 1);
    }
    EXPECT_EQ(call(fd_getattr_c, Payload("/file")).res, 0);
    EXPECT_EQ(readFile(local("/file")), "content");
}

TEST_F(OperationHandlersTest, InitAndDestroyNeedNoPathBuffer) {
    m_context->m_cmd_cache.set_path_size(0);

    EXPECT_EQ(call(fd_init_c, linuxframes::anyPayloadOf(30)).res, kOldRes);
    EXPECT_EQ(call(fd_destroy_c, linuxframes::anyPayloadOf(31)).res, kOldRes);
}

TEST_F(OperationHandlersTest, ReturnsEveryPathBuffer) {
    for (const auto& [code, handler] : handlers()) call(handler, linuxframes::anyPayloadOf(code));
    m_log.clear();

    for (const auto& [code, handler] : handlers()) call(handler, linuxframes::anyPayloadOf(code));

    EXPECT_FALSE(m_log.contains(3, "cmd cache create path buf node."));
    EXPECT_FALSE(m_log.contains(3, "cmd cache create node."));
}

// ---- bad input

TEST_F(OperationHandlersTest, FieldsBeyondTheNodesBufferAreInvalid) {
    m_context->m_cmd_cache.set_node_size(0);  // the buffer is as large as the payload
    for (const auto& [code, handler] : handlers()) {
        const Bytes whole = linuxframes::anyPayloadOf(code);
        const std::size_t needed = code == linuxframes::kInit ? 18 : whole.size();
        for (std::size_t size = 0; size < needed; ++size) {
            // A cache of its own for each: a pooled node would be larger.
            FdCmdCache cache;
            cache.set_node_size(0);
            fd_cmd_item* item = nullptr;
            cache.get_node(&item);
            ASSERT_TRUE(ensurePayload(item, static_cast<int>(size)));
            if (size > 0) std::memcpy(item->pdata, whole.data(), size);
            markPayload(item, static_cast<int>(size));
            item->head.extsize = static_cast<std::int32_t>(size);

            handler(m_map.get(), item);

            EXPECT_EQ(std::int64_t{item->head.res}, -22) << code << ", cut to " << size;
            EXPECT_EQ(item->head.extsize, 0) << code << ", cut to " << size;
            cache.put_node(item);
        }
    }
    EXPECT_EQ(readFile(local("/file")), "content");
}

TEST_F(OperationHandlersTest, FieldsInsideTheBufferAndBeyondThePayloadReadAsZero) {
    for (const auto& [code, handler] : handlers()) {
        const Bytes whole = linuxframes::anyPayloadOf(code);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            call(handler, Bytes(whole.begin(), whole.begin() + static_cast<long>(size)));
            std::filesystem::create_directories(m_root);
            fill();
        }
    }
}

TEST_F(OperationHandlersTest, SurvivesEveryFieldWithEveryOddValue) {
    std::vector<std::int64_t> values = {0, 1};
    if (!kThreadSanitizer) {  // it would take buffers of gigabytes
        values.insert(values.end(), {-1, std::numeric_limits<std::int64_t>::max(),
                                     std::numeric_limits<std::int64_t>::min(), 0x7fffffff,
                                     std::int64_t{1} << 32});
    }
    for (const auto& [code, handler] : handlers()) {
        const Bytes whole = linuxframes::anyPayloadOf(code);
        for (std::size_t at = 0; at + 8 <= whole.size(); ++at) {
            for (const std::int64_t value : values) {
                Bytes payload = whole;
                const linuxframes::Bytes field = Payload().number(value);
                std::ranges::copy(field, payload.begin() + static_cast<long>(at));
                FdCmdCache fresh;  // sizes of gigabytes stay with their nodes
                callIn(fresh, handler, payload);
            }
            m_log.clear();
            std::filesystem::create_directories(m_root);
            fill();
        }
    }
}

TEST_F(OperationHandlersTest, ALengthThatIsUsedMovesWhatFollows) {
    const Bytes info = fileInfo(1);
    const auto longer = [&](Payload payload) {  // a record of 60 bytes, which ends in odd ones
        payload.number(60).raw({info.data(), info.size()});
        return payload.raw(std::string(12, '\xff'));
    };

    EXPECT_EQ(call(fd_read_c, longer(Payload("/file")).number(4).number(2)).res, 4);
    EXPECT_EQ(linuxframes::namesOf(
                  call(fd_readdir_c, longer(Payload("/")).number(0).number(4096)).payload),
              linuxframes::namesOf(call(fd_readdir_c, readdirOf("/", 4096)).payload));
    EXPECT_EQ(resOf(fd_write_c, longer(Payload("/file").number(2).raw("AB")).number(3)), 2);
    EXPECT_EQ(readFile(local("/file")), "conABnt");

    const auto name = [](Payload payload) {  // behind its terminator, what is no size
        return payload.number(15).raw({"user.a\0\xff\xff\xff\xff\xff\xff\xff\xff", 15});
    };
    EXPECT_EQ(resOf(fd_setxattr_c, name(Payload("/file")).number(1).raw("x").number(0)), -38);
    resOf(fd_getxattr_c, name(Payload("/file")).number(17));
    EXPECT_TRUE(m_log.has(4, "parse data, path: /file, name: user.a, size: 17"));
}

TEST_F(OperationHandlersTest, ALengthThatIsSkippedIsNotRead) {
    const Bytes info = fileInfo(0, 55);
    for (const std::int64_t length : {0, 1, 60, -1}) {
        const auto skipped = [&](const char* path) {
            return Payload(path).number(length).raw({info.data(), info.size()});
        };
        m_log.clear();
        EXPECT_EQ(call(fd_open_c, skipped("/file")).payload, info) << length;
        EXPECT_EQ(call(fd_opendir_c, skipped("/sub")).res, 0) << length;
        for (const Handler handler : {fd_flush_c, fd_release_c, fd_releasedir_c}) {
            EXPECT_EQ(resOf(handler, skipped("/file")), 0) << length;
        }
        EXPECT_EQ(resOf(fd_fsync_c, skipped("/file").number(7)), 0) << length;
        EXPECT_TRUE(m_log.has(4, "parse data, path: /file, isdatasync: 7")) << length;
        resOf(fd_fallocate_c, skipped("/file").number(1).number(2).number(3));
        EXPECT_TRUE(m_log.has(4, "parse data, path: /file, mode: 1, offset: 2, length: 3"));
        resOf(fd_removexattr_c, Payload("/file").number(length).raw({"user.a\0", 7}));
        EXPECT_TRUE(m_log.has(4, "parse data, path: /file, name: user.a")) << length;
    }
}

// ---- the read-only policy

TEST_F(OperationHandlersTest, AReadOnlyMapRefusesWhatChanges) {
    makeReadOnly();
    for (const int code : {6, 7, 8, 9, 10, 12, 13, 17, 22, 25, 37}) {
        m_log.clear();
        EXPECT_EQ(resOf(handlers().at(code), linuxframes::anyPayloadOf(code)), -30) << code;
        EXPECT_TRUE(m_log.has(2, "the map is readonly.  policy: 0x7b")) << code;
    }
    EXPECT_EQ(resOf(fd_unlink_c, Payload("/file")), -30);
    EXPECT_EQ(resOf(fd_truncate_c, numberOf("/file", 1)), -30);
    EXPECT_EQ(resOf(fd_write_c, writeOf("/file", "X", 0)), -30);
    EXPECT_EQ(readFile(local("/file")), "content");
}

TEST_F(OperationHandlersTest, AReadOnlyMapRefusesNewModesAndNamesThem) {
    makeReadOnly();

    EXPECT_EQ(resOf(fd_mknod_c, linuxframes::mknodOf("/new", 0100644)), -30);
    EXPECT_TRUE(m_log.has(2, "the map is readonly.  policy: 0x7b, mode: 0x81a4"));
    EXPECT_EQ(resOf(fd_mkdir_c, numberOf("/new", 0755)), -30);
    EXPECT_TRUE(m_log.has(2, "the map is readonly.  policy: 0x7b, mode: 0x1ed"));
    EXPECT_EQ(resOf(fd_chmod_c, numberOf("/file", 0600)), -30);
    EXPECT_TRUE(m_log.has(2, "the map is readonly.  policy: 0x7b, mode: 0x180"));

    EXPECT_FALSE(std::filesystem::exists(local("/new")));
}

TEST_F(OperationHandlersTest, AReadOnlyMapAllowsWhatDoesNotChange) {
    makeReadOnly();

    EXPECT_EQ(call(fd_getattr_c, Payload("/file")).res, 0);
    EXPECT_EQ(call(fd_readlink_c, linuxframes::readlinkOf("/link", 100)).res, 0);
    EXPECT_EQ(call(fd_read_c, readOf("/file", 100, 0)).res, 7);
    EXPECT_EQ(call(fd_statfs_c, Payload("/")).res, 0);
    EXPECT_EQ(call(fd_opendir_c, infoOf("/")).res, 0);
    EXPECT_FALSE(call(fd_readdir_c, readdirOf("/", 4096)).payload.empty());
    for (const int code : {19, 20, 21, 28}) {
        EXPECT_EQ(resOf(handlers().at(code), linuxframes::anyPayloadOf(code)), 0) << code;
    }
    for (const int code : {23, 24, 44}) {
        EXPECT_EQ(resOf(handlers().at(code), linuxframes::anyPayloadOf(code)), -38) << code;
    }
}

TEST_F(OperationHandlersTest, AReadOnlyMapRefusesOpeningForWriting) {
    makeReadOnly();
    const auto openWith = [this](std::uint64_t flags) {
        return call(fd_open_c, infoOf("/file", fileInfo(flags))).res;
    };

    EXPECT_EQ(openWith(0), 0);
    EXPECT_EQ(openWith(1), -30);
    EXPECT_TRUE(m_log.has(2, "the map is readonly.  policy: 0x7b, flags: 0x1"));
    EXPECT_EQ(openWith(2), -30);
    EXPECT_EQ(openWith(0x8002), -30);
    EXPECT_TRUE(m_log.has(2, "the map is readonly.  policy: 0x7b, flags: 0x8002"));
    EXPECT_EQ(openWith(3), 0);  // only 1 and 2 are refused
    EXPECT_EQ(openWith(0x8000), 0);
}

TEST_F(OperationHandlersTest, AccessWithWriteIntentIsRefusedOnAReadOnlyMap) {
    EXPECT_EQ(resOf(fd_access_c, numberOf("/", 2)), 0);
    makeReadOnly();

    for (const std::int64_t mask : {2, 3, 6, 7}) {
        EXPECT_EQ(resOf(fd_access_c, numberOf("/", mask)), -13) << mask;
        EXPECT_EQ(resOf(fd_access_c, numberOf("/nothing", mask)), -13) << mask;
    }
    EXPECT_EQ(resOf(fd_access_c, numberOf("/", 4)), 0);
    for (const LogLine& line : m_log.lines()) EXPECT_EQ(line.level, 4) << line.message;
}

TEST_F(OperationHandlersTest, AccessToTheTopIsGrantedWithoutAskingTheFileSystem) {
    std::filesystem::remove_all(m_root);

    EXPECT_EQ(resOf(fd_access_c, numberOf("/", 4)), 0);
    EXPECT_EQ(resOf(fd_access_c, numberOf("//", 4)), -ENOENT);
    EXPECT_EQ(resOf(fd_access_c, numberOf("", 4)), -ENOENT);
}

TEST_F(OperationHandlersTest, AccessAsksTheFileSystem) {
    EXPECT_EQ(resOf(fd_access_c, numberOf("/file", 0)), 0);
    EXPECT_EQ(resOf(fd_access_c, numberOf("/file", 1)), -EACCES);
    EXPECT_EQ(resOf(fd_access_c, numberOf("/nothing", 0)), -ENOENT);
}

// ---- attributes

TEST_F(OperationHandlersTest, GetattrGivesTheAttributes) {
    struct stat info {};
    ASSERT_EQ(lstat(local("/file").c_str(), &info), 0);

    const Reply reply = call(fd_getattr_c, Payload("/file"));

    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.res, 0);
    ASSERT_EQ(reply.payload.size(), 104U);
    const auto field = [&](std::size_t offset) {
        return linuxframes::wordAt(reply.payload, offset);
    };
    EXPECT_EQ(field(0), static_cast<std::int64_t>(info.st_dev));
    EXPECT_EQ(field(8), static_cast<std::int64_t>(info.st_ino));
    EXPECT_EQ(field(16), info.st_mode);
    EXPECT_EQ(field(24), 1);
    EXPECT_EQ(field(32), info.st_uid);
    EXPECT_EQ(field(40), info.st_gid);
    EXPECT_EQ(field(48), 0);
    EXPECT_EQ(field(56), 7);
    EXPECT_EQ(field(64), info.st_blksize);
    EXPECT_EQ(field(72), info.st_blocks);
    EXPECT_EQ(field(80), info.st_atime);
    EXPECT_EQ(field(88), info.st_mtime);
    EXPECT_EQ(field(96), info.st_ctime);
}

TEST_F(OperationHandlersTest, GetattrDoesNotFollowALink) {
    const Reply reply = call(fd_getattr_c, Payload("/link"));

    EXPECT_EQ(linuxframes::wordAt(reply.payload, 16) & 0xf000, 0xa000);
}

TEST_F(OperationHandlersTest, GetattrGivesTheNumberOfTheFailure) {
    EXPECT_EQ(resOf(fd_getattr_c, Payload("/nothing")), -ENOENT);
    EXPECT_EQ(resOf(fd_getattr_c, Payload("/file/x")), -ENOTDIR);
}

TEST_F(OperationHandlersTest, ARecordThatOutgrowsTheBufferReplacesItWithOneOf104Bytes) {
    m_context->m_cmd_cache.set_node_size(20);
    EXPECT_EQ(call(fd_getattr_c, Payload("/file")).room, 104);

    FdCmdCache fresh;
    fresh.set_node_size(103);  // statfs would fit into 88
    fd_cmd_item* item = nullptr;
    fresh.get_node(&item);
    const Bytes payload = Payload("/");
    std::memcpy(item->pdata, payload.data(), payload.size());
    markPayload(item, static_cast<int>(payload.size()));
    EXPECT_EQ(fd_statfs_c(m_map.get(), item), 0);
    EXPECT_EQ(item->pdatasize, 104);
    EXPECT_EQ(item->head.extsize, 88);
    fresh.put_node(item);
}

TEST_F(OperationHandlersTest, StatfsGivesTheFigures) {
    struct statvfs info {};
    ASSERT_EQ(statvfs(m_root.c_str(), &info), 0);

    const Reply reply = call(fd_statfs_c, Payload("/file"));

    EXPECT_EQ(reply.res, 0);
    ASSERT_EQ(reply.payload.size(), 88U);
    const auto field = [&](std::size_t offset) {
        return static_cast<std::uint64_t>(linuxframes::wordAt(reply.payload, offset));
    };
    EXPECT_EQ(field(0), info.f_frsize);  // both take the same value
    EXPECT_EQ(field(8), info.f_frsize);
    EXPECT_EQ(field(16), info.f_blocks);
    EXPECT_EQ(field(40), info.f_files);
    EXPECT_EQ(field(72), info.f_flag);
    EXPECT_EQ(field(80), info.f_namemax);
    EXPECT_EQ(resOf(fd_statfs_c, Payload("/nothing")), -ENOENT);
}

TEST_F(OperationHandlersTest, ReadlinkGivesTheTargetWithItsTerminator) {
    const Reply reply = call(fd_readlink_c, linuxframes::readlinkOf("/link", 4096));

    EXPECT_EQ(reply.res, 0);
    EXPECT_EQ(std::string(reply.payload.data(), reply.payload.size()), std::string("file\0", 5));
}

TEST_F(OperationHandlersTest, ReadlinkCutsATargetThatDoesNotFit) {
    const auto targetWith = [this](std::int64_t size) {
        const Bytes payload = call(fd_readlink_c, linuxframes::readlinkOf("/link", size)).payload;
        return std::string(payload.data(), payload.size());
    };

    EXPECT_EQ(targetWith(5), std::string("file\0", 5));
    EXPECT_EQ(targetWith(4), std::string("fil\0", 4));
    EXPECT_EQ(targetWith(2), std::string("f\0", 2));
}

TEST_F(OperationHandlersTest, ReadlinkAnswersAFailureOneHigherThanItIs) {
    EXPECT_EQ(resOf(fd_readlink_c, linuxframes::readlinkOf("/file", 100)), -EINVAL + 1);
    EXPECT_EQ(resOf(fd_readlink_c, linuxframes::readlinkOf("/nothing", 100)), -ENOENT + 1);
}

TEST_F(OperationHandlersTest, ReadlinkNeedsASize) {
    for (const std::int64_t size : {std::int64_t{0}, std::int64_t{-1}, -kTooMuch}) {
        m_log.clear();
        EXPECT_EQ(resOf(fd_readlink_c, linuxframes::readlinkOf("/link", size)), -11);
        EXPECT_TRUE(m_log.has(2, "get cache buf node failure."));
    }
}

TEST_F(OperationHandlersTest, AReplyThatNoMemoryHoldsIsRefused) {
    const std::string size = std::to_string(kTooMuch);

    EXPECT_EQ(resOf(fd_readlink_c, linuxframes::readlinkOf("/link", kTooMuch)), -ENOMEM);
    EXPECT_TRUE(m_log.has(2, "malloc read buffer failure. bufsize: " + size));
    EXPECT_EQ(resOf(fd_read_c, readOf("/file", kTooMuch, 0)), -ENOMEM);
    EXPECT_TRUE(m_log.has(2, "malloc read buffer failure. size: " + size));
    EXPECT_EQ(resOf(fd_readdir_c, readdirOf("/", kTooMuch)), -ENOMEM);
    EXPECT_TRUE(m_log.has(2, "fd_read_c, malloc read buffer failure. size: " + size));
    EXPECT_EQ(resOf(fd_getxattr_c, Payload("/file").text("user.a").number(kTooMuch)), -22);
    EXPECT_TRUE(m_log.has(2, "malloc value data failure.  size: " + size));
    EXPECT_EQ(resOf(fd_listxattr_c, numberOf("/file", kTooMuch)), -22);
    EXPECT_TRUE(m_log.has(1, "malloc list size failure!  size: " + size));
}

TEST_F(OperationHandlersTest, TheLargestSizeOfAllIsRefusedTheSameWay) {
    errno = 0;

    EXPECT_EQ(resOf(fd_readdir_c, readdirOf("/", std::numeric_limits<std::int64_t>::max())),
              -ENOMEM);
}

// ---- file data

TEST_F(OperationHandlersTest, ReadGivesTheBytesAndTheirCount) {
    const Reply reply = call(fd_read_c, readOf("/file", 4, 2));

    EXPECT_EQ(reply.result, 4);
    EXPECT_EQ(reply.res, 4);
    EXPECT_EQ(std::string(reply.payload.data(), reply.payload.size()), "nten");
}

TEST_F(OperationHandlersTest, AReadMayFillTheNodesBufferOrTakeANewOne) {
    std::string content(300, 'x');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i);
    m_dir.file("map/long", content);
    for (const int size : {1, 99, 100, 101, 300, 65535, 65536, 65537}) {
        m_context->m_cmd_cache.set_node_size(100);  // of a new node; a pooled one is as it is
        const Reply reply = call(fd_read_c, readOf("/long", size, 0));

        EXPECT_EQ(reply.res, std::min(size, 300));
        EXPECT_EQ(std::string(reply.payload.data(), reply.payload.size()),
                  content.substr(0, static_cast<std::size_t>(size)));
        EXPECT_GE(reply.room, size);
    }
}

TEST_F(OperationHandlersTest, AReadLargerThanTheBufferLeavesItAsLargeAsTheRead) {
    m_context->m_cmd_cache.set_node_size(100);

    EXPECT_EQ(call(fd_read_c, readOf("/file", 99, 0)).room, 100);
    EXPECT_EQ(call(fd_read_c, readOf("/file", 100, 0)).room, 100);
    EXPECT_EQ(call(fd_read_c, readOf("/file", 101, 0)).room, 101);
}

TEST_F(OperationHandlersTest, AReadAtTheEndGivesNothing) {
    EXPECT_EQ(resOf(fd_read_c, readOf("/file", 100, 7)), 0);
    EXPECT_EQ(resOf(fd_read_c, readOf("/file", 100, 1000)), 0);
    EXPECT_EQ(resOf(fd_read_c, readOf("/file", 1000000, 1000)), 0);
}

TEST_F(OperationHandlersTest, AReadOfNothingReachesTheFile) {
    EXPECT_EQ(resOf(fd_read_c, readOf("/file", 0, 0)), 0);
    EXPECT_EQ(resOf(fd_read_c, readOf("/file", -5, 0)), 0);
    EXPECT_EQ(resOf(fd_read_c, readOf("/nothing", 0, 0)), -ENOENT);
}

TEST_F(OperationHandlersTest, AReadThatFailsGivesTheNumber) {
    EXPECT_EQ(resOf(fd_read_c, readOf("/nothing", 10, 0)), -ENOENT);
    EXPECT_EQ(resOf(fd_read_c, readOf("/sub", 10, 0)), -EISDIR);
    EXPECT_EQ(resOf(fd_read_c, readOf("/file", 10, -1)), -EINVAL);
}

TEST_F(OperationHandlersTest, WriteWritesAndGivesTheCount) {
    EXPECT_EQ(resOf(fd_write_c, writeOf("/file", "ABC", 2)), 3);

    EXPECT_EQ(readFile(local("/file")), "coABCnt");
    EXPECT_TRUE(m_log.has(4, "parse data, path: /file"));
    EXPECT_TRUE(m_log.has(4, "size: 3, write_offset: 2, flags: 1"));
}

TEST_F(OperationHandlersTest, WriteMakesNoFile) {
    EXPECT_EQ(resOf(fd_write_c, writeOf("/nothing", "ABC", 0)), -ENOENT);

    EXPECT_FALSE(std::filesystem::exists(local("/nothing")));
}

TEST_F(OperationHandlersTest, WriteGoesBeyondTheEndAndMayWriteNothing) {
    EXPECT_EQ(resOf(fd_write_c, writeOf("/file", "x", 9)), 1);
    EXPECT_EQ(readFile(local("/file")), std::string("content\0\0x", 10));
    EXPECT_EQ(resOf(fd_write_c, writeOf("/file", "", 0)), 0);
    EXPECT_EQ(resOf(fd_write_c, writeOf("/file", "x", -1)), -EINVAL);
}

TEST_F(OperationHandlersTest, WriteTakesMoreThan64KiB) {
    const std::string data(200000, 'z');

    EXPECT_EQ(resOf(fd_write_c, writeOf("/file", data, 0)), 200000);

    EXPECT_EQ(readFile(local("/file")), data);
}

TEST_F(OperationHandlersTest, OpenSendsTheRecordBackUnchanged) {
    const Bytes info = fileInfo(0x8001, 55);

    const Reply reply = call(fd_open_c, infoOf("/file", info));

    EXPECT_EQ(reply.res, 0);
    EXPECT_EQ(reply.payload, info);
    EXPECT_EQ(resOf(fd_open_c, infoOf("/nothing")), -ENOENT);
    EXPECT_EQ(call(fd_open_c, infoOf("", info)).payload, info);  // the record overlaps its target
}

TEST_F(OperationHandlersTest, TruncateSetsTheSize) {
    EXPECT_EQ(resOf(fd_truncate_c, numberOf("/file", 3)), 0);
    EXPECT_EQ(readFile(local("/file")), "con");
    EXPECT_EQ(resOf(fd_truncate_c, numberOf("/file", 5)), 0);
    EXPECT_EQ(readFile(local("/file")), std::string("con\0\0", 5));
    EXPECT_EQ(resOf(fd_truncate_c, numberOf("/file", -1)), -EINVAL);
    EXPECT_EQ(resOf(fd_truncate_c, numberOf("/nothing", 3)), -ENOENT);
}

TEST_F(OperationHandlersTest, FlushFsyncAndReleaseSucceedWithoutAnAction) {
    for (const char* path : {"/file", "/nothing"}) {
        EXPECT_EQ(resOf(fd_flush_c, infoOf(path)), 0);
        EXPECT_EQ(resOf(fd_release_c, infoOf(path)), 0);
        EXPECT_EQ(resOf(fd_releasedir_c, infoOf(path)), 0);
        EXPECT_EQ(resOf(fd_fsync_c, Payload(path).info(fileInfo()).number(1)), 0);
    }
    EXPECT_TRUE(m_log.has(3, "linux client not support flush, default success"));
    EXPECT_TRUE(m_log.has(3, "linux client not support fsync, default success"));
}

// ---- names

TEST_F(OperationHandlersTest, MakesFilesAndFolders) {
    EXPECT_EQ(resOf(fd_mknod_c, linuxframes::mknodOf("/new", 0100600)), 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(local("/new")));
    EXPECT_EQ(resOf(fd_mknod_c, linuxframes::mknodOf("/new", 0100600)), -EEXIST);
    EXPECT_EQ(resOf(fd_mkdir_c, numberOf("/folder", 0700)), 0);
    EXPECT_TRUE(std::filesystem::is_directory(local("/folder")));
    EXPECT_EQ(resOf(fd_mkdir_c, numberOf("/folder", 0700)), -EEXIST);
}

TEST_F(OperationHandlersTest, RemovesFilesAndFolders) {
    EXPECT_EQ(resOf(fd_rmdir_c, Payload("/file")), -ENOTDIR);
    EXPECT_EQ(resOf(fd_unlink_c, Payload("/file")), 0);
    EXPECT_EQ(resOf(fd_unlink_c, Payload("/file")), -ENOENT);
    EXPECT_EQ(resOf(fd_rmdir_c, Payload("/sub")), 0);
    EXPECT_FALSE(std::filesystem::exists(local("/sub")));
}

TEST_F(OperationHandlersTest, RenamesBelowTheMountPath) {
    EXPECT_EQ(resOf(fd_rename_c, twoPathsOf("/file", "/sub/other")), 0);

    EXPECT_EQ(readFile(local("/sub/other")), "content");
    EXPECT_EQ(resOf(fd_rename_c, twoPathsOf("/file", "/x")), -ENOENT);
    EXPECT_TRUE(m_log.has(4, "parse data, path: /file, to: /sub/other"));
}

TEST_F(OperationHandlersTest, LinksBelowTheMountPath) {
    EXPECT_EQ(resOf(fd_link_c, twoPathsOf("/file", "/second")), 0);

    EXPECT_EQ(std::filesystem::hard_link_count(local("/second")), 2U);
    EXPECT_EQ(resOf(fd_link_c, twoPathsOf("/file", "/second")), -EEXIST);
}

TEST_F(OperationHandlersTest, ASymbolicLinkGetsTheMountPathInFrontOfItsTarget) {
    EXPECT_EQ(resOf(fd_symlink_c, twoPathsOf("/file", "/newlink")), 0);
    EXPECT_EQ(std::filesystem::read_symlink(local("/newlink")), local("/file"));

    EXPECT_EQ(resOf(fd_symlink_c, twoPathsOf("relative", "/second")), 0);
    EXPECT_EQ(std::filesystem::read_symlink(local("/second")), m_root + "relative");
}

TEST_F(OperationHandlersTest, TheLengthOfASecondPathIsNotRead) {
    Bytes payload = twoPathsOf("/file", "/second");
    payload[14] = 99;
    payload[21] = 99;

    EXPECT_EQ(resOf(fd_rename_c, payload), 0);

    EXPECT_TRUE(std::filesystem::exists(local("/second")));
}

TEST_F(OperationHandlersTest, ChmodSetsTheBits) {
    EXPECT_EQ(resOf(fd_chmod_c, numberOf("/file", 0100640)), 0);

    struct stat info {};
    stat(local("/file").c_str(), &info);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
    EXPECT_EQ(resOf(fd_chmod_c, numberOf("/nothing", 0640)), -ENOENT);
}

TEST_F(OperationHandlersTest, WhatIsNotSupportedIsSoWhateverThePath) {
    for (const char* path : {"/file", "/nothing"}) {
        EXPECT_EQ(resOf(fd_chown_c, Payload(path).number(0).number(0)), -38);
        EXPECT_EQ(
            resOf(fd_utimens_c, Payload(path).number(32).number(1).number(2).number(3).number(4)),
            -38);
        EXPECT_EQ(
            resOf(fd_fallocate_c, Payload(path).info(fileInfo()).number(0).number(0).number(10)),
            -38);
        EXPECT_EQ(resOf(fd_setxattr_c, Payload(path).text("user.a").number(1).raw("x").number(0)),
                  -38);
        EXPECT_EQ(resOf(fd_getxattr_c, Payload(path).text("user.a").number(0)), -38);
        EXPECT_EQ(resOf(fd_getxattr_c, Payload(path).text("user.a").number(100000)), -38);
        EXPECT_EQ(resOf(fd_listxattr_c, numberOf(path, 0)), -38);
        EXPECT_EQ(resOf(fd_listxattr_c, numberOf(path, 100)), -38);
        EXPECT_EQ(resOf(fd_removexattr_c, Payload(path).text("user.a")), -38);
    }
    EXPECT_TRUE(m_log.has(2, "linux client not support chown."));
    EXPECT_TRUE(m_log.has(3, "linux client not support fallocate"));
}

TEST_F(OperationHandlersTest, InitAndDestroyKeepTheResultThatCame) {
    const Reply init = call(fd_init_c, linuxframes::anyPayloadOf(30));
    EXPECT_EQ(init.result, 0);
    EXPECT_EQ(init.res, kOldRes);
    EXPECT_TRUE(init.payload.empty());
    EXPECT_TRUE(m_log.has(4, "finish!  res: 0, item res: 4711, extsize: 0"));
    m_log.clear();

    const Reply destroy = call(fd_destroy_c, Payload("/"));
    EXPECT_EQ(destroy.result, 0);
    EXPECT_EQ(destroy.res, kOldRes);
    EXPECT_TRUE(destroy.payload.empty());
    EXPECT_FALSE(m_log.contains(4, "finish!"));
}

// ---- folders

TEST_F(OperationHandlersTest, OpendirFillsTheHandleAndKeepsTheRest) {
    const Bytes info = fileInfo(0x10000, 0);

    const Bytes first = call(fd_opendir_c, infoOf("/sub", info)).payload;
    const Bytes second = call(fd_opendir_c, infoOf("/", info)).payload;

    ASSERT_EQ(first.size(), 48U);
    EXPECT_NE(linuxframes::wordAt(first, 32), 0);
    EXPECT_NE(linuxframes::wordAt(second, 32), 0);
    EXPECT_NE(linuxframes::wordAt(second, 32), linuxframes::wordAt(first, 32));
    EXPECT_TRUE(std::equal(info.begin(), info.begin() + 32, first.begin()));
    EXPECT_TRUE(std::equal(info.begin() + 40, info.end(), first.begin() + 40));
    EXPECT_EQ(resOf(fd_opendir_c, infoOf("/file")), -ENOTDIR);
    EXPECT_EQ(resOf(fd_opendir_c, infoOf("/nothing")), -ENOENT);
}

TEST_F(OperationHandlersTest, ReaddirListsEverything) {
    const Reply reply = call(fd_readdir_c, readdirOf("/", 4096));

    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.res, 0);
    EXPECT_EQ(linuxframes::namesOf(reply.payload),
              (std::vector<std::string>{".", "..", "file", "link", "sub"}));
    for (const linuxframes::DirEntry& entry : linuxframes::entriesOf(reply.payload)) {
        struct stat info {};
        ASSERT_EQ(lstat(local("/" + entry.name).c_str(), &info), 0);
        EXPECT_EQ(entry.stat[1], static_cast<std::int64_t>(info.st_ino));
        EXPECT_EQ(entry.stat[2], info.st_mode);
        EXPECT_EQ(entry.off, 0);
        EXPECT_EQ(entry.read, 0);
        EXPECT_EQ(entry.write, 0);
        EXPECT_EQ(entry.exec, entry.name == "file" || entry.name == "link" ? -1 : 0);
    }
}

TEST_F(OperationHandlersTest, ReaddirStopsAtTheAskedSizeReckoningWith129BytesAndTheName) {
    const Bytes whole = call(fd_readdir_c, readdirOf("/", 4096)).payload;
    const std::vector<linuxframes::DirEntry> all = linuxframes::entriesOf(whole);
    for (const int nodeSize : {100, 65536}) {
        FdCmdCache fresh;  // small nodes have the block delivered in a buffer of its own
        fresh.set_node_size(nodeSize);
        for (int size = 1; size <= static_cast<int>(whole.size()) + 10; ++size) {
            fd_cmd_item* item = nullptr;
            fresh.get_node(&item);
            const Bytes payload = readdirOf("/", size);
            std::memcpy(item->pdata, payload.data(), payload.size());
            markPayload(item, static_cast<int>(payload.size()));

            ASSERT_EQ(fd_readdir_c(m_map.get(), item), 0);

            const Bytes block(item->pdata, item->pdata + item->head.extsize);
            std::size_t expected = 8;
            std::vector<std::string> names;
            for (const linuxframes::DirEntry& entry : all) {
                if (expected + entry.name.size() + 129 > static_cast<std::size_t>(size)) break;
                expected += entry.name.size() + 153;
                names.push_back(entry.name);
            }
            std::ranges::sort(names);
            ASSERT_EQ(block.size(), expected) << size;
            ASSERT_EQ(linuxframes::namesOf(block), names) << size;
            fresh.put_node(item);
        }
    }
}

TEST_F(OperationHandlersTest, AnAskedSizeOf1To7StillGivesTheCount) {
    for (int size = 1; size < 8; ++size) {
        EXPECT_EQ(call(fd_readdir_c, readdirOf("/", size)).payload, Bytes(8)) << size;
    }
}

TEST_F(OperationHandlersTest, ReaddirStartsFromTheFirstEntryWhateverTheOffset) {
    const auto namesFrom = [this](std::int64_t offset) {
        return linuxframes::namesOf(call(fd_readdir_c, readdirOf("/", 4096, offset)).payload);
    };

    EXPECT_EQ(namesFrom(0).size(), 5U);
    EXPECT_EQ(namesFrom(3), namesFrom(0));
    EXPECT_EQ(namesFrom(-1), namesFrom(0));
}

TEST_F(OperationHandlersTest, ReaddirNeedsASize) {
    EXPECT_EQ(resOf(fd_readdir_c, readdirOf("/", 0)), -22);
    EXPECT_TRUE(m_log.has(1, "fd_read_c, param size is invalid. [size: 0]"));
    EXPECT_EQ(resOf(fd_readdir_c, readdirOf("/", -7)), -22);
    EXPECT_TRUE(m_log.has(1, "fd_read_c, param size is invalid. [size: -7]"));
}

TEST_F(OperationHandlersTest, AFolderThatCannotBeListedLooksEmpty) {
    for (const char* path : {"/nothing", "/file"}) {
        const Reply reply = call(fd_readdir_c, readdirOf(path, 4096));
        EXPECT_EQ(reply.res, 0);
        EXPECT_TRUE(reply.payload.empty());
    }
}

TEST_F(OperationHandlersTest, ReaddirListsAThousandEntriesOnceTheSizeIsLargeEnough) {
    for (int i = 0; i < 1000; ++i) m_dir.file("map/sub/entry" + std::to_string(i));

    const std::size_t part =
        linuxframes::entriesOf(call(fd_readdir_c, readdirOf("/sub", 4096)).payload).size();
    const std::vector<std::string> all =
        linuxframes::namesOf(call(fd_readdir_c, readdirOf("/sub", 1 << 20)).payload);

    EXPECT_LT(part, 30U);
    EXPECT_EQ(all.size(), 1002U);
}

}  // namespace
