// The words behind -o.
#include "fdmount/mount/MountOptions.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using fdmount::MountOptions;
using fdmount::parseMountOptions;
using ::testing::ElementsAre;

std::string refusalOf(const std::string& list) {
    try {
        parseMountOptions({list});
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "none";
}

TEST(MountOptionsTest, AListMayComeInPartsAndTheLastWordHolds) {
    const MountOptions options =
        parseMountOptions({"ro,uid=5,,allow_other", "gid=7,attr_timeout=0.5,rw", "nonempty"});
    EXPECT_EQ(options.uid, 5u);
    EXPECT_EQ(options.gid, 7u);
    EXPECT_FALSE(options.readOnly);
    EXPECT_TRUE(options.overFullFolder);
    EXPECT_EQ(options.attributeTimeout, 0.5);
    EXPECT_THAT(options.forKernel, ElementsAre("allow_other"));
}

TEST(MountOptionsTest, MasksAreOctalAndReadsHaveBounds) {
    EXPECT_EQ(parseMountOptions({"umask=022"}).umask, 022u);
    EXPECT_EQ(parseMountOptions({"max_read=1"}).maxRead, 4096u);
    EXPECT_EQ(parseMountOptions({"max_read=4095999"}).maxRead, 1048576u);
    EXPECT_EQ(parseMountOptions({"max_read=65536"}).maxRead, 65536u);
}

TEST(MountOptionsTest, WithoutAnyTheKernelBelievesForTwentySeconds) {
    const MountOptions options = parseMountOptions({});
    EXPECT_EQ(options.attributeTimeout, 20);
    EXPECT_EQ(options.entryTimeout, 20);
    EXPECT_EQ(options.negativeTimeout, 0);
}

TEST(MountOptionsTest, WhatMakesNoSenseIsNamed) {
    EXPECT_EQ(refusalOf("uid=1,colour=red"), "-o colour=red: is not known");
    EXPECT_EQ(refusalOf("fast"), "-o fast: is not known");
    EXPECT_EQ(refusalOf("ro=1"), "-o ro=1: takes no value");
    EXPECT_EQ(refusalOf("uid"), "-o uid: needs a value");
    EXPECT_EQ(refusalOf("uid=me"), "-o uid=me: is no number");
    EXPECT_EQ(refusalOf("uid=-1"), "-o uid=-1: is no number");
    EXPECT_EQ(refusalOf("umask=9"), "-o umask=9: is no number");
    EXPECT_EQ(refusalOf("attr_timeout=-1"), "-o attr_timeout=-1: is no time in seconds");
    EXPECT_EQ(refusalOf("attr_timeout=nan"), "-o attr_timeout=nan: is no time in seconds");
    EXPECT_EQ(refusalOf("attr_timeout=1s"), "-o attr_timeout=1s: is no time in seconds");
}

}  // namespace
