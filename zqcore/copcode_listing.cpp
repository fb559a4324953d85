#include "zqcore/copcode.h"

#include "platform/memory.h"

#include <cstdio>

namespace
{
    std::int64_t AskSink(OpcodeDecoder_c & Decoder, std::uint64_t Address, char * szName, unsigned nSize)
    {
        return static_cast<CodeListingSink_c *>(Decoder.GetUser())->GetSymbol(Address, szName, nSize);
    }
}

unsigned CodeListingSink_c::WriteSource(std::uint64_t, unsigned iLastLine)
{
    return iLastLine;
}

std::int64_t CodeListingSink_c::GetSymbol(std::uint64_t, char *, unsigned)
{
    return -1;
}

CodeListing_c::CodeListing_c(
    unsigned char const * pCode, std::size_t nBytes, std::uint64_t Address, OpcodeMode_e eMode, std::size_t nAfter)
    : m_pCode(pCode)
    , m_nBias(Address - reinterpret_cast<std::uintptr_t>(pCode))
    , m_Address(Address)
    , m_nBytes(nBytes)
    , m_nAfter(nAfter)
    , m_pInstructions(static_cast<Instruction_s *>(plat::PagesAllocate(PAGES_SIZE)))
    , m_Decoder(eMode)
{
    m_Decoder.SetAddressBias(m_nBias);
}

CodeListing_c::~CodeListing_c()
{
    plat::PagesRelease(m_pInstructions, PAGES_SIZE);
}

std::size_t CodeListing_c::Decode()
{
    m_nInstructions = 0;
    if (m_pInstructions == nullptr)
    {
        return 0;
    }
    char szText[2];   // the text is not needed yet
    for (std::size_t nOffset = 0; nOffset < m_nBytes && m_nInstructions != MAX_INSTRUCTIONS;)
    {
        std::size_t const nBytes =
            m_Decoder.Decode(m_pCode + nOffset, m_nBytes + m_nAfter - nOffset, szText, sizeof szText);
        if (nBytes == 0)
        {
            break;
        }
        m_pInstructions[m_nInstructions++] = { static_cast<std::uint32_t>(nOffset),
            static_cast<std::uint32_t>(nBytes) };
        nOffset += nBytes;
    }
    return m_nInstructions;
}

void CodeListing_c::Write(CodeListingSink_c & Sink)
{
    m_Decoder.SetSymbolCallback(AskSink, &Sink);
    unsigned iLastLine = ~0u;   // none yet
    for (std::size_t i = 0; i != m_nInstructions; ++i)
    {
        auto const [nOffset, nBytes] = m_pInstructions[i];
        std::uint64_t const Address = m_Address + nOffset;
        iLastLine = Sink.WriteSource(Address, iLastLine);
        char szText[LINE_SIZE];
        m_Decoder.Decode(m_pCode + nOffset, nBytes, szText, sizeof szText);
        bool const bMark = m_bFault && Address == m_FaultAddress;
        char szLine[LINE_SIZE + 64];   // with the address and the mark
        std::snprintf(szLine, sizeof szLine, "%08llx: %s%s", static_cast<unsigned long long>(Address), szText,
            bMark ? "      <--------- FAULT!!!" : "");
        Sink.WriteLine(szLine);
    }
    m_Decoder.SetSymbolCallback(nullptr, nullptr);
}
