// cspreadsheet.h: delimited text as a table with a cursor.
//
// Open reads a whole file. The first row that is not empty names the columns. The others are data. A cursor of one row
// and one column moves over them. Names and values compare without regard to ASCII case.
//
// - A cell is the text between separators, blanks included, or a text in double quotes. In quotes a doubled quote means
//   one quote, and separators are text.
// - Outside quotes, control characters below 0x20 that are not separators end a cell, so a carriage return at the end
//   of a row is no part of a cell. A cell with text on both sides of one is an error.
// - Empty rows are skipped. Each row ends with the row separator. The last one may end with a cell separator instead.
// - A cell without quotes holds 511 characters. A cell in quotes holds 24,575. A longer cell is cut and logged. A cell
//   in quotes ends at the first NUL.
// - Open skips UTF-8's byte order mark and refuses a file in UTF-16.
//
// Ownership: a spreadsheet owns its cells until Close. Open closes the file before it returns.
// Threads: one thread for each object. Open belongs to the main thread, as the table of files does (cfile.h).
// Cost: an open spreadsheet of ordinary cells allocates 1.5 to 3 times the file's size. Finding a column walks over the
// names. Finding a value walks over the rows.
// Failure: calls return false or null, and most of them log a line. GetLastError has the place of an error in the file.
//
//     Spreadsheet_c Levels;
//     float fPrice = 0;
//     if (Levels.Open("levels.csv") && Levels.FindFirstCell("level", "castle"))
//     {
//         Levels.Get("price", fPrice);
//     }
#pragma once

#include "zqcore/carray.h"
#include "zqcore/ctexterror.h"
#include "zqcore/ctextvalue.h"

/// Separators of a spreadsheet.
struct SpreadsheetFmtDesc_t
{
    char cRowSeparator;    // at the end of each row
    char cCellSeparator;   // between cells of a row
};

/// Cells of a row. One block holds their texts and a table of the texts' ends.
class ZQ_API SpreadsheetRow_c
{
public:
    SpreadsheetRow_c() = default;
    virtual ~SpreadsheetRow_c();
    SpreadsheetRow_c(SpreadsheetRow_c const &) = delete;
    SpreadsheetRow_c & operator=(SpreadsheetRow_c const &) = delete;

    /// Appends a copy of the text. Null counts as empty. Invalidates texts that GetCell returned before.
    void AddCell(char const * sText);

    /// Returns the text of a cell. Asserts that 0 <= iCell < GetCellCount(), and returns an empty text otherwise.
    char const * GetCell(int iCell) const;

    /// Returns the number of cells, with the empty ones that pad the row to the length of the head.
    int GetCellCount() const { return m_nCells; }

private:
    friend class Spreadsheet_c;
    friend class SpreadsheetParser_c;

    /// Texts from the front, each terminated. The ends of the texts are stored from the back.
    struct Block_s
    {
        char * pBytes = nullptr;
        std::size_t nBytes = 0;

        std::size_t GetEnd(int iCell) const;
        void SetEnd(int iCell, std::size_t nEnd);
    };

    char * Reserve(std::size_t nText);
    void Commit(std::size_t nText);
    void Clear() { m_nCells = m_nStored = 0; }
    void Grow(std::size_t nNeeded);
    void CopyTo(Block_s & Block) const;
    SpreadsheetRow_c * PackInto(void * pMemory, std::size_t nBlock, int nCells) const;
    std::size_t GetPackedSize() const;
    std::size_t GetTextSize() const;

    /// Returns whether the row is packed: its block is directly after it, in memory that it does not own.
    bool IsPacked() const { return m_Block.pBytes == reinterpret_cast<char const *>(this + 1); }

    Block_s m_Block;
    int m_nCells = 0;    // cells, padding included
    int m_nStored = 0;   // cells in the block; the rest are empty
};

/// Spreadsheet in memory, with a cursor.
class ZQ_API Spreadsheet_c
{
public:
    Spreadsheet_c() = default;
    virtual ~Spreadsheet_c();
    Spreadsheet_c(Spreadsheet_c const &) = delete;
    Spreadsheet_c & operator=(Spreadsheet_c const &) = delete;

    /// Read a file by name and return true. pFmt names the separators. Null means line feed and comma. The cursor is
    /// on the first row, if there is one, and on no column. Return false, with a log line, in the cases below. A
    /// closed spreadsheet then stays closed. An open one keeps its contents.
    /// - the spreadsheet is open already.
    /// - the name is null.
    /// - the file can't be opened or read.
    /// - the file is in UTF-16.
    /// - the file has no row, or an error after the head.
    bool Open(char const * sFileName, SpreadsheetFmtDesc_t const * pFmt);
    bool Open(char const * sFileName) { return Open(sFileName, nullptr); }

    /// Returns why the last Open or Get failed. After a success of Open it may describe a cell that was cut, or a
    /// damaged head, whose rest was read as a row. Only the forms of Get that say so below set it.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// Frees all cells and restores the default separators.
    void Close();

    /// Returns whether a file was read and Close not called since.
    bool IsOpen() const { return m_pHead != nullptr; }

    /// Returns the number of rows, without the head.
    int GetRowCount() const { return m_dRows.GetLength(); }

    /// Returns the index of the current row, or -1 without one.
    int GetCurrentRow() const { return m_iRow; }

    /// Selects a row by its index from 0 and returns true. If there is none, logs a line, selects no row and returns
    /// false.
    bool MoveToRow(int iRow);

    /// Selects the next row, or the first if none was current, selects no column and returns true. After the last row
    /// returns false and selects neither row nor column. Does so while closed too, with a log line.
    bool MoveToNextRow();

    /// Returns the number of cells in the head, 0 while closed. A row may have more cells, which no operation reaches,
    /// but never fewer.
    int GetColumnCount() const { return m_pHead ? m_pHead->GetCellCount() : 0; }

    /// Select a column and return true. The forward search starts after the current column, or at the first column if
    /// there is no current one, so it finds each of several columns that share a name. Return false and select no
    /// column if there is no such column. MoveToNextColumn does so also without a current column.
    bool MoveToFirstColumn();
    bool MoveToNextColumn();
    bool MoveToColumn(char const * sName);
    bool MoveToColumnForward(char const * sName);

    /// Returns the name of the current column, or null without one.
    char const * GetCurrentColumn() const;

    /// Select the column and a row whose cell in it has this value, and return true. FindFirstCell selects the first
    /// such row, FindNextCell the next one after the current row. Return false and select neither row nor column if
    /// there is none. FindNextCell does so also without a current row.
    bool FindFirstCell(char const * sColumn, char const * sValue);
    bool FindNextCell(char const * sColumn, char const * sValue);

    /// Returns the cell at the cursor, or null without a row or a column. It stays valid until Close.
    char const * GetCell() const;

    /// Move to the column and return its cell, or null without such a column or a current row.
    char const * GetCell(char const * sName);
    char const * GetCellForward(char const * sName);

    /// Moves to the column and copies its cell as strncpy does: a cell of iBufLength characters or more fills the
    /// buffer without a terminator, which differs from the rule of cstring.h. Returns false, with the buffer
    /// unchanged, in these cases:
    /// - there is no cell.
    /// - pBuffer is null.
    /// - iBufLength is below 1.
    bool Get(char const * sName, char * pBuffer, int iBufLength);

    /// Moves to the column and reads the number at the start of its cell, in the form of the "C" locale. Reads a text
    /// without one as 0, and a number too large for a float as infinite. Returns false, with fValue unchanged, if the
    /// cell is missing or empty.
    bool Get(char const * sName, float & fValue);

    /// Move to the column and write its cell to a text object (ctextvalue.h), or read it as a whole number, a number or
    /// the name of an enumerator. Return false, with the value unchanged, in these cases:
    /// - the cell is missing, or it is empty and not read as a text.
    /// - the whole cell is no number of the type's range, or no name of the table. This case logs a line, and
    ///   GetLastError has the reason.
    ///
    /// Report in the same way that a String_T cuts the text, but return true.
    template <TextObject_T TEXT>
    bool Get(char const * sName, TEXT & sValue)
    {
        char const * const szCell = GetCell(sName);
        bool const bFits = !szCell || std::strlen(szCell) <= std::size_t{ TextMost<TEXT>() };
        return szCell && TextPut(sValue, szCell) && (bFits || !Refuse(sName, "the text is cut in column"));
    }
    template <Integer_T T>
    bool Get(char const * sName, T & iValue)
    {
        char const * const szCell = GetCell(sName);
        return szCell && *szCell
               && (WholeFromText(szCell, iValue) == WholeNumber_e::Good
                   || Refuse(sName, "there is no whole number in the range of column"));
    }
    bool Get(char const * sName, double & fValue);
    template <typename ENUM>
    bool Get(char const * sName, ENUM & eValue, EnumNames_T<ENUM> dNames)
    {
        char const * const szCell = GetCell(sName);
        return szCell && *szCell
               && (EnumFromName(szCell, eValue, dNames) || Refuse(sName, "there is no known name in column"));
    }

    /// Separators of an Open without a format.
    static constexpr SpreadsheetFmtDesc_t USUAL_FORMAT = { '\n', ',' };

private:
    struct Chunk_s;

    bool Parse(char const * pText, int iLength);
    bool FindCell(int iStartRow, char const * sColumn, char const * sValue);
    bool ClearCursor();
    ZQ_COLD bool Refuse(char const * szColumn, char const * szReason);
    void FreeRows();
    SpreadsheetRow_c * Keep(SpreadsheetRow_c & Row, std::size_t nChunk);

    SpreadsheetFmtDesc_t m_fmt = USUAL_FORMAT;
    SpreadsheetRow_c * m_pHead = nullptr;   // names of the columns, null while closed
    SortedArray_T<SpreadsheetRow_c *, ArrayTraits_T<SpreadsheetRow_c *, 1024, 0>> m_dRows;
    int m_iRow = -1;
    int m_iColumn = -1;
    Chunk_s * m_pChunks = nullptr;   // memory of the packed rows, the newest first
    TextErrors_c m_Errors;
};
