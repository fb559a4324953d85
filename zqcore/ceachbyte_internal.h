// ceachbyte_internal.h: constants for tests of the eight bytes of a word at once.
#pragma once

#include <cstdint>

/// The number 1 in each byte. A product with it repeats a byte.
inline constexpr std::uint64_t EACH_BYTE = 0x0101010101010101u;

/// Highest bit of each byte.
inline constexpr std::uint64_t HIGH_BITS = EACH_BYTE * 0x80;
