// copcode_internal.h: codes of the opcode table and its two forms, shared by the decoder and by the generator that
// makes the table from tools/opcodetable/*.txt.
//
// Compact form: two 32-bit little-endian words (number of bytes that follow them, size of the expanded form), a byte
// with the number of groups, and the groups. A group has rows. A row has two strings, pattern and format. A string is
// coded as a selector, a length L and literal bytes.
// - Bits 6 and 7 of the selector pick one of the last four strings of its kind, 0 being the latest.
// - The string is that string's first P units (bits 0 to 2), the literal, and its last S units (bits 3 to 5).
// - A unit of a pattern is two bytes, and 2 * L - 2 literal bytes follow. A unit of a format is one byte, and L - 1
//   follow.
// - Two zero bytes end a group.
//
// Expanded form: a table of 32-bit offsets into itself, then the groups. Slot 0 is the last group, which is the root;
// slot i + 1 is group i. Each string is a length byte and its bytes. Two zero bytes end a group.
#pragma once

#include <cstddef>
#include <cstdint>

/// First byte of a pattern's unit whose second byte, the mask, is 0. It is one of these, or 1 to OPCODE_RAW_LAST (that
/// many raw bytes), or OPCODE_SUBTABLE with the index of a group.
enum OpcodePattern_e : unsigned char
{
    OPCODE_ANY_BYTE = 0,
    OPCODE_RAW_LAST = 15,
    OPCODE_IF_OPERAND_SIZE = 16,
    OPCODE_IF_ADDRESS_SIZE = 17,
    OPCODE_IF_F2 = 18,
    OPCODE_IF_F3 = 19,
    OPCODE_IF_NO_SEGMENT = 20,
    OPCODE_IF_REX_W = 21,   // this and the next ones: 64-bit mode
    OPCODE_IF_REX_B = 22,
    OPCODE_IF_NO_REX_X = 23,
    OPCODE_STEP_BACK = 0x40,
    OPCODE_SUBTABLE = 0x80,
    OPCODE_GROUP_MASK = 0x3F,
};

/// Bytes of a format that are not printed as they are. 1 to 31 refer to a field; with OPCODE_BLANK a blank precedes it.
/// The selector that follows has a slice in its high three bits and a kind in its low five.
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
    OPCODE_SET_REX = 0xEB,    // to the row's first field
    OPCODE_SET_NONE = 0xEC,   // a prefix without effect
};

/// Slices of a field. OPCODE_SLICE_TOLD is described by the format's next byte: width in its high half, shift in its
/// low half.
enum OpcodeSlice_e : unsigned char
{
    OPCODE_SLICE_BYTE = 0,       // bits 0 to 7
    OPCODE_SLICE_LOW = 1,        // bits 0 to 2; REX.B is bit 3 of a register
    OPCODE_SLICE_REGISTER = 2,   // bits 3 to 5; REX.R is bit 3 of a register
    OPCODE_SLICE_TOLD = 3,
};

/// Form in which a field is written. 10 to 15, 28 and 29 serve 64-bit mode.
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
    OPCODE_KIND_ADDRESS = 10,   // register of the address size
    OPCODE_KIND_INDEX = 11,     // the same, with REX.X
    OPCODE_KIND_R32_OR_64 = 12,
    OPCODE_KIND_STACK = 13,      // r64, or r16 by the operand size
    OPCODE_KIND_EXTENDED = 14,   // four fields, extended to 64 bits with the sign
    OPCODE_KIND_NUMBER64 = 15,   // eight fields
    OPCODE_KIND_BY_SIZE = 16,    // r32, or r16 by the operand size, or r64 by REX.W
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
};

inline constexpr std::size_t OPCODE_MAX_FIELDS = 32;
inline constexpr unsigned OPCODE_SYMBOL_SIZE = 1008;   // bytes of the buffer for a symbol's name
inline constexpr std::size_t OPCODE_MAX_GROUPS = OPCODE_GROUP_MASK + 1;
inline constexpr std::size_t OPCODE_HEADER_SIZE = 8;   // the two words of the compact form

/// Bits of a REX prefix.
inline constexpr unsigned OPCODE_REX_B = 1;
inline constexpr unsigned OPCODE_REX_X = 2;
inline constexpr unsigned OPCODE_REX_R = 4;
inline constexpr unsigned OPCODE_REX_W = 8;

/// Layout of the decoder's pages, in bytes: the compact form, the expanded one, the fields, and texts in the rest.
inline constexpr std::size_t OPCODE_PAGES_SIZE = 74925;
inline constexpr std::size_t OPCODE_COMPACT_OFFSET = 64;
inline constexpr std::size_t OPCODE_FIELDS_SIZE = OPCODE_MAX_FIELDS * sizeof(std::uint32_t);

/// Returns the 32-bit little-endian word at p, which need not be aligned.
inline std::uint32_t OpcodeWord(unsigned char const * p)
{
    return p[0] | static_cast<std::uint32_t>(p[1]) << 8 | static_cast<std::uint32_t>(p[2]) << 16
           | static_cast<std::uint32_t>(p[3]) << 24;
}

/// Expands a compact form of nCompact bytes into pTable, of nTable bytes, and returns the bytes written. Returns 0 if
/// the expanded form does not fit, or if the compact form is malformed or contradicts its first two words.
std::size_t OpcodeExpand(
    unsigned char const * pCompact, std::size_t nCompact, unsigned char * pTable, std::size_t nTable);

/// A compact form in the library's read-only data.
struct OpcodeCompact_s
{
    unsigned char const * pBytes;
    std::size_t nBytes;
};

/// Returns the table of 64-bit or of 32-bit code.
OpcodeCompact_s OpcodeTable(bool b64Bit);
