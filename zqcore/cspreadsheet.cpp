#include "zqcore/cspreadsheet.h"

#include "zqcore/cfile.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cnumbertext_internal.h"
#include "zqcore/cstring.h"

#include <cmath>
#include <cstring>

Spreadsheet_c::~Spreadsheet_c()
{
    Close();
}

bool Spreadsheet_c::Open(char const * sFileName, SpreadsheetFmtDesc_t const * pFmt)
{
    if (IsOpen() && sFileName)
    {
        LogEscaped("Spreadsheet_c::Open ( \"%s\" ) : reentry. Was opened yet.", sFileName);
        return m_Errors.Fail("a file is open already");
    }
    m_Errors.Begin(sFileName);
    if (!sFileName)
    {
        Log("Spreadsheet_c::Open : file name isn't specified.");
        return m_Errors.Fail("no file name was given");
    }
    File_c * const pFile = FileOpenUnlogged(sFileName);
    if (!pFile)
    {
        LogEscaped("Spreadsheet_c::Open ( \"%s\" ) : can't open file.", sFileName);
        return m_Errors.Fail(FileGetWhyNot(sFileName));
    }
    if (pFmt)
    {
        m_fmt = *pFmt;
    }
    bool const bParsed = Parse(reinterpret_cast<char const *>(pFile->pData), pFile->iLength);
    FileClose(pFile);
    if (!bParsed)
    {
        Close();
        return false;
    }
    m_iRow = m_dRows.IsEmpty() ? -1 : 0;
    m_iColumn = -1;
    return true;
}

void Spreadsheet_c::Close()
{
    FreeRows();
    ClearCursor();
    m_fmt = USUAL_FORMAT;
}

// Selects neither row nor column and returns false.
bool Spreadsheet_c::ClearCursor()
{
    m_iRow = -1;
    m_iColumn = -1;
    return false;
}

bool Spreadsheet_c::MoveToRow(int iRow)
{
    m_iRow = -1;
    if (!IsOpen())
    {
        Log("Spreadsheet_c::MoveToRow : spreadsheet wasn't opened.");
        return false;
    }
    if (iRow < 0 || iRow >= GetRowCount())
    {
        Log("Spreadsheet_c::MoveToRow : out of range.");
        return false;
    }
    m_iRow = iRow;
    return true;
}

bool Spreadsheet_c::MoveToNextRow()
{
    m_iColumn = -1;
    if (IsOpen() && m_iRow + 1 >= GetRowCount())
    {
        m_iRow = -1;
        return false;
    }
    return MoveToRow(m_iRow + 1);
}

bool Spreadsheet_c::MoveToFirstColumn()
{
    m_iColumn = -1;
    if (!IsOpen())
    {
        Log("Spreadsheet_c::MoveToFirstCol() : wasn't opened.");
        return false;
    }
    if (GetColumnCount() == 0)
    {
        Log("Spreadsheet_c::MoveToFirstCol() : empty spreadsheet.");
        return false;
    }
    m_iColumn = 0;
    return true;
}

bool Spreadsheet_c::MoveToNextColumn()
{
    if (m_iColumn < 0)
    {
        Log("Spreadsheet_c::MoveToNextCol : current column unspecified");
        return false;
    }
    ++m_iColumn;
    if (m_iColumn >= GetColumnCount())
    {
        m_iColumn = -1;
    }
    return m_iColumn >= 0;
}

bool Spreadsheet_c::MoveToColumn(char const * sName)
{
    m_iColumn = -1;
    return MoveToColumnForward(sName);
}

bool Spreadsheet_c::MoveToColumnForward(char const * sName)
{
    int const iFirst = m_iColumn + 1;
    m_iColumn = -1;
    if (!sName)
    {
        Log("Spreadsheet_c::MoveToColumn : column name isn't specified.");
        return false;
    }
    if (!IsOpen())
    {
        LogEscaped("Spreadsheet_c::MoveToColumn( \"%s\" ) : wasn't opened.", sName);
        return false;
    }
    for (int i = iFirst; i < GetColumnCount(); ++i)
    {
        if (StrCompareNoCase(m_pHead->GetCell(i), sName) == 0)
        {
            m_iColumn = i;
            return true;
        }
    }
    return false;
}

char const * Spreadsheet_c::GetCurrentColumn() const
{
    return m_iColumn >= 0 ? m_pHead->GetCell(m_iColumn) : nullptr;
}

bool Spreadsheet_c::FindFirstCell(char const * sColumn, char const * sValue)
{
    if (!IsOpen())
    {
        Log("Spreadsheet_c::FindNextCell : closed spreadseet.");
        return ClearCursor();
    }
    return FindCell(0, sColumn, sValue);
}

bool Spreadsheet_c::FindNextCell(char const * sColumn, char const * sValue)
{
    if (m_iRow < 0)
    {
        Log("Spreadsheet_c::FindNextCell : current row unspecified.");
        return ClearCursor();
    }
    return FindCell(m_iRow + 1, sColumn, sValue);
}

bool Spreadsheet_c::FindCell(int iStartRow, char const * sColumn, char const * sValue)
{
    ClearCursor();
    if (!sColumn)
    {
        Log("Spreadsheet_c::FindCell : unspecified column name.");
        return false;
    }
    if (!sValue)
    {
        Log("Spreadsheet_c::FindCell : unspecified column value");
        return false;
    }
    if (!MoveToColumn(sColumn))
    {
        return false;
    }
    for (m_iRow = iStartRow; m_iRow < GetRowCount(); ++m_iRow)
    {
        if (StrCompareNoCase(GetCell(), sValue) == 0)
        {
            return true;
        }
    }
    return ClearCursor();
}

char const * Spreadsheet_c::GetCell() const
{
    return m_iRow >= 0 && m_iColumn >= 0 ? m_dRows[m_iRow]->GetCell(m_iColumn) : nullptr;
}

char const * Spreadsheet_c::GetCell(char const * sName)
{
    return MoveToColumn(sName) ? GetCell() : nullptr;
}

char const * Spreadsheet_c::GetCellForward(char const * sName)
{
    return MoveToColumnForward(sName) ? GetCell() : nullptr;
}

bool Spreadsheet_c::Get(char const * sName, char * pBuffer, int iBufLength)
{
    char const * const szCell = GetCell(sName);
    if (!szCell || !pBuffer || iBufLength <= 0)
    {
        return false;
    }
    std::strncpy(pBuffer, szCell, static_cast<std::size_t>(iBufLength));
    return true;
}

bool Spreadsheet_c::Get(char const * sName, float & fValue)
{
    char const * const szCell = GetCell(sName);
    if (!szCell || !*szCell)
    {
        return false;
    }
    fValue = TextToFloat(szCell);
    return true;
}

bool Spreadsheet_c::Get(char const * sName, double & fValue)
{
    char const * const szCell = GetCell(sName);
    if (!szCell || !*szCell)
    {
        return false;
    }
    double fRead;
    NumberEnd_t const End = TextToDouble(szCell, fRead);
    if (End.pEnd == szCell || *End.pEnd != '\0' || !End.bInRange || !std::isfinite(fRead))
    {
        return Refuse(sName, "there is no number in column");
    }
    fValue = fRead;
    return true;
}

// Logs what is wrong with a cell, stores it as the error without a place, and returns false.
bool Spreadsheet_c::Refuse(char const * szColumn, char const * szReason)
{
    LogEscaped("Spreadsheet_c::Get ( \"%s\" ) : %s.", szColumn, szReason);
    return m_Errors.Fail(szReason, szColumn);
}
