#include "zqcore/copcode_internal.h"

namespace
{
#include "copcode_table.inc"   // made from tools/opcodetable/*.txt

    constexpr std::uint32_t WordAt(unsigned char const * p)
    {
        return p[0] | static_cast<std::uint32_t>(p[1]) << 8 | static_cast<std::uint32_t>(p[2]) << 16;
    }

    static_assert(WordAt(OPCODES_32) == sizeof OPCODES_32 - OPCODE_HEADER_SIZE);
    static_assert(WordAt(OPCODES_64) == sizeof OPCODES_64 - OPCODE_HEADER_SIZE);
    static_assert(OPCODES_32[OPCODE_HEADER_SIZE] == 28);

    // An instruction's texts are short, and at most two of them are symbols.
    constexpr std::size_t TEXT_SIZE = 16 * OPCODE_SYMBOL_SIZE;
    constexpr std::size_t OtherSize(unsigned char const * pCompact)
    {
        return OPCODE_COMPACT_OFFSET + OPCODE_HEADER_SIZE + WordAt(pCompact) + WordAt(pCompact + 4)
               + alignof(std::uint32_t) + OPCODE_FIELDS_SIZE;
    }
    static_assert(OtherSize(OPCODES_32) + TEXT_SIZE <= OPCODE_PAGES_SIZE);
    static_assert(OtherSize(OPCODES_64) + TEXT_SIZE <= OPCODE_PAGES_SIZE);
}

OpcodeCompact_s OpcodeTable(bool b64Bit)
{
    return b64Bit ? OpcodeCompact_s{ OPCODES_64, sizeof OPCODES_64 } : OpcodeCompact_s{ OPCODES_32, sizeof OPCODES_32 };
}
