// From the paths of requests to local paths.
#include "linux/comm/Opreator/PathResolve.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/Map/MapFolder.h"
#include "common/Policy/FdClientPolicy.h"
#include "support/FileRequests.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

class PathResolveTest : public ::testing::Test {
protected:
    PathResolveTest() { useFolder("/mnt/disk"); }

    void useFolder(const std::string& folder) {
        std::memset(m_map.m_clientFolder, 0, sizeof m_map.m_clientFolder);
        folder.copy(m_map.m_clientFolder, sizeof m_map.m_clientFolder);
        m_map.m_clientFolder_size = static_cast<std::uint16_t>(folder.size() + 1);
    }

    using Build = PathBuild (*)(LocalPath&, const MapFolder&, char*, int);
    PathBuild build(Build how, Request name) {
        m_path = {};
        const auto size = static_cast<int>(name.size());
        name.push_back(0);  // what follows in the message
        return how(m_path, m_map, name.data(), size);
    }
    PathBuild build(Build how, const std::string& name) { return build(how, utf16Of(name)); }

    LogCapture m_log;
    FdClientPolicy m_policy;
    MapFolder m_map{&m_policy, ZListener{}};
    LocalPath m_path;
};

TEST_F(PathResolveTest, JoinsTheRequestsPathDirectlyToTheFolder) {
    EXPECT_EQ(build(buildCreatePath, "\\a\\b.txt"), PathBuild::Done);
    EXPECT_STREQ(m_path.text, "/mnt/disk/a/b.txt");
    EXPECT_EQ(build(buildChangePath, "\\a\\b.txt"), PathBuild::Done);
    EXPECT_STREQ(m_path.text, "/mnt/disk/a/b.txt");
}

TEST_F(PathResolveTest, AddsNoSeparatorOfItsOwnToACreatePath) {
    build(buildCreatePath, "name");
    EXPECT_STREQ(m_path.text, "/mnt/diskname");
}

TEST_F(PathResolveTest, OpensTheFolderWithATrailingSlashForAnEmptyCreatePath) {
    EXPECT_EQ(build(buildCreatePath, ""), PathBuild::Done);
    EXPECT_STREQ(m_path.text, "/mnt/disk/");
}

TEST_F(PathResolveTest, LeavesAPrintersDevicePathUnchangedForAnEmptyCreatePath) {
    useFolder("/dev/lp0");
    m_map.m_mapType = kPrinterMap;
    EXPECT_EQ(build(buildCreatePath, ""), PathBuild::Done);
    EXPECT_STREQ(m_path.text, "/dev/lp0");
}

TEST_F(PathResolveTest, GivesTheFolderItselfForAnEmptyPathOfAChange) {
    EXPECT_EQ(build(buildChangePath, ""), PathBuild::Done);
    EXPECT_STREQ(m_path.text, "/mnt/disk");
}

TEST_F(PathResolveTest, KeepsCharactersOutsideTheBasicPlane) {
    build(buildCreatePath, "\\\U0001F600 \u4E2D");
    EXPECT_STREQ(m_path.text, "/mnt/disk/\U0001F600 \u4E2D");
}

TEST_F(PathResolveTest, StopsAtTheTerminatorOfATerminatedPath) {
    Request name = utf16Of("\\a");
    name.insert(name.end(), {0, 0, 'x', 0});
    EXPECT_EQ(build(buildCreatePath, name), PathBuild::Done);
    EXPECT_STREQ(m_path.text, "/mnt/disk/a");
}

TEST_F(PathResolveTest, RefusesTextThatCannotBeConverted) {
    const Request loneSurrogate = {'\\', 0, 0x00, static_cast<char>(0xDC)};
    for (const Build how : {buildCreatePath, buildChangePath, buildListPath}) {
        EXPECT_EQ(build(how, loneSurrogate), PathBuild::ConversionFailed);
        EXPECT_EQ(build(how, Request{'\\', 0, 'a'}), PathBuild::ConversionFailed);
    }
}

TEST_F(PathResolveTest, TakesAPathOf1023BytesAndRefusesOneMoreForACreate) {
    const std::string folder = m_map.m_clientFolder;
    EXPECT_EQ(build(buildCreatePath, std::string(1023 - folder.size(), 'x')), PathBuild::Done);
    EXPECT_EQ(std::strlen(m_path.text), 1023U);
    EXPECT_EQ(build(buildCreatePath, std::string(1024 - folder.size(), 'x')),
              PathBuild::TranslationFailed);
    EXPECT_EQ(build(buildCreatePath, std::string(1025 - folder.size(), 'x')),
              PathBuild::ConversionFailed);
}

TEST_F(PathResolveTest, TakesAPathOf1024BytesAndRefusesOneMoreForAChange) {
    const std::string folder = m_map.m_clientFolder;
    EXPECT_EQ(build(buildChangePath, std::string(1024 - folder.size(), 'x')), PathBuild::Done);
    EXPECT_EQ(m_path.text, folder + std::string(1024 - folder.size(), 'x'));
    EXPECT_EQ(build(buildChangePath, std::string(1025 - folder.size(), 'x')),
              PathBuild::ConversionFailed);
}

TEST_F(PathResolveTest, TakesAPathOf1024BytesAndRefusesOneMoreForAListing) {
    const std::string folder = m_map.m_clientFolder;
    EXPECT_EQ(build(buildListPath, std::string(1023 - folder.size(), 'x')), PathBuild::Done);
    EXPECT_EQ(m_path.text, folder + "/" + std::string(1023 - folder.size(), 'x'));
    EXPECT_EQ(build(buildListPath, std::string(1024 - folder.size(), 'x')),
              PathBuild::ConversionFailed);
}

TEST_F(PathResolveTest, DropsOneLeadingSeparatorOfAListedName) {
    build(buildListPath, "\\a\\*");
    EXPECT_STREQ(m_path.text, "/mnt/disk/a/*");
    build(buildListPath, "/a");
    EXPECT_STREQ(m_path.text, "/mnt/disk/a");
    build(buildListPath, "\\\\a");
    EXPECT_STREQ(m_path.text, "/mnt/disk//a");
    build(buildListPath, "a");
    EXPECT_STREQ(m_path.text, "/mnt/disk/a");
    build(buildListPath, "\\");
    EXPECT_STREQ(m_path.text, "/mnt/disk/");
}

TEST_F(PathResolveTest, GivesUpOnAFolderThatItsBufferCannotHold) {
    for (const Build how : {buildCreatePath, buildChangePath, buildListPath}) {
        m_log.clear();
        m_map.m_clientFolder_size = 1025;
        EXPECT_EQ(build(how, "\\a"), PathBuild::CopyFailed);
        EXPECT_TRUE(m_log.has(ZLOG_LEVEL_ERROR, "memcpy_s failed, err = 162"));
        m_map.m_clientFolder_size = 0;
        EXPECT_EQ(build(how, "\\a"), PathBuild::CopyFailed);
    }
}

TEST_F(PathResolveTest, HidesPathsOfTheRootMapOnly) {
    m_policy.setItaPolicy(FILE_DRIVER_REDIR);
    m_policy.setLinuxRootDirEnable(1);
    m_policy.setLinuxDirFilterPath("/seen");
    m_policy.setLinuxrootDir("/.");
    EXPECT_FALSE(isHiddenByRootFilter(m_map, "/./other"));

    m_map.m_rootFlag = 1;
    EXPECT_TRUE(isHiddenByRootFilter(m_map, "/./other"));
    EXPECT_FALSE(isHiddenByRootFilter(m_map, "/./seen/file"));

    m_policy.setItaPolicy(FILE_DRIVER_REDIR | FILE_DRIVER_REDIR_LINUX);
    EXPECT_FALSE(isHiddenByRootFilter(m_map, "/./other"));
}

// The repair looks from the root of the file system, whose folders are full of names that are not
// ours. This way into the temporary folder passes short folders only.
class PathRepairTest : public ::testing::Test {
protected:
    ~PathRepairTest() override { close(m_fd); }

    std::string rooted(const std::string& name) const {
        return "/dev/fd/" + std::to_string(m_fd) + name;
    }

    int repair(const std::string& suffix, const std::string& folder = "/any") {
        m_text.assign(2048, '\0');
        (folder + suffix).copy(m_text.data(), m_text.size());
        std::string mapPath = folder;
        const int result = zrfsTransFilePath(m_text.data(), 0, mapPath.data(), 0);
        m_result = std::string(m_text.data()).substr(folder.size());
        return result;
    }

    LogCapture m_log;
    TempDir m_dir;
    int m_fd = open(m_dir.str().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::vector<char> m_text;
    std::string m_result;
};

TEST_F(PathRepairTest, LeavesAPathAloneThatExistsFromTheRoot) {
    m_dir.file("File");
    EXPECT_EQ(repair(rooted("/File")), 1);
    EXPECT_EQ(m_result, rooted("/File"));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(PathRepairTest, DoesNotLookIntoTheMapsFolder) {
    m_dir.file("zfd-only-here");
    EXPECT_EQ(repair("/zfd-only-here", m_dir.str()), 0);
    EXPECT_EQ(repair("/ZFD-ONLY-HERE", m_dir.str()), 0);
    EXPECT_EQ(m_result, "/ZFD-ONLY-HERE");
}

TEST_F(PathRepairTest, RewritesAFolderAtTheRootInTheStoredSpelling) {
    EXPECT_EQ(repair("/ETC", "/."), 1);
    EXPECT_EQ(m_result, "/etc");
}

TEST_F(PathRepairTest, RewritesEveryComponentInTheStoredSpelling) {
    m_dir.folder("Folder");
    m_dir.file("Folder/File.TXT");
    EXPECT_EQ(repair(rooted("/fOLDER/file.txt")), 1);
    EXPECT_EQ(m_result, rooted("/Folder/File.TXT"));
}

TEST_F(PathRepairTest, KeepsATrailingSlash) {
    m_dir.folder("Folder");
    EXPECT_EQ(repair(rooted("/FOLDER/")), 1);
    EXPECT_EQ(m_result, rooted("/Folder/"));
}

TEST_F(PathRepairTest, LeavesThePathAloneWhenTheFirstComponentIsUnknown) {
    EXPECT_EQ(repair("/zfd-missing"), 0);
    EXPECT_EQ(m_result, "/zfd-missing");
    EXPECT_EQ(repair("/zfd-missing/ETC"), 0);
    EXPECT_EQ(m_result, "/zfd-missing/ETC");
}

TEST_F(PathRepairTest, KeepsTheUnknownRestBehindTheFoundSpelling) {
    m_dir.folder("Folder");
    EXPECT_EQ(repair(rooted("/FOLDER/Missing")), 1);
    EXPECT_EQ(m_result, rooted("/Folder/Missing"));
}

TEST_F(PathRepairTest, LooksForWhatFollowsAnUnknownComponentInTheSameFolder) {
    m_dir.folder("Folder");
    m_dir.file("Folder/abc");
    EXPECT_EQ(repair(rooted("/FOLDER/xy/ABC")), 1);
    EXPECT_EQ(m_result, rooted("/Folder//abcBC"));  // a doubled slash, and the old end behind it
}

TEST_F(PathRepairTest, FoldsAsciiLettersOnly) {
    m_dir.file("\u00C4");
    EXPECT_EQ(repair(rooted("/\u00E4")), 1);  // the way there is known
    EXPECT_EQ(m_result, rooted("/\u00E4"));
}

TEST_F(PathRepairTest, GivesUpWhereAFileStandsForAFolder) {
    m_dir.file("File");
    EXPECT_EQ(repair(rooted("/FILE/x")), 0);
    EXPECT_EQ(m_result, rooted("/FILE/x"));
    EXPECT_TRUE(
        m_log.has(ZLOG_LEVEL_ERROR, "pSearchTmp == NULL! tempPathName: " + rooted("/File/")));
}

TEST_F(PathRepairTest, LooksAt1000NamesOfAFolder) {
    for (int i = 0; i < 1100; ++i) m_dir.file("n" + std::to_string(i));
    std::vector<std::string> names;
    DIR* const dir = opendir(m_dir.str().c_str());
    while (const dirent* entry = readdir(dir)) names.emplace_back(entry->d_name);
    closedir(dir);
    const auto isOurs = [](const std::string& name) { return name[0] == 'n'; };
    const std::string last = names.at(999);
    const std::string next = names.at(1000);
    ASSERT_TRUE(isOurs(last) && isOurs(next));

    repair(rooted("/N" + last.substr(1)));
    EXPECT_EQ(m_result, rooted("/" + last));
    repair(rooted("/N" + next.substr(1)));
    EXPECT_EQ(m_result, rooted("/N" + next.substr(1)));
}

TEST_F(PathRepairTest, LeavesTheFolderItselfAlone) {
    EXPECT_EQ(repair("", "/mnt"), 0);
    EXPECT_EQ(repair("/", "/mnt"), 0);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{
                                 {ZLOG_LEVEL_WARNING, "length: 4, pszPath: /mnt"},
                                 {ZLOG_LEVEL_WARNING, "length: 4, mapPath: /mnt"},
                                 {ZLOG_LEVEL_WARNING, "length: 5, pszPath: /mnt/"},
                                 {ZLOG_LEVEL_WARNING, "length: 4, mapPath: /mnt"},
                             }));
}

TEST_F(PathRepairTest, LooksForAPathThatIsTwoBytesLongerThanTheFolder) {
    EXPECT_EQ(repair("/.", "/mnt"), 1);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(PathRepairTest, TakesTheFirstByteOfWhatFollowsTheFolderForASlash) {
    EXPECT_EQ(repair("xETC", "/mnt/"), 1);
    EXPECT_EQ(m_result, "/etc");
}

TEST_F(PathRepairTest, LeavesAPathBehindAnEmptyFolderAlone) {
    EXPECT_EQ(repair("/etc", ""), 0);
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "length: 4, pszPath: /etc"));
    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_WARNING, "length: 0, mapPath: "));
}

TEST_F(PathRepairTest, LeavesAPathOfMoreThan1024BytesAlone) {
    EXPECT_EQ(repair(std::string(1021, '/'), "/mnt"), 0);
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_WARNING, "length: 1025, pszPath: "));
    m_log.clear();
    EXPECT_EQ(repair(std::string(1020, '/'), "/mnt"), 1);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(PathRepairTest, RefusesNullPointers) {
    char text[] = "/x";
    EXPECT_EQ(zrfsTransFilePath(nullptr, 0, text, 0), 0);
    EXPECT_EQ(zrfsTransFilePath(text, 0, nullptr, 0), 0);
    EXPECT_EQ(m_log.lines().size(), 2U);
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_ERROR, "pszPath: (nil), mapPath: 0x"));
    EXPECT_TRUE(m_log.contains(ZLOG_LEVEL_ERROR, ", mapPath: (nil)"));
}

}  // namespace
