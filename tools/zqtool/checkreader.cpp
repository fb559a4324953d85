#include "tools/zqtool/checkreader.h"

#include "tools/zqtool/help.h"
#include "tools/zqtool/parse.h"
#include "zqcore/clog.h"
#include "zqcore/ctexterror_internal.h"
#include "zqcore/cwarehousescan.h"

#include <cstdio>
#include <utility>

bool ReaderErrors_c::s_bListens = false;
std::vector<Complaint_t> * ReaderErrors_c::s_pComplaints = nullptr;

namespace
{
    // Returns whether a file's name has an ending, in any case. Requires the ending in lower case.
    bool EndsIn(std::string const & sFile, std::string_view sEnd)
    {
        return Lower(sFile).ends_with(sEnd);
    }

    // Returns whether the first column of a line is WAREHOUSE_HEADER, or SuggestHead suggests it for the first line
    // whose first column is not null. That skips blank lines, comments and lines with an empty first cell. Returns
    // false for UTF-16.
    bool HasHead(std::string const & sFile, std::string const & sBytes)
    {
        char const * pText = sBytes.data();
        char const * const pEnd = pText + sBytes.size();
        if (TextSkipMark(pText, pEnd))
        {
            return false;
        }
        WarehouseFormat_e const eFormat = WarehouseSettleFormat(WAREHOUSE_FORMAT_AUTO, sFile.c_str());
        WarehouseScan_t First(pText, static_cast<int>(pEnd - pText), 0, eFormat), Finder = First;
        WarehouseLine_c Line;
        while (First.GetLine(&Line) && Line.IsNull(0))
        {}
        return !SuggestHead(Line).empty() || Finder.FindLine(WAREHOUSE_HEADER, &Line);
    }
}

std::string SuggestHead(WarehouseLine_c const & Line)
{
    std::string_view const sFirst = Line.IsNull(0) ? "" : Line[0];
    return sFirst.starts_with(WAREHOUSE_HEADER[0]) ? Suggestion(sFirst, { WAREHOUSE_HEADER }) : "";
}

ReaderErrors_c::ReaderErrors_c(std::vector<Complaint_t> & dComplaints)
{
    if (!std::exchange(s_bListens, true))
    {
        LogAddCallback(&Listen);
    }
    SetTextErrorLog(true);
    s_pComplaints = &dComplaints;
}

ReaderErrors_c::~ReaderErrors_c()
{
    SetTextErrorLog(false);
    s_pComplaints = nullptr;
}

void ReaderErrors_c::Listen(char const * szLine)
{
    std::string_view sText = szLine;
    if (!s_pComplaints || !TakeStart(sText, CHECKED_KEY))
    {
        return;
    }
    Complaint_t Complaint;
    int nHead = 0;
    if (std::sscanf(szLine + (sizeof CHECKED_KEY - 1), "(%d,%d): %n", &Complaint.iLine, &Complaint.iColumn, &nHead) == 2
        || TakeStart(sText, ": "))
    {
        Complaint.sText = sText.substr(static_cast<std::size_t>(nHead));
        s_pComplaints->push_back(Complaint);
    }
}

TextKind_e TextKindOf(std::string const & sFile, std::string const & sBytes, bool bHead)
{
    if (EndsIn(sFile, ".scr"))
    {
        return TextKind_e::Script;
    }
    if (EndsIn(sFile, ".prp"))
    {
        return TextKind_e::PropertyList;
    }
    if (bHead || HasHead(sFile, sBytes))
    {
        return TextKind_e::Table;
    }
    return EndsIn(sFile, ".csv") ? TextKind_e::Spreadsheet : TextKind_e::None;
}

bool HasTextEnding(std::string const & sFile)
{
    return EndsIn(sFile, ".csv") || EndsIn(sFile, ".txt") || EndsIn(sFile, ".prp") || EndsIn(sFile, ".scr");
}

char const * TextKindName(TextKind_e eKind)
{
    constexpr char const * NAMES[] = { "unknown", "table", "spreadsheet", "property list", "script" };
    return NAMES[static_cast<int>(eKind)];
}
