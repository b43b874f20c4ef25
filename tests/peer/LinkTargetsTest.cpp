// The texts of symbolic links, with the other side's folder in front of them.
#include "peer/linux/LinkTargets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace peer::linux {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kFolder = "/media/Data";

struct Link {
    const char *path, *target;
};

class LinkTargetsTest : public ::testing::TestWithParam<Link> {};

TEST_P(LinkTargetsTest, ReadsAsItWasWritten) {
    const LinkTargets targets(kFolder);
    const auto [path, target] = GetParam();
    EXPECT_EQ(targets.shown(kFolder + targets.sent(target, path), path), target);
}

INSTANTIATE_TEST_SUITE_P(
    Links, LinkTargetsTest,
    ::testing::Values(Link{"l", "f"}, Link{"l", "sub/f"}, Link{"l", "../x"}, Link{"l", "../../x"},
                      Link{"l", "../../../x"}, Link{"l", "/etc/passwd"}, Link{"l", "/"},
                      Link{"l", "."}, Link{"l", ".."}, Link{"a/b/l", "f"}, Link{"a/b/l", "../../f"},
                      Link{"a/b/l", "/media/Data/f"}, Link{"a/b/l", "../../../../etc/passwd"},
                      Link{"a/b/l", "f/"}, Link{"l", "//x"}, Link{"l", "/../x"}));

TEST(LinkTargets, SendsWhatLeadsThereOnTheOtherSide) {
    const LinkTargets targets(kFolder);
    EXPECT_EQ(targets.sent("../f", "a/b/l"), "/a/b/../f");
    EXPECT_EQ(targets.sent("/etc/passwd", "a/b/l"), "/../../etc/passwd");
    EXPECT_EQ(LinkTargets("/.").sent("/etc/passwd", "l"), "/../etc/passwd");
}

TEST(LinkTargets, ALinkThatWasMovedLeadsToTheSamePlace) {
    const LinkTargets targets(kFolder);
    EXPECT_EQ(targets.shown("/media/Data/a/f", "b/c/l"), "../../a/f");
    EXPECT_EQ(targets.shown("/media/Data/a/f", "l"), "a/f");
    EXPECT_EQ(targets.shown("/media/Data", "b/c/l"), "../..");
    EXPECT_EQ(targets.shown("/media/Data", "l"), ".");
}

TEST(LinkTargets, WhatIsNotBelowTheFolderStaysAsItIs) {
    const LinkTargets targets(kFolder);
    EXPECT_EQ(targets.shown("/media/Data2/f", "l"), "/media/Data2/f");
    EXPECT_EQ(targets.shown("/etc/passwd", "l"), "/etc/passwd");
    EXPECT_EQ(targets.shown("../f", "a/l"), "../f");
}

TEST(LinkTargets, WithoutTheFolderNothingIsChanged) {
    const LinkTargets targets;
    EXPECT_FALSE(targets.isKnown());
    EXPECT_EQ(targets.shown("/media/Data/f", "l"), "/media/Data/f");
    EXPECT_EQ(targets.sent("f", "a/l"), "/a/f");
    EXPECT_TRUE(LinkTargets::needsFolder("/f"));
    EXPECT_FALSE(LinkTargets::needsFolder("f"));
}

TEST(LinkTargets, WhateverEndsInTheDrivesNameMayBeTheFolder) {
    EXPECT_THAT(LinkTargets::candidates("/media/Data/a/f", "Data"), ElementsAre("/media/Data"));
    EXPECT_THAT(LinkTargets::candidates("/Data/./f", "Data"), ElementsAre("/Data"));
    EXPECT_THAT(LinkTargets::candidates("/media/Data/Data/f", "Data"),
                ElementsAre("/media/Data", "/media/Data/Data"));
    EXPECT_THAT(LinkTargets::candidates("/media/Data/../../x/Data/f", "Data"),
                ElementsAre("/media/Data", "/media/Data/../../x/Data"));
}

TEST(LinkTargets, WhatMerelyContainsTheNameIsNotTheFolder) {
    for (const char* stored : {"/media/Data2/f", "/srv/MyData/f", "/media/Data", "Data/f",
                               "../media/Data/f", "/etc/passwd", "/", ""}) {
        EXPECT_THAT(LinkTargets::candidates(stored, "Data"), IsEmpty()) << stored;
    }
}

TEST(LinkTargets, NoTargetMakesForEndlessTries) {
    std::string stored = "/";
    for (int i = 0; i < 1000; ++i) stored += "D/";
    EXPECT_EQ(LinkTargets::candidates(stored, "D").size(), 8U);
}

TEST(LinkTargets, TheWayToAFolderLeadsThroughTheRoot) {
    const std::string way = LinkTargets::wayTo("/media/Data");
    EXPECT_TRUE(way.starts_with("../../../"));
    EXPECT_TRUE(way.ends_with("/../media/Data"));
}

TEST(LinkTargets, LearnsTheFolderFromALinkOfItsOwnOnly) {
    EXPECT_EQ(LinkTargets::folderFrom("/media/Data/a/f", "/a/f"), "/media/Data");
    EXPECT_EQ(LinkTargets::folderFrom("/media/Data/a/g", "/a/f"), "");
    EXPECT_EQ(LinkTargets::folderFrom("media/Data/a/f", "/a/f"), "");
    EXPECT_EQ(LinkTargets::folderFrom("f", "/a/f"), "");
}

}  // namespace

}  // namespace peer::linux
