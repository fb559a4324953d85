// Conversion of an instruction's fields to text.
#include "zqcore/copcode.h"

#include "zqcore/copcode_internal.h"

#include "platform/text.h"

#include <cstring>

namespace
{
    constexpr char const * GENERAL[] = { "ax", "cx", "dx", "bx", "sp", "bp", "si", "di" };
    constexpr char const * BYTES[] = { "al", "cl", "dl", "bl", "ah", "ch", "dh", "bh" };
    constexpr char const * BYTES_WITH_REX[] = { "al", "cl", "dl", "bl", "spl", "bpl", "sil", "dil" };
    constexpr char const * SEGMENTS[] = { "es", "cs", "ss", "ds", "fs", "gs", "?6s", "?7s" };

    // Returns a slice of a field. nShape has the width and the shift of an explicit one.
    unsigned SliceOf(std::uint32_t nField, unsigned eSlice, unsigned nShape)
    {
        switch (eSlice)
        {
        case OPCODE_SLICE_BYTE:
            return nField & 0xFF;
        case OPCODE_SLICE_LOW:
            return OpcodeLow(nField);
        case OPCODE_SLICE_REGISTER:
            return OpcodeRegister(nField);
        default:
            return nField >> (nShape & 15) & ((1u << (nShape >> 4)) - 1);
        }
    }

    // Returns what a REX prefix adds to a register's number: 8, or 0 if its bit is not set.
    unsigned Extension(unsigned nRex, unsigned eSlice, unsigned eKind)
    {
        unsigned const nBit = eKind == OPCODE_KIND_INDEX        ? OPCODE_REX_X
                              : eSlice == OPCODE_SLICE_LOW      ? OPCODE_REX_B
                              : eSlice == OPCODE_SLICE_REGISTER ? OPCODE_REX_R
                                                                : 0;
        return nRex & nBit ? 8 : 0;
    }

    // Returns a little-endian number whose bytes are fields.
    std::uint64_t Number(std::uint32_t const * pField, int nFields)
    {
        std::uint64_t nValue = 0;
        for (int i = nFields; i-- > 0;)
        {
            nValue = nValue << 8 | pField[i];
        }
        return nValue;
    }

    // Return a signed number whose bytes are fields.
    std::int64_t Signed32(std::uint32_t const * pField)
    {
        return static_cast<std::int32_t>(Number(pField, 4));
    }

    std::int64_t Signed16(std::uint32_t const * pField)
    {
        return static_cast<std::int16_t>(Number(pField, 2));
    }
}

void OpcodeDecoder_c::WriteField(
    unsigned char const * pEnd, std::uint32_t const * pField, unsigned nSelector, unsigned nShape)
{
    unsigned const eSlice = nSelector >> OPCODE_SLICE_SHIFT;
    unsigned const eKind = nSelector & OPCODE_KIND_MASK;
    unsigned const nSlice = SliceOf(*pField, eSlice, nShape);
    switch (eKind)
    {
    case OPCODE_KIND_MM:
        WriteText("mm");
        WriteChar(static_cast<char>('0' + nSlice));
        break;
    case OPCODE_KIND_SEGMENT:
        WriteText(SEGMENTS[nSlice & 7]);
        break;
    case OPCODE_KIND_ST:
        WriteText("st(");
        WriteChar(static_cast<char>('0' + nSlice));
        WriteChar(')');
        break;
    case OPCODE_KIND_MM_OR_XMM:
        if (!m_bOperandSize)
        {
            return WriteField(pEnd, pField, nSelector - OPCODE_KIND_MM_OR_XMM + OPCODE_KIND_MM, nShape);
        }
        return WriteRegister(OPCODE_KIND_XMM, nSlice | Extension(m_nRex, eSlice, eKind));
    case OPCODE_KIND_VECTOR:
        return WriteVector(*pField, nShape);
    case OPCODE_KIND_TEXT:
        WriteText(m_pText + *pField);
        break;
    default:
        if (eKind <= OPCODE_KIND_STACK || eKind == OPCODE_KIND_BY_SIZE || eKind == OPCODE_KIND_R64)
        {
            return WriteRegister(eKind, nSlice | Extension(m_nRex, eSlice, eKind));
        }
        WriteNumber(pEnd, pField, eKind, nSlice);
    }
}

void OpcodeDecoder_c::WriteRegister(unsigned eKind, unsigned iRegister)
{
    bool const bWide = m_nRex & OPCODE_REX_W;
    switch (eKind)
    {
    case OPCODE_KIND_R32:
        return WriteGeneral(iRegister, 32);
    case OPCODE_KIND_R16:
        return WriteGeneral(iRegister, 16);
    case OPCODE_KIND_R8:
        return WriteGeneral(iRegister, 8);
    case OPCODE_KIND_XMM:
        return WriteNumbered("xmm", iRegister);
    case OPCODE_KIND_CR:
        return WriteNumbered("cr", iRegister);
    case OPCODE_KIND_DR:
        return WriteNumbered("dr", iRegister);
    case OPCODE_KIND_ADDRESS:
    case OPCODE_KIND_INDEX:
        return WriteGeneral(iRegister, m_bAddressSize ? 32 : 64);
    case OPCODE_KIND_R32_OR_64:
        return WriteGeneral(iRegister, bWide ? 64 : 32);
    case OPCODE_KIND_STACK:
        return WriteGeneral(iRegister, m_bOperandSize && !bWide ? 16 : 64);
    case OPCODE_KIND_R64:
        return WriteGeneral(iRegister, 64);
    default:
        return WriteGeneral(iRegister, bWide ? 64 : m_bOperandSize ? 16 : 32);
    }
}

// Writes a name and a number below 100.
void OpcodeDecoder_c::WriteNumbered(char const * szClass, unsigned iRegister)
{
    WriteText(szClass);
    if (iRegister >= 10)
    {
        WriteChar(static_cast<char>('0' + iRegister / 10));
    }
    WriteChar(static_cast<char>('0' + iRegister % 10));
}

void OpcodeDecoder_c::WriteGeneral(unsigned iRegister, unsigned nBits)
{
    iRegister &= 15;
    if (iRegister >= 8)
    {
        WriteChar('r');
        if (iRegister >= 10)
        {
            WriteChar('1');
        }
        WriteChar(static_cast<char>('0' + iRegister % 10));
        return WriteText(nBits == 64 ? "" : nBits == 32 ? "d" : nBits == 16 ? "w" : "b");
    }
    if (nBits == 8)
    {
        return WriteText((m_nRex != 0 ? BYTES_WITH_REX : BYTES)[iRegister]);
    }
    WriteText(nBits == 64 ? "r" : nBits == 32 ? "e" : "");
    WriteText(GENERAL[iRegister]);
}

void OpcodeDecoder_c::WriteNumber(
    unsigned char const * pEnd, std::uint32_t const * pField, unsigned eKind, unsigned nSlice)
{
    std::int64_t const nSigned8 = static_cast<std::int8_t>(nSlice);
    switch (eKind)
    {
    case OPCODE_KIND_BYTE:
        return WriteHex(nSlice, 2);
    case OPCODE_KIND_NUMBER16:
        return WriteHex(Number(pField, 2), 4);
    case OPCODE_KIND_NUMBER32:
        return WriteAddress(Number(pField, 4));
    case OPCODE_KIND_NUMBER64:
        return WriteAddress(Number(pField, 8));
    case OPCODE_KIND_EXTENDED:
        return WriteAddress(static_cast<std::uint64_t>(Signed32(pField)));
    case OPCODE_KIND_SIGNED8:
        return WriteSigned(
            m_Vex.bEvex ? nSigned8 * static_cast<int>(m_nMemory) : nSigned8);   // EVEX scales displacements
    case OPCODE_KIND_SIGNED16:
        return WriteSigned(Signed16(pField));
    case OPCODE_KIND_SIGNED32:
    {
        std::uint32_t const iText = m_nText;
        WriteSigned(Signed32(pField));
        return OfferSymbol(AsAddress(static_cast<std::uint64_t>(Signed32(pField))), iText);
    }
    case OPCODE_KIND_JUMP8:
        return WriteTarget(pEnd, nSigned8);
    case OPCODE_KIND_JUMP16:
        return WriteTarget(pEnd, Signed16(pField));
    case OPCODE_KIND_JUMP32:
        return WriteTarget(pEnd, Signed32(pField));
    case OPCODE_KIND_RELATIVE:
        m_bRelative = true;
        if (m_pInstructionEnd == nullptr)
        {
            return WriteHex(0, 8);
        }
        return WriteTarget(m_pInstructionEnd, Signed32(pField));
    }
}

void OpcodeDecoder_c::WriteAddress(std::uint64_t Address)
{
    std::uint32_t const iText = m_nText;
    WriteHex(Address, 8);
    OfferSymbol(Address, iText);
}

void OpcodeDecoder_c::WriteSigned(std::int64_t iValue)
{
    WriteChar(iValue < 0 ? '-' : '+');
    WriteHex(static_cast<std::uint64_t>(iValue < 0 ? -iValue : iValue), 2);
}

void OpcodeDecoder_c::WriteTarget(unsigned char const * pEnd, std::int64_t nDistance)
{
    std::uint64_t const nEnd = reinterpret_cast<std::uintptr_t>(pEnd) + m_nBias;
    WriteAddress(AsAddress(nEnd + static_cast<std::uint64_t>(nDistance)));
}

// Inserts the symbol's name, and the distance from it unless that is 0, before the text written from iText on, which
// gets parentheses. Without a symbol, and for address 0, the text stays.
void OpcodeDecoder_c::OfferSymbol(std::uint64_t Address, std::uint32_t iText)
{
    if (Address == 0 || m_fnSymbol == nullptr)
    {
        return;
    }
    char szName[OPCODE_SYMBOL_SIZE];
    szName[0] = '\0';
    std::int64_t const nDistance = m_fnSymbol(*this, Address, szName, sizeof szName);
    if (nDistance < 0)
    {
        return;
    }
    char szNumber[24];   // a sign and 16 digits fit
    std::size_t const nNumber = m_nText - iText < sizeof szNumber ? m_nText - iText : sizeof szNumber - 1;
    std::memcpy(szNumber, m_pText + iText, nNumber);
    szNumber[nNumber] = '\0';
    m_nText = iText;
    WriteText(szName);
    if (nDistance != 0)
    {
        WriteChar('+');
        WriteHex(static_cast<std::uint64_t>(nDistance), 2);
    }
    WriteText(" (");
    WriteText(szNumber);
    WriteChar(')');
}

void OpcodeDecoder_c::WriteChar(char c)
{
    if (m_nText + 1 < m_nTextSize)
    {
        m_pText[m_nText++] = c;
    }
}

void OpcodeDecoder_c::WriteText(char const * szText)
{
    for (; *szText != '\0'; ++szText)
    {
        WriteChar(*szText);
    }
}

// Writes nDigits lower-case hexadecimal digits, or more if the number needs them.
void OpcodeDecoder_c::WriteHex(std::uint64_t nNumber, int nDigits)
{
    int nShift = (nDigits - 1) * 4;
    while (nShift < 60 && nNumber >> nShift >= 16)
    {
        nShift += 4;
    }
    for (; nShift >= 0; nShift -= 4)
    {
        WriteChar(plat::LOWER_HEX_DIGITS[nNumber >> nShift & 15]);
    }
}
