// allocations_fuzz.cpp: reports of allocations of any bytes, compared with a reader by patterns.
#include "fuzz/fuzz_support.h"
#include "tools/zqtool/allocationreport.h"

#include <cerrno>
#include <regex>
#include <sstream>
#include <vector>

namespace
{
    // Returns the fields of a line that matches a pattern, the first of them a number of 64 bits. Returns none for
    // other lines.
    std::vector<std::string> Fields(std::string const & sLine, std::regex const & Pattern)
    {
        std::smatch Match;
        if (!std::regex_match(sLine, Match, Pattern))
        {
            return {};
        }
        errno = 0;
        std::strtoull(Match[1].str().c_str(), nullptr, 10);   // sets errno above 64 bits
        return errno == 0 ? std::vector<std::string>(Match.begin() + 1, Match.end()) : std::vector<std::string>();
    }

    // Reads the report's contents. Returns the expected number of the reader's complaints.
    int ReadByPatterns(std::istream & Stream, AllocationReport_t & Report)
    {
        static auto const & s_Block = *new std::regex("([0-9]+); ((?:(?!; )[\\s\\S])+); ([\\s\\S]*\\([\\s\\S]*\\))");
        static auto const & s_Blocks = *new std::regex("([0-9]+)\\)");   // after "blocks("
        static auto const & s_Total = *new std::regex("([0-9]+); total");
        std::string sLine;
        auto const Next = [&]
        {
            bool const bRead = static_cast<bool>(std::getline(Stream, sLine));
            sLine.resize(sLine.size() - (bRead && sLine.ends_with('\r')));
            return bRead;
        };
        if (!Next() || sLine != "Memory allocations")
        {
            return 1;
        }
        int nComplaints = 0;
        while (Next() && !sLine.empty())
        {
            auto const dFields = Fields(sLine, s_Block);
            if (dFields.empty())
            {
                ++nComplaints;
                continue;
            }
            auto const dBlocks = Fields(dFields[2].substr(dFields[2].starts_with("blocks(") ? 7 : 0), s_Blocks);
            bool const bAll = dFields[2].starts_with("blocks(") && !dBlocks.empty();
            Holding_t & Holding = Report.dCategories[dFields[1]][bAll ? std::string(ALL_BLOCKS) : dFields[2]];
            Holding = Holding + Holding_t{ bAll ? std::stoull(dBlocks[0]) : 1, std::stoull(dFields[0]) };
        }
        bool const bTitle = Next() && sLine == "Total allocations" && Next();
        auto const dTotal = Fields(bTitle ? sLine : "", s_Total);
        return nComplaints + (dTotal.empty() || std::stoull(dTotal[0]) != Report.Total().nBlocks);
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::istringstream Stream(std::string(pData, pData + nSize)), Same(Stream.str());
    AllocationReport_t Report, Expected;
    int nComplaints = 0;
    bool const bSound =
        ReadAllocationReport(Stream, Report, [&](int iLine, std::string const &) { nComplaints += iLine > 0; });
    Require(bSound == (nComplaints == 0));
    Require(nComplaints == ReadByPatterns(Same, Expected));
    Require(Report.dCategories == Expected.dCategories);
    return 0;
}
