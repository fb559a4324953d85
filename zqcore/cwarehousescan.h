// cwarehousescan.h: the line scanner of warehouse tables and property lists.
//
// A table is text in lines; a line is made of columns. WarehouseScan_t stands on the stack and walks over bytes that
// somebody else owns: they need no terminator, may hold anything, and are never read past their end. WarehouseLine_c
// holds the columns of one line, each a heap block of its own. Both belong to one thread. Reading a line allocates its
// columns; passing over lines (FindLine, NextItem) allocates nothing.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cstring.h"

#include <climits>

/// How a line is split.
enum WarehouseFormat_e
{
    WAREHOUSE_FORMAT_AUTO = 0,   // CSV if the file's name ends in ".csv", else text
    WAREHOUSE_FORMAT_TEXT = 1,   // columns separated by blanks
    WAREHOUSE_FORMAT_CSV = 2     // cells separated by delimiters; a cell may be empty
};

inline constexpr char const * WAREHOUSE_TEXT_SEPARATORS = " \t\r";
inline constexpr char const * WAREHOUSE_CSV_SEPARATORS = ";,";

/// The first column of a header line, without regard to case.
inline constexpr char const * WAREHOUSE_HEADER = "@head";

/// A quoted CSV cell holds this many bytes; what goes beyond is dropped.
inline constexpr int WAREHOUSE_CELL_SIZE = 0x6000;

/// The columns of a line. A column is a terminated text or null when it is empty; the line owns them. A column that
/// holds NUL bytes ends at the first one for everybody who reads it as a text.
class WarehouseLine_c : public SortedArray_T<char *, ArrayTraits_T<char *, 32, 0>>
{
public:
    WarehouseLine_c() = default;
    ZQ_API ~WarehouseLine_c();

    /// Frees all columns. The storage of the pointers stays for the next line.
    ZQ_API void Reset();

    /// Appends a copy of iLength bytes, or a null column for a null text or a length of 0 or less. The first column of
    /// the line becomes lower case.
    ZQ_API void AddColumn(char const * pText, int iLength);

    /// Moves a column of the other line here, as it is, and leaves null there. A column that the other line does not
    /// have comes as null.
    ZQ_API void AddColumn(WarehouseLine_c & Other, int iColumn);

    /// Free and remove one column; nothing on an empty line.
    ZQ_API void DelFirst();
    ZQ_API void DelLast();

    /// Whether the first column is the word of a header line.
    ZQ_API bool IsHeader() const;

    /// True for an index outside the line too.
    ZQ_API bool IsNull(int iColumn) const;
};

/// Walks over lines. A line feed ends a line, and so does the end of the data.
struct WarehouseScan_t
{
    char const * pLine;          // the data, not owned, not terminated
    int nLength;                 // its bytes
    int nPos;                    // where the next byte is read, 0 to nLength
    bool bCsv;                   // CSV, else text
    String_T<256> sSeparators;   // NUL is always one of them

    /// Only WAREHOUSE_FORMAT_CSV makes a CSV scan. The separators are those of the format.
    ZQ_API WarehouseScan_t(char const * pData, int nLength, int nPos, WarehouseFormat_e eFormat);

    /// Null stands for the separators of the text format, in a CSV scan too. Within a cell a line feed or a quote that
    /// is a separator counts as one; blanks around a CSV cell are passed over before separators are looked for.
    ZQ_API void SetSeparators(char const * sSeparators);

    /// Reads a line; false at the end of the data. A blank line and a comment give true and no columns.
    ZQ_API bool GetLine(WarehouseLine_c * pLine);

    /// Passes over lines and reads the first one whose first column equals sFirst without regard to case. False, with
    /// the line empty and the position at the end, if there is none.
    ZQ_API bool FindLine(char const * sFirst, WarehouseLine_c * pLine);

    /// Passes over header lines and lines without a first column and reads the next other one; false as in FindLine.
    /// Adds the lines passed and read to nLines.
    ZQ_API bool NextItem(WarehouseLine_c * pLine, int & nLines);

    /// Where the line begins that FindLine or NextItem has read.
    int GetLineStart() const { return m_nLineStart; }

    /// Moves from the start of a line to its column of this index, or to the line's end if it has fewer.
    ZQ_API void SeekColumn(int iColumn);

    int GetPos() const { return nPos; }

    /// The next byte; at the end of the data a line feed, which moves nothing.
    char GetChar() { return nPos < nLength ? pLine[nPos++] : '\n'; }

    /// Whether this character, or the byte at nPos, is a separator. At the end of the data there is none.
    ZQ_API bool IsSeparator(char c) const;
    bool IsSeparator() const { return nPos < nLength && IsSeparator(pLine[nPos]); }

private:
    class Classes_c;
    class QuoteWatch_c;

    // Each step reads one column at most, gives it to the sink, and is false once the line is finished.
    template <typename SINK>
    bool Step(Classes_c const & Classes, SINK & Sink);
    template <typename SINK>
    bool StepText(Classes_c const & Classes, SINK & Sink);
    template <typename SINK>
    bool StepCsv(Classes_c const & Classes, SINK & Sink);
    template <typename SINK>
    void QuotedCell(Classes_c const & Classes, SINK & Sink);
    template <typename SINK>
    void EscapedCell(int nStart, int nEnd, SINK & Sink) const;
    template <typename TEST>
    bool PassLines(TEST Test, WarehouseLine_c * pResult, int & nLines);

    void Read(Classes_c const & Classes, WarehouseLine_c * pResult, int nMost = INT_MAX);
    void PassRest(Classes_c const & Classes, QuoteWatch_c & Watch);
    void PassComment();
    void PassSeparator(Classes_c const & Classes);
    int Find(char c, int nFrom) const;
    int FindClass(Classes_c const & Classes, unsigned iClasses, int nFrom) const;
    int Behind(int nAt) const { return nAt < nLength ? nAt + 1 : nLength; }
    bool IsDoubled(int nQuote) const { return nQuote < nLength - 1 && pLine[nQuote + 1] == '"'; }

    int m_nLineStart = 0;
};

/// The format that a file is read in: WAREHOUSE_FORMAT_AUTO goes by the end of the name, other values stand.
ZQ_API WarehouseFormat_e WarehouseSettleFormat(WarehouseFormat_e eFormat, char const * sFileName);

/// Empties a caller's buffer of nMaxLength bytes. Asserts that it exists with nMaxLength > 1; false if it does not.
ZQ_API bool WarehouseClearText(char * sBuffer, int nMaxLength);

/// Copies a text into such a buffer, cut to nMaxLength - 1 characters.
ZQ_API void WarehouseCopyText(char * sBuffer, char const * sText, int nMaxLength);
