// Runs a part of a test in a process of its own, for what cannot be taken back: limits, filters,
// descriptors of fixed numbers. Fails the test if that part fails.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

inline void inChild(const std::function<void()>& body) {
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(
        {
            body();
            std::_Exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}
