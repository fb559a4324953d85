#include "zqcore/cmemory.h"
#include "zqcore/cmemoryreport.h"

#include "tests/memory_support.h"
#include "tests/test_support.h"

#include <algorithm>

namespace
{
    using testing::HasSubstr;

    constexpr char TAIL[] = "; total\n1; 64 bytes; 25%\n0; 128 bytes; 0%\n0; 256 bytes; 0%\n0; 512 bytes; 0%\n\n";
    std::string const REPORT = "Memory allocations\n60; GFX; a (1); x.cpp(12)\n600; AI; src/<b>.cpp(7)\n"
                               "340; GFX; a (1); x.cpp(12)\n0; Core; src/<b>.cpp(7)\n\nTotal allocations\n4";
}

TEST(ZqtoolMemory, APageIsWholeThoughNobodyReadsTheText)
{
    TempFolder_c const Folder;
    std::string sReport = "Memory allocations\n";
    for (int i = 0; i < 5000; ++i)   // more text than a pipe holds
    {
        sReport += "600; AI; source_" + std::to_string(i) + ".cpp(7)\n";
    }
    std::string const sFile = Folder.Write("allocations.csv", sReport + "\nTotal allocations\n5000" + TAIL);
    RunTool("memory " + sFile + " --html " + Folder.Join("map.html") + " | true");
    EXPECT_THAT(Folder.Read("map.html"), testing::EndsWith("</html>\n"));
}

TEST(ZqtoolMemory, ShowsTheLargestFirstInTextAndOnAPage)
{
    TempFolder_c const Folder;
    std::string const sFile = Folder.Write("allocations.csv", REPORT + TAIL);
    Result_t const Result = RunTool("memory " + sFile + " --html " + Folder.Join("map.html"));
    EXPECT_EQ(Result.iStatus, 0);
    EXPECT_EQ(Result.sOutput, "         bytes  share     blocks  category\n"
                              "           600  60.0%          1  AI\n"
                              "           400  40.0%          2  GFX\n"
                              "             0   0.0%          1  Core\n"
                              "          1000 100.0%          4  total\n"
                              "\n"
                              "         bytes  share     blocks  file\n"
                              "           600  60.0%          2  src/<b>.cpp\n"
                              "           400  40.0%          2  a (1); x.cpp\n"
                              "          1000 100.0%          4  total\n"
                              "\n"
                              "         bytes  share     blocks  source line\n"
                              "           600  60.0%          2  src/<b>.cpp(7)\n"
                              "           400  40.0%          2  a (1); x.cpp(12)\n"
                              "          1000 100.0%          4  total\n");

    std::string const sPage = Folder.Read("map.html");
    EXPECT_THAT(sPage, testing::StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(sPage, testing::EndsWith("</body>\n</html>\n"));
    EXPECT_THAT(sPage, HasSubstr("[\"AI\",[[\"src/\\u003Cb>.cpp(7)\",600,1,0,0]]],\n"
                                 "[\"GFX\",[[\"a (1); x.cpp(12)\",400,2,0,0]]]"));
    EXPECT_EQ(sPage.find("://"), std::string::npos) << "the page needs nothing else";
}

TEST(ZqtoolMemory, ReadsWhatTheLibraryWrites)
{
    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    MemCategoryScope_c const Scope(mem::ScaleForm);
    constexpr std::size_t BYTES = 70000;
    char * const p = ZQ_NEW char[BYTES];
    MemoryLogAllocations();
    Result_t const Result = RunTool("memory allocations.csv");
    delete[] p;
    EXPECT_EQ(Result.iStatus, 0) << Result.sOutput;
    std::size_t const nBlock = BYTES + AROUND;
    EXPECT_THAT(Result.sOutput, testing::ContainsRegex(std::to_string(nBlock) + " +[0-9.]+% +1  ScaleForm"));
    EXPECT_THAT(Result.sOutput,
        testing::ContainsRegex(std::to_string(nBlock) + " +[0-9.]+% +1  .*zqtool_memory_test.cpp\\([0-9]+\\)"));
}

TEST(ZqtoolMemory, ReadsTheLinesOfAShippedGamesHeap)
{
    TempFolder_c const Folder;
    std::string const sFirst =
        Folder.Write("a.csv", "Memory allocations\n300; Decals; blocks(2)\n\nTotal allocations\n2" + std::string(TAIL));
    std::string const sLast =
        Folder.Write("b.csv", "Memory allocations\n700; Decals; blocks(5)\n\nTotal allocations\n5" + std::string(TAIL));
    EXPECT_THAT(RunTool("memory " + sFirst + " " + sLast),
        Ends(0, HasSubstr("           300            700           +400         +3  blocks(all)\n")));
}

TEST(ZqtoolMemory, ComparesSnapshots)
{
    TempFolder_c const Folder;
    auto const Snapshot = [&](char const * szName, std::string const & sBlocks)
    {
        auto const nBlocks = std::ranges::count(sBlocks, '\n');
        return " "
               + Folder.Write(
                   szName, "Memory allocations\n" + sBlocks + "\nTotal allocations\n" + std::to_string(nBlocks) + TAIL);
    };
    std::string const sTwo =
        Snapshot("a.csv", "60; GFX; x.cpp(1)\n600; AI; y.cpp(7)\n5; Core; z.cpp(3)\n")
        + Snapshot("b.csv", "60; GFX; x.cpp(1)\n70; GFX; x.cpp(2)\n900; AI; y.cpp(7)\n5; Core; z.cpp(3)\n");
    EXPECT_THAT(RunTool("memory" + sTwo).sOutput,
        testing::StartsWith("   first bytes     last bytes         growth     blocks  category\n"
                            "           600            900           +300         +0  AI\n"
                            "            60            130            +70         +1  GFX\n"
                            "           665           1035           +370         +1  total\n\n"));
    std::string const sThree = sTwo + Snapshot("c.csv", "60; GFX; x.cpp(1)\n90; GFX; x.cpp(2)\n300; AI; y.cpp(7)\n");
    Result_t const Result = RunTool("memory" + sThree);
    EXPECT_EQ(Result.iStatus, 0);
    EXPECT_THAT(Result.sOutput, HasSubstr("            60            150            +90         +1 steady  x.cpp\n"
                                          "             5              0             -5         -1         z.cpp\n"
                                          "           600            300           -300         +0         y.cpp\n"));
    EXPECT_THAT(
        Result.sOutput, HasSubstr("             0             90            +90         +1 steady  x.cpp(2)\n"));
    EXPECT_THAT(RunTool("memory --json" + sThree).sOutput,
        HasSubstr("\"by_file\":[{\"name\":\"x.cpp\",\"bytes\":150,\"blocks\":2,\"growth_bytes\":90,\"growth_blocks\":1,"
                  "\"steady\":true,\"all_bytes\":[60,130,150],\"all_blocks\":[1,2,2]},"));
    EXPECT_THAT(RunTool("memory --json" + sTwo + " " + Folder.Join("absent")).sOutput,
        HasSubstr("absent: there is no such file\n"));
}

TEST(ZqtoolMemory, ReportsWhatIsWrongAndReadsTheRest)
{
    TempFolder_c const Folder;
    std::string const sHead = "Memory allocations\n";
    std::string const sBlock = "60; GFX; x.cpp(12)\n";
    for (auto const & [sWhat, sReport, sExpected] :
        Rows_t<std::string, std::string, std::string>{ { "empty", "", "(1): not a report of allocations" },
            { "foreign", "a;b\n", "(1): not a report of allocations" },
            { "cut short", sHead + sBlock, "(3): the report breaks off" },
            { "no title", sHead + sBlock + "\nTotal\n1; total\n", "(4): not the title of the total: Total\n" },
            { "no total", sHead + sBlock + "\nTotal allocations\nx; total\n", "(5): not a total: x; total\n" },
            { "blocks are missing", REPORT + "0" + TAIL, "(8): the report says 40 blocks, but lists 4" },
            { "bad size", sHead + sBlock + "6x; GFX; y.cpp(1)\n", "(3): not a block: 6x; GFX; y.cpp(1)" },
            { "negative", sHead + sBlock + "-6; GFX; y.cpp(1)\n", "(3): not a block: " },
            { "too large", sHead + "99999999999999999999; GFX; y.cpp(1)\n" + sBlock, "(2): not a block: " },
            { "no source", sHead + "5; GFX\r\n" + sBlock, "(2): not a block: 5; GFX\n" } })
    {
        Result_t const Result = RunTool("memory " + Folder.Write("bad.csv", sReport));
        EXPECT_EQ(Result.iStatus, 1) << sWhat;
        EXPECT_THAT(Result.sOutput, HasSubstr("bad.csv" + sExpected)) << sWhat;
        EXPECT_EQ(Result.sOutput.find("60 100.0%") != std::string::npos, sReport.find(sBlock) != std::string::npos)
            << sWhat;
    }
    EXPECT_EQ(RunTool("memory " + Folder.Join("absent.csv")).iStatus, 1);
    std::string const sFile = Folder.Write("good.csv", REPORT + TAIL);
    EXPECT_EQ(RunTool("memory " + sFile + " --html " + Folder.Join("no/such.html")).iStatus, 1);
    for (char const * szArguments : { "memory", "memory a --html" })
    {
        Result_t const Result = RunTool(szArguments);
        EXPECT_EQ(Result.iStatus, 2) << szArguments;
        EXPECT_THAT(Result.sOutput, HasSubstr("zqtool memory --help")) << szArguments;
    }
}
