#include "zqcore/copcode_internal.h"

#include <algorithm>
#include <cstring>

namespace
{
    // A string of the expanded form.
    struct String_s
    {
        unsigned char const * pBytes = nullptr;
        std::size_t nBytes = 0;
    };

    // Writer of the expanded form. Every step fails on invalid input, and at the end of the input or output.
    class Expander_c
    {
    public:
        Expander_c(unsigned char const * pIn, std::size_t nIn, unsigned char * pOut, std::size_t nOut)
            : m_pIn(pIn)
            , m_pInEnd(pIn + nIn)
            , m_pTable(pOut)
            , m_pOut(pOut)
            , m_pOutEnd(pOut + nOut)
        {}

        // Writes the whole form and returns the number of its bytes. Returns 0 on failure.
        std::size_t Run()
        {
            std::size_t const nGroups = m_pIn != m_pInEnd ? *m_pIn++ : 0;
            std::size_t const nSlots = (nGroups + 1) * sizeof(std::uint32_t);
            if (nGroups == 0 || nGroups > OPCODE_MAX_GROUPS || nSlots > Room())
            {
                return 0;
            }
            m_pOut += nSlots;
            for (std::size_t i = 0; i != nGroups; ++i)
            {
                SetSlot(i + 1);
                if (i + 1 == nGroups)
                {
                    SetSlot(0);
                }
                if (!ExpandGroup())
                {
                    return 0;
                }
            }
            return m_pIn == m_pInEnd ? static_cast<std::size_t>(m_pOut - m_pTable) : 0;
        }

    private:
        std::size_t Room() const { return static_cast<std::size_t>(m_pOutEnd - m_pOut); }

        // Stores the offset of the next byte of output in a slot.
        void SetSlot(std::size_t iSlot)
        {
            auto const nOffset = static_cast<std::uint32_t>(m_pOut - m_pTable);
            plat::WordToLittle(m_pTable + iSlot * sizeof nOffset, nOffset);
        }

        // Expands the strings of a group and ends it. Returns false on failure.
        bool ExpandGroup()
        {
            while (m_pInEnd - m_pIn >= 2 && (m_pIn[0] != 0 || m_pIn[1] != 0))
            {
                if (!ExpandString(m_dPatterns, 2) || !ExpandString(m_dFormats, 1))
                {
                    return false;
                }
            }
            if (m_pInEnd - m_pIn < 2 || Room() < 2)
            {
                return false;
            }
            m_pIn += 2;
            *m_pOut++ = 0;
            *m_pOut++ = 0;
            return true;
        }

        // Expands the next string of a kind, whose units have nUnit bytes each, and makes it the latest of the history.
        // Returns false on failure.
        bool ExpandString(String_s (&dHistory)[OPCODE_HISTORY], std::size_t nUnit)
        {
            if (m_pInEnd - m_pIn < 2 || m_pIn[1] == 0)
            {
                return false;
            }
            unsigned const nSelector = m_pIn[0];
            std::size_t const nLiteral = (m_pIn[1] - 1u) * nUnit;
            std::size_t const nHead = (nSelector & OPCODE_SHARED_MASK) * nUnit;
            std::size_t const nTail = (nSelector >> OPCODE_TAIL_SHIFT & OPCODE_SHARED_MASK) * nUnit;
            m_pIn += 2;
            String_s const & Old = dHistory[nSelector >> OPCODE_HISTORY_SHIFT];
            std::size_t const nBytes = nHead + nLiteral + nTail;
            if (nLiteral > static_cast<std::size_t>(m_pInEnd - m_pIn) || nHead > Old.nBytes || nTail > Old.nBytes
                || nBytes > UINT8_MAX || nBytes >= Room())
            {
                return false;
            }
            *m_pOut++ = static_cast<unsigned char>(nBytes);
            String_s const New{ m_pOut, nBytes };
            Append(Old.pBytes, nHead);
            Append(m_pIn, nLiteral);
            Append(Old.pBytes + (Old.nBytes - nTail), nTail);
            m_pIn += nLiteral;
            std::copy_backward(dHistory, dHistory + OPCODE_HISTORY - 1, dHistory + OPCODE_HISTORY);
            dHistory[0] = New;
            return true;
        }

        void Append(unsigned char const * pBytes, std::size_t nBytes)
        {
            if (nBytes != 0)
            {
                std::memcpy(m_pOut, pBytes, nBytes);
                m_pOut += nBytes;
            }
        }

        unsigned char const * m_pIn;
        unsigned char const * m_pInEnd;
        unsigned char * m_pTable;
        unsigned char * m_pOut;
        unsigned char * m_pOutEnd;
        String_s m_dPatterns[OPCODE_HISTORY];
        String_s m_dFormats[OPCODE_HISTORY];
    };
}

std::size_t OpcodeExpand(
    unsigned char const * pCompact, std::size_t nCompact, unsigned char * pTable, std::size_t nTable)
{
    if (nCompact < OPCODE_HEADER_SIZE || plat::WordFromLittle(pCompact) != nCompact - OPCODE_HEADER_SIZE)
    {
        return 0;
    }
    std::size_t const nExpanded = plat::WordFromLittle(pCompact + sizeof(std::uint32_t));
    Expander_c Expander(pCompact + OPCODE_HEADER_SIZE, nCompact - OPCODE_HEADER_SIZE, pTable, nTable);
    return Expander.Run() == nExpanded ? nExpanded : 0;
}
