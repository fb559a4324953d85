// cspreadsheet_internal.h: the parser of spreadsheets.
#pragma once

#include "zqcore/cspreadsheet.h"
#include "zqcore/ctextparser.h"
#include "zqcore/ctextparser_internal.h"

#include <functional>

/// Parser of rows of cells in a text. Requires that the text outlives it.
class SpreadsheetParser_c
{
public:
    /// Begins a text of iLength bytes. Errors name szFile.
    SpreadsheetParser_c(char const * szFile, SpreadsheetFmtDesc_t const & Fmt, char const * pText, int iLength);

    /// Reads the next row that is not empty into Row, sets bError to whether that row has an error, and returns true.
    /// After an error the next row begins after the token that stopped this one. Requires that Row is empty. Returns
    /// false after the last row.
    bool ParseRow(SpreadsheetRow_c & Row, bool & bError);

    /// Returns the position of the first cell of the row that ParseRow read last, in bytes from the start of the text
    /// after its byte order mark.
    std::size_t GetRowStart() const { return m_nRowStart; }

    /// Reads the first row. Calls fnFound with the position of each cell, then with that of the row's end, as
    /// GetRowStart counts them. Requires that the text begins with the row.
    void FindCells(std::function<void(std::size_t)> const & fnFound);

    /// Returns the last error, for the readers.
    TextErrors_c & GetErrors() { return m_Parser.m_Errors; }

private:
    bool ParseCell(SpreadsheetRow_c & Row, bool & bError);
    void AddToken(SpreadsheetRow_c & Row);
    void ReportToken(bool bQuoted);
    void ReportOverflow();
    std::size_t GetRoom() const;
    bool Next() { return m_Parser.NextToken(m_Token); }
    bool IsSymbol(char cSymbol) const { return m_Token.eKind == LAST_PARSED_SYMBOL && *m_Token.pText == cSymbol; }

    SimpleTextParser_c m_Parser;
    SpreadsheetFmtDesc_t const m_Fmt;
    TextToken_t m_Token;
    std::size_t m_nRowStart = 0;
};
