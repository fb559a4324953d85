#include "platform/checker.h"
#include "tests/machine_support.h"

namespace
{
    // Runs the program in a new folder or in the one passed. Expects status 0. Returns what both streams received.
    std::string RunStartupOrder(std::string const & sArgument, TempFolder_c const & Folder = TempFolder_c())
    {
        Result_t const Result =
            RunShell("cd " + Folder.GetPath() + " && " TEST_EMULATOR "'" STARTUP_ORDER_PATH "' " + sArgument + " 2>&1");
        EXPECT_EQ(Result.iStatus, 0) << Result.sOutput;
        return Result.sOutput;
    }
}

TEST(Startup, LibraryServesGlobalConstructorsAndLeavesNoBlock)
{
    EXPECT_EQ(RunStartupOrder(""), "done\n");
}

TEST(Startup, LeakReportAtExitNamesCategoryPlaceAndObjectAndIsLogged)
{
    TempFolder_c const Folder;
    std::string const sOutput = RunStartupOrder("leak", Folder);
    std::string const sLost = "Memory leak: 40 bytes at 0x[0-9A-F]+0, category UNDEFINED, lost.cpp\\(34\\)";
    EXPECT_THAT(sOutput, testing::ContainsRegex(sLost + '\n'));
    for (std::string const sLine : { "12", "13" })
    {
        EXPECT_THAT(sOutput, testing::ContainsRegex(", category AI, described.cpp\\(" + sLine
                                                    + "\\)\nMemory object dump:\na lost object\n"));
    }
    std::string const sSum =
        "Memory leaks: 3 blocks, " + std::to_string(40 + 2 * sizeof(void *)) + " bytes; 0 of them of unknown source\n";
    EXPECT_THAT(sOutput, testing::HasSubstr(sSum));
    EXPECT_THAT(Folder.Read("message.log"),
        testing::AllOf(testing::ContainsRegex("\t0\t" + sLost + '\n'), testing::EndsWith("\t0\t" + sSum)));
}

TEST(Startup, AChildReportsItsBlocksWhateverAThreadOfItsParentDoesInTheLinker)
{
    SKIP_IF(plat::ADDRESS_CHECKER, "the checker's own search for leaks waits for the linker's lock in the child");
    EXPECT_THAT(
        RunStartupOrder("children"), testing::AllOf(testing::HasSubstr("Memory leaks: "), testing::EndsWith("done\n"),
                                         testing::Not(testing::HasSubstr("failed"))));
}

TEST(Startup, BlocksOfAnUnloadedPluginAreListedWithoutIt)
{
    SKIP_IF(plat::ADDRESS_CHECKER, "the plugin brings another heap than the program's");
    TempFolder_c const Folder;
    std::string const sOutput = RunStartupOrder("unload " STARTUP_LOST, Folder);
    EXPECT_THAT(sOutput, testing::ContainsRegex("Memory leak: 40 bytes at .*, category AI, unloaded module\\(1\\)\n"));
    EXPECT_THAT(sOutput, testing::HasSubstr("\nMemory object dump:\nobject of an unloaded module\n"));
    EXPECT_THAT(Folder.Read("allocations.csv"), testing::HasSubstr("; AI; unloaded module(1)\n"));
}

TEST(Startup, WhatTheRuntimeKeepsAndOtherThreadsHoldIsNotLost)
{
    EXPECT_EQ(RunStartupOrder("streams"), "done\n");
    int const nOthers = ThreadsBesideOne() - 1;   // a thread checker has one of its own
    SKIP_IF(nOthers < 1, "the kernel, or an emulator, counts no threads");
    EXPECT_EQ(RunStartupOrder("threads"),
        "done\nBlocks that still live are not listed: " + std::to_string(nOthers) + " other threads are running.\n");
}
