// ccrc.h: CRC-32, which hashes names and checks saves, with its tables and one of a CRC-16.
//
// The CRC-32 is that of IEEE 802.3 (zlib, PNG): reflected polynomial 0xEDB88320, register preset to all ones,
// complemented at the end. Long runs are folded with carry-less multiplication if the processor has it. The value is
// the same either way.
//
// Ownership: nothing is owned.
// Threads: any thread, even before the first constructor has run.
// Cost: one table read for each byte of a run of up to 15 bytes. A long run takes a nanosecond for 30 to 90 bytes with
// carry-less multiplication, for 2 bytes without. Nothing allocates.
// Failure: no call fails.
//
//     std::array<char, 4> const dRest = { '6', '7', '8', '9' };
//     std::uint32_t const dwFirst = GetCrc32Polynomial("12345", 5);
//     std::uint32_t const dwSecond = GetCrc32Polynomial("6789", 4);
//     std::uint32_t const dwWhole = Crc32Join(dwFirst, dwSecond, 4);   // 0xCBF43926, as of "123456789"
//     std::uint32_t const dwSame = Crc32(std::as_bytes(std::span(dRest)), dwFirst);
#pragma once

#include "zqcore/cconfig.h"

#include <array>
#include <span>

inline constexpr std::uint32_t CRC32_PRESET = 0xFFFFFFFF;   // register before the first byte

/// Table of CRC-32. Entry i is the register after the byte i, from a register of 0.
extern ZQ_API std::array<std::uint32_t, 256> const g_dCrc32Tab;

/// Tables of CRC-32 for eight bytes at a time. Row i is g_dCrc32Tab after i + 1 further zero bytes.
extern ZQ_API std::array<std::array<std::uint32_t, 256>, 7> const g_dCrc32FollowTab;

/// Table of a CRC-16 with the polynomial 0xA097, most significant bit first. Entry i is the CRC of the byte i,
/// with the two bytes of the CRC swapped. It is for hosts: the library does not read it.
extern ZQ_API std::array<std::uint16_t, 256> const g_dCrc16Tab;

/// Returns the CRC-32 of nLength bytes. For a length of 0 or less returns 0, the CRC of nothing, and does not read
/// pData.
ZQ_API std::uint32_t GetCrc32Polynomial(char const * pData, int nLength);

/// Return the CRC-32 of a run of any length. For a run in pieces dwFirst is the result for the previous pieces. The
/// call then returns the CRC-32 of all pieces so far.
ZQ_API std::uint32_t Crc32(void const * pBytes, std::size_t nBytes, std::uint32_t dwFirst);
inline std::uint32_t Crc32(std::span<std::byte const> dBytes, std::uint32_t dwFirst = 0)
{
    return Crc32(dBytes.data(), dBytes.size(), dwFirst);
}

/// Returns the CRC-32 of a run from the CRC-32 of its first and of its second part. nSecond is the number of bytes of
/// the second part. Costs up to 40 ns for each bit that is set in nSecond.
ZQ_API std::uint32_t Crc32Join(std::uint32_t dwFirst, std::uint32_t dwSecond, std::uint64_t nSecond);

/// Returns the register after the four bytes of a word, low byte first, without preset and complement.
inline std::uint32_t Crc32Feed4(std::uint32_t dwRegister, std::uint32_t dwValue)
{
    std::uint32_t const dwMixed = dwRegister ^ dwValue;
    return g_dCrc32FollowTab[2][dwMixed & 0xFF] ^ g_dCrc32FollowTab[1][(dwMixed >> 8) & 0xFF]
           ^ g_dCrc32FollowTab[0][(dwMixed >> 16) & 0xFF] ^ g_dCrc32Tab[dwMixed >> 24];
}

/// Returns the register after eight bytes: those of dwFirst, then those of dwSecond, the low byte of each first.
inline std::uint32_t Crc32Feed8(std::uint32_t dwRegister, std::uint32_t dwFirst, std::uint32_t dwSecond)
{
    std::uint32_t const dwMixed = dwRegister ^ dwFirst;
    return g_dCrc32FollowTab[6][dwMixed & 0xFF] ^ g_dCrc32FollowTab[5][(dwMixed >> 8) & 0xFF]
           ^ g_dCrc32FollowTab[4][(dwMixed >> 16) & 0xFF] ^ g_dCrc32FollowTab[3][dwMixed >> 24]
           ^ Crc32Feed4(0, dwSecond);
}

/// Returns GetCrc32Polynomial of the four bytes of a value, low byte first.
inline std::uint32_t GetCrc32Polynomial4(std::uint32_t dwValue)
{
    return ~Crc32Feed4(CRC32_PRESET, dwValue);
}

/// Returns GetCrc32Polynomial of the eight bytes of a value, low byte first.
inline std::uint32_t GetCrc32Polynomial8(std::uint64_t nValue)
{
    return ~Crc32Feed8(CRC32_PRESET, static_cast<std::uint32_t>(nValue), static_cast<std::uint32_t>(nValue >> 32));
}
