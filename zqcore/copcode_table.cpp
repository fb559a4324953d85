#include "zqcore/copcode_internal.h"

namespace
{
#include "copcode_table.inc"   // made from tools/opcodetable/*.txt

    static_assert(plat::WordFromLittle(OPCODES_32) == sizeof OPCODES_32 - OPCODE_HEADER_SIZE);
    static_assert(plat::WordFromLittle(OPCODES_64) == sizeof OPCODES_64 - OPCODE_HEADER_SIZE);
    static_assert(OPCODES_32[OPCODE_HEADER_SIZE] == 28);   // number of groups

    // Room for an instruction's texts, in bytes. They are short, and at most two of them are symbols.
    constexpr std::size_t TEXT_SIZE = 16 * OPCODE_SYMBOL_SIZE;

    // Returns the most bytes of the decoder's pages that texts can't use.
    constexpr std::size_t OtherSize(unsigned char const * pCompact)
    {
        return OPCODE_COMPACT_OFFSET + OPCODE_HEADER_SIZE + plat::WordFromLittle(pCompact)
               + plat::WordFromLittle(pCompact + sizeof(std::uint32_t)) + alignof(std::uint32_t) + OPCODE_FIELDS_SIZE;
    }
    static_assert(OtherSize(OPCODES_32) + TEXT_SIZE <= OPCODE_PAGES_SIZE);
    static_assert(OtherSize(OPCODES_64) + TEXT_SIZE <= OPCODE_PAGES_SIZE);
}

OpcodeTables_s const & OpcodeTables(bool b64Bit)
{
    static constexpr OpcodeTables_s TABLES_32 = { { OPCODES_32, sizeof OPCODES_32 },
        { OPCODES_32_SLOTS, OPCODES_32_STARTS }, LATER_32, { LATER_32_SLOTS, LATER_32_STARTS } };
    static constexpr OpcodeTables_s TABLES_64 = { { OPCODES_64, sizeof OPCODES_64 },
        { OPCODES_64_SLOTS, OPCODES_64_STARTS }, LATER_64, { LATER_64_SLOTS, LATER_64_STARTS } };
    return b64Bit ? TABLES_64 : TABLES_32;
}
