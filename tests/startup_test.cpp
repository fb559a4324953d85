#include "tests/test_support.h"

namespace
{
    // What the program prints on both streams, run in a folder of its own.
    std::string RunStartupOrder(std::string const & sArgument)
    {
        TempFolder_c const Folder;
        Result_s const Result =
            RunShell("cd " + Folder.GetPath() + " && '" STARTUP_ORDER_PATH "' " + sArgument + " 2>&1");
        EXPECT_EQ(Result.iStatus, 0);
        return Result.sOutput;
    }
}

TEST(Startup, LibraryServesGlobalConstructorsAndLeavesNoBlock)
{
    EXPECT_EQ(RunStartupOrder(""), "done\n");
}

TEST(Startup, LeakReportAtExitNamesFileAndLineAndDescribesObjects)
{
    std::string const sOutput = RunStartupOrder("leak");
    EXPECT_THAT(
        sOutput, testing::ContainsRegex("Memory leak: [0-9]+ bytes at [^,]*, word 00000004, lost.cpp\\(34\\)\n"));
    EXPECT_THAT(sOutput,
        testing::ContainsRegex(", word 802F0004, described.cpp\\(12\\)\nMemory object dump:\na lost object\n"));
    EXPECT_THAT(sOutput, testing::HasSubstr("Memory leaks: 2 blocks, "));
}
