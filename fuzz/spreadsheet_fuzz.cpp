// spreadsheet_fuzz.cpp: sheets of any bytes, beside a reader that takes the tokens of a text parser one by one.
//
// The first two bytes are the separators, or, if they are the same, the usual ones stand; the rest is the file.
#include "fuzz/fuzz_support.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/cstring.h"
#include "zqcore/ctextparser.h"

#include <vector>

namespace
{
    using Row_t = std::vector<std::string>;

    class PlainReader_c
    {
    public:
        PlainReader_c(SpreadsheetFmtDesc_t const & Fmt, std::vector<char> const & dText)
            : m_Fmt(Fmt)
        {
            m_Parser.SetCharacterRule(0x20, -1, PARSING_RULE_WORD_FIRST);
            m_Parser.SetCharacterRule(0x20, -1, PARSING_RULE_WORD_REST);
            m_Parser.SetCharacterRule('"', PARSING_RULE_STRING);
            m_Parser.SetCharacterRule(Fmt.cCellSeparator, PARSING_RULE_SYMBOL);
            m_Parser.SetCharacterRule(Fmt.cRowSeparator, PARSING_RULE_SYMBOL);
            m_Parser.Open(dText.data(), static_cast<int>(dText.size()));
        }

        bool Row(Row_t & dCells, bool & bError)
        {
            dCells.clear();
            bError = false;
            do
            {
                if (!m_Parser.ParseNext())
                {
                    return false;
                }
            }
            while (Is(m_Fmt.cRowSeparator));
            while (Cell(dCells, bError))
            {}
            return true;
        }

    private:
        bool Is(char cSymbol) const { return m_Parser.IsSymbol() && m_Parser.GetSymbol() == cSymbol; }

        bool Cell(Row_t & dCells, bool & bError)
        {
            bool bText = false;
            if (m_Parser.IsString() || m_Parser.IsWord())
            {
                dCells.push_back(m_Parser.IsString() ? m_Parser.GetString() : m_Parser.GetWord());
                m_Parser.ParseNext();
                bText = true;
            }
            if (!bText && (Is(m_Fmt.cRowSeparator) || Is(m_Fmt.cCellSeparator)))
            {
                dCells.emplace_back();
            }
            bError = false;
            if (Is(m_Fmt.cRowSeparator))
            {
                return false;
            }
            if (Is(m_Fmt.cCellSeparator))
            {
                return m_Parser.ParseNext();
            }
            bError = true;
            return false;
        }

        SpreadsheetFmtDesc_t m_Fmt;
        SimpleTextParser_c m_Parser;
    };

    /// Compares the cells that have a name, with one of those that padding added.
    void CompareRow(Spreadsheet_c & Sheet, Row_t const & dCells)
    {
        std::size_t iColumn = 0;
        for (bool bMore = Sheet.MoveToFirstColumn(); bMore && iColumn <= dCells.size();
             bMore = Sheet.MoveToNextColumn())
        {
            Require(Sheet.GetCell() == (iColumn < dCells.size() ? dCells[iColumn] : std::string()));
            ++iColumn;
        }
    }

    /// A search meets the same rows as a walk.
    void CompareSearch(Spreadsheet_c & Sheet)
    {
        Require(Sheet.MoveToRow(Sheet.GetRowCount() / 2) && Sheet.MoveToFirstColumn());
        std::string const sColumn = Sheet.GetCurrentColumn(), sValue = Sheet.GetCell();
        bool bFound = Sheet.FindFirstCell(sColumn.c_str(), sValue.c_str());
        for (int iRow = 0; iRow < Sheet.GetRowCount(); ++iRow)
        {
            int const iFound = bFound ? Sheet.GetCurrentRow() : -1;
            Require(Sheet.MoveToRow(iRow));
            bool const bEqual = StrCompareNoCase(Sheet.GetCell(sColumn.c_str()), sValue.c_str()) == 0;
            Require(bEqual == (iRow == iFound));
            if (bEqual)
            {
                bFound = Sheet.FindNextCell(sColumn.c_str(), sValue.c_str());
            }
            else if (iFound >= 0)
            {
                Sheet.MoveToRow(iFound);
            }
        }
        Require(!bFound);
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    if (nSize < 3)
    {
        return 0;
    }
    SpreadsheetFmtDesc_t Fmt = { static_cast<char>(pData[0]), static_cast<char>(pData[1]) };
    bool const bUsual = pData[0] == pData[1];
    if (bUsual)
    {
        Fmt = { '\n', ',' };
    }
    std::vector<char> const dText(pData + 2, pData + nSize);
    FuzzFile_c::Get().sText.assign(dText.begin(), dText.end());

    Spreadsheet_c Sheet;
    bool const bOpen = Sheet.Open("fuzz.txt", bUsual ? nullptr : &Fmt);
    PlainReader_c Plain(Fmt, dText);
    Row_t dHead, dCells;
    bool bError = false;
    if (!Plain.Row(dHead, bError))
    {
        Require(!bOpen);
        return 0;
    }
    int nRows = 0;
    for (bError = false; Plain.Row(dCells, bError) && !bError; ++nRows)
    {
        if (bOpen)
        {
            Require(Sheet.GetColumnCount() == static_cast<int>(dHead.size()) && Sheet.MoveToRow(nRows));
            CompareRow(Sheet, dCells);
        }
    }
    Require(bOpen == !bError && Sheet.GetRowCount() == (bOpen ? nRows : 0));
    if (nRows > 0 && bOpen)
    {
        CompareSearch(Sheet);
    }
    return 0;
}
