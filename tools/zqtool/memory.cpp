// zqtool memory: lists live memory by category and by source line, from a report of MemoryLogAllocations.
#include "tools/zqtool/allocationreport.h"
#include "tools/zqtool/command.h"
#include "tools/zqtool/output.h"
#include "tools/zqtool/text.h"
#include "tools/zqtool/treemap.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>

namespace
{
    using Row_t = std::pair<std::string, Holding_t>;

    // Sorts by size, largest first, then by name.
    void SortRows(std::vector<Row_t> & dRows)
    {
        std::sort(dRows.begin(), dRows.end(),
            [](Row_t const & A, Row_t const & B)
            { return A.second.nBytes != B.second.nBytes ? A.second.nBytes > B.second.nBytes : A.first < B.first; });
    }

    Holding_t SumOf(std::map<std::string, Holding_t> const & dLines)
    {
        Holding_t Sum;
        for (auto const & [sLine, Holding] : dLines)
        {
            Sum.Add(Holding);
        }
        return Sum;
    }

    std::vector<Row_t> ByCategory(AllocationReport_t const & Report)
    {
        std::vector<Row_t> dRows;
        for (auto const & [sCategory, dLines] : Report.dCategories)
        {
            dRows.emplace_back(sCategory, SumOf(dLines));
        }
        SortRows(dRows);
        return dRows;
    }

    std::vector<Row_t> ByLine(AllocationReport_t const & Report)
    {
        std::map<std::string, Holding_t> dSums;
        for (auto const & [sCategory, dLines] : Report.dCategories)
        {
            for (auto const & [sLine, Holding] : dLines)
            {
                dSums[sLine].Add(Holding);
            }
        }
        std::vector<Row_t> dRows(dSums.begin(), dSums.end());
        SortRows(dRows);
        return dRows;
    }

    unsigned long long Wide(std::uint64_t n)
    {
        return n;
    }

    void PrintRow(Holding_t const & Holding, std::uint64_t nTotal, std::string const & sName)
    {
        double const fPercent =
            nTotal ? 100.0 * static_cast<double>(Holding.nBytes) / static_cast<double>(nTotal) : 0.0;
        std::printf("%14llu %5.1f%% %10llu  %s\n", Wide(Holding.nBytes), fPercent, Wide(Holding.nBlocks),
            Printable(sName).c_str());
    }

    void PrintTable(char const * szColumn, std::vector<Row_t> const & dRows, Holding_t const & Total)
    {
        std::printf("%14s %6s %10s  %s\n", "bytes", "share", "blocks", szColumn);
        for (auto const & [sName, Holding] : dRows)
        {
            PrintRow(Holding, Total.nBytes, sName);
        }
        PrintRow(Total, Total.nBytes, "total");
    }

    TreemapPart_t PartOf(Row_t const & Row)
    {
        auto const & [sName, Holding] = Row;
        return { sName, std::to_string(Holding.nBytes) + " bytes in " + std::to_string(Holding.nBlocks) + " blocks",
            Holding.nBytes };
    }

    void WritePage(std::ostream & Stream, AllocationReport_t const & Report)
    {
        std::vector<TreemapGroup_t> dGroups;
        for (Row_t const & Category : ByCategory(Report))
        {
            auto const & dLines = Report.dCategories.at(Category.first);
            std::vector<Row_t> dRows(dLines.begin(), dLines.end());
            SortRows(dRows);
            TreemapGroup_t & Group = dGroups.emplace_back();
            Group.Whole = PartOf(Category);
            std::transform(dRows.begin(), dRows.end(), std::back_inserter(Group.dParts), PartOf);
        }
        Stream << TreemapPage("Live memory: " + PartOf({ "", Report.Total() }).sNote, dGroups);
    }

    int Run(std::string const & sFile, std::string const & sPage)
    {
        std::ifstream Stream(sFile, std::ios::binary);
        if (!Stream)
        {
            std::fprintf(stderr, "zqtool: can't open %s\n", Printable(sFile).c_str());
            return EXIT_FOUND;
        }
        OutputFile_c Page;
        if (!Page.Open(sPage, { sFile }))
        {
            return EXIT_FOUND;
        }
        AllocationReport_t Report;
        bool bSound = ReadAllocationReport(Stream, Report,
            [&](int iLine, std::string const & sText)
            { std::fprintf(stderr, "%s(%i): %s\n", Printable(sFile).c_str(), iLine, Printable(sText).c_str()); });
        Holding_t const Total = Report.Total();
        PrintTable("category", ByCategory(Report), Total);
        std::puts("");
        PrintTable("source line", ByLine(Report), Total);
        if (Page.IsWanted())
        {
            WritePage(Page.Get(), Report);
            bSound = Page.Close() && bSound;
        }
        return bSound ? EXIT_DONE : EXIT_FOUND;
    }
}

CommandRun_t PrepareMemory(CLI::App & App)
{
    struct Options_s
    {
        std::string sFile, sPage;
    };
    auto const pOptions = std::make_shared<Options_s>();
    App.add_option("FILE", pOptions->sFile, "report of MemoryLogAllocations")->type_name("")->required();
    App.add_option("--html", pOptions->sPage, "write a treemap as one page")->type_name("OUT");
    return [pOptions] { return Run(pOptions->sFile, pOptions->sPage); };
}
