#include "zqcore/copcode.h"

#include "platform/memory.h"
#include "zqcore/copcode_internal.h"

#include <cstring>

// A row that is being matched: the next code byte and the fields so far.
struct OpcodeDecoder_c::Row_s
{
    unsigned char const * pStart;
    unsigned char const * pPosition;
    std::uint32_t * pFields;
    std::size_t nFields = 0;

    void AddField(std::uint32_t nField) { pFields[nFields++] = nField; }
};

// Result of a group: the code after its bytes, and the start of its text.
struct OpcodeDecoder_c::Match_t
{
    unsigned char const * pPosition = nullptr;
    std::uint32_t iText = 0;
};

OpcodeDecoder_c::OpcodeDecoder_c(OpcodeMode_e eMode)
    : m_Tables(OpcodeTables(eMode == OPCODE_64_BIT))
    , m_b64Bit(eMode == OPCODE_64_BIT)
    , m_pPages(plat::PagesAllocate(OPCODE_PAGES_SIZE))
{
    if (m_pPages == nullptr)
    {
        return;
    }
    auto const [pBytes, nBytes] = m_Tables.First;
    auto * const pPages = static_cast<unsigned char *>(m_pPages);
    unsigned char * const pCompact = pPages + OPCODE_COMPACT_OFFSET;
    std::memcpy(pCompact, pBytes, nBytes);
    std::size_t const nTable = OPCODE_COMPACT_OFFSET + nBytes;
    std::size_t const nExpanded = OpcodeExpand(pCompact, nBytes, pPages + nTable, OPCODE_PAGES_SIZE - nTable);
    std::size_t const nFields =
        (nTable + nExpanded + alignof(std::uint32_t) - 1) / alignof(std::uint32_t) * alignof(std::uint32_t);
    m_pFields = reinterpret_cast<std::uint32_t *>(pPages + nFields);
    m_pText = reinterpret_cast<char *>(pPages + nFields + OPCODE_FIELDS_SIZE);
    m_nTextSize = static_cast<std::uint32_t>(OPCODE_PAGES_SIZE - nFields - OPCODE_FIELDS_SIZE);
    m_pTable = pPages + nTable;
}

OpcodeDecoder_c::~OpcodeDecoder_c()
{
    plat::PagesRelease(m_pPages, OPCODE_PAGES_SIZE);
}

namespace
{
    // Writes "%-6s %s" with the text up to its first blank and the text after it, cut at nOut - 1 characters.
    void SplitText(char const * szText, char * szOut, std::size_t nOut)
    {
        constexpr std::size_t MNEMONIC_WIDTH = 6;
        std::size_t nPut = 0;
        auto const Put = [&](char cText)
        {
            if (nPut + 1 < nOut)
            {
                szOut[nPut++] = cText;
            }
        };
        std::size_t iText = 0;
        for (; szText[iText] != '\0' && szText[iText] != ' '; ++iText)
        {
            Put(szText[iText]);
        }
        for (std::size_t i = iText; i < MNEMONIC_WIDTH; ++i)
        {
            Put(' ');
        }
        Put(' ');
        iText += szText[iText] == ' ';
        for (; szText[iText] != '\0'; ++iText)
        {
            Put(szText[iText]);
        }
        szOut[nPut] = '\0';
    }
}

std::size_t OpcodeDecoder_c::Decode(unsigned char const * pCode, std::size_t nBytes, char * szText, std::size_t nText)
{
    szText[0] = '\0';
    if (m_pTable == nullptr)
    {
        return 0;
    }
    m_pEnd = pCode + nBytes;
    m_pInstructionEnd = nullptr;
    m_bRelative = false;
    Match_t Match;
    if (!RunInstruction(pCode, Match))
    {
        return 0;
    }
    if (m_bRelative)
    {
        m_pInstructionEnd = Match.pPosition;
        RunInstruction(pCode, Match);
    }
    SplitText(m_pText + Match.iText, szText, nText);
    return static_cast<std::size_t>(Match.pPosition - pCode);
}

// Runs the tables until a row makes a text. Returns false if no row matches, or if the bytes end first.
bool OpcodeDecoder_c::RunInstruction(unsigned char const * pCode, Match_t & Match)
{
    m_bOperandSize = m_bAddressSize = m_bF2 = m_bF3 = m_nRex = 0;
    m_szSegment = nullptr;
    m_nText = 0;
    m_nMemory = 0;
    m_Vex = {};
    for (Match.pPosition = pCode; Match.pPosition != m_pEnd;)
    {
        if (!RunTables(Match.pPosition, Match))
        {
            return false;
        }
        if (m_pText[Match.iText] != '\0')
        {
            return true;
        }
    }
    return false;
}

// Tries the later instructions first. A VEX prefix that begins none of them, or that has bits which the text does not
// show, has no effect. Returns false if no row matches.
bool OpcodeDecoder_c::RunTables(unsigned char const * pCode, Match_t & Match)
{
    std::uint32_t const nText = m_nText;
    m_pRows = m_Tables.pLater;
    m_pIndex = &m_Tables.LaterIndex;
    if (RunGroup(0, pCode, m_pFields, Match) && IsVexShown())
    {
        return true;
    }
    if (m_Vex.bPresent)
    {
        m_nText = nText;
        m_bOperandSize = m_bF2 = m_bF3 = m_nRex = 0;
        m_Vex = {};
    }
    m_nMemory = 0;
    m_pRows = m_pTable;
    m_pIndex = &m_Tables.FirstIndex;
    return RunGroup(0, pCode, m_pFields, Match);
}

// Matches the rows of a group and writes the text of the first that matches. Returns false if none does.
bool OpcodeDecoder_c::RunGroup(unsigned iSlot, unsigned char const * pCode, std::uint32_t * pFields, Match_t & Match)
{
    unsigned const cCode = pCode != m_pEnd ? *pCode : 0;
    unsigned const iStarts = m_pIndex->pSlots[iSlot];
    unsigned char const * pRow = m_pRows
                                 + (iStarts != 0 ? m_pIndex->pStarts[iStarts - 1][cCode]
                                                 : plat::WordFromLittle(m_pRows + iSlot * sizeof(std::uint32_t)));
    while (*pRow != 0)
    {
        unsigned char const * const pPattern = pRow + 1;
        unsigned char const * const pFormat = pPattern + *pRow;
        pRow = pFormat + 1 + *pFormat;
        if ((cCode & pPattern[1]) != pPattern[0] && pPattern[1] != 0)
        {
            continue;
        }
        Row_s Row{ pCode, pCode, pFields };
        std::uint32_t const nTextBefore = m_nText;
        if (MatchPattern(Row, pPattern, static_cast<std::size_t>(pFormat - pPattern)))
        {
            Match.pPosition = Row.pPosition;
            Match.iText = m_nText;
            WriteFormat(Row, pFormat + 1, *pFormat);
            m_pText[m_nText] = '\0';
            m_nText += m_nText + 1 < m_nTextSize;
            return true;
        }
        m_nText = nTextBefore;
    }
    return false;
}

// Adds the fields of a pattern to the row. Returns false in these cases:
// - The code does not match.
// - A condition does not hold.
// - The bytes or the space for fields end first.
bool OpcodeDecoder_c::MatchPattern(Row_s & Row, unsigned char const * pPattern, std::size_t nPattern)
{
    for (unsigned char const * pPart = pPattern; pPart != pPattern + nPattern; pPart += 2)
    {
        unsigned const eCode = pPart[0];
        unsigned const nMask = pPart[1];
        if (nMask == 0 && eCode > OPCODE_RAW_LAST)
        {
            bool const bHolds = eCode >= OPCODE_SUBTABLE      ? RunSubtable(Row, eCode)
                                : eCode >= OPCODE_MEMORY_SIZE ? SetMemorySize(eCode)
                                : eCode == OPCODE_TAKE_VEX    ? TakeVex(Row.pFields, Row.pPosition)
                                                              : IsConditionMet(eCode);
            if (!bHolds)
            {
                return false;
            }
            continue;
        }
        std::size_t const nBytes = nMask == 0 && eCode != OPCODE_ANY_BYTE ? eCode : 1;
        auto const nFree = static_cast<std::size_t>(m_pFields + OPCODE_MAX_FIELDS - (Row.pFields + Row.nFields));
        if (nBytes > static_cast<std::size_t>(m_pEnd - Row.pPosition) || nBytes > nFree
            || (nMask != 0 && (*Row.pPosition & nMask) != eCode))
        {
            return false;
        }
        for (std::size_t i = 0; i != nBytes; ++i)
        {
            Row.AddField(*Row.pPosition++);
        }
    }
    return true;
}

// Returns whether a condition holds. An unknown one does.
bool OpcodeDecoder_c::IsConditionMet(unsigned eCondition) const
{
    switch (eCondition)
    {
    case OPCODE_IF_OPERAND_SIZE:
        return m_bOperandSize;
    case OPCODE_IF_ADDRESS_SIZE:
        return m_bAddressSize;
    case OPCODE_IF_F2:
        return m_bF2;
    case OPCODE_IF_F3:
        return m_bF3;
    case OPCODE_IF_NO_SEGMENT:
        return m_szSegment == nullptr;
    case OPCODE_IF_REX_W:
        return m_nRex & OPCODE_REX_W || m_Vex.bW;
    case OPCODE_IF_REX_B:
        return m_nRex & OPCODE_REX_B;
    case OPCODE_IF_NO_REX_X:
        return !(m_nRex & OPCODE_REX_X);
    case OPCODE_IF_NO_PREFIX:
        return !m_bOperandSize && !m_bF2 && !m_bF3 && m_nRex == 0;
    case OPCODE_IF_EVEX:
        return m_Vex.bEvex;
    case OPCODE_IF_NOT_EVEX:
        return !m_Vex.bEvex;
    case OPCODE_IF_NOT_W:
        return !(m_nRex & OPCODE_REX_W) && !m_Vex.bW;
    case OPCODE_IF_LENGTH:
    case OPCODE_IF_LENGTH + 1:
    case OPCODE_IF_LENGTH + 2:
        return m_Vex.nLength == eCondition - OPCODE_IF_LENGTH;
    case OPCODE_IF_NOT_LENGTH_16:
        return m_Vex.nLength != 0;
    case OPCODE_IF_W_OR_NOT_EVEX:
        return m_Vex.bW || !m_Vex.bEvex;
    case OPCODE_IF_NOT_W_OR_NOT_EVEX:
        return !m_Vex.bW || !m_Vex.bEvex;
    case OPCODE_IF_NO_MANDATORY:
        return !m_bOperandSize && !m_bF2 && !m_bF3;
    case OPCODE_IF_NO_F2_F3:
        return !m_bF2 && !m_bF3;
    case OPCODE_IF_66_ALONE:
        return m_bOperandSize && !m_bF2 && !m_bF3;
    case OPCODE_IF_F2_ALONE:
        return m_bF2 && !m_bF3;
    case OPCODE_IF_F3_ALONE:
        return m_bF3 && !m_bF2;
    default:
        return true;
    }
}

// Runs the group of a pattern's unit and adds its two fields to the row. Returns false in these cases:
// - No row of the group matches.
// - There is no consumed byte to step back to.
// - There is no space for the fields.
bool OpcodeDecoder_c::RunSubtable(Row_s & Row, unsigned eCode)
{
    bool const bBack = eCode & OPCODE_STEP_BACK;
    if (bBack && Row.pPosition == Row.pStart)
    {
        return false;
    }
    unsigned char const * const pCode = Row.pPosition - bBack;
    std::uint32_t * const pFields = Row.pFields + Row.nFields;
    if (pFields + 2 > m_pFields + OPCODE_MAX_FIELDS)
    {
        return false;
    }
    Match_t Match;
    if (!RunGroup((eCode & OPCODE_GROUP_MASK) + 1, pCode, pFields, Match))
    {
        return false;
    }
    Row.AddField(pCode != m_pEnd ? *pCode : 0);
    Row.AddField(Match.iText);
    Row.pPosition = Match.pPosition;
    return true;
}

// Writes the text of a row by its format, and applies the prefixes that the format names.
void OpcodeDecoder_c::WriteFormat(Row_s const & Row, unsigned char const * pFormat, std::size_t nFormat)
{
    unsigned char const * const pEnd = pFormat + nFormat;
    for (unsigned char const * pNext = pFormat; pNext != pEnd;)
    {
        unsigned const eCode = *pNext++;
        unsigned const iField = eCode & ~static_cast<unsigned>(OPCODE_BLANK);
        if (iField == 0 || iField > OPCODE_FIELD_LAST)
        {
            if (eCode < OPCODE_PRINT_SEGMENT)
            {
                WriteChar(static_cast<char>(eCode));
            }
            else
            {
                RunCode(eCode, Row.pFields[0]);
            }
            continue;
        }
        if (eCode & OPCODE_BLANK)
        {
            WriteChar(' ');
        }
        unsigned const nSelector = *pNext++;
        unsigned const nShape = nSelector >> OPCODE_SLICE_SHIFT >= OPCODE_SLICE_EXPLICIT ? *pNext++ : 0u;
        WriteField(Row.pPosition, Row.pFields + (iField - 1), nSelector, nShape);
    }
}

// Applies the prefix that a format's code names, or writes the part of the text that the code names.
void OpcodeDecoder_c::RunCode(unsigned eCode, std::uint32_t nFirstField)
{
    if (eCode >= OPCODE_PRINT_SIZE)
    {
        return WritePart(eCode);
    }
    static constexpr char const * SEGMENTS[] = { "cs", "ss", "ds", "es", "fs", "gs" };
    switch (eCode)
    {
    case OPCODE_PRINT_SEGMENT:
        if (m_szSegment != nullptr)
        {
            WriteText(m_szSegment);
            WriteChar(':');
        }
        return;
    case OPCODE_SET_OPERAND_SIZE:
        m_bOperandSize = 1;
        break;
    case OPCODE_SET_ADDRESS_SIZE:
        m_bAddressSize = 1;
        break;
    case OPCODE_SET_F2:
        m_bF2 = 1;
        break;
    case OPCODE_SET_F3:
        m_bF3 = 1;
        break;
    case OPCODE_SET_REX:
        m_nRex = static_cast<unsigned char>(nFirstField);
        return;
    default:
        if (eCode < OPCODE_SET_OPERAND_SIZE)
        {
            m_szSegment = SEGMENTS[eCode - OPCODE_SET_SEGMENT];
        }
    }
    m_nRex = 0;   // a prefix after a REX prefix cancels it
}
