// The requests that remove objects and give them other names. What they make of file systems that
// refuse is in linux/FailingFileSystemTest.cpp.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "linux/comm/Funcdef.h"
#include "support/HandlerFixture.h"

namespace {

constexpr std::uint32_t kRemoveFile = 0x1;
constexpr std::uint32_t kRemoveFolder = 0x2;

class ChangeFixture : public HandlerFixture {
protected:
    ChangeFixture() { m_log.clear(); }

    int answer(Handler handler, const Request& request) {
        const std::vector<char> reply = call(handler, request);
        EXPECT_EQ(reply.size(), 12U + 12U);
        if (reply.size() < 24) return 1;
        EXPECT_EQ(cbBufferOf(reply), 0U);
        return statusOf(reply);
    }

    static std::string backslashed(std::string path) {
        std::ranges::replace(path, '/', '\\');
        return path;
    }

    bool exists(const std::string& name) const {
        return std::filesystem::exists(std::filesystem::symlink_status(m_dir.path() / name));
    }
};

class RemoveTest : public ChangeFixture {
protected:
    int remove(std::string_view path, std::uint32_t flags = 0) {
        return answer(ZrsfRemove, removeRequest(path, flags));
    }
};

TEST_F(RemoveTest, RemovesAFile) {
    m_dir.file("f");
    EXPECT_EQ(remove("\\f", 0x7), 0);
    EXPECT_FALSE(exists("f"));
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{
                                 {ZLOG_LEVEL_INFO, "flag & SHFL_REMOVE_DIR: 0x2"},
                                 {ZLOG_LEVEL_INFO, "flag & SHFL_REMOVE_FILE: 0x1"},
                                 {ZLOG_LEVEL_INFO, "flag & SHFL_REMOVE_SYMLINK: 0x4"},
                                 {ZLOG_LEVEL_INFO, "remove end!!!   nameLength: 4, path: " +
                                                       m_dir.str("f") + ", flag: 0x7, rc: 0"},
                             }));
}

TEST_F(RemoveTest, LogsOnlyTheFlagsThatAreSet) {
    m_dir.file("f");
    remove("\\f", 0);
    EXPECT_EQ(m_log.lines().size(), 1U);
}

TEST_F(RemoveTest, RemovesAnEmptyFolderWhateverTheFlagsSay) {
    m_dir.folder("d");
    EXPECT_EQ(remove("\\d", kRemoveFile), 0);
    EXPECT_FALSE(exists("d"));
    m_dir.file("f");
    EXPECT_EQ(remove("\\f", kRemoveFolder), 0);
    EXPECT_FALSE(exists("f"));
}

TEST_F(RemoveTest, RemovesALinkAndNotItsTarget) {
    m_dir.file("f");
    std::filesystem::create_symlink("f", m_dir.str("link"));
    EXPECT_EQ(remove("\\link"), 0);
    EXPECT_TRUE(exists("f"));
    EXPECT_FALSE(exists("link"));
}

TEST_F(RemoveTest, RefusesAFolderThatIsNotEmpty) {
    m_dir.folder("d/inner");
    EXPECT_EQ(remove("\\d"), -125);
    const std::string path = m_dir.str("d");
    EXPECT_TRUE(
        m_log.has(ZLOG_LEVEL_ERROR, "remove error!!!   nameLength: 4, path: " + path +
                                        ", flag: 0x0, errno: " + std::to_string(ENOTEMPTY)));
    EXPECT_TRUE(m_log.has(
        ZLOG_LEVEL_INFO, "remove end!!!   nameLength: 4, path: " + path + ", flag: 0x0, rc: -125"));
}

TEST_F(RemoveTest, AnswersAMissingObject) {
    EXPECT_EQ(remove("\\f"), -102);
}

TEST_F(RemoveTest, RemovesWhatIsOpen) {
    const std::int64_t handle = openFile("f");
    EXPECT_EQ(remove("\\f"), 0);
    EXPECT_NE(record(handle), nullptr);
}

// Where the map shows the whole file system, letter case is repaired.
TEST_F(RemoveTest, RemovesTheFileThatDiffersInLetterCase) {
    m_dir.file("Mixed");
    serve("/.");
    EXPECT_EQ(remove(backslashed(m_dir.str("mIXED"))), 0);
    EXPECT_FALSE(exists("Mixed"));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_INFO, "path: /." + m_dir.str("Mixed") + ", flag"));
}

TEST_F(RemoveTest, GoesOnWithAPathThatCannotBeRepaired) {
    m_dir.file("Mixed");  // on this map the search starts at the root and finds nothing
    EXPECT_EQ(remove("\\mIXED"), -102);
    EXPECT_TRUE(exists("Mixed"));
}

TEST_F(RemoveTest, RefusesEverythingOnAReadOnlyMap) {
    m_map.m_bWritable = 0;
    m_dir.file("f");
    EXPECT_EQ(remove("\\f"), -113);
    EXPECT_EQ(remove("\\missing"), -113);
    EXPECT_TRUE(exists("f"));
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>(2, {ZLOG_LEVEL_WARNING, "remove write protect!!!"})));
}

TEST_F(RemoveTest, RefusesAPathThatCannotBeConverted) {
    Request request = removeRequest("\\ab");
    request[18] = 0;
    request[19] = static_cast<char>(0xDC);
    EXPECT_EQ(answer(ZrsfRemove, request), -2);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {ZLOG_LEVEL_ERROR, "utf16LToUtf8 error!!!   name_length: 6, pathSize: -1"}}));
}

TEST_F(RemoveTest, AnswersAPathThatDoesNotFitBeforeItLooksAtWriteProtection) {
    m_map.m_bWritable = 0;
    EXPECT_EQ(remove("\\" + std::string(1100, 'x')), -2);
}

TEST_F(RemoveTest, SendsNothingWhenTheFolderCannotBeCopied) {
    m_map.m_clientFolder_size = 1025;
    EXPECT_TRUE(call(ZrsfRemove, removeRequest("\\f")).empty());
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"));
}

TEST_F(RemoveTest, SurvivesARequestCutShortAtEveryLengthAndEveryLengthField) {
    m_dir.folder("keep");  // an empty path names the map's own folder: it must not be empty
    const Request whole = removeRequest("\\zfd-missing", kRemoveFile);
    for (std::size_t size = kHeaderSize; size < whole.size(); ++size) {
        answer(ZrsfRemove, Request(whole.begin(), whole.begin() + static_cast<long>(size)));
    }
    for (const int length : {0, 1, 65535}) {
        Request request = whole;
        request[12] = static_cast<char>(length & 0xFF);
        request[13] = static_cast<char>(length >> 8);
        answer(ZrsfRemove, request);
    }
    EXPECT_TRUE(exists("keep"));
}

class RenameTest : public ChangeFixture {
protected:
    int rename(std::string_view from, std::string_view to, std::uint32_t flags = 0) {
        return answer(ZrsfRename, renameRequest(from, to, flags));
    }

    std::string endLine(const std::string& from, const std::string& to, const char* rest) const {
        return "Rename end!!!   src_length: 4, pLinuxSrcPath: " + m_dir.str(from) +
               ", dst_length: 4, pLinuxDstPath: " + m_dir.str(to) + rest;
    }
};

TEST_F(RenameTest, GivesAFileAnotherName) {
    m_dir.file("a", "text");
    EXPECT_EQ(rename("\\a", "\\b", 0x1), 0);
    EXPECT_FALSE(exists("a"));
    EXPECT_EQ(readFile(m_dir.str("b")), "text");
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{
                                 {ZLOG_LEVEL_INFO, "Rename flag & SHFL_RENAME_DIR: 0x0"},
                                 {ZLOG_LEVEL_INFO, "Rename flag & SHFL_RENAME_FILE: 0x1"},
                                 {ZLOG_LEVEL_INFO, endLine("a", "b", ", flag: 0x1, rc: 0")},
                             }));
}

TEST_F(RenameTest, MovesIntoAnotherFolderAndKeepsTheSpellingOfTheTarget) {
    m_dir.file("a");
    m_dir.folder("d");
    EXPECT_EQ(rename("\\a", "\\d\\New \U0001F600"), 0);
    EXPECT_TRUE(exists("d/New \U0001F600"));
}

TEST_F(RenameTest, RefusesAnExistingTargetWithoutTheReplaceFlag) {
    m_dir.file("a", "new");
    m_dir.file("b", "old");
    EXPECT_EQ(rename("\\a", "\\b", 0x2), -105);
    EXPECT_EQ(readFile(m_dir.str("a")), "new");
    EXPECT_EQ(readFile(m_dir.str("b")), "old");
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {ZLOG_LEVEL_INFO, "Rename flag & SHFL_RENAME_DIR: 0x2"},
                  {ZLOG_LEVEL_INFO, "Rename flag & SHFL_RENAME_FILE: 0x0"},
                  {ZLOG_LEVEL_WARNING, "file is exist. rename flags not set replace!"},
              }));
}

TEST_F(RenameTest, ReplacesAnExistingTargetWithTheFlag) {
    m_dir.file("a", "new");
    m_dir.file("b", "old");
    EXPECT_EQ(rename("\\a", "\\b", kRenameReplace), 0);
    EXPECT_FALSE(exists("a"));
    EXPECT_EQ(readFile(m_dir.str("b")), "new");
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {ZLOG_LEVEL_INFO, "Rename flag & SHFL_RENAME_REPLACE_IF_EXISTS: 0x4"},
                  {ZLOG_LEVEL_INFO, endLine("a", "b", ", flag: 0x4, rc: 0")},
              }));
}

TEST_F(RenameTest, TakesTheNameOfADanglingLink) {
    m_dir.file("a", "new");
    std::filesystem::create_symlink("nowhere", m_dir.str("b"));
    EXPECT_EQ(rename("\\a", "\\b"), 0);
    EXPECT_EQ(readFile(m_dir.str("b")), "new");
}

TEST_F(RenameTest, TakesANameThatCannotBeLookedAt) {
    m_dir.file("a", "new");
    std::filesystem::create_symlink("b", m_dir.str("b"));  // leads to itself
    EXPECT_EQ(rename("\\a", "\\b"), 0);
    EXPECT_EQ(readFile(m_dir.str("b")), "new");
}

TEST_F(RenameTest, RepairsTheLetterCaseOfBothPathsAndKeepsThatOfANewName) {
    m_dir.file("Mixed", "text");
    m_dir.folder("Folder");
    serve("/.");
    EXPECT_EQ(rename(backslashed(m_dir.str("mIXED")), backslashed(m_dir.str("fOLDER/nEW"))), 0);
    EXPECT_EQ(readFile(m_dir.str("Folder/nEW")), "text");
}

TEST_F(RenameTest, RefusesANameThatDiffersInLetterCaseOnly) {
    m_dir.file("Mixed");
    serve("/.");
    const std::string from = backslashed(m_dir.str("Mixed"));
    const std::string to = backslashed(m_dir.str("mIXED"));
    EXPECT_EQ(rename(from, to), -105);
    EXPECT_EQ(rename(from, to, kRenameReplace), 0);  // of the file onto itself
    EXPECT_TRUE(exists("Mixed"));
    EXPECT_FALSE(exists("mIXED"));
}

TEST_F(RenameTest, BuildsBothPathsBeforeItLooksAtWriteProtection) {
    m_map.m_bWritable = 0;
    Request badTarget = renameRequest("\\a", "\\b");
    badTarget[23] = static_cast<char>(0xDC);
    EXPECT_EQ(answer(ZrsfRename, badTarget), -2);
}

TEST_F(RenameTest, DoesNotReplaceAFolderThatIsNotEmpty) {
    m_dir.folder("a");
    m_dir.folder("b/inner");
    EXPECT_EQ(rename("\\a", "\\b", kRenameReplace), -125);
    EXPECT_TRUE(exists("a"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "rename with replace flag, but error. errno: " +
                                                  std::to_string(ENOTEMPTY)));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, endLine("a", "b", ", flag: 0x4, rc: -125")));
}

TEST_F(RenameTest, AnswersAMissingSource) {
    EXPECT_EQ(rename("\\a", "\\b"), -102);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "rename with replace flag, but error. errno: 2"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, endLine("a", "b", ", flag: 0x0, rc: -102")));
}

TEST_F(RenameTest, RefusesEverythingOnAReadOnlyMap) {
    m_map.m_bWritable = 0;
    m_dir.file("a");
    EXPECT_EQ(rename("\\a", "\\b"), -113);
    EXPECT_TRUE(exists("a"));
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {ZLOG_LEVEL_WARNING,
                   "Rename write protect!!!   srcLength: 4, srcPath: " + m_dir.str("a") +
                       ", dstLength: 4, dstPath: " + m_dir.str("b")}}));
}

TEST_F(RenameTest, RefusesPathsThatCannotBeConverted) {
    Request badSource = renameRequest("\\a", "\\b");
    badSource[17] = static_cast<char>(0xDC);
    EXPECT_EQ(answer(ZrsfRename, badSource), -2);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR,
                          "Rename Src utf16LToUtf8 error!!!   name_length: 4, pathSize: -1"));

    Request badTarget = renameRequest("\\a", "\\b");
    badTarget[23] = static_cast<char>(0xDC);
    EXPECT_EQ(answer(ZrsfRename, badTarget), -2);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR,
                          "Rename Dst utf16LToUtf8 error!!!   name_length: 4, pathSize: -1"));
}

TEST_F(RenameTest, RefusesASourceWithoutASlash) {
    std::memcpy(m_map.m_clientFolder, "x", 2);
    m_map.m_clientFolder_size = 2;
    EXPECT_EQ(rename("a", "b"), -2);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(RenameTest, SendsNothingWhenTheFolderCannotBeCopied) {
    m_map.m_clientFolder_size = 1025;
    EXPECT_TRUE(call(ZrsfRename, renameRequest("\\a", "\\b")).empty());
}

TEST_F(RenameTest, SurvivesARequestCutShortAtEveryLengthAndEveryLengthField) {
    m_dir.folder("keep");
    const Request whole = renameRequest("\\zfd-a", "\\zfd-b", kRenameReplace);
    for (std::size_t size = kHeaderSize; size < whole.size(); ++size) {
        answer(ZrsfRename, Request(whole.begin(), whole.begin() + static_cast<long>(size)));
    }
    const std::size_t targetLengthAt = 14 + 12;
    for (const std::size_t at : {std::size_t{12}, targetLengthAt}) {
        for (const int length : {0, 1, 65535}) {
            Request request = whole;
            request[at] = static_cast<char>(length & 0xFF);
            request[at + 1] = static_cast<char>(length >> 8);
            answer(ZrsfRename, request);
        }
    }
    EXPECT_TRUE(exists("keep"));
}

TEST_F(RenameTest, StaysInsideTheBufferWithBothLengthsAtTheirLargest) {
    Request request(MAX_CMD_BUFFER, 'x');
    request[12] = request[13] = static_cast<char>(0xFF);
    request[14 + 65535] = request[15 + 65535] = static_cast<char>(0xFF);
    EXPECT_EQ(answer(ZrsfRename, request), -2);
}

}  // namespace
