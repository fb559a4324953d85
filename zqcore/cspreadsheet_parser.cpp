#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"
#include "zqcore/cspreadsheet_internal.h"
#include "zqcore/cstring.h"
#include "zqcore/ctexterror_internal.h"

#include <algorithm>
#include <cstring>

namespace
{
    void LogHeadFailed()
    {
        Log("Spreadsheet_c::Parse : head parsing failed.");
    }

    // Maximum size in bytes of a block that stores its ends in 16 bits. A larger one stores them in 32.
    constexpr std::size_t NARROW_LIMIT = 0xFFFF;

    // Returns the size in bytes of one end in a block of nBlock bytes.
    constexpr std::size_t EndSize(std::size_t nBlock)
    {
        return nBlock <= NARROW_LIMIT ? sizeof(std::uint16_t) : sizeof(std::uint32_t);
    }

    // Return and store the end of a cell's text. The ends lie before pTableEnd, that of cell 0 last.
    template <typename T>
    std::size_t LoadEnd(char const * pTableEnd, int iCell)
    {
        T nEnd;
        std::memcpy(&nEnd, pTableEnd - (static_cast<std::size_t>(iCell) + 1) * sizeof nEnd, sizeof nEnd);
        return nEnd;
    }

    template <typename T>
    void StoreEnd(char * pTableEnd, int iCell, std::size_t nValue)
    {
        auto const nEnd = static_cast<T>(nValue);
        std::memcpy(pTableEnd - (static_cast<std::size_t>(iCell) + 1) * sizeof nEnd, &nEnd, sizeof nEnd);
    }
}

inline std::size_t SpreadsheetRow_c::Block_s::GetEnd(int iCell) const
{
    return nBytes <= NARROW_LIMIT ? LoadEnd<std::uint16_t>(pBytes + nBytes, iCell)
                                  : LoadEnd<std::uint32_t>(pBytes + nBytes, iCell);
}

inline void SpreadsheetRow_c::Block_s::SetEnd(int iCell, std::size_t nEnd)
{
    if (nBytes <= NARROW_LIMIT)
    {
        StoreEnd<std::uint16_t>(pBytes + nBytes, iCell, nEnd);
    }
    else
    {
        StoreEnd<std::uint32_t>(pBytes + nBytes, iCell, nEnd);
    }
}

inline std::size_t SpreadsheetRow_c::GetTextSize() const
{
    return m_nStored > 0 ? m_Block.GetEnd(m_nStored - 1) : 0;
}

SpreadsheetRow_c::~SpreadsheetRow_c()
{
    if (!IsPacked())
    {
        delete[] m_Block.pBytes;
    }
}

void SpreadsheetRow_c::AddCell(char const * sText)
{
    std::size_t const nText = sText ? std::strlen(sText) : 0;
    std::size_t const nOffset =
        reinterpret_cast<std::uintptr_t>(sText) - reinterpret_cast<std::uintptr_t>(m_Block.pBytes);
    bool const bOwn = nOffset < m_Block.nBytes;   // whether sText is a text of this row, which Reserve may move
    char * const pTo = Reserve(nText);
    if (nText > 0)
    {
        std::memcpy(pTo, bOwn ? m_Block.pBytes + nOffset : sText, nText);
    }
    Commit(nText);
}

char const * SpreadsheetRow_c::GetCell(int iCell) const
{
    ZQ_ASSERT(iCell >= 0 && iCell < GetCellCount());
    if (iCell < 0 || iCell >= m_nStored)
    {
        return "";
    }
    return m_Block.pBytes + (iCell > 0 ? m_Block.GetEnd(iCell - 1) : 0);
}

// Makes room for another cell and returns the place of its text.
inline char * SpreadsheetRow_c::Reserve(std::size_t nText)
{
    std::size_t const nStart = GetTextSize();
    auto const nCells = static_cast<std::size_t>(m_nStored) + 1;
    if (nStart + nText + 1 + nCells * EndSize(m_Block.nBytes) > m_Block.nBytes)
    {
        Grow(nStart + nText + 1 + nCells * sizeof(std::uint32_t));
    }
    return m_Block.pBytes + nStart;
}

// Makes a cell of the text that was written to the place that Reserve returned.
inline void SpreadsheetRow_c::Commit(std::size_t nText)
{
    std::size_t const nEnd = GetTextSize() + nText + 1;
    m_Block.pBytes[nEnd - 1] = '\0';
    m_Block.SetEnd(m_nStored, nEnd);
    ++m_nStored;
    m_nCells = std::max(m_nCells, m_nStored);
}

// Moves the cells to a new block of at least nNeeded bytes.
void SpreadsheetRow_c::Grow(std::size_t nNeeded)
{
    constexpr std::size_t FIRST = 64;   // bytes of a growing row's first block, at least
    Block_s Larger;
    Larger.nBytes = std::max({ nNeeded, m_Block.nBytes * 2, FIRST });
    Larger.pBytes = ZQ_NEW char[Larger.nBytes];
    CopyTo(Larger);
    if (!IsPacked())
    {
        delete[] m_Block.pBytes;
    }
    m_Block = Larger;
}

void SpreadsheetRow_c::CopyTo(Block_s & Block) const
{
    std::size_t const nText = GetTextSize();
    if (nText > 0)
    {
        std::memcpy(Block.pBytes, m_Block.pBytes, nText);
    }
    for (int i = 0; i < m_nStored; ++i)
    {
        Block.SetEnd(i, m_Block.GetEnd(i));
    }
}

// Returns the size in bytes of a block that holds the cells and nothing more.
std::size_t SpreadsheetRow_c::GetPackedSize() const
{
    auto const nCells = static_cast<std::size_t>(m_nStored);
    std::size_t const nNarrow = GetTextSize() + nCells * sizeof(std::uint16_t);
    return nNarrow <= NARROW_LIMIT ? nNarrow : GetTextSize() + nCells * sizeof(std::uint32_t);
}

// Copies the row, padded to nCells, and its block of nBlock bytes to pMemory in one piece, and returns the copy.
SpreadsheetRow_c * SpreadsheetRow_c::PackInto(void * pMemory, std::size_t nBlock, int nCells) const
{
    auto * const pRow = new (pMemory) SpreadsheetRow_c;
    pRow->m_Block = { reinterpret_cast<char *>(pRow + 1), nBlock };
    CopyTo(pRow->m_Block);
    pRow->m_nStored = m_nStored;
    pRow->m_nCells = std::max(m_nStored, nCells);
    return pRow;
}

SpreadsheetParser_c::SpreadsheetParser_c(
    char const * szFile, SpreadsheetFmtDesc_t const & Fmt, char const * pText, int iLength)
    : m_Fmt(Fmt)
{
    constexpr char FIRST_OF_TEXT = 0x20, LAST_OF_TEXT = static_cast<char>(0xFF);
    GetErrors().Begin(szFile);
    m_Parser.SetCharacterRule(FIRST_OF_TEXT, LAST_OF_TEXT, PARSING_RULE_WORD_FIRST);
    m_Parser.SetCharacterRule(FIRST_OF_TEXT, LAST_OF_TEXT, PARSING_RULE_WORD_REST);
    m_Parser.SetCharacterRule('"', PARSING_RULE_STRING);
    m_Parser.SetCharacterRule(m_Fmt.cCellSeparator, PARSING_RULE_SYMBOL);
    m_Parser.SetCharacterRule(m_Fmt.cRowSeparator, PARSING_RULE_SYMBOL);
    m_Parser.Open(pText, iLength);
}

bool SpreadsheetParser_c::ParseRow(SpreadsheetRow_c & Row, bool & bError)
{
    bError = false;
    do
    {
        if (!Next())
        {
            return false;
        }
    }
    while (IsSymbol(m_Fmt.cRowSeparator));
    m_nRowStart = m_Parser.GetOffset(m_Token.eKind, m_Token.pText);
    while (ParseCell(Row, bError))
    {}
    return true;
}

void SpreadsheetParser_c::FindCells(std::function<void(std::size_t)> const & fnFound)
{
    SpreadsheetRow_c Row;
    bool bError = false;
    bool bMore = Next();
    auto const Offset = [this]
    {
        bool const bEnd = m_Token.eKind == LAST_PARSED_NOTHING;
        return m_Parser.GetOffset(m_Token.eKind, bEnd ? m_Parser.m_pEnd : m_Token.pText);
    };
    while (bMore)
    {
        fnFound(Offset());
        bMore = ParseCell(Row, bError);
    }
    fnFound(Offset());
}

// Reads the cell that begins with the current token and moves to the next cell. Returns false if the row has none. Also
// returns false, and sets bError, if the token after the cell is no separator. It is inlined by force, because a call
// for each cell makes a load 8 percent slower.
ZQ_INLINE bool SpreadsheetParser_c::ParseCell(SpreadsheetRow_c & Row, bool & bError)
{
    bool const bQuoted = m_Token.eKind == LAST_PARSED_STRING;
    bool const bText = m_Token.eKind == LAST_PARSED_WORD || bQuoted;
    if (bText)
    {
        AddToken(Row);
        Next();
    }
    bool const bRowEnds = IsSymbol(m_Fmt.cRowSeparator);
    bool const bCellEnds = IsSymbol(m_Fmt.cCellSeparator);
    if (!bRowEnds && !bCellEnds)
    {
        bError = true;
        ReportToken(bQuoted);
        return false;
    }
    if (!bText)
    {
        Row.Reserve(0);
        Row.Commit(0);
    }
    return bCellEnds && !bRowEnds && Next();
}

// Returns the size in bytes of the parser's buffer for the current token.
inline std::size_t SpreadsheetParser_c::GetRoom() const
{
    return m_Token.eKind == LAST_PARSED_STRING ? SimpleTextParser_c::STRING_SIZE : SimpleTextParser_c::WORD_SIZE;
}

// Adds a cell with the text of the current token, cut to the parser's buffer. Reports a token that is cut.
inline void SpreadsheetParser_c::AddToken(SpreadsheetRow_c & Row)
{
    bool const bString = m_Token.eKind == LAST_PARSED_STRING;
    std::size_t const nCopy = std::min(m_Token.GetLength(), GetRoom() - 1);
    char * const pTo = Row.Reserve(nCopy);
    m_Parser.CopyDoubled(m_Token, pTo, nCopy);
    Row.Commit(bString ? StrLengthMax(pTo, nCopy) : nCopy);   // a word holds no NUL
    ReportOverflow();
}

// Reports the current token if it does not fit into the parser's buffer with a terminator.
inline void SpreadsheetParser_c::ReportOverflow()
{
    if (m_Token.GetLength() >= GetRoom())
    {
        m_Parser.LogOverflow(m_Token.eKind, m_Token.pText);
    }
}

// Stores why the current token, or the end of the text, can't follow a cell.
void SpreadsheetParser_c::ReportToken(bool bQuoted)
{
    char const * const pEnd = m_Token.pText + m_Token.nText;   // of the last token, at the end of the text too
    char const * szReason = "the last row has no end; a row ends with the row separator";
    auto nAt = static_cast<std::size_t>(m_Parser.m_pEnd - m_Parser.m_pBegin);
    if (m_Token.eKind != LAST_PARSED_NOTHING)
    {
        ReportOverflow();
        szReason = bQuoted ? "only a separator may follow the closing quote of a cell"
                           : "a control character splits this cell";
        nAt = m_Parser.GetOffset(m_Token.eKind, m_Token.pText);
    }
    else if (bQuoted && pEnd == m_Parser.m_pEnd)
    {
        szReason = "the quote of this cell is never closed";
        nAt = static_cast<std::size_t>(m_Token.pText - m_Parser.m_pBegin) - 1;
    }
    GetErrors().Set(szReason);
    GetErrors().Place(m_Parser.m_pBegin, nAt);
}

// Memory for packed rows, which follow one another.
struct Spreadsheet_c::Chunk_s
{
    Chunk_s * pNext;
    char * pFree;   // free up to pEnd
    char * pEnd;
};

// Packs a row, padded to the head, empties it and returns the packed row. Uses the newest chunk or a new one of at
// least nChunk bytes.
inline SpreadsheetRow_c * Spreadsheet_c::Keep(SpreadsheetRow_c & Row, std::size_t nChunk)
{
    constexpr std::size_t ALIGNMENT = alignof(SpreadsheetRow_c);
    std::size_t const nBlock = Row.GetPackedSize();
    std::size_t const nWanted = (sizeof Row + nBlock + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    if (!m_pChunks || static_cast<std::size_t>(m_pChunks->pEnd - m_pChunks->pFree) < nWanted)
    {
        std::size_t const nSize = sizeof(Chunk_s) + std::max(nWanted, nChunk);
        char * const pChunk = ZQ_NEW char[nSize];
        m_pChunks = new (pChunk) Chunk_s{ m_pChunks, pChunk + sizeof(Chunk_s), pChunk + nSize };
    }
    SpreadsheetRow_c * const pRow = Row.PackInto(m_pChunks->pFree, nBlock, GetColumnCount());
    m_pChunks->pFree += nWanted;
    Row.Clear();
    return pRow;
}

// Frees the chunks, and with them the packed rows, which own nothing but their part of a chunk.
void Spreadsheet_c::FreeRows()
{
    m_pHead = nullptr;
    m_dRows.Reset();
    while (m_pChunks)
    {
        char * const pChunk = reinterpret_cast<char *>(m_pChunks);
        m_pChunks = m_pChunks->pNext;
        delete[] pChunk;
    }
}

bool Spreadsheet_c::Parse(char const * pText, int iLength)
{
    if (!pText)
    {
        return m_Errors.Fail("the file has no contents");
    }
    char const * pBegin = pText;
    if (char const * const szReason = TextSkipMark(pBegin, pText + iLength))
    {
        LogHeadFailed();
        return m_Errors.Fail(szReason);
    }
    SpreadsheetParser_c Parser(m_Errors.GetLast().sFile, m_fmt, pText, iLength);
    SpreadsheetRow_c Row;
    bool bError;
    if (!Parser.ParseRow(Row, bError) || Row.GetCellCount() == 0)
    {
        LogHeadFailed();
        return m_Errors.Fail("the file holds no row");
    }
    if (bError)   // in the head, which keeps the cells before the error
    {
        Parser.GetErrors().LogIfWanted();
    }
    constexpr std::size_t SMALLEST_CHUNK = 1024, LARGEST_CHUNK = 1 << 20;   // bytes
    std::size_t const nChunk = std::clamp(static_cast<std::size_t>(iLength) / 16, SMALLEST_CHUNK, LARGEST_CHUNK);
    m_pHead = Keep(Row, nChunk);
    while (Parser.ParseRow(Row, bError) && !bError)
    {
        m_dRows.Add(Keep(Row, nChunk));
    }
    m_Errors = Parser.GetErrors();
    if (bError)
    {
        Log("Spreadsheet_c::Parse : row parsing failed.");
        m_Errors.LogIfWanted();
    }
    return !bError;
}
