// copcode_internal.h: codes of the opcode table and its two forms.
//
// The decoder shares them with the generator that makes the table from tools/opcodetable/*.txt.
//
// Instructions after SSE2 have a second table, which is tried first. It exists in the expanded form only.
//
// A table consists of groups, a group of rows, and a row of a pattern and a format. A pattern consumes bytes of the
// code and has conditions. The first row that matches is used. A format is the text to write, with references to
// fields. Each byte that a pattern consumes is a field. A reference to another group consumes what that group consumes
// and makes two fields: the first byte, and the text that the group has written.
//
// The compact form consists of two 32-bit little-endian words (number of bytes that follow them, size of the expanded
// form), a byte with the number of groups, and the groups. Pattern and format of a row are strings. A string is coded
// as a selector, a length L and literal bytes.
// - Bits 6 and 7 of the selector pick one of the last four strings of its kind, 0 being the latest.
// - The string is that string's first P units (bits 0 to 2), the literal, and its last S units (bits 3 to 5).
// - A unit is two bytes of a pattern, or one byte of a format. The literal has L - 1 units.
// - Two zero bytes end a group.
//
// The expanded form consists of slots and the groups. A slot is a group's 32-bit little-endian offset from the start of
// the form. Slot 0 is that of the last group, which is the root. Slot i + 1 is that of group i. Each string is a length
// byte and its bytes. Two zero bytes end a group.
#pragma once

#include "platform/bytes.h"

#include <cstddef>
#include <cstdint>

/// First byte of a pattern's unit whose second byte, the mask, is 0. It is one of these, or 1 to OPCODE_RAW_LAST (that
/// many raw bytes), or OPCODE_SUBTABLE with the index of a group in the bits of OPCODE_GROUP_MASK. A unit with another
/// mask consumes a byte that is equal to the first one in the bits of the mask.
enum OpcodePattern_e : unsigned char
{
    OPCODE_ANY_BYTE = 0,
    OPCODE_RAW_LAST = 15,
    OPCODE_IF_OPERAND_SIZE = 16,
    OPCODE_IF_ADDRESS_SIZE = 17,
    OPCODE_IF_F2 = 18,
    OPCODE_IF_F3 = 19,
    OPCODE_IF_NO_SEGMENT = 20,
    OPCODE_IF_REX_W = 21,   // or W of a VEX, EVEX or XOP prefix; otherwise 21 to 23 serve 64-bit mode
    OPCODE_IF_REX_B = 22,
    OPCODE_IF_NO_REX_X = 23,
    OPCODE_IF_NO_PREFIX = 24,   // none of 66, F2, F3 and REX; 24 to 39 serve the table of later instructions
    OPCODE_TAKE_VEX = 25,       // the row's bytes are a VEX, EVEX or XOP prefix; its bits apply from here on
    OPCODE_IF_EVEX = 26,
    OPCODE_IF_NOT_EVEX = 27,
    OPCODE_IF_NOT_W = 28,
    OPCODE_IF_LENGTH = 29,   // and the next two: vectors of 16, 32, 64 bytes
    OPCODE_IF_NOT_LENGTH_16 = 32,
    OPCODE_IF_W_OR_NOT_EVEX = 33,
    OPCODE_IF_NOT_W_OR_NOT_EVEX = 34,
    OPCODE_IF_NO_MANDATORY = 35,   // none of 66, F2 and F3
    OPCODE_IF_NO_F2_F3 = 36,
    OPCODE_IF_66_ALONE = 37,     // without F2 and F3
    OPCODE_IF_F2_ALONE = 38,     // without F3
    OPCODE_IF_F3_ALONE = 39,     // without F2
    OPCODE_MEMORY_SIZE = 0x40,   // and an OpcodeSize_e, and the log2 of a broadcast element's bytes in bits 4 and 5
    OPCODE_STEP_BACK = 0x40,     // with OPCODE_SUBTABLE: the group begins at the byte that was consumed last
    OPCODE_SUBTABLE = 0x80,
    OPCODE_GROUP_MASK = 0x3F,
};

/// Bytes of a memory operand. Those up to OPCODE_SIZE_EIGHTH are parts of the vector's. From OPCODE_SIZE_1 to
/// OPCODE_SIZE_64 each is twice the previous one.
enum OpcodeSize_e : unsigned char
{
    OPCODE_SIZE_VECTOR = 0,
    OPCODE_SIZE_HALF = 1,
    OPCODE_SIZE_QUARTER = 2,
    OPCODE_SIZE_EIGHTH = 3,
    OPCODE_SIZE_1 = 4,
    OPCODE_SIZE_64 = 10,
};

/// Bytes of a format that are not printed as they are. 1 to OPCODE_FIELD_LAST refer to a field. With OPCODE_BLANK a
/// blank precedes it. The next byte is a selector: an OpcodeSlice_e from OPCODE_SLICE_SHIFT on, and an OpcodeKind_e in
/// the bits of OPCODE_KIND_MASK.
enum OpcodeFormat_e : unsigned char
{
    OPCODE_FIELD_LAST = 0x1F,
    OPCODE_BLANK = 0x80,
    OPCODE_PRINT_SEGMENT = 0xE0,
    OPCODE_SET_SEGMENT = 0xE1,   // and the next five: cs, ss, ds, es, fs, gs
    OPCODE_SET_OPERAND_SIZE = 0xE7,
    OPCODE_SET_ADDRESS_SIZE = 0xE8,
    OPCODE_SET_F2 = 0xE9,
    OPCODE_SET_F3 = 0xEA,
    OPCODE_SET_REX = 0xEB,      // to the row's first field
    OPCODE_SET_NONE = 0xEC,     // a prefix without effect
    OPCODE_PRINT_SIZE = 0xED,   // the size word of the memory operand
    OPCODE_PRINT_VECTOR_SIZE = 0xEE,
    OPCODE_PRINT_BROADCAST = 0xEF,
    OPCODE_PRINT_MASK = 0xF0,
    OPCODE_PRINT_ROUNDING = 0xF1,   // the mode, after a comma
    OPCODE_PRINT_SAE = 0xF2,        // "{sae}", after a comma, with EVEX.b and a register operand
};

/// Slices of a field. The format's next byte describes OPCODE_SLICE_EXPLICIT: width in its high half, shift in its low
/// half.
enum OpcodeSlice_e : unsigned char
{
    OPCODE_SLICE_BYTE = 0,       // bits 0 to 7
    OPCODE_SLICE_LOW = 1,        // bits 0 to 2; REX.B is bit 3 of a register
    OPCODE_SLICE_REGISTER = 2,   // bits 3 to 5; REX.R is bit 3 of a register
    OPCODE_SLICE_EXPLICIT = 3,
};

/// Form in which a field is written. 10, 11, 13 to 15, 28 and 29 serve 64-bit mode.
enum OpcodeKind_e : unsigned char
{
    OPCODE_KIND_R32 = 1,
    OPCODE_KIND_R16 = 2,
    OPCODE_KIND_R8 = 3,
    OPCODE_KIND_MM = 4,
    OPCODE_KIND_XMM = 5,
    OPCODE_KIND_CR = 6,
    OPCODE_KIND_DR = 7,
    OPCODE_KIND_SEGMENT = 8,
    OPCODE_KIND_ST = 9,
    OPCODE_KIND_ADDRESS = 10,     // register of the address size
    OPCODE_KIND_INDEX = 11,       // the same, with REX.X
    OPCODE_KIND_R32_OR_64 = 12,   // r32, or r64 by REX.W
    OPCODE_KIND_STACK = 13,       // r64, or r16 by the operand size
    OPCODE_KIND_EXTENDED = 14,    // four fields, extended to 64 bits with the sign
    OPCODE_KIND_NUMBER64 = 15,    // eight fields
    OPCODE_KIND_BY_SIZE = 16,     // r32, or r16 by the operand size, or r64 by REX.W
    OPCODE_KIND_MM_OR_XMM = 17,
    OPCODE_KIND_BYTE = 18,
    OPCODE_KIND_NUMBER16 = 19,
    OPCODE_KIND_NUMBER32 = 20,
    OPCODE_KIND_TEXT = 21,
    OPCODE_KIND_SIGNED8 = 22,
    OPCODE_KIND_SIGNED16 = 23,
    OPCODE_KIND_SIGNED32 = 24,
    OPCODE_KIND_JUMP8 = 25,
    OPCODE_KIND_JUMP16 = 26,
    OPCODE_KIND_JUMP32 = 27,
    OPCODE_KIND_RELATIVE = 28,   // four fields, as an address from the instruction's end
    OPCODE_KIND_R64 = 29,
    OPCODE_KIND_VECTOR = 30,   // a register by an OpcodeClass_e in the high half of the next byte
};

/// Registers of OPCODE_KIND_VECTOR.
enum OpcodeClass_e : unsigned char
{
    OPCODE_CLASS_XMM = 0,
    OPCODE_CLASS_LENGTH = 1,   // XMM, YMM or ZMM by the vector's length
    OPCODE_CLASS_HALF = 2,     // by half of it, XMM at least
    OPCODE_CLASS_MASK = 3,
    OPCODE_CLASS_R32_OR_64 = 4,
    OPCODE_CLASS_TILE = 5,
};

/// Place of the register's number, in the low half of the byte that has the OpcodeClass_e. OPCODE_PLACE_VVVV is in the
/// prefix, every other place in the field.
enum OpcodePlace_e : unsigned char
{
    OPCODE_PLACE_REG = 0,   // bits 3 to 5
    OPCODE_PLACE_RM = 1,    // bits 0 to 2
    OPCODE_PLACE_VVVV = 2,
    OPCODE_PLACE_IMMEDIATE = 3,   // bits 4 to 7
    OPCODE_PLACE_INDEX = 4,       // bits 3 to 5
};

inline constexpr unsigned OPCODE_SLICE_SHIFT = 5;
inline constexpr unsigned OPCODE_KIND_MASK = 0x1F;
inline constexpr std::size_t OPCODE_MAX_FIELDS = 32;   // fields of all groups that run at a time
inline constexpr unsigned OPCODE_SYMBOL_SIZE = 1008;   // bytes of the buffer for a symbol's name
inline constexpr std::size_t OPCODE_MAX_GROUPS = OPCODE_GROUP_MASK + 1;
inline constexpr std::size_t OPCODE_SHARED_MASK = 7;   // bits of a selector's P, and of its S after the shift
inline constexpr unsigned OPCODE_TAIL_SHIFT = 3;       // to a selector's S
inline constexpr unsigned OPCODE_HISTORY_SHIFT = 6;    // to the number of the previous string
inline constexpr std::size_t OPCODE_HISTORY = 4;       // previous strings of a kind
inline constexpr std::size_t OPCODE_HEADER_SIZE = 8;   // the two words of the compact form

/// Bits of a REX prefix (Intel SDM, volume 2, 2.2.1).
inline constexpr unsigned OPCODE_REX_B = 1;
inline constexpr unsigned OPCODE_REX_X = 2;
inline constexpr unsigned OPCODE_REX_R = 4;
inline constexpr unsigned OPCODE_REX_W = 8;

/// Layout of the decoder's pages, in bytes: an unused start, the compact form, the expanded one, the fields, and texts
/// in the rest. copcode_table.cpp checks that all fits.
inline constexpr std::size_t OPCODE_PAGES_SIZE = 74925;
inline constexpr std::size_t OPCODE_COMPACT_OFFSET = 64;
inline constexpr std::size_t OPCODE_FIELDS_SIZE = OPCODE_MAX_FIELDS * sizeof(std::uint32_t);

/// A compact form in the library's read-only data.
struct OpcodeCompact_s
{
    unsigned char const * pBytes;
    std::size_t nBytes;
};

/// Index of an expanded form: where matching starts in a group.
struct OpcodeIndex_s
{
    unsigned char const * pSlots;          // for each slot its index in pStarts plus 1, or 0 for a small group
    std::uint16_t const (*pStarts)[256];   // for each first byte: offset in the form of the first row that can match
};

/// The tables of one mode.
struct OpcodeTables_s
{
    OpcodeCompact_s First;
    OpcodeIndex_s FirstIndex;
    unsigned char const * pLater;   // the expanded form of later instructions, in the library's read-only data
    OpcodeIndex_s LaterIndex;
};

/// Return the low three bits of a byte, and the three above them: two parts of a ModR/M or SIB byte.
constexpr unsigned OpcodeLow(unsigned nByte)
{
    return nByte & 7;
}

constexpr unsigned OpcodeRegister(unsigned nByte)
{
    return nByte >> 3 & 7;
}

/// Expands a compact form of nCompact bytes into pTable, of nTable bytes, and returns the number of bytes written.
/// Returns 0 in these cases:
/// - the expanded form does not fit.
/// - the compact form is malformed.
/// - the compact form contradicts its first two words.
std::size_t OpcodeExpand(
    unsigned char const * pCompact, std::size_t nCompact, unsigned char * pTable, std::size_t nTable);

/// Returns the tables of 64-bit or of 32-bit code.
OpcodeTables_s const & OpcodeTables(bool b64Bit);
