#include "common/Comm/HandleManage.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

bool isOpen(long long fd) {
    return fcntl(static_cast<int>(fd), F_GETFD) != -1 || errno != EBADF;
}

class HandleManageTest : public ::testing::Test {
protected:
    long long openFile(const std::string& name = "file") {
        return open(m_dir.file(name).c_str(), O_RDONLY | O_CLOEXEC);
    }
    long long openFolder() { return open(m_dir.str().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

    LogCapture m_log;
    TempDir m_dir;
    HandleManage m_table;
};

TEST_F(HandleManageTest, KeepsTheRecordOfAFile) {
    const long long fd = openFile();

    ASSERT_TRUE(m_table.InsertHandleByName(fd, "/some/file", HANDLE_TYPE_FILE));

    const _ZRSFHANDLE* record = m_table.GetHandleData(fd);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->type, 0);
    EXPECT_STREQ(record->name, "/some/file");
    EXPECT_EQ(record->dir.Handle, fd);
    EXPECT_EQ(record->dir.SearchHandle, nullptr);
    EXPECT_EQ(record->dir.SearchEnd, 0);
    EXPECT_EQ(record->dir.SearchCount, 0);
}

TEST_F(HandleManageTest, KeepsTheRecordOfADirectory) {
    const long long fd = openFolder();

    ASSERT_TRUE(m_table.InsertHandleByName(fd, "/some/folder", HANDLE_TYPE_DIR));

    const _ZRSFHANDLE* record = m_table.GetHandleData(fd);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->type, 1);
    EXPECT_EQ(record->dir.Handle, fd);
    EXPECT_EQ(record->dir.SearchHandle, nullptr);
}

TEST_F(HandleManageTest, APresentKeyIsRefusedAndKeepsItsRecord) {
    const long long fd = openFile();
    ASSERT_TRUE(m_table.InsertHandleByName(fd, "first", HANDLE_TYPE_FILE));

    EXPECT_FALSE(m_table.InsertHandleByName(fd, "second", HANDLE_TYPE_FILE));
    _ZRSFHANDLE* third = newRecord().release();
    EXPECT_FALSE(m_table.InsertHandle(fd, third));
    std::free(third);

    EXPECT_STREQ(m_table.GetHandleData(fd)->name, "first");
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(HandleManageTest, AnEmptyTableHasNoRecordAndSaysNothing) {
    EXPECT_EQ(m_table.GetHandleData(3), nullptr);
    EXPECT_EQ(m_table.GetHandleData(0), nullptr);
    EXPECT_EQ(m_table.GetHandleData(-1), nullptr);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(HandleManageTest, RemovingAnUnknownHandleWarns) {
    EXPECT_FALSE(m_table.RemoveHandle(77));
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{2, "removeHandle error!!!   can not find the handle: 77"}}));
}

TEST_F(HandleManageTest, RemovingFreesTheRecordAndClosesNothing) {
    const long long fd = openFile();
    m_table.InsertHandleByName(fd, "x", HANDLE_TYPE_FILE);

    EXPECT_TRUE(m_table.RemoveHandle(fd));

    EXPECT_EQ(m_table.GetHandleData(fd), nullptr);
    EXPECT_TRUE(isOpen(fd));
    close(static_cast<int>(fd));
}

TEST_F(HandleManageTest, CutsANameTo521Bytes) {
    for (const std::size_t length : {0U, 1U, 519U, 520U, 521U, 522U, 5000U}) {
        const std::string name(length, 'n');
        const long long key = 1000 + static_cast<long long>(length);
        ASSERT_TRUE(m_table.InsertHandleByName(key, name.c_str(), HANDLE_TYPE_DIR));
        EXPECT_EQ(m_table.GetHandleData(key)->name, name.substr(0, 521)) << length;
        m_table.RemoveHandle(key);
    }
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(HandleManageTest, WithoutANameThereIsNoRecord) {
    EXPECT_FALSE(m_table.InsertHandleByName(5, nullptr, HANDLE_TYPE_FILE));

    EXPECT_EQ(m_table.GetHandleData(5), nullptr);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{1, "memcpy_s failed, err = 150"}}));
}

TEST_F(HandleManageTest, AnUnknownTypeIsInsertedAsAFileWithDescriptorZero) {
    const std::string longName(40, 'n');

    EXPECT_TRUE(m_table.InsertHandleByName(9, longName.c_str(), static_cast<HANDLE_TYPE>(2)));

    const _ZRSFHANDLE* record = m_table.GetHandleData(9);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->type, 0);
    EXPECT_EQ(record->dir.Handle, 0);
    EXPECT_EQ(record->name, longName);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {1, "_type is errno!!!   type: 2, _handle: 9, _name: " + std::string(20, 'n')}}));
    m_table.RemoveHandle(9);  // its descriptor 0 is not this test's to close
}

TEST_F(HandleManageTest, AnyTextStartsWithTheEmptyOne) {
    EXPECT_TRUE(m_table.starts_with("", ""));
    EXPECT_TRUE(m_table.starts_with("text", ""));
}

TEST_F(HandleManageTest, NothingStartsWithNullAndNullWithNothing) {
    EXPECT_FALSE(m_table.starts_with(nullptr, nullptr));
    EXPECT_FALSE(m_table.starts_with(nullptr, ""));
    EXPECT_FALSE(m_table.starts_with("", nullptr));
}

TEST_F(HandleManageTest, APrefixIsComparedByteByByte) {
    const char* text = "/media/disk";
    EXPECT_TRUE(m_table.starts_with(text, text));
    EXPECT_TRUE(m_table.starts_with(text, "/media/disk"));
    EXPECT_TRUE(m_table.starts_with(text, "/media/di"));
    EXPECT_FALSE(m_table.starts_with(text, "/Media"));
    EXPECT_FALSE(m_table.starts_with(text, "/media/disk/"));
    EXPECT_FALSE(m_table.starts_with("", "/"));
}

TEST_F(HandleManageTest, ClearsWhatLiesUnderAPathAndInSiblingsOfThatBeginning) {
    const long long folder = openFolder();
    const long long file = openFile("a");
    const long long sibling = openFile("b");
    const long long other = openFile("c");
    m_table.InsertHandleByName(folder, "/media/disk", HANDLE_TYPE_DIR);
    m_table.InsertHandleByName(file, "/media/disk/a", HANDLE_TYPE_FILE);
    m_table.InsertHandleByName(sibling, "/media/disk2/b", HANDLE_TYPE_FILE);
    m_table.InsertHandleByName(other, "/media/dis", HANDLE_TYPE_FILE);

    m_table.clearAllHandleInTheVolumePath("/media/disk");

    EXPECT_EQ(m_table.GetHandleData(folder), nullptr);
    EXPECT_EQ(m_table.GetHandleData(file), nullptr);
    EXPECT_EQ(m_table.GetHandleData(sibling), nullptr);
    EXPECT_NE(m_table.GetHandleData(other), nullptr);
    EXPECT_FALSE(isOpen(folder));
    EXPECT_FALSE(isOpen(file));
    EXPECT_FALSE(isOpen(sibling));
    EXPECT_TRUE(isOpen(other));
}

TEST_F(HandleManageTest, ClearingUnderTheEmptyPathTakesAllAndUnderNullNone) {
    const long long fd = openFile();
    m_table.InsertHandleByName(fd, "/x", HANDLE_TYPE_FILE);

    m_table.clearAllHandleInTheVolumePath(nullptr);
    EXPECT_NE(m_table.GetHandleData(fd), nullptr);

    m_table.clearAllHandleInTheVolumePath("");
    EXPECT_EQ(m_table.GetHandleData(fd), nullptr);
    EXPECT_FALSE(isOpen(fd));
}

TEST_F(HandleManageTest, ClearingUnderAPathStepsOverAnEntryWithoutARecord) {
    m_table.InsertHandle(4000, nullptr);

    m_table.clearAllHandleInTheVolumePath("");
    EXPECT_TRUE(m_log.lines().empty());

    m_table.ClearAll();
    char expected[64];
    std::snprintf(expected, sizeof expected, "clear error!!!   zrsfHandle: %p ",
                  static_cast<void*>(nullptr));
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, expected}}));
}

TEST_F(HandleManageTest, ClearingARecordOfUnknownTypeWarnsAndDropsIt) {
    for (const bool byPath : {true, false}) {
        m_log.clear();
        _ZRSFHANDLE* record = newRecord().release();
        record->type = static_cast<HANDLE_TYPE>(7);
        m_table.InsertHandle(4000, record);
        char expected[64];
        std::snprintf(expected, sizeof expected, "clear error!!!   zrsfHandle: %p ",
                      static_cast<void*>(record));

        byPath ? m_table.clearAllHandleInTheVolumePath("") : m_table.ClearAll();

        EXPECT_EQ(m_table.GetHandleData(4000), nullptr);
        EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{2, expected}}));
    }
}

TEST_F(HandleManageTest, ClearAllOnAnEmptyTableDoesNothing) {
    m_table.ClearAll();
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(HandleManageTest, ClearAllClosesEverything) {
    const long long file = openFile();
    const long long folder = openFolder();
    m_table.InsertHandleByName(file, "f", HANDLE_TYPE_FILE);
    m_table.InsertHandleByName(folder, "d", HANDLE_TYPE_DIR);

    m_table.ClearAll();

    EXPECT_EQ(m_table.GetHandleData(file), nullptr);
    EXPECT_EQ(m_table.GetHandleData(folder), nullptr);
    EXPECT_FALSE(isOpen(file));
    EXPECT_FALSE(isOpen(folder));
}

TEST_F(HandleManageTest, TheTableClosesEverythingWhenItGoes) {
    const long long file = openFile();
    {
        HandleManage table;
        table.InsertHandleByName(file, "f", HANDLE_TYPE_FILE);
    }
    EXPECT_FALSE(isOpen(file));
}

TEST_F(HandleManageTest, AFileThatWasListedIsClosedWithItsStream) {
    const long long file = openFile();
    DIR* stream = opendir(m_dir.str().c_str());
    const int streamFd = dirfd(stream);
    m_table.InsertHandleByName(file, "f", HANDLE_TYPE_FILE);
    m_table.GetHandleData(file)->dir.SearchHandle = stream;

    m_table.ClearAll();

    EXPECT_FALSE(isOpen(file));
    EXPECT_FALSE(isOpen(streamFd));
}

TEST_F(HandleManageTest, ClearsInTheOrderOfTheKeys) {
    for (const bool byPath : {true, false}) {
        m_log.clear();
        std::vector<LogLine> expected;
        for (const long long key : {4002, 4000, 4001}) {
            _ZRSFHANDLE* record = newRecord().release();
            record->type = static_cast<HANDLE_TYPE>(7);
            m_table.InsertHandle(key, record);
        }
        for (const long long key : {4000, 4001, 4002}) {
            char line[64];
            std::snprintf(line, sizeof line, "clear error!!!   zrsfHandle: %p ",
                          static_cast<void*>(m_table.GetHandleData(key)));
            expected.push_back({2, line});
        }

        byPath ? m_table.clearAllHandleInTheVolumePath("") : m_table.ClearAll();

        EXPECT_EQ(m_log.lines(), expected);
    }
}

TEST_F(HandleManageTest, PrintsEachRecordInTheOrderOfTheKeys) {
    const std::string longName = "/a-name-of-more-than-20-bytes";
    _ZRSFHANDLE* unknown = newRecord().release();
    unknown->type = static_cast<HANDLE_TYPE>(3);
    m_table.InsertHandle(5002, unknown);
    m_table.InsertHandle(5003, nullptr);
    m_table.InsertHandleByName(5001, longName.c_str(), HANDLE_TYPE_FILE);
    m_table.InsertHandleByName(5000, longName.c_str(), HANDLE_TYPE_DIR);
    DIR* stream = opendir(m_dir.str().c_str());
    m_table.GetHandleData(5000)->dir.SearchHandle = stream;

    EXPECT_TRUE(m_table.printAll());

    // The stream's address, as far as the text has room for it.
    const auto searchId = static_cast<int>(reinterpret_cast<std::uintptr_t>(stream));

    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{{3, "DIR--> id: 5000, searchId: " + std::to_string(searchId) +
                                            ", name: /a-name-of-more-than"},
                                    {3, "FILE--> id: 5001, name: /a-name-of-more-than"}}));
    closedir(stream);
    m_table.RemoveHandle(5000);
    m_table.RemoveHandle(5001);
}

}  // namespace
