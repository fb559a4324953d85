// cspreadsheet.h: delimited text as a table with a cursor.
//
// Open reads a whole file: the first row that holds anything names the columns, the others are data. After that the file
// is closed and cells are served from memory, packed row by row: an open spreadsheet of ordinary cells holds one and a
// half to three times the file's size. A cursor of one row and one column moves over them. Names and values compare
// without regard to ASCII case. A column is found by a walk over the head, a value by a walk over the rows. One thread.
//
// The text: a cell is what stands between separators, blanks included, or a text in double quotes, in which a doubled
// quote stands for one and separators are text. Control characters that are no separators end a cell, so a carriage
// return at the end of a row does no harm. Rows that hold nothing are skipped. Each row ends with the row separator;
// only a cell separator may be the file's last character instead. A cell holds 511 characters, one in quotes 24,575; a
// longer one is cut with a line in the log. A cell in quotes ends at a NUL that it holds. UTF-8's byte order mark is
// skipped; a file in UTF-16 is refused.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/ctexterror.h"

struct SpreadsheetFmtDesc_t
{
    char cRowSeparator;
    char cCellSeparator;
};

/// The cells of a row. Their texts lie in one block, with a table of their ends; the row owns it.
class ZQ_API SpreadsheetRow_c
{
public:
    SpreadsheetRow_c() = default;
    virtual ~SpreadsheetRow_c();
    SpreadsheetRow_c(SpreadsheetRow_c const &) = delete;
    SpreadsheetRow_c & operator=(SpreadsheetRow_c const &) = delete;

    /// Appends a copy of the text; null counts as empty. Texts that GetCell gave before become invalid.
    void AddCell(char const * sText);

    /// Requires 0 <= iCell < GetCellCount(); otherwise, with the complaint ignored, an empty text.
    char const * GetCell(int iCell) const;
    int GetCellCount() const { return m_nCells; }

private:
    friend class Spreadsheet_c;
    friend class SpreadsheetParser_c;

    /// Texts from the front, each terminated, and from the back where each of them ends.
    struct Block_t
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
    void CopyTo(Block_t & Block) const;
    SpreadsheetRow_c * PackInto(void * pMemory, std::size_t nBlock, int nCells) const;
    std::size_t GetPackedSize() const;
    std::size_t GetTextSize() const;

    /// A packed row has its block right behind itself, in memory that is not its own.
    bool IsPacked() const { return m_Block.pBytes == reinterpret_cast<char const *>(this + 1); }

    Block_t m_Block;
    int m_nCells = 0;    // cells, with those that padding added
    int m_nStored = 0;   // cells in the block; the others are empty
};

class ZQ_API Spreadsheet_c
{
public:
    Spreadsheet_c() = default;
    virtual ~Spreadsheet_c();
    Spreadsheet_c(Spreadsheet_c const &) = delete;
    Spreadsheet_c & operator=(Spreadsheet_c const &) = delete;

    /// Reads a file by name; pFmt gives other separators than line feed and comma. The cursor stands on the first row,
    /// if there is one, and on no column. False, closed and with a line in the log, if the file can't be opened or read
    /// or holds no row; also on an open spreadsheet, which keeps its file.
    bool Open(char const * sFileName, SpreadsheetFmtDesc_t const * pFmt);
    bool Open(char const * sFileName) { return Open(sFileName, nullptr); }

    /// Why the last Open failed. After one that did not: what was lost, a cut cell or the rest of a damaged head.
    TextError_t const & GetLastError() const { return m_Errors.GetLast(); }

    /// Frees everything; the separators are the usual ones again.
    void Close();
    bool IsOpen() const { return m_pHead != nullptr; }

    /// Rows of data, without the head.
    int GetRowCount() const { return m_dRows.GetLength(); }

    /// Index of the current row, -1 without one.
    int GetCurrentRow() const { return m_iRow; }

    /// Selects a row; out of range, with a line in the log, none.
    bool MoveToRow(int iRow);

    /// Selects no column and the next row, which is the first if none was current; behind the last one false and none.
    bool MoveToNextRow();

    /// Columns that have a name. A row may have more cells, which no operation reaches, but never has fewer.
    int GetColumnCount() const { return m_pHead ? m_pHead->GetCellCount() : 0; }

    /// Select a column; false and no column if there is none. Forward searches start behind the current column, so they
    /// walk through columns of one name.
    bool MoveToFirstColumn();
    bool MoveToNextColumn();
    bool MoveToColumn(char const * sName);
    bool MoveToColumnForward(char const * sName);

    /// Name of the current column; null without one.
    char const * GetCurrentColumn() const;

    /// Move to the first row, or the next one behind the current row, whose cell in that column has this value. False
    /// and neither row nor column if there is none.
    bool FindFirstCell(char const * sColumn, char const * sValue);
    bool FindNextCell(char const * sColumn, char const * sValue);

    /// The cell at the cursor; null without a row or a column. Stays until Close.
    char const * GetCell() const;

    /// Move to the column and give its cell; null without such a column or a current row.
    char const * GetCell(char const * sName);
    char const * GetCellForward(char const * sName);

    /// Copies the named cell as strncpy does: a cell of iBufLength characters or more fills the buffer and leaves no
    /// terminator. False without a cell or a buffer.
    bool Get(char const * sName, char * pBuffer, int iBufLength);

    /// The number at the start of the named cell, in the form of the "C" locale; 0 if none stands there. False, with
    /// the value unchanged, if the cell is missing or empty.
    bool Get(char const * sName, float & fValue);

private:
    struct Chunk_t;

    bool Parse(char const * pText, int iLength);
    bool FindCell(int iStartRow, char const * sColumn, char const * sValue);
    bool ClearCursor();
    void FreeRows();
    SpreadsheetRow_c * Keep(SpreadsheetRow_c & Row, std::size_t nChunk);

    static constexpr SpreadsheetFmtDesc_t USUAL_FORMAT = { '\n', ',' };

    SpreadsheetFmtDesc_t m_fmt = USUAL_FORMAT;
    SpreadsheetRow_c * m_pHead = nullptr;   // the names; null while closed
    SortedArray_T<SpreadsheetRow_c *, ArrayTraits_T<SpreadsheetRow_c *, 1024, 0>> m_dRows;
    int m_iRow = -1;
    int m_iColumn = -1;
    Chunk_t * m_pChunks = nullptr;   // where the rows are packed, the newest first
    TextErrors_c m_Errors;
};
