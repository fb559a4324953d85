// zqtool memory: live memory by category, file and source line, from snapshots that MemoryLogAllocations wrote.
#include "tools/zqtool/allocationgrowth.h"
#include "tools/zqtool/allocationreport.h"
#include "tools/zqtool/arguments.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/input.h"
#include "tools/zqtool/json.h"
#include "tools/zqtool/output.h"
#include "tools/zqtool/terminal.h"
#include "tools/zqtool/text.h"
#include "tools/zqtool/treemap.h"

#include <cstdio>
#include <fstream>
#include <memory>

namespace
{
    using Reports_t = std::vector<AllocationReport_t>;

    struct Options_s
    {
        std::vector<std::string> dFiles;
        std::string sPage;
        bool bJson = false;
    };

    struct Grouping_t
    {
        GroupBy_e eBy;
        char const * szColumn;
        char const * szKey;
    };

    constexpr Grouping_t GROUPINGS[] = {
        { GroupBy_e::Category, "category", "by_category" },
        { GroupBy_e::File, "file", "by_file" },
        { GroupBy_e::Line, "source line", "by_line" },
    };

    // Returns a number in the type of "%llu".
    unsigned long long Widened(std::uint64_t nNumber)
    {
        return nNumber;
    }

    void PrintSizes(GrowthRow_t const & Row, std::uint64_t nTotal)
    {
        Holding_t const & Holding = Row.Last();
        double const fPercent =
            nTotal ? 100.0 * static_cast<double>(Holding.nBytes) / static_cast<double>(nTotal) : 0.0;
        std::printf("%14llu %5.1f%% %10llu  %s\n", Widened(Holding.nBytes), fPercent, Widened(Holding.nBlocks),
            Printable(Row.sName).c_str());
    }

    void PrintSizes(char const * szColumn, std::vector<GrowthRow_t> const & dRows, GrowthRow_t const & Total)
    {
        std::printf("%14s %6s %10s  %s\n", "bytes", "share", "blocks", szColumn);
        for (GrowthRow_t const & Row : dRows)
        {
            PrintSizes(Row, Total.Last().nBytes);
        }
        PrintSizes(Total, Total.Last().nBytes);
    }

    void PrintGrowth(GrowthRow_t const & Row)
    {
        char szGrown[32], szSteady[32] = "";
        std::snprintf(szGrown, sizeof szGrown, "%+14lld", static_cast<long long>(Row.GrownBytes()));
        if (Row.dHoldings.size() > 2)
        {
            std::snprintf(szSteady, sizeof szSteady, " %6s", Row.IsSteady() ? "steady" : "");
        }
        std::printf("%14llu %14llu %s %+10lld%s  %s\n", Widened(Row.First().nBytes), Widened(Row.Last().nBytes),
            Row.GrownBytes() > 0 ? Painted(szGrown, Colour_e::Bad).c_str() : szGrown,
            static_cast<long long>(Row.GrownBlocks()), Painted(szSteady, Colour_e::Mark).c_str(),
            Printable(Row.sName).c_str());
    }

    // Prints the rows whose last holding differs from the first, and the total.
    void PrintGrowth(char const * szColumn, std::vector<GrowthRow_t> const & dRows, GrowthRow_t const & Total)
    {
        std::printf("%14s %14s %14s %10s%s  %s\n", "first bytes", "last bytes", "growth", "blocks",
            Total.dHoldings.size() > 2 ? "       " : "", szColumn);
        for (GrowthRow_t const & Row : dRows)
        {
            if (Row.First() != Row.Last())
            {
                PrintGrowth(Row);
            }
        }
        PrintGrowth(Total);
    }

    void Print(Reports_t const & dReports)
    {
        GrowthRow_t const Total = GrowthOfAll(dReports);
        for (auto const & [eBy, szColumn, szKey] : GROUPINGS)
        {
            if (eBy != GroupBy_e::Category)
            {
                std::puts("");
            }
            if (dReports.size() == 1)
            {
                PrintSizes(szColumn, GrowthBy(eBy, dReports), Total);
            }
            else
            {
                PrintGrowth(szColumn, GrowthBy(eBy, dReports), Total);
            }
        }
    }

    Json_t JsonOf(GrowthRow_t const & Row)
    {
        Json_t Json = { { "name", Row.sName }, { "bytes", Row.Last().nBytes }, { "blocks", Row.Last().nBlocks } };
        if (Row.dHoldings.size() > 1)
        {
            Json["growth_bytes"] = Row.GrownBytes();
            Json["growth_blocks"] = Row.GrownBlocks();
            Json["steady"] = Row.IsSteady();
            for (Holding_t const & Holding : Row.dHoldings)
            {
                Json["all_bytes"].push_back(Holding.nBytes);
                Json["all_blocks"].push_back(Holding.nBlocks);
            }
        }
        return Json;
    }

    void PrintAsJson(Reports_t const & dReports, std::vector<std::string> const & dFiles)
    {
        Json_t Json = { { "files", dFiles }, { "total", JsonOf(GrowthOfAll(dReports)) } };
        Json["total"].erase("name");
        for (auto const & [eBy, szColumn, szKey] : GROUPINGS)
        {
            Json_t & Rows = Json[szKey] = Json_t::array();
            for (GrowthRow_t const & Row : GrowthBy(eBy, dReports))
            {
                Rows.push_back(JsonOf(Row));
            }
        }
        PrintJson(Json);
    }

    // Adds a snapshot with all that can be read, or none if the file can't be opened. Returns false, and prints why, if
    // the file has a fault or can't be opened.
    bool Read(std::string const & sFile, Reports_t & dReports)
    {
        std::ifstream Stream;
        if (std::string const sWhyNot = OpenInput(sFile, Stream); !sWhyNot.empty())
        {
            PrintProblem(sFile, sWhyNot);
            return false;
        }
        return ReadAllocationReport(Stream, dReports.emplace_back(),
            [&](int iLine, std::string const & sText) { PrintProblem(sFile, iLine, sText); });
    }

    int Run(Options_s const & Options)
    {
        Reports_t dReports;
        OutputFile_c Page;
        bool bSound = true;
        for (std::string const & sFile : Options.dFiles)
        {
            bSound = Read(sFile, dReports) && bSound;
        }
        if (dReports.size() != Options.dFiles.size() || !Page.Open(Options.sPage, Options.dFiles))
        {
            return EXIT_FOUND;
        }
        if (Page.IsWanted())   // before the text: what reads that may end first
        {
            WriteTreemapPage(Page.Get(), dReports);
            bSound = Page.Close() && bSound;
        }
        if (Options.bJson)
        {
            PrintAsJson(dReports, Options.dFiles);
        }
        else
        {
            Print(dReports);
        }
        return bSound ? EXIT_DONE : EXIT_FOUND;
    }
}

CommandRun_t PrepareMemory(Arguments_c & Arguments)
{
    auto const pOptions = std::make_shared<Options_s>();
    Arguments
        .AddTexts("FILE", "", pOptions->dFiles,
            "snapshots of MemoryLogAllocations: one shows sizes, two show growth, more also show what grows steadily")
        .SetRequired();
    Arguments.AddText(
        "--html", "OUT", pOptions->sPage, "write a treemap of the last snapshot, or of the growth, as one page");
    Arguments.AddJson(pOptions->bJson);
    Arguments.SetFooter("Example: zqtool memory --html map.html monday/allocations.csv tuesday/allocations.csv");
    return [pOptions] { return Run(*pOptions); };
}
