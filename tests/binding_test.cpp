#include "platform/checker.h"
#include "tests/test_support.h"

namespace
{
    constexpr char NOTICE[] = "zqcore: this process binds operator delete outside the library";

    // Returns 0 for no occurrence, 1 for one, 2 for more.
    int CountOf(std::string const & sText, std::string const & sPart)
    {
        std::size_t const iFirst = sText.find(sPart);
        return iFirst == std::string::npos ? 0 : iFirst == sText.rfind(sPart) ? 1 : 2;
    }
}

TEST(Binding, ABlockReachesTheHeapThatItCameFrom)
{
    // Under an emulator the checker of leaks waits for ever.
    std::string const sPrefix =
        std::string(*TEST_EMULATOR ? "ASAN_OPTIONS=detect_leaks=0 " : "") + TEST_EMULATOR BINDING_FOLDER "/";
    // A program that reaches the library in one way, and how often it reports that its `delete` is another heap's. The
    // checker refuses a plugin that binds deep, and a foreign delete.
    for (auto const & [szCommand, nNotices] :
        Rows_t<char const *, int>{ { "binding_direct", plat::ADDRESS_CHECKER }, { "binding_through_engine", 1 },
            { "binding_static_runtime", 1 }, { "binding_plugin " BINDING_ENGINE, 1 }, { "binding_checked", 1 },
            { plat::ADDRESS_CHECKER ? "binding_checked" : "binding_plugin " BINDING_ENGINE " deep", 1 },
            { plat::ADDRESS_CHECKER ? "binding_checked" : "binding_sized_delete", 1 }, { "binding_hasheap", 1 },
            { plat::ADDRESS_CHECKER ? "binding_direct" : "binding_forwards", plat::ADDRESS_CHECKER },
            { plat::ADDRESS_CHECKER ? "binding_direct" : "binding_callsheap", plat::ADDRESS_CHECKER },
            { "binding_addshead", 1 }, { "binding_servessmall", 1 }, { "binding_no_pie", plat::ADDRESS_CHECKER } })
    {
        Result_t const Result = RunShell(sPrefix + szCommand + " 2>&1");
        SCOPED_TRACE(szCommand + ('\n' + Result.sOutput));
        EXPECT_EQ(Result.iStatus, 0);
        EXPECT_EQ(CountOf(Result.sOutput, NOTICE), nNotices);
        std::size_t const nNoticeSize = Result.sOutput.starts_with(NOTICE) ? Result.sOutput.find('\n') + 1 : 0;
        EXPECT_EQ(Result.sOutput.substr(nNoticeSize), "done\n") << "damage or a leak";
    }
}

TEST(Binding, ValgrindSeesItsOwnBlocks)
{
    SKIP_IF(plat::ADDRESS_CHECKER || RunShell("valgrind --version 2>&1").iStatus != 0, "no valgrind here");
    for (auto const & [szOption, nNotices] :
        Rows_t<char const *, int>{ { "", 1 }, { "--soname-synonyms=somalloc=nouserintercepts ", 0 } })
    {
        Result_t const Result =
            RunShell(std::string("valgrind --error-exitcode=9 ") + szOption + BINDING_FOLDER "/binding_direct 2>&1");
        SKIP_IF(CountOf(Result.sOutput, "ERROR SUMMARY") == 0, "valgrind can't run this program: " << Result.sOutput);
        EXPECT_EQ(Result.iStatus, 0) << Result.sOutput;
        EXPECT_EQ(CountOf(Result.sOutput, NOTICE), nNotices) << Result.sOutput;
    }
}
