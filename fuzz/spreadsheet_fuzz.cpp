// spreadsheet_fuzz.cpp: sheets of any bytes, compared with a reader of a text parser's tokens.
//
// The first two bytes are the separators. If both are the same, the usual ones are used. The rest is the file.
#include "fuzz/fuzz_support.h"
#include "zqcore/cspreadsheet.h"
#include "zqcore/ctextparser.h"

#include <vector>

namespace
{
    using Row_t = std::vector<std::string>;

    // Reads the next row that holds anything. Returns false at the end of the text. Sets bError to whether a separator
    // is missing.
    bool ReadRow(SimpleTextParser_c & Parser, SpreadsheetFmtDesc_t const & Fmt, Row_t & dCells, bool & bError)
    {
        auto const Is = [&](char cSymbol) { return Parser.IsSymbol() && Parser.GetSymbol() == cSymbol; };
        dCells.clear();
        bool bMore;
        do
        {
            bMore = Parser.ParseNext();
        }
        while (Is(Fmt.cRowSeparator));
        bool const bRow = bMore;
        bError = false;
        while (bMore)
        {
            bool const bText = Parser.IsString() || Parser.IsWord();
            if (bText)
            {
                dCells.push_back(Parser.IsString() ? Parser.GetString() : Parser.GetWord());
                Parser.ParseNext();
            }
            bError = !Is(Fmt.cRowSeparator) && !Is(Fmt.cCellSeparator);
            if (!bText && !bError)
            {
                dCells.emplace_back();
            }
            bMore = !bError && !Is(Fmt.cRowSeparator) && Parser.ParseNext();
        }
        return bRow;
    }

    // Compares the first MAX_COLUMNS cells that have a name. Checks that a search for the contents of the first cell of
    // each name ends in this row or an earlier one.
    void CompareRow(Spreadsheet_c & Sheet, int iRow, Row_t const & dCells)
    {
        constexpr int MAX_COLUMNS = 20;   // the time grows with its square
        for (int iColumn = 0; iColumn < std::min(Sheet.GetColumnCount(), MAX_COLUMNS); ++iColumn)
        {
            Require(Sheet.MoveToRow(iRow));
            Require(Sheet.MoveToFirstColumn());
            for (int i = 0; i < iColumn; ++i)
            {
                Require(Sheet.MoveToNextColumn());
            }
            auto const iCell = static_cast<std::size_t>(iColumn);
            std::string const sCell = Sheet.GetCell(), sName = Sheet.GetCurrentColumn();
            Require(sCell == (iCell < dCells.size() ? dCells[iCell] : std::string()));
            std::string const sNamed = Sheet.GetCell(sName.c_str());
            Require(Sheet.FindFirstCell(sName.c_str(), sNamed.c_str()));
            Require(Sheet.GetCurrentRow() <= iRow);
            Require(StrCompareNoCase(Sheet.GetCell(), sNamed.c_str()) == 0);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    Input_c Input(pData, nSize);
    SpreadsheetFmtDesc_t Fmt = { Input.Get<char>(), Input.Get<char>() };
    bool const bUsual = Fmt.cRowSeparator == Fmt.cCellSeparator;
    Fmt = bUsual ? Spreadsheet_c::USUAL_FORMAT : Fmt;
    std::string & sText = FuzzFile_c::Get().m_sText = Input.Extract();
    Spreadsheet_c Sheet;
    bool const bOpen = Sheet.Open("fuzz.txt", bUsual ? nullptr : &Fmt);
    TextError_t const & Error = Sheet.GetLastError();
    Require(bOpen || Error.IsSet());
    Require(Error.iLine <= static_cast<int>(nSize));
    Require(Error.iColumn <= static_cast<int>(nSize));
    std::string_view sRead(sText);
    if (!SkipMark(sRead))
    {
        Require(!bOpen);
        return 0;
    }

    SimpleTextParser_c Parser;
    Parser.SetCharacterRule(0x20, -1, PARSING_RULE_WORD_FIRST);
    Parser.SetCharacterRule(0x20, -1, PARSING_RULE_WORD_REST);
    Parser.SetCharacterRule('"', PARSING_RULE_STRING);
    Parser.SetCharacterRule(Fmt.cCellSeparator, PARSING_RULE_SYMBOL);
    Parser.SetCharacterRule(Fmt.cRowSeparator, PARSING_RULE_SYMBOL);
    Parser.Open(sText.data(), static_cast<int>(sText.size()));
    Row_t dHead, dCells;
    bool bError;
    bool const bHead = ReadRow(Parser, Fmt, dHead, bError);
    bError = !bHead;   // an error in the head ends only the head
    int nRows = 0;
    while (!bError && ReadRow(Parser, Fmt, dCells, bError) && !bError)
    {
        if (bOpen)
        {
            Require(Sheet.GetColumnCount() == static_cast<int>(dHead.size()));
            CompareRow(Sheet, nRows, dCells);
        }
        ++nRows;
    }
    Require(bOpen == !bError);
    Require(Sheet.GetRowCount() == (bOpen ? nRows : 0));
    return 0;
}
