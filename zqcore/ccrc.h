// ccrc.h: CRC-32, the library's hash of names, and its tables.
//
// The CRC-32 of IEEE 802.3 (zlib, PNG): reflected polynomial 0xEDB88320, register preset to all ones, complemented at
// the end. Long runs are folded with carry-less multiplication where the processor has it; every way gives the same
// value. Nothing is kept or allocated: any thread, even before the first constructor has run. A name of up to 15
// bytes costs a few table reads, a long run 30 to 90 bytes a nanosecond with such a processor and 2 without.
#pragma once

#include "zqcore/cconfig.h"

#include <array>

/// The CRC-32 register after one byte i was fed into a register of 0.
extern ZQ_API std::array<std::uint32_t, 256> const g_dCrc32Tab;

/// Row i is g_dCrc32Tab with i + 1 zero bytes fed afterwards, so that eight bytes are looked up side by side.
extern ZQ_API std::array<std::array<std::uint32_t, 256>, 7> const g_dCrc32FollowTab;

/// For hosts; the library does not read it. Entry i is the CRC-16 of the byte i, most significant bit first, under the
/// polynomial 0xA097, its two bytes swapped.
extern ZQ_API std::array<std::uint16_t, 256> const g_dCrc16Tab;

/// CRC-32 of nLength bytes. A length of 0 or less gives 0, the CRC of nothing; pData is then not read.
ZQ_API std::uint32_t GetCrc32Polynomial(char const * pData, int nLength);

/// CRC-32 of two runs, the second directly after the first: from the CRC of each and the bytes of the second. Costs up to
/// 40 ns for each bit that is set in nSecond.
ZQ_API std::uint32_t Crc32Join(std::uint32_t dwFirst, std::uint32_t dwSecond, std::uint64_t nSecond);

/// The register with the four bytes of a word added, low byte first: no preset and no complement.
inline std::uint32_t Crc32Feed4(std::uint32_t dwRegister, std::uint32_t dwValue)
{
    std::uint32_t const dw = dwRegister ^ dwValue;
    return g_dCrc32FollowTab[2][dw & 0xFF] ^ g_dCrc32FollowTab[1][(dw >> 8) & 0xFF]
           ^ g_dCrc32FollowTab[0][(dw >> 16) & 0xFF] ^ g_dCrc32Tab[dw >> 24];
}

/// The register with eight bytes added: those of dwFirst, then those of dwSecond.
inline std::uint32_t Crc32Feed8(std::uint32_t dwRegister, std::uint32_t dwFirst, std::uint32_t dwSecond)
{
    std::uint32_t const dw = dwRegister ^ dwFirst;
    return g_dCrc32FollowTab[6][dw & 0xFF] ^ g_dCrc32FollowTab[5][(dw >> 8) & 0xFF]
           ^ g_dCrc32FollowTab[4][(dw >> 16) & 0xFF] ^ g_dCrc32FollowTab[3][dw >> 24] ^ Crc32Feed4(0, dwSecond);
}

/// GetCrc32Polynomial over the four bytes of a value, low byte first.
inline std::uint32_t GetCrc32Polynomial4(std::uint32_t dwValue)
{
    return ~Crc32Feed4(0xFFFFFFFFu, dwValue);
}

/// GetCrc32Polynomial over the eight bytes of a value, low byte first.
inline std::uint32_t GetCrc32Polynomial8(std::uint64_t nValue)
{
    return ~Crc32Feed8(0xFFFFFFFFu, static_cast<std::uint32_t>(nValue), static_cast<std::uint32_t>(nValue >> 32));
}
