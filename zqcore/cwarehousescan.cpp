#include "zqcore/cwarehousescan.h"
#include "zqcore/cdebug.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

#include <algorithm>
#include <cstring>

namespace
{
    // A sink that discards columns.
    struct NoSink_c
    {
        static constexpr bool WANTS_TEXT = false;

        void Add(char const *, int) {}
    };

    // A sink that appends columns to a line.
    struct LineSink_c
    {
        static constexpr bool WANTS_TEXT = true;

        WarehouseLine_c & m_Line;

        void Add(char const * pText, int nBytes) { m_Line.AddColumn(pText, nBytes); }
    };

    // A sink that tests the first column of a line.
    template <typename TEST>
    struct TestSink_T
    {
        static constexpr bool WANTS_TEXT = true;

        TEST & m_Test;
        bool m_bThere = false;    // whether there is a first column, which may be null
        bool m_bPasses = false;   // whether the column is not null and passes the test

        void Add(char const * pText, int nBytes)
        {
            m_bThere = true;
            m_bPasses = nBytes > 0 && m_Test(pText, nBytes);
        }
    };

    // Returns whether a column of nBytes equals a text without regard to case. The column ends at its first NUL.
    bool EqualsNoCase(char const * pColumn, int nBytes, char const * szText)
    {
        for (int i = 0; i < nBytes; ++i)
        {
            char const cLower = CharToLower(pColumn[i]);
            if (cLower != CharToLower(szText[i]))
            {
                return false;
            }
            if (cLower == '\0')
            {
                return true;
            }
        }
        return szText[nBytes] == '\0';
    }

    constexpr bool IsBlank(char cText)
    {
        return cText == ' ' || cText == '\t' || cText == '\r';
    }

    // Returns the length without trailing blanks.
    int StripBlanks(char const * pText, int nBytes)
    {
        while (nBytes > 0 && IsBlank(pText[nBytes - 1]))
        {
            --nBytes;
        }
        return nBytes;
    }
}

WarehouseLine_c::~WarehouseLine_c()
{
    Reset();
}

void WarehouseLine_c::Reset()
{
    for (char const * const pColumn : *this)
    {
        delete[] pColumn;
    }
    iLength = 0;
}

void WarehouseLine_c::AddColumn(char const * pText, int nBytes)
{
    if (!pText || nBytes <= 0)
    {
        Add(nullptr);
        return;
    }
    auto const nText = static_cast<std::size_t>(nBytes);
    char * const pColumn = ZQ_NEW char[nText + 1];
    std::memcpy(pColumn, pText, nText);
    pColumn[nText] = '\0';
    if (Add(pColumn) == 0)
    {
        StrToLower(pColumn);
    }
}

void WarehouseLine_c::AddColumn(WarehouseLine_c & Other, int iColumn)
{
    char * pColumn = nullptr;
    if (!Other.IsNull(iColumn))
    {
        std::swap(pColumn, Other[iColumn]);
    }
    Add(pColumn);
}

void WarehouseLine_c::DelFirst()
{
    if (!IsEmpty())
    {
        delete[] pData[0];
        Delete(0);
    }
}

void WarehouseLine_c::DelLast()
{
    if (!IsEmpty())
    {
        delete[] pData[iLength - 1];
        --iLength;
    }
}

bool WarehouseLine_c::IsHeader() const
{
    return !IsNull(0) && StrCompareNoCase(pData[0], WAREHOUSE_HEADER) == 0;
}

bool WarehouseLine_c::IsNull(int iColumn) const
{
    return iColumn < 0 || iColumn >= iLength || !pData[iColumn];
}

// Table of the classes of each byte.
class WarehouseScan_t::Classes_c
{
public:
    enum Class_e : unsigned char
    {
        SEPARATOR = 1,
        LINE_FEED = 2,
        QUOTE = 4
    };

    explicit Classes_c(char const * szSeparators)
    {
        Add('\0', SEPARATOR);
        Add('\n', LINE_FEED);
        Add('"', QUOTE);
        for (; *szSeparators; ++szSeparators)
        {
            Add(*szSeparators, SEPARATOR);
        }
    }

    bool Is(char cText, unsigned dwClasses) const { return m_dClasses[static_cast<unsigned char>(cText)] & dwClasses; }

private:
    void Add(char cText, Class_e eClass) { m_dClasses[static_cast<unsigned char>(cText)] |= eClass; }

    unsigned char m_dClasses[256] = {};
};

// Position up to which the data are known to hold no double quote, so that each byte is searched only once.
class WarehouseScan_t::QuoteWatch_c
{
public:
    explicit QuoteWatch_c(WarehouseScan_t const & Scan)
        : m_Scan(Scan)
    {}

    // Returns whether there is no quote from nFrom to below nTo. Requires calls with rising nFrom.
    bool IsFree(int nFrom, int nTo)
    {
        constexpr int MIN_SEARCH = 4096;   // a short line is not worth a search of its own
        m_nFree = std::max(m_nFree, nFrom);
        while (m_nFree < nTo)
        {
            int const nSearch = std::min(std::max(nTo - m_nFree, MIN_SEARCH), m_Scan.nLength - m_nFree);
            char const * const pFrom = m_Scan.pLine + m_nFree;
            void const * const pQuote = std::memchr(pFrom, '"', static_cast<std::size_t>(nSearch));
            if (pQuote)
            {
                m_nFree += static_cast<int>(static_cast<char const *>(pQuote) - pFrom);
                return m_nFree >= nTo;
            }
            m_nFree += nSearch;
        }
        return true;
    }

private:
    WarehouseScan_t const & m_Scan;
    int m_nFree = 0;   // there is no quote from the last nFrom up to here
};

WarehouseScan_t::WarehouseScan_t(char const * pData, int nBytes, int nStart, WarehouseFormat_e eFormat)
    : pLine(pData)
    , nLength(nBytes)
    , nPos(nStart)
    , bCsv(eFormat == WAREHOUSE_FORMAT_CSV)
    , sSeparators(bCsv ? WAREHOUSE_CSV_SEPARATORS : WAREHOUSE_TEXT_SEPARATORS)
{}

void WarehouseScan_t::SetSeparators(char const * szSeparators)
{
    sSeparators = szSeparators ? szSeparators : WAREHOUSE_TEXT_SEPARATORS;
}

bool WarehouseScan_t::IsSeparator(char cText) const
{
    return std::strchr(sSeparators, cText) != nullptr;   // strchr finds the terminator too
}

bool WarehouseScan_t::GetLine(WarehouseLine_c * pResult)
{
    pResult->Reset();
    if (nPos >= nLength)
    {
        return false;
    }
    Read(Classes_c(sSeparators), pResult);
    return true;
}

bool WarehouseScan_t::FindLine(char const * sFirst, WarehouseLine_c * pResult)
{
    int nLines = 0;
    return SkipLines(
        [sFirst](char const * pColumn, int nBytes) { return EqualsNoCase(pColumn, nBytes, sFirst); }, pResult, nLines);
}

bool WarehouseScan_t::NextItem(WarehouseLine_c * pResult, int & nLines)
{
    return SkipLines([](char const * pColumn, int nBytes) { return !EqualsNoCase(pColumn, nBytes, WAREHOUSE_HEADER); },
        pResult, nLines);
}

// Skips lines up to the first one whose first column is not null and passes the test, and reads it. Adds the number of
// lines skipped and read to nLines. Returns false if there is no such line.
template <typename TEST>
bool WarehouseScan_t::SkipLines(TEST fnTest, WarehouseLine_c * pResult, int & nLines)
{
    pResult->Reset();
    Classes_c const Classes(sSeparators);
    QuoteWatch_c Watch(*this);
    while (nPos < nLength)
    {
        ++nLines;
        int const nStart = nPos;
        TestSink_T<TEST> First{ fnTest };
        bool bMore = true;
        while (bMore && !First.m_bThere)
        {
            bMore = Step(Classes, First);
        }
        if (First.m_bPasses)
        {
            nPos = nLineStart = nStart;
            Read(Classes, pResult);
            return true;
        }
        if (bMore)
        {
            SkipRest(Classes, Watch);
        }
    }
    return false;
}

bool WarehouseScan_t::Read(Classes_c const & Classes, WarehouseLine_c * pResult, int nMost)
{
    LineSink_c Sink{ *pResult };
    nOpenQuote = nCutCell = -1;
    bool bMore = true;
    while (bMore && pResult->GetLength() < nMost)
    {
        bMore = Step(Classes, Sink);
    }
    return bMore;
}

void WarehouseScan_t::SeekColumn(int iColumn)
{
    WarehouseLine_c Line;
    if (!Read(Classes_c(sSeparators), &Line, iColumn))
    {
        nPos -= nPos > 0 && pLine[nPos - 1] == '\n';   // back to the line's end
        return;
    }
    while (
        nPos < nLength && pLine[nPos] != '\n' && pLine[nPos] != '\0' && (bCsv ? IsBlank(pLine[nPos]) : IsSeparator()))
    {
        ++nPos;
    }
}

// Moves to the next line. The next line feed ends this one if it is no separator and no quote precedes it.
void WarehouseScan_t::SkipRest(Classes_c const & Classes, QuoteWatch_c & Watch)
{
    if (!Classes.Is('\n', Classes_c::SEPARATOR))
    {
        int const nEnd = Find('\n', nPos);
        if (Watch.IsFree(nPos, nEnd))
        {
            nPos = PlaceAfter(nEnd);
            return;
        }
    }
    NoSink_c Sink;
    while (Step(Classes, Sink))
    {}
}

template <typename SINK>
bool WarehouseScan_t::Step(Classes_c const & Classes, SINK & Sink)
{
    return bCsv ? StepCsv(Classes, Sink) : StepText(Classes, Sink);
}

template <typename SINK>
bool WarehouseScan_t::StepText(Classes_c const & Classes, SINK & Sink)
{
    while (nPos < nLength && pLine[nPos] != '\0' && Classes.Is(pLine[nPos], Classes_c::SEPARATOR))
    {
        ++nPos;
    }
    int const nStart = nPos;
    char const cFirst = GetChar();
    if (cFirst == '\n')
    {
        return false;
    }
    if (cFirst == '#')
    {
        SkipComment();
        return false;
    }
    if (cFirst == '"')
    {
        while (nPos < nLength && pLine[nPos] != '"' && pLine[nPos] != '\r' && pLine[nPos] != '\n')
        {
            ++nPos;
        }
        Sink.Add(pLine + nStart + 1, nPos - nStart - 1);
        nOpenQuote = GetChar() == '"' ? nOpenQuote : nStart;
        return true;
    }
    nPos = FindClass(Classes, Classes_c::SEPARATOR | Classes_c::LINE_FEED, nPos);
    Sink.Add(pLine + nStart, nPos - nStart);
    if (nPos < nLength && Classes.Is(pLine[nPos], Classes_c::SEPARATOR))
    {
        return true;
    }
    GetChar();
    return false;
}

template <typename SINK>
bool WarehouseScan_t::StepCsv(Classes_c const & Classes, SINK & Sink)
{
    int const nStart = nPos;
    char const cFirst = GetChar();
    if (cFirst == '\n')
    {
        return false;
    }
    if (IsBlank(cFirst))
    {
        return true;
    }
    if (cFirst == '#')
    {
        SkipComment();
        return false;
    }
    if (cFirst == '"')
    {
        ReadQuotedCell(Classes, Sink);
        return true;
    }
    if (Classes.Is(cFirst, Classes_c::SEPARATOR))
    {
        Sink.Add(nullptr, 0);
        return true;
    }
    nPos = FindClass(Classes, Classes_c::SEPARATOR | Classes_c::LINE_FEED | Classes_c::QUOTE, nPos);
    Sink.Add(pLine + nStart, StripBlanks(pLine + nStart, nPos - nStart));
    SkipSeparator(Classes);
    return true;
}

// Reads a quoted cell after its opening quote, with the blanks and the separator that follow it.
template <typename SINK>
void WarehouseScan_t::ReadQuotedCell(Classes_c const & Classes, SINK & Sink)
{
    int const nStart = nPos;
    int nEnd = Find('"', nPos);
    bool const bEscaped = IsDoubled(nEnd);
    while (IsDoubled(nEnd))
    {
        nEnd = Find('"', nEnd + 2);
    }
    nPos = PlaceAfter(nEnd);
    nOpenQuote = nEnd < nLength ? nOpenQuote : nStart - 1;
    if (!bEscaped)
    {
        nCutCell = nEnd - nStart > WAREHOUSE_CELL_SIZE ? nStart - 1 : nCutCell;
        Sink.Add(pLine + nStart, StripBlanks(pLine + nStart, std::min(nEnd - nStart, WAREHOUSE_CELL_SIZE)));
    }
    else if constexpr (SINK::WANTS_TEXT)
    {
        PassEscapedCell(nStart, nEnd, Sink);
    }
    while (nPos < nLength && IsBlank(pLine[nPos]))
    {
        ++nPos;
    }
    SkipSeparator(Classes);
}

// Passes the sink a cell that has doubled quotes, with one quote for each pair. Cuts it at WAREHOUSE_CELL_SIZE bytes
// and stores the position of a cell that is cut.
template <typename SINK>
void WarehouseScan_t::PassEscapedCell(int nStart, int nEnd, SINK & Sink)
{
    char dCell[WAREHOUSE_CELL_SIZE];
    int nCell = 0;
    int i = nStart;
    for (; i < nEnd && nCell < WAREHOUSE_CELL_SIZE; ++i)
    {
        dCell[nCell++] = pLine[i];
        i += pLine[i] == '"';   // skips the second quote of a pair
    }
    nCutCell = i < nEnd ? nStart - 1 : nCutCell;
    Sink.Add(dCell, StripBlanks(dCell, nCell));
}

void WarehouseScan_t::SkipComment()
{
    nPos = PlaceAfter(Find('\n', nPos));
}

void WarehouseScan_t::SkipSeparator(Classes_c const & Classes)
{
    if (nPos < nLength && Classes.Is(pLine[nPos], Classes_c::SEPARATOR))
    {
        ++nPos;
    }
}

// Returns the position of the next byte cText from nFrom on, or nLength.
int WarehouseScan_t::Find(char cText, int nFrom) const
{
    void const * const pFound = std::memchr(pLine + nFrom, cText, static_cast<std::size_t>(nLength - nFrom));
    return pFound ? static_cast<int>(static_cast<char const *>(pFound) - pLine) : nLength;
}

// Returns the position of the next byte of one of the classes from nFrom on, or nLength.
int WarehouseScan_t::FindClass(Classes_c const & Classes, unsigned dwClasses, int nFrom) const
{
    char const * const pEnd = pLine + nLength;
    char const * pNext = pLine + nFrom;
    while (pNext < pEnd && !Classes.Is(*pNext, dwClasses))
    {
        ++pNext;
    }
    return static_cast<int>(pNext - pLine);
}

WarehouseFormat_e WarehouseSettleFormat(WarehouseFormat_e eFormat, char const * sFileName)
{
    if (eFormat != WAREHOUSE_FORMAT_AUTO)
    {
        return eFormat;
    }
    return StrEndsNoCase(sFileName, ".csv") ? WAREHOUSE_FORMAT_CSV : WAREHOUSE_FORMAT_TEXT;
}

bool WarehouseClearText(char * sBuffer, int nMaxLength)
{
    ZQ_ASSERT(sBuffer);
    ZQ_ASSERT(nMaxLength > 1);
    if (sBuffer && nMaxLength > 0)
    {
        sBuffer[0] = '\0';
    }
    return sBuffer && nMaxLength > 1;
}

void WarehouseCopyText(char * sBuffer, char const * sText, int nMaxLength)
{
    std::strncpy(sBuffer, sText, static_cast<std::size_t>(nMaxLength));
    sBuffer[nMaxLength - 1] = '\0';
}
