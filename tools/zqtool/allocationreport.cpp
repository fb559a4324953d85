#include "tools/zqtool/allocationreport.h"

#include "tools/zqtool/parse.h"

#include <istream>
#include <string_view>

namespace
{
    constexpr char SEPARATOR[] = "; ";

    // Returns N of "blocks(N)", the place of all blocks of a category in the snapshot of a shipped game's heap. Returns
    // nothing for any other place.
    std::optional<std::uint64_t> BlocksOfCategory(std::string_view sPlace)
    {
        constexpr std::string_view START = "blocks(";
        return sPlace.starts_with(START) && sPlace.ends_with(')')
                   ? WholeNumber(sPlace.substr(START.size(), sPlace.size() - START.size() - 1), 10)
                   : std::nullopt;
    }

    // Reads "size; category; file(line)". The name of the file and the text in parentheses may hold any character.
    // Returns false for any other line.
    bool ReadBlock(std::string_view sLine, AllocationReport_t & Report)
    {
        std::string_view const sSize = TakeUpTo(sLine, SEPARATOR), sCategory = TakeUpTo(sLine, SEPARATOR);
        std::optional<std::uint64_t> const Bytes = WholeNumber(sSize, 10);
        if (!Bytes || sCategory.empty() || !sLine.ends_with(')') || sLine.find('(') == std::string_view::npos)
        {
            return false;
        }
        std::optional<std::uint64_t> const Blocks = BlocksOfCategory(sLine);
        Holding_t & Holding = Report.dCategories[std::string(sCategory)][Blocks ? ALL_BLOCKS : std::string(sLine)];
        Holding = Holding + Holding_t{ Blocks.value_or(1), *Bytes };
        return true;
    }

    // Reads a line without its end, LF or CR LF. Returns false after the last one.
    bool ReadLine(std::istream & Stream, std::string & sLine)
    {
        bool const bRead = static_cast<bool>(std::getline(Stream, sLine));
        if (bRead && sLine.ends_with('\r'))
        {
            sLine.pop_back();
        }
        return bRead;
    }

    // Reads the title of the total, and "count; total" with the number of the report's blocks. Counts the lines.
    // Returns what is wrong with the last one, or an empty text.
    std::string ReadTotal(std::istream & Stream, int & iLine, std::uint64_t & nBlocks)
    {
        std::string sLine;
        for (bool const bTitle : { true, false })
        {
            ++iLine;
            if (!ReadLine(Stream, sLine))
            {
                return "the report breaks off";
            }
            if (bTitle && sLine != "Total allocations")
            {
                return "not the title of the total: " + sLine;
            }
        }
        std::string_view sRest = sLine;
        std::optional<std::uint64_t> const Count = WholeNumber(TakeUpTo(sRest, SEPARATOR), 10);
        nBlocks = Count.value_or(0);
        return Count && sRest == "total" ? "" : "not a total: " + sLine;
    }
}

Holding_t AllocationReport_t::Total() const
{
    Holding_t Sum;
    for (auto const & [sCategory, dLines] : dCategories)
    {
        for (auto const & [sLine, Holding] : dLines)
        {
            Sum = Sum + Holding;
        }
    }
    return Sum;
}

bool ReadAllocationReport(std::istream & Stream, AllocationReport_t & Report,
    std::function<void(int iLine, std::string const & sText)> const & fnComplain)
{
    bool bSound = true;
    auto const Complain = [&](int iLine, std::string const & sText)
    {
        fnComplain(iLine, sText);
        bSound = false;
    };
    std::string sLine;
    if (!ReadLine(Stream, sLine) || sLine != "Memory allocations")
    {
        Complain(1, "not a report of allocations");
        return false;
    }
    int iLine = 2;
    for (; ReadLine(Stream, sLine) && !sLine.empty(); ++iLine)
    {
        if (!ReadBlock(sLine, Report))
        {
            Complain(iLine, "not a block: " + sLine);
        }
    }
    iLine -= Stream ? 0 : 1;   // the text ended before the empty line
    std::uint64_t nTotal = 0;
    if (std::string const sWrong = ReadTotal(Stream, iLine, nTotal); !sWrong.empty())
    {
        Complain(iLine, sWrong);
    }
    else if (nTotal != Report.Total().nBlocks)
    {
        Complain(iLine, "the report says " + std::to_string(nTotal) + " blocks, but lists "
                            + std::to_string(Report.Total().nBlocks));
    }
    return bSound;
}
