// Listings of directories and of single objects.
#include "linux/comm/Opreator/DirList.h"

#include <sys/stat.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <set>

#include "common/Comm/WireNumbers.h"
#include "linux/comm/Funcdef.h"
#include "linux/comm/Opreator/DirOperate.h"
#include "linux/comm/Opreator/PathResolve.h"
#include "support/HandlerFixture.h"
#include "support/MountNamespace.h"
#include "support/PrivateRoot.h"

namespace {

constexpr int kNoMoreFiles = -201;
constexpr int kLarge = 0x100000;

class DirListTest : public HandlerFixture {
protected:
    using Entries = std::vector<ListedEntry>;

    // The entries of one reply; the status goes to m_status.
    Entries list(std::int64_t handle, std::string_view name = "\\*", std::int32_t limit = kLarge,
                 std::uint32_t flags = 0) {
        m_reply = call(ZrsfDirList, listRequest(handle, name, limit, flags));
        EXPECT_GE(m_reply.size(), 24U);
        if (m_reply.size() < 24) return {};
        m_status = statusOf(m_reply);
        EXPECT_EQ(m_reply.size(), 12U + 12U + cbBufferOf(m_reply));
        return entriesOf(m_reply);
    }

    // All entries of a listing, however many requests it takes.
    Entries listAll(std::int64_t handle, std::string_view name, std::int32_t limit) {
        Entries all;
        m_status = 0;
        m_requests = 0;
        while (m_status == 0 && m_requests < 100000) {
            for (ListedEntry& entry : list(handle, name, limit)) all.push_back(std::move(entry));
            ++m_requests;
        }
        EXPECT_EQ(m_status, kNoMoreFiles);
        return all;
    }

    static const ListedEntry* find(const Entries& entries, std::string_view name) {
        const auto found = std::ranges::find_if(
            entries, [&](const ListedEntry& entry) { return entry.isNamed(name); });
        return found == entries.end() ? nullptr : &*found;
    }

    // A reply whose size goes by the limit, as the dispatcher sees it.
    int resultSizeOf(const Request& request) {
        std::memset(m_buffer.data(), 0, m_buffer.size());
        std::ranges::copy(request, m_buffer.begin());
        char* buffer = m_buffer.data();
        int resultSize = 0;
        ZrsfDirList(buffer, static_cast<int>(request.size()), &resultSize, &m_map);
        return resultSize;
    }

    std::vector<char> m_reply;
    int m_status = 0;
    int m_requests = 0;
};

TEST_F(DirListTest, ListsAnEmptyFolderInOneReply) {
    m_dir.folder("zfd-d");
    const Entries entries = list(openFolder("zfd-d"), "\\zfd-d\\*");
    EXPECT_EQ(m_status, kNoMoreFiles);
    EXPECT_EQ(entries.size(), 2U);
    EXPECT_NE(find(entries, "."), nullptr);
    EXPECT_NE(find(entries, ".."), nullptr);
}

TEST_F(DirListTest, DescribesAnEntry) {
    chmod(m_dir.file("zfd-f", "hello").c_str(), 0444);
    const Entries entries = list(openFolder());
    const ListedEntry* const file = find(entries, "zfd-f");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->info.cbObject, 5);
    EXPECT_EQ(file->info.cbAllocated, 5);
    EXPECT_EQ(file->info.Attr.fMode, 0x00018124U);
    EXPECT_EQ(file->info.Attr.enmAdditional, 1);
    const ListedEntry* const folder = find(entries, ".");
    ASSERT_NE(folder, nullptr);
    EXPECT_EQ(folder->info.Attr.fMode & 0x0010F000U, 0x00104000U);
}

TEST_F(DirListTest, PutsTheNameBehindAHeadWithoutAShortName) {
    m_dir.file("zfd-f");
    list(openFolder(), "\\zfd-f");
    const char* const entry = m_reply.data() + 24;
    EXPECT_EQ(m_reply.size(), 24U + 128U + 10U);
    EXPECT_TRUE(std::all_of(entry + 56, entry + 122, [](char byte) { return byte == 0; }));
    EXPECT_EQ(loadLe<std::uint16_t>(entry + 122), 12);
    EXPECT_EQ(loadLe<std::uint16_t>(entry + 124), 10);
    EXPECT_EQ(std::string(entry + 126, 12), std::string("z\0f\0d\0-\0f\0\0\0", 12));
}

class DirListCountTest : public DirListTest, public ::testing::WithParamInterface<int> {};

TEST_P(DirListCountTest, ListsEveryEntryOnceOverAsManyRequestsAsItTakes) {
    const int count = GetParam();
    m_dir.folder("zfd-d");
    for (int i = 0; i < count; ++i) m_dir.file("zfd-d/entry " + std::to_string(i));
    m_log.clear();

    for (const int limit : {kLarge, 4096}) {
        const std::int64_t handle = openFolder("zfd-d");
        std::set<std::vector<char>> names;
        Entries all = listAll(handle, "\\zfd-d\\*", limit);
        for (const ListedEntry& entry : all) names.insert(entry.name);
        EXPECT_EQ(all.size(), static_cast<std::size_t>(count) + 2);
        EXPECT_EQ(names.size(), all.size());
        EXPECT_EQ(record(handle)->dir.SearchCount, count + 2);
        EXPECT_GE(m_requests, count / (limit == kLarge ? 500 : 30));

        EXPECT_TRUE(list(handle, "\\zfd-d\\*").empty());
        EXPECT_EQ(m_status, kNoMoreFiles);
        EXPECT_EQ(m_reply.size(), 24U);
    }
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, ""));
}
INSTANTIATE_TEST_SUITE_P(Entries, DirListCountTest, ::testing::Values(0, 1, 100, 10000));

TEST_F(DirListTest, StaysBelow64KiBWhateverTheLimit) {
    for (int i = 0; i < 1000; ++i) m_dir.file("zfd-" + std::to_string(i));
    for (const int limit : {65536, kLarge, INT_MAX}) {
        const std::int64_t handle = openFolder();
        list(handle, "\\*", limit);
        EXPECT_EQ(m_status, 0);
        EXPECT_LE(m_reply.size(), 65536U + 12U);
        EXPECT_GT(m_reply.size(), 65536U - 1024U);
    }
}

// The folder's own two entries and 214 of these take 64890 bytes, where 646 more reach the bound.
TEST_F(DirListTest, StopsWhereTheLongestEntryWouldReachTheBound) {
    for (int i = 0; i < 300; ++i) m_dir.file(std::to_string(1000 + i) + std::string(83, 'x'));
    const Entries all = listAll(openFolder(), "\\*", 4096);
    const auto expected = [&](int bound) {
        std::size_t count = 0;
        for (int used = 0; used + 646 < bound && count < all.size(); ++count) {
            used += 128 + static_cast<int>(all[count].name.size());
        }
        return count;
    };
    for (const int limit : {65535, 65536, 65537, kLarge, INT_MAX}) {
        EXPECT_EQ(list(openFolder(), "\\*", limit).size(), expected(std::min(limit, 65536)));
    }
}

TEST_F(DirListTest, GivesNoEntryForALimitOf646OrLess) {
    m_dir.file("zfd-f");
    for (const int limit : {646, 0, -1, INT_MIN}) {
        const std::int64_t handle = openFolder();
        EXPECT_TRUE(list(handle, "\\*", limit).empty()) << limit;
        EXPECT_EQ(m_status, 0);
        EXPECT_EQ(m_reply.size(), 24U);
        EXPECT_NE(record(handle)->dir.SearchHandle, nullptr);
        EXPECT_EQ(list(handle).size(), 3U);  // the stream had not been touched
    }
}

TEST_F(DirListTest, GivesOneEntryForALimitOf647) {
    m_dir.file("zfd-f");
    const std::int64_t handle = openFolder();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(list(handle, "\\*", 647).size(), 1U);
        EXPECT_EQ(m_status, 0);
    }
    EXPECT_TRUE(list(handle, "\\*", 647).empty());
    EXPECT_EQ(m_status, kNoMoreFiles);
}

TEST_F(DirListTest, ReturnsOneEntryAtATimeIfAsked) {
    m_dir.file("zfd-f");
    const std::int64_t handle = openFolder();
    std::set<std::vector<char>> names;
    for (int i = 0; i < 3; ++i) {
        const Entries entries = list(handle, "\\*", kLarge, kListReturnOne);
        ASSERT_EQ(entries.size(), 1U);
        EXPECT_EQ(m_status, 0);
        names.insert(entries[0].name);
    }
    EXPECT_EQ(names.size(), 3U);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "SHFL_LIST_RETURN_ONE, path: " + m_dir.str() + "/"), 3);
    EXPECT_EQ(m_log.count(ZLOG_LEVEL_INFO, "search continue.  searchHandle: 0"), 2);
    list(handle, "\\*", kLarge, kListReturnOne);
    EXPECT_EQ(m_status, kNoMoreFiles);
}

TEST_F(DirListTest, ReadsOnInItsStreamWithTheNameOfTheCurrentRequest) {
    m_dir.file("zfd-d/one");
    m_dir.folder("zfd-d");
    m_dir.file("zfd-d/one");
    m_dir.folder("zfd-e");
    const std::int64_t handle = openFolder("zfd-d");
    EXPECT_EQ(list(handle, "\\zfd-d\\*", 646).size(), 0U);
    const Entries entries = list(handle, "\\zfd-e\\*");
    EXPECT_EQ(entries.size(), 2U);  // "." and ".." are in both, "one" is not
    EXPECT_EQ(find(entries, "one"), nullptr);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "rc: -102"));
}

TEST_F(DirListTest, ANewStreamBeginsANewListing) {
    _ZRSFHANDLE handle{};
    handle.dir.SearchEnd = 1;
    handle.dir.SearchCount = 5;
    const std::string path = m_dir.str() + "/";
    int size = 646;  // room for no entry
    char buffer[64] = {};
    EXPECT_EQ(zrsfDirList(path.c_str(), static_cast<int>(path.size()) + 1, &size, buffer, &handle,
                          0, &m_map),
              0);
    EXPECT_EQ(handle.dir.SearchEnd, 0);
    EXPECT_EQ(handle.dir.SearchCount, 0);
    closedir(handle.dir.SearchHandle);
}

TEST_F(DirListTest, LooksForTheLetterCaseAlsoWhereTheListingHasEnded) {
    const std::int64_t handle = openFolder();
    record(handle)->dir.SearchEnd = 1;
    EXPECT_TRUE(list(handle).empty());
    EXPECT_EQ(m_status, kNoMoreFiles);
    const std::string folder = m_dir.str();
    const auto length = [](const std::string& text) { return std::to_string(text.size()); };
    EXPECT_EQ(
        m_log.lines(),
        (std::vector<LogLine>{
            {ZLOG_LEVEL_WARNING, "length: " + length(folder + "/") + ", pszPath: " + folder + "/"},
            {ZLOG_LEVEL_WARNING, "length: " + length(folder) + ", mapPath: " + folder}}));
}

TEST_F(DirListTest, AnswersAFolderThatCannotBeOpenedWithAsManyBytesAsTheLimitSays) {
    const std::int64_t handle = openFolder();
    const Request request = listRequest(handle, "\\zfd-no\\*", 100);
    const std::vector<char> reply = call(ZrsfDirList, request);
    ASSERT_EQ(reply.size(), 12U + 112U);
    EXPECT_EQ(statusOf(reply), -2);
    EXPECT_EQ(cbBufferOf(reply), 0U);
    EXPECT_EQ(loadLe<std::uint32_t>(reply.data() + 20), 0U);
    EXPECT_TRUE(std::equal(request.begin() + 24, request.end(), reply.begin() + 24));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pSearchTmp == NULL, pPath: " + m_dir.str("zfd-no/")));
    EXPECT_EQ(record(handle)->dir.SearchEnd, 0);
    EXPECT_EQ(record(handle)->dir.SearchHandle, nullptr);
}

TEST_F(DirListTest, CutsTheReplyForAFolderThatCannotBeOpenedToTheWorkBuffer) {
    const std::int64_t handle = openFolder();
    constexpr int kMost = MAX_CMD_BUFFER - 12;
    const auto sizeFor = [&](int limit) {
        return resultSizeOf(listRequest(handle, "\\zfd-no\\*", limit));
    };
    EXPECT_EQ(sizeFor(kMost - 12), kMost);
    EXPECT_EQ(sizeFor(kMost - 11), kMost);
    EXPECT_EQ(sizeFor(INT_MAX), kMost);
    EXPECT_EQ(sizeFor(0), 12);
    EXPECT_EQ(sizeFor(-11), 1);
    EXPECT_LT(sizeFor(-12), 1);  // sends nothing
    EXPECT_LT(sizeFor(-1000), 1);
    EXPECT_LT(sizeFor(INT_MIN), 1);
}

TEST_F(DirListTest, LooksUpOneObject) {
    m_dir.file("zfd-f", "hello");
    const std::int64_t handle = openFolder();
    const Entries entries = list(handle, "\\zfd-f", 0);  // no limit counts here
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(m_status, kNoMoreFiles);
    EXPECT_TRUE(entries[0].isNamed("zfd-f"));
    EXPECT_EQ(entries[0].info.cbObject, 5);

    EXPECT_TRUE(list(handle, "\\zfd-f").empty());  // this mode answers once
    EXPECT_EQ(m_status, kNoMoreFiles);
    EXPECT_TRUE(list(handle).empty());
    EXPECT_EQ(m_status, kNoMoreFiles);
}

TEST_F(DirListTest, AnswersAnEmptyListForAMissingObject) {
    const std::int64_t handle = openFolder();
    EXPECT_TRUE(list(handle, "\\zfd-no").empty());
    EXPECT_EQ(m_status, kNoMoreFiles);
    const std::string path = m_dir.str("zfd-no");
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pPath " + path + ", rc: -102"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING,
                          "file path is not exit, so no more file!!!  rc: -102, path: " + path));
    EXPECT_EQ(record(handle)->dir.SearchEnd, 1);
}

TEST_F(DirListTest, AnswersTheStatusOfAnObjectThatCannotBeLookedUp) {
    m_dir.file("zfd-f");
    EXPECT_TRUE(list(openFolder(), "\\zfd-f\\x").empty());
    EXPECT_EQ(m_status, -103);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING,
                          "file list error!!!  rc: -103, path: " + m_dir.str("zfd-f/x")));
}

TEST_F(DirListTest, TakesAStarThatIsNotTheLastByteAsPartOfAName) {
    m_dir.file("zfd-*x");
    m_dir.file("zfd-yx");
    const Entries entries = list(openFolder(), "\\zfd-*x");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_TRUE(entries[0].isNamed("zfd-*x"));
    EXPECT_TRUE(list(openFolder(), "\\zfd-*z").empty());
}

TEST_F(DirListTest, CutsOnlyTheLastStar) {
    const std::int64_t handle = openFolder();
    call(ZrsfDirList, listRequest(handle, "\\*.*", 64));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pSearchTmp == NULL, pPath: " + m_dir.str("*.")));

    m_dir.folder("zfd-d*.");  // the name is put over the star, so this is not the folder's own
    const Entries entries = list(openFolder(), "\\zfd-d*.*");
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(m_status, kNoMoreFiles);
}

TEST_F(DirListTest, ListsNamesOutsideTheBasicPlaneAndTheLongestNames) {
    std::string chinese;
    for (int i = 0; i < 85; ++i) chinese += "\u4E2D";
    const std::string names[] = {"zfd \U0001F600", std::string(255, 'x'), chinese};
    for (const std::string& name : names) m_dir.file(name);
    const Entries entries = list(openFolder());
    for (const std::string& name : names) EXPECT_NE(find(entries, name), nullptr) << name;
    for (const std::string& name : names) {
        EXPECT_EQ(list(openFolder(), "\\" + name).size(), 1U) << name;
    }
}

TEST_F(DirListTest, SkipsANameThatCannotBeConverted) {
    m_dir.file("zfd-\xFF");
    m_dir.file("zfd-f");
    EXPECT_EQ(list(openFolder()).size(), 3U);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "winPathSize = -1, filter the file."));
}

TEST_F(DirListTest, SkipsALinkWithoutATarget) {
    std::filesystem::create_symlink("nowhere", m_dir.str("zfd-link"));
    EXPECT_EQ(list(openFolder()).size(), 2U);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "rc: -102"));
}

TEST_F(DirListTest, ServesAFileHandleOfAPrinterPortTooAndTellsOfIt) {
    m_map.m_mapType = kPrinterMap;
    const std::int64_t handle = openFile("zfd-f");
    EXPECT_EQ(list(handle).size(), 3U);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "dirlist use a file HANDLE"));
    EXPECT_NE(record(handle)->dir.SearchHandle, nullptr);
}

TEST_F(DirListTest, AnswersAnUnknownHandle) {
    EXPECT_TRUE(list(4711).empty());
    EXPECT_EQ(m_status, -2);
    EXPECT_EQ(m_reply.size(), 24U);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "pzrsfHandle == NULL, hFile: 4711"));
}

TEST_F(DirListTest, SendsNothingForANameOfNoBytes) {
    EXPECT_TRUE(call(ZrsfDirList, listRequest(openFolder(), "", kLarge)).empty());
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 34"));
}

TEST_F(DirListTest, SendsNothingWhenTheFolderCannotBeCopied) {
    m_map.m_clientFolder_size = 1025;
    EXPECT_TRUE(call(ZrsfDirList, listRequest(openFolder(), "\\*", kLarge)).empty());
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"));
}

TEST_F(DirListTest, RefusesANameThatCannotBeConverted) {
    Request request = listRequest(openFolder(), "ab", kLarge);
    request[24] = 0;
    request[25] = static_cast<char>(0xDC);
    const std::vector<char> reply = call(ZrsfDirList, request);
    EXPECT_EQ(reply.size(), 24U);
    EXPECT_EQ(statusOf(reply), -2);
    EXPECT_TRUE(entriesOf(reply).empty());
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "utf16LToUtf8 error!!!  name_length: 4, pName: a"));
}

TEST_F(DirListTest, LooksAtTheNameBeforeTheHandle) {
    const Request request = listRequest(4711, std::string(1100, 'x'), kLarge);
    const std::vector<char> reply = call(ZrsfDirList, request);
    EXPECT_EQ(statusOf(reply), -2);
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_ERROR, "utf16LToUtf8 error!!!  name_length: 2200"));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, "pzrsfHandle == NULL"));
}

TEST_F(DirListTest, RepairsTheLetterCaseFromTheRoot) {
    std::memset(m_map.m_clientFolder, 0, sizeof m_map.m_clientFolder);
    std::memcpy(m_map.m_clientFolder, "/.", 3);
    m_map.m_clientFolder_size = 3;
    const std::int64_t handle = openFolder();
    const std::string wire = "\\DEV\\FD\\" + std::to_string(handle) + "\\*";
    m_dir.file("zfd-f");
    const Entries entries = list(handle, wire);
    EXPECT_NE(find(entries, "zfd-f"), nullptr);
}

TEST_F(DirListTest, NamesALookedUpObjectInTheRepairedLetterCase) {
    m_dir.file("zfd-f");
    serve("/.");
    const std::int64_t handle = openFolder();
    const Entries entries = list(handle, "\\DEV\\FD\\" + std::to_string(handle) + "\\ZFD-F");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_TRUE(entries[0].isNamed("zfd-f"));
}

TEST_F(DirListTest, HidesWhatTheRootFilterHides) {
    m_dir.file("hidden");
    m_dir.file("seen");
    std::memset(m_map.m_clientFolder, 0, sizeof m_map.m_clientFolder);
    std::memcpy(m_map.m_clientFolder, "/.", 3);
    m_map.m_clientFolder_size = 3;
    m_map.m_rootFlag = 1;
    m_policy.setItaPolicy(FILE_DRIVER_REDIR);
    m_policy.setLinuxRootDirEnable(1);
    m_policy.setLinuxDirFilterPath(m_dir.str("seen").c_str());
    m_policy.setLinuxrootDir("/.");
    std::string wire = m_dir.str() + "/*";
    std::ranges::replace(wire, '/', '\\');
    m_log.clear();

    const Entries entries = list(openFolder(), wire);
    EXPECT_EQ(entries.size(), 1U);  // "." and ".." are no ancestors of it by their names
    EXPECT_NE(find(entries, "seen"), nullptr);
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_WARNING, ""));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, ""));

    m_policy.setItaPolicy(FILE_DRIVER_REDIR | FILE_DRIVER_REDIR_LINUX);
    EXPECT_EQ(list(openFolder(), wire).size(), 4U);
}

TEST_F(DirListTest, HidesTheFolderNet) {
    inMountNamespace([&](const std::string& folder) {
        for (const char* name : {"/net", "/other"}) {
            std::filesystem::create_directory(folder + name);
        }
        const PrivateRoot root(folder);
        EXPECT_TRUE(inFilterListB("/net"));
        EXPECT_TRUE(inFilterListB("/./net"));
        EXPECT_FALSE(inFilterListB("/other"));
        EXPECT_FALSE(inFilterListB("/missing"));
        EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "pPath: /./net, has the same ino with /net "));
        EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "pPath: /./net"));

        std::memset(m_map.m_clientFolder, 0, sizeof m_map.m_clientFolder);
        std::memcpy(m_map.m_clientFolder, "/.", 3);
        m_map.m_clientFolder_size = 3;
        const std::int64_t handle =
            insert(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC), "/", HANDLE_TYPE_DIR);
        const Entries entries = list(handle);
        EXPECT_NE(find(entries, "other"), nullptr);
        EXPECT_EQ(find(entries, "net"), nullptr);
    });
}

TEST_F(DirListTest, HidesAFolderOfAnotherFileSystemThatSharesTheNumberOfNet) {
    inMountNamespace([&](const std::string& folder) {
        for (const char* name : {"/net", "/other"}) mountTmpfs(folder + name);
        const PrivateRoot root(folder);
        struct stat net {};
        struct stat other {};
        ASSERT_EQ(stat("/net", &net), 0);
        ASSERT_EQ(stat("/other", &other), 0);
        ASSERT_EQ(net.st_ino, other.st_ino);
        ASSERT_NE(net.st_dev, other.st_dev);
        EXPECT_TRUE(inFilterListB("/other"));
    });
}

TEST_F(DirListTest, ShowsAFileThatSharesTheNumberOfNet) {
    inMountNamespace([&](const std::string& folder) {
        const std::ofstream net(folder + "/net");
        const PrivateRoot root(folder);
        EXPECT_FALSE(inFilterListB("/net"));
    });
}

// One entry, by a name that no directory here can hold.
class DirEntryTest : public DirListTest {
protected:
    DirEntryTest() {
        m_dir.file("zfd-f");
        const std::string path = m_dir.str() + "/";
        path.copy(m_path, sizeof m_path);
        m_pathSize = static_cast<int>(path.size()) + 1;
        m_log.clear();
    }

    int entry(std::string name) {
        m_entry.assign(kMaxEntrySize, 'u');
        return getDirEntry(m_entry.data(), m_path, m_pathSize, name.data(), m_map);
    }

    char m_path[kPathBufferSize + 1] = {};
    int m_pathSize = 0;
    std::vector<char> m_entry;
};

TEST_F(DirEntryTest, TakesANameOf255Units) {
    EXPECT_EQ(entry(std::string(248, '/') + "./zfd-f"), kMaxEntrySize);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(DirEntryTest, SkipsANameOf256Units) {
    EXPECT_EQ(entry(std::string(249, '/') + "./zfd-f"), 0);
    EXPECT_TRUE(std::all_of(m_entry.begin(), m_entry.begin() + 126,
                            [](char byte) { return byte == 'u'; }));  // no half of an entry
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"}}));
}

TEST_F(DirEntryTest, LooksForTheObjectBeforeItConvertsTheName) {
    EXPECT_EQ(entry("zfd-\xFF"), 0);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "rc: -102"));
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_ERROR, "winPathSize"));
}

TEST_F(DirEntryTest, SkipsANameWithoutRoomForItsTerminator) {
    EXPECT_EQ(entry(std::string(505, '/') + "./zfd-f"), 0);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{ZLOG_LEVEL_ERROR, "name is too long. winPathSize: 1024"}}));
}

TEST_F(DirEntryTest, SkipsANameThatTheConversionHasNoRoomFor) {
    EXPECT_EQ(entry(std::string(506, '/') + "./zfd-f"), 0);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "winPathSize = -1, filter the file."));
}

TEST_F(DirEntryTest, SkipsANameThatMakesThePathTooLong) {
    const std::size_t most = static_cast<std::size_t>(kPathBufferSize - m_pathSize);
    EXPECT_EQ(entry(std::string(most + 1, 'x')), 0);
    EXPECT_EQ(
        m_log.lines(),
        (std::vector<LogLine>{{ZLOG_LEVEL_WARNING, "nameLength: " + std::to_string(most + 1)}}));
    m_log.clear();
    EXPECT_EQ(entry(std::string(most, 'x')), 0);
    EXPECT_FALSE(m_log.contains(ZLOG_LEVEL_WARNING, "nameLength"));
}

TEST_F(DirEntryTest, RefusesToLookUpWithoutAPath) {
    char buffer[1024] = {};
    int size = 55;
    EXPECT_EQ(zrsfFileList(nullptr, 3, &size, buffer, nullptr), -2);
    EXPECT_EQ(size, 8);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "getDirEntryByPath param error."));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_ERROR, ", size: 55, pPath: (nil), pathSize: 3"));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_ERROR, "pbuffer: 0x"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "file list error!!!  rc: -2, path: "));
}

TEST_F(DirEntryTest, RefusesToLookUpAPathOfMoreThan1024Bytes) {
    char buffer[1024] = {};
    int size = 0;
    EXPECT_EQ(zrsfFileList("/x", 1025, &size, buffer, nullptr), -2);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "getDirEntryByPath param error."));
}

TEST_F(DirEntryTest, RefusesToLookUpWhatHasNoFolder) {
    char buffer[1024] = {};
    for (const char* path : {"/etc", "\\etc", "etc", ""}) {
        m_log.clear();
        int size = 0;
        EXPECT_EQ(zrsfFileList(path, 4, &size, buffer, nullptr), -2);
        EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, std::string("path error. pPath: ") + path));
    }
}

TEST_F(DirEntryTest, NamesAnObjectByWhatFollowsItsLastSlashOrBackslash) {
    m_dir.folder("c\\d");
    const std::pair<std::string, std::string> cases[] = {{m_dir.file("a\\b"), "b"},
                                                         {m_dir.file("c\\d/zfd-f"), "zfd-f"}};
    for (const auto& [path, name] : cases) {
        char buffer[1024] = {};
        int size = 0;
        const auto pathSize = static_cast<int>(path.size());
        EXPECT_EQ(zrsfFileList(path.c_str(), pathSize, &size, buffer, nullptr), kNoMoreFiles);
        const char* const entry = buffer + 8;
        const Request expected = utf16Of(name);
        ASSERT_EQ(loadLe<std::uint16_t>(entry + 124), expected.size());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), entry + 126));
    }
}

TEST_F(DirEntryTest, RefusesToLookUpANameThatCannotBeConverted) {
    char buffer[1024] = {};
    int size = 0;
    EXPECT_EQ(zrsfFileList("/x/\xFF", 4, &size, buffer, nullptr), -2);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "getDirEntryByPath: pPath: /x/\xFF"));
}

TEST_F(DirEntryTest, RefusesAListingWithoutAPath) {
    _ZRSFHANDLE handle{};
    char buffer[64] = {};
    int size = kLarge;
    EXPECT_EQ(zrsfDirList("", 0, &size, buffer, &handle, 0, &m_map), -2);
    EXPECT_EQ(zrsfDirList("/", 1025, &size, buffer, &handle, 0, &m_map), -1);
    EXPECT_EQ(size, 8);
}

TEST_F(DirListTest, SurvivesARequestCutShortAtEveryLength) {
    const std::int64_t handle = openFolder();
    for (const char* name : {"\\*", "\\zfd-no"}) {
        const Request whole = listRequest(handle, name, 4096, kListReturnOne);
        for (std::size_t size = kHeaderSize; size < whole.size(); ++size) {
            resultSizeOf(Request(whole.begin(), whole.begin() + static_cast<long>(size)));
        }
    }
}

TEST_F(DirListTest, SurvivesEveryLengthOfTheName) {
    const std::int64_t handle = openFolder();
    for (const int length : {0, 1, 2, 1023, 2047, 2048, 65535}) {
        Request request = listRequest(handle, "\\*", 4096);
        request[20] = static_cast<char>(length & 0xFF);
        request[21] = static_cast<char>(length >> 8);
        EXPECT_LE(resultSizeOf(request), MAX_CMD_BUFFER - 12) << length;
    }
}

}  // namespace
