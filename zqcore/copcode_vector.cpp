// Instructions with a VEX, XOP or EVEX prefix: the bits of the prefix, and the parts of the text that depend on them.
#include "zqcore/copcode.h"

#include "zqcore/copcode_internal.h"

#include <iterator>

namespace
{
    constexpr unsigned XMM_BYTES = 16;   // of the shortest vector; each further length doubles them

    // Returns nValue if nBit is set in nBits, else 0.
    constexpr unsigned MapBit(unsigned nBits, unsigned nBit, unsigned nValue)
    {
        return nBits & nBit ? nValue : 0;
    }
}

// Applies the prefix in the fields: VEX or EVEX (Intel SDM, volume 2, chapter 2), or XOP (AMD64 manual, volume 6).
// pCode is the opcode after it. Returns false if the vector length does not exist.
bool OpcodeDecoder_c::TakeVex(std::uint32_t const * pFields, unsigned char const * pCode)
{
    constexpr unsigned SHORT_VEX = 0xC5;
    constexpr unsigned EVEX = 0x62;
    bool const bShort = pFields[0] == SHORT_VEX;
    unsigned const nFirst = ~pFields[1];   // register numbers are inverted
    unsigned const nSecond = pFields[bShort ? 1 : 2];
    m_Vex = {};
    m_Vex.bPresent = true;
    m_Vex.bEvex = pFields[0] == EVEX;
    m_Vex.bW = !bShort && nSecond & 0x80;
    m_Vex.nLength = MapBit(nSecond, 4, 1);
    m_Vex.iRegister = ~nSecond >> 3 & (m_b64Bit ? 15 : 7);
    m_bOperandSize = (nSecond & 3) == 1;
    m_bF3 = (nSecond & 3) == 2;
    m_bF2 = (nSecond & 3) == 3;
    if (m_b64Bit)
    {
        unsigned const nLong = bShort ? 0 : MapBit(nFirst, 0x40, OPCODE_REX_X) | MapBit(nFirst, 0x20, OPCODE_REX_B);
        m_nRex = static_cast<unsigned char>(MapBit(nFirst, 0x80, OPCODE_REX_R) | nLong | (m_Vex.bW ? OPCODE_REX_W : 0));
    }
    return !m_Vex.bEvex || TakeEvex(nFirst, pFields[3], pCode);
}

// Applies what EVEX adds. With a register operand and EVEX.b, the length's bits are a rounding mode. Returns false if
// the vector length does not exist.
bool OpcodeDecoder_c::TakeEvex(unsigned nFirst, unsigned nThird, unsigned char const * pCode)
{
    constexpr unsigned REGISTER_FORM = 0xC0;   // of the ModR/M byte
    bool const bRegister = m_pEnd - pCode >= 2 && pCode[1] >= REGISTER_FORM;
    m_Vex.bBroadcast = nThird & 0x10 && !bRegister;
    m_Vex.bRounding = nThird & 0x10 && bRegister;
    m_Vex.bZero = nThird & 0x80;
    m_Vex.iMask = nThird & 7;
    m_Vex.iRounding = nThird >> 5 & 3;
    m_Vex.nLength = m_Vex.bRounding ? 2 : m_Vex.iRounding;
    if (m_b64Bit)
    {
        m_Vex.nHighReg = nFirst & 0x10;
        m_Vex.nHighRm = MapBit(nFirst, 0x40, 0x10);
        m_Vex.nHighIndex = MapBit(~nThird, 8, 0x10);
        m_Vex.iRegister |= m_Vex.nHighIndex;
    }
    return m_Vex.nLength <= 2;
}

// Sets the size of the memory operand. Returns false for a broadcast that the instruction does not have.
bool OpcodeDecoder_c::SetMemorySize(unsigned eCode)
{
    unsigned const eSize = eCode & 15;
    unsigned const nElement = eCode >> 4 & 3;
    m_nMemory = eSize <= OPCODE_SIZE_EIGHTH ? XMM_BYTES << m_Vex.nLength >> eSize : 1u << (eSize - OPCODE_SIZE_1);
    if (!m_Vex.bBroadcast)
    {
        return true;
    }
    m_nElements = m_nMemory >> nElement;
    m_nMemory = 1u << nElement;
    return nElement != 0;
}

// Returns whether the text shows what the prefix says. A processor refuses the bits that an instruction does not have.
bool OpcodeDecoder_c::IsVexShown() const
{
    unsigned const iRegister = m_Vex.iRegister & (m_Vex.bIndexShown ? 15 : 31);   // bit 4 is the index's too
    return (iRegister == 0 || m_Vex.bRegisterShown) && (!m_Vex.bRounding || m_Vex.bRoundingShown)
           && (m_Vex.iMask == 0 ? !m_Vex.bZero : m_Vex.bMaskShown);
}

// Writes the register whose number is in nField or in the prefix. nShape has an OpcodePlace_e and, from bit 4 on, an
// OpcodeClass_e.
void OpcodeDecoder_c::WriteVector(std::uint32_t nField, unsigned nShape)
{
    unsigned const ePlace = nShape & 15;
    auto const fnRex = [this](unsigned nBit) { return MapBit(m_nRex, nBit, 8); };
    unsigned const nReg = OpcodeRegister(nField);
    unsigned const iRegister = ePlace == OPCODE_PLACE_REG     ? nReg | fnRex(OPCODE_REX_R) | m_Vex.nHighReg
                               : ePlace == OPCODE_PLACE_RM    ? OpcodeLow(nField) | fnRex(OPCODE_REX_B) | m_Vex.nHighRm
                               : ePlace == OPCODE_PLACE_INDEX ? nReg | fnRex(OPCODE_REX_X) | m_Vex.nHighIndex
                               : ePlace == OPCODE_PLACE_IMMEDIATE ? nField >> 4 & (m_b64Bit ? 15 : 7)
                                                                  : m_Vex.iRegister;
    m_Vex.bRegisterShown |= ePlace == OPCODE_PLACE_VVVV;
    m_Vex.bIndexShown |= ePlace == OPCODE_PLACE_INDEX;
    unsigned const eClass = nShape >> 4;
    switch (eClass)
    {
    case OPCODE_CLASS_MASK:
        return WriteNumbered("k", iRegister & 7);
    case OPCODE_CLASS_TILE:
        return WriteNumbered("tmm", iRegister & 7);
    case OPCODE_CLASS_R32_OR_64:
        return WriteGeneral(iRegister, m_nRex & OPCODE_REX_W ? 64 : 32);
    }
    unsigned const nLength = eClass == OPCODE_CLASS_XMM                          ? 0
                             : eClass == OPCODE_CLASS_HALF && m_Vex.nLength != 0 ? m_Vex.nLength - 1
                                                                                 : m_Vex.nLength;
    static constexpr char const * NAMES[] = { "xmm", "ymm", "zmm" };
    WriteNumbered(NAMES[nLength], iRegister);
}

// Writes the word of the smallest size that holds nBytes, or of the largest size.
void OpcodeDecoder_c::WriteSize(unsigned nBytes)
{
    static constexpr char const * WORDS[] = { "byte", "word", "dword", "qword", "xmmword", "ymmword", "zmmword" };
    unsigned iWord = 0;
    for (; 1u << iWord < nBytes && iWord + 1 < std::size(WORDS); ++iWord)
    {}
    WriteText(WORDS[iWord]);
    WriteText(" ptr ");
}

// Writes a part of the text that no field has.
void OpcodeDecoder_c::WritePart(unsigned eCode)
{
    static constexpr char const * ROUNDINGS[] = { ",{rn-sae}", ",{rd-sae}", ",{ru-sae}", ",{rz-sae}" };
    switch (eCode)
    {
    case OPCODE_PRINT_SIZE:
        return WriteSize(m_nMemory);
    case OPCODE_PRINT_VECTOR_SIZE:
        return WriteSize(XMM_BYTES << m_Vex.nLength);
    case OPCODE_PRINT_BROADCAST:
        if (m_Vex.bBroadcast)
        {
            WriteNumbered("{1to", m_nElements);
            WriteChar('}');
        }
        return;
    case OPCODE_PRINT_MASK:
        m_Vex.bMaskShown = true;
        if (m_Vex.iMask != 0)
        {
            WriteNumbered("{k", m_Vex.iMask);
            WriteText(m_Vex.bZero ? "}{z}" : "}");
        }
        return;
    case OPCODE_PRINT_ROUNDING:
        m_Vex.bRoundingShown = true;
        return WriteText(m_Vex.bRounding ? ROUNDINGS[m_Vex.iRounding] : "");
    case OPCODE_PRINT_SAE:
        m_Vex.bRoundingShown = true;
        return WriteText(m_Vex.bRounding ? ",{sae}" : "");
    }
}
