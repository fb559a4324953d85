#include "platform/checker.h"
#include "tests/test_support.h"

namespace
{
    constexpr char NOTICE[] = "zqcore: this process binds operator delete outside the library";

    // A program that reaches the library in one way, and whether its `delete` is another heap's.
    struct Way_s
    {
        char const * szCommand;
        bool bForeign;
    };

    int CountOf(std::string const & sText, std::string const & sPart)
    {
        int nFound = 0;
        for (std::size_t i = sText.find(sPart); i != std::string::npos; i = sText.find(sPart, i + 1))
        {
            ++nFound;
        }
        return nFound;
    }
}

TEST(Binding, ABlockReachesTheHeapThatItCameFrom)
{
    for (Way_s const & Way :
        { Way_s{ "binding_direct", plat::ADDRESS_CHECKER }, Way_s{ "binding_through_engine", true },
            Way_s{ "binding_static_runtime", true }, Way_s{ "binding_plugin " BINDING_ENGINE, true },
            Way_s{ "binding_checked", true }, Way_s{ "binding_plugin " BINDING_ENGINE " deep", true } })
    {
        if (plat::ADDRESS_CHECKER && std::string(Way.szCommand).ends_with("deep"))
        {
            continue;   // the checker refuses such a plugin
        }
        Result_s const Result = RunShell(std::string(TEST_EMULATOR BINDING_FOLDER "/") + Way.szCommand + " 2>&1");
        EXPECT_EQ(Result.iStatus, 0) << Way.szCommand << '\n' << Result.sOutput;
        EXPECT_EQ(CountOf(Result.sOutput, NOTICE), Way.bForeign ? 1 : 0) << Way.szCommand << '\n' << Result.sOutput;
        EXPECT_TRUE(Result.sOutput.ends_with("done\n")) << Way.szCommand << '\n' << Result.sOutput;
    }
}

TEST(Binding, ValgrindSeesItsOwnBlocks)
{
    if (plat::ADDRESS_CHECKER || RunShell("valgrind --version 2>&1").iStatus != 0)
    {
        GTEST_SKIP() << "no valgrind here";
    }
    for (auto const & [szOption, nNotices] :
        Rows_t<char const *, int>{ { "", 1 }, { "--soname-synonyms=somalloc=nouserintercepts ", 0 } })
    {
        Result_s const Result =
            RunShell(std::string("valgrind --error-exitcode=9 ") + szOption + BINDING_FOLDER "/binding_direct 2>&1");
        if (CountOf(Result.sOutput, "ERROR SUMMARY") == 0)
        {
            GTEST_SKIP() << "valgrind can't run this program: " << Result.sOutput;
        }
        EXPECT_EQ(Result.iStatus, 0) << Result.sOutput;
        EXPECT_EQ(CountOf(Result.sOutput, NOTICE), nNotices) << Result.sOutput;
    }
}
