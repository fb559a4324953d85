// cwarehousescan.h: line scanner of warehouse tables and property lists.
//
// A table is text in lines. A line consists of columns. `#` at the start of a column begins a comment up to the end
// of the line. docs/formats.md describes both formats, with their quotes.
//
// WarehouseScan_t scans the caller's bytes. They may have any values and need no terminator. The scan never reads
// beyond their end. WarehouseLine_c holds the columns of one line.
//
// Ownership: the caller keeps the bytes. A line owns its columns, each a heap block of its own.
// Threads: one thread for each scan and each line.
// Cost: linear in the bytes scanned. Reading a line allocates its columns. Skipping lines (FindLine, NextItem)
// allocates nothing.
// Failure: a call returns false at the end of the data.
//
//     char const szText[] = "@head health\nogre 100\nelf 60\n";
//     WarehouseScan_t Scan(szText, sizeof szText - 1, 0, WAREHOUSE_FORMAT_TEXT);
//     WarehouseLine_c Line;
//     int nLines = 0;
//     while (Scan.NextItem(&Line, nLines))
//     {
//         Log("%s has %s.", Line[0], Line[1]);
//     }
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cstring.h"

#include <climits>

/// Format of a file: how a line is split.
enum WarehouseFormat_e
{
    WAREHOUSE_FORMAT_AUTO = 0,   // CSV if the file's name ends in ".csv", else text
    WAREHOUSE_FORMAT_TEXT = 1,   // columns separated by blanks
    WAREHOUSE_FORMAT_CSV = 2     // cells between separators; a cell may be empty
};

/// Separators of the two formats.
inline constexpr char const * WAREHOUSE_TEXT_SEPARATORS = " \t\r";
inline constexpr char const * WAREHOUSE_CSV_SEPARATORS = ";,";

/// First column of a header line, without regard to case.
inline constexpr char const * WAREHOUSE_HEADER = "@head";

/// Maximum bytes of a quoted CSV cell. The rest is dropped.
inline constexpr int WAREHOUSE_CELL_SIZE = 0x6000;

/// Columns of a line. A column is a terminated text, or null if it is empty. It may hold NUL bytes of the data. As a
/// text it then ends at the first one.
class WarehouseLine_c : public SortedArray_T<char *, ArrayTraits_T<char *, 32, 0>>
{
public:
    WarehouseLine_c() = default;
    ZQ_API ~WarehouseLine_c();

    /// Frees all columns. The array of pointers stays for the next line.
    ZQ_API void Reset();

    /// Appends a copy of nBytes. A null text, or an nBytes of 0 or less, appends a null column. The first column of the
    /// line becomes lower case.
    ZQ_API void AddColumn(char const * pText, int nBytes);

    /// Moves a column of the other line here, unchanged, and leaves null there. A column that the other line does not
    /// have is appended as null.
    ZQ_API void AddColumn(WarehouseLine_c & Other, int iColumn);

    /// Free and remove the first or the last column. An empty line stays empty.
    ZQ_API void DelFirst();
    ZQ_API void DelLast();

    /// Returns whether the first column is WAREHOUSE_HEADER.
    ZQ_API bool IsHeader() const;

    /// Returns whether a column is null. Returns true for an index outside the line too.
    ZQ_API bool IsNull(int iColumn) const;
};

/// A scan over lines. A line feed outside quotes ends a line, and so does the end of the data.
struct WarehouseScan_t
{
    char const * pLine;          // data, not owned, not terminated
    int nLength;                 // bytes of the data
    int nPos;                    // position of the next byte, 0 to nLength
    bool bCsv;                   // whether the format is CSV, not text
    String_T<256> sSeparators;   // separators; NUL is one too, but begins a column in a text scan

    /// Starts at nPos with the separators of the format. Every format but WAREHOUSE_FORMAT_CSV means text. Requires
    /// nPos >= 0.
    ZQ_API WarehouseScan_t(char const * pData, int nLength, int nPos, WarehouseFormat_e eFormat);

    /// Sets the separators, cut at 255 bytes. Null selects those of the text format, in a CSV scan too. A line feed, a
    /// quote, a blank or a `#` among them has these effects:
    /// - A line feed ends a column that has begun, but not the line. At the start of a CSV cell it ends the line.
    /// - A quote ends a column that has begun, and begins no quoted one. At the start of a CSV cell it begins one.
    /// - A blank ends a CSV cell that has begun. At the start of a cell it is skipped, so it makes no empty cell.
    /// - A `#` ends a column that has begun, and begins no comment. At the start of a CSV cell it begins one.
    ZQ_API void SetSeparators(char const * sSeparators);

    /// Reads a line. For a blank line or a comment returns true and an empty line. Returns false, with an empty line,
    /// at the end of the data.
    ZQ_API bool GetLine(WarehouseLine_c * pLine);

    /// Skips lines up to the first one whose first column equals sFirst without regard to case, and reads it. Returns
    /// false, with an empty line and the position at the end, if there is none.
    ZQ_API bool FindLine(char const * sFirst, WarehouseLine_c * pLine);

    /// Skips header lines and lines whose first column is missing or null, and reads the next line. Adds the number of
    /// lines skipped and read to nLines. Returns false, with an empty line, if there is none.
    ZQ_API bool NextItem(WarehouseLine_c * pLine, int & nLines);

    /// Returns the position of the line that FindLine or NextItem has read.
    int GetLineStart() const { return nLineStart; }

    /// Returns the position of the last quote in the last line read that was never closed, or -1. In a text table whose
    /// lines end with a line feed alone the next line, if any, was joined to this one. In CSV the cell includes the
    /// rest of the data. After a search that found no line the result has no meaning.
    int GetOpenQuote() const { return nOpenQuote; }

    /// Returns the position of the last cell in the last line read that was cut at WAREHOUSE_CELL_SIZE, or -1. After
    /// a search that found no line the result has no meaning.
    int GetCutCell() const { return nCutCell; }

    /// Moves to a column, counted from 0 at the position. If the line lacks it, moves to a comment that begins in its
    /// place, or to the line's end. Allocates the columns before it for the time of the call. Requires that the
    /// position is the start of a line or of a column.
    ZQ_API void SeekColumn(int iColumn);

    /// Returns the position of the next byte.
    int GetPos() const { return nPos; }

    /// Moves after the next byte and returns it. At the end of the data does not move and returns a line feed.
    char GetChar() { return nPos < nLength ? pLine[nPos++] : '\n'; }

    /// Return whether a character, or the byte at nPos, is a separator. The end of the data is none.
    ZQ_API bool IsSeparator(char cText) const;
    bool IsSeparator() const { return nPos < nLength && IsSeparator(pLine[nPos]); }

private:
    class Classes_c;
    class QuoteWatch_c;

    /// Read at most one column and pass it to the sink. Return false once the line is finished.
    template <typename SINK>
    bool Step(Classes_c const & Classes, SINK & Sink);
    template <typename SINK>
    bool StepText(Classes_c const & Classes, SINK & Sink);
    template <typename SINK>
    bool StepCsv(Classes_c const & Classes, SINK & Sink);

    template <typename SINK>
    void ReadQuotedCell(Classes_c const & Classes, SINK & Sink);
    template <typename SINK>
    void PassEscapedCell(int nStart, int nEnd, SINK & Sink);
    template <typename TEST>
    bool SkipLines(TEST fnTest, WarehouseLine_c * pResult, int & nLines);

    /// Reads a line, or its first nMost columns. Returns whether the line may have more.
    bool Read(Classes_c const & Classes, WarehouseLine_c * pResult, int nMost = INT_MAX);
    void SkipRest(Classes_c const & Classes, QuoteWatch_c & Watch);
    void SkipComment();
    void SkipSeparator(Classes_c const & Classes);
    int Find(char cText, int nFrom) const;
    int FindClass(Classes_c const & Classes, unsigned dwClasses, int nFrom) const;
    int PlaceAfter(int nAt) const { return nAt < nLength ? nAt + 1 : nLength; }
    bool IsDoubled(int nQuote) const { return nQuote < nLength - 1 && pLine[nQuote + 1] == '"'; }

    int nLineStart = 0;
    int nOpenQuote = -1;
    int nCutCell = -1;
};

/// Returns the format in which a file is read: eFormat, unless that is WAREHOUSE_FORMAT_AUTO. Then it is CSV if the
/// name ends in ".csv" without regard to case, else text.
ZQ_API WarehouseFormat_e WarehouseSettleFormat(WarehouseFormat_e eFormat, char const * sFileName);

/// Empties a caller's buffer of nMaxLength bytes and returns true. Asserts that it is not null and that nMaxLength is
/// above 1, and returns false otherwise. A buffer of 1 byte is emptied too.
ZQ_API bool WarehouseClearText(char * sBuffer, int nMaxLength);

/// Copies a text into a buffer of nMaxLength bytes, cut to nMaxLength - 1 bytes, and fills the rest with zeros.
/// Requires nMaxLength > 0.
ZQ_API void WarehouseCopyText(char * sBuffer, char const * sText, int nMaxLength);
