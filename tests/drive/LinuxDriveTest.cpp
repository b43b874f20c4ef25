// What only the Linux dialect has: symbolic links as such, and long paths.
#include <unistd.h>

#include <cerrno>

#include "drive/DriveFixture.h"

namespace {

class LinuxDriveTest : public DriveFixture {
protected:
    void use(const std::string& shareOptions = {}) {
        DriveFixture::use(peer::Dialect::kLinux, {}, shareOptions);
    }

    struct Link {
        const char *path, *target;
    };
    static constexpr Link kLinks[] = {{"l", "f"},
                                      {"sub/l", "f"},
                                      {"sub/up", "../f"},
                                      {"out", "../../etc/passwd"},
                                      {"abs", "/etc/hosts"},
                                      {"sub/deep/abs", "/Data/x"},
                                      {"Data/l", "f"},
                                      {"Data/back", "../Data/f"}};

    void makeLinks() {
        for (const char* folder : {"sub", "sub/deep", "Data"}) {
            drive().makeFolder(at(folder), 0755);
        }
        for (const auto& [path, target] : kLinks) drive().makeLink(target, at(path));
    }
    void expectLinks() {
        for (const auto& [path, target] : kLinks) EXPECT_EQ(drive().readLink(at(path)), target);
    }
};

TEST_F(LinuxDriveTest, LinksReadAsTheyWereMade) {
    use();
    makeLinks();
    expectLinks();
}

TEST_F(LinuxDriveTest, LinksOfAnEarlierSessionReadAsTheyWereMade) {
    use();
    makeLinks();
    hangUp();
    use();
    for (const auto& [path, target] : kLinks) {
        EXPECT_EQ(drive().readLink(at(path)), target) << path;
        hangUp();  // so that each one is the first that this session reads
        use();
    }
    hangUp();
    use("--read-only");
    EXPECT_EQ(errorOf([&] { drive().makeLink("f", at("new")); }), EROFS);
    expectLinks();
}

TEST_F(LinuxDriveTest, LinksThatLeadElsewhereReadAsTheyAre) {
    for (const char* target : {"/nowhere/Data/f", "/srv/MyData/f", "/etc/Data", "Data/f"}) {
        ASSERT_EQ(::symlink(target, here("l").c_str()), 0);
        use();
        EXPECT_EQ(drive().readLink(at("l")), target);
        hangUp();
        ASSERT_EQ(::unlink(here("l").c_str()), 0);
    }
}

TEST_F(LinuxDriveTest, AFolderWhoseEntriesLieTooDeepIsNotCalledEmpty) {
    use();
    std::string folder = std::string(240, 'd');
    for (int i = 0; i < 4; ++i) {
        drive().makeFolder(at(folder), 0755);
        folder += "/" + std::string(240, 'd');
    }
    drive().makeFolder(at(folder), 0755);
    put(folder + "/file", "text");
    EXPECT_EQ(get(folder + "/file"), "text");
    EXPECT_EQ(errorOf([&] { names(folder); }), ENAMETOOLONG);
}

}  // namespace
