#include "zqcore/clog.h"

#include <gtest/gtest.h>

int main(int argc, char ** argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    int const iResult = RUN_ALL_TESTS();
    LogDone();   // frees the listeners, so that a block that lives on is a leak
    return iResult;
}
