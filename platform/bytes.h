// bytes.h: words from and to bytes in either order, and constants for steps on all bytes of a word at once.
#pragma once

#include <cstdint>
#include <cstring>

namespace plat
{
    /// The number 1 in each byte. A product with it repeats a byte.
    inline constexpr std::uint64_t EACH_BYTE = 0x0101010101010101u;

    /// Highest bit of each byte.
    inline constexpr std::uint64_t HIGH_BITS = EACH_BYTE * 0x80;

    /// 2^64 divided by the golden ratio, a multiplier for hashes (Knuth, TAOCP 3, 6.4). The high 32 bits are 2^32
    /// divided by the golden ratio.
    inline constexpr std::uint64_t GOLDEN_RATIO = 0x9E3779B97F4A7C15u;

    /// Returns the value that is stored at pBytes. The address may have any alignment.
    template <typename T>
    T LoadAs(void const * pBytes)
    {
        T Value;
        std::memcpy(&Value, pBytes, sizeof Value);
        return Value;
    }

    /// Return the word of four bytes whose first one is its lowest, or its highest. The address may have any
    /// alignment. Compilers merge the four loads.
    template <typename BYTE>
    constexpr std::uint32_t WordFromLittle(BYTE const * pBytes)
    {
        auto const Byte = [=](int i) { return std::uint32_t{ static_cast<unsigned char>(pBytes[i]) }; };
        return Byte(0) | Byte(1) << 8 | Byte(2) << 16 | Byte(3) << 24;
    }

    template <typename BYTE>
    constexpr std::uint32_t WordFromBig(BYTE const * pBytes)
    {
        auto const Byte = [=](int i) { return std::uint32_t{ static_cast<unsigned char>(pBytes[i]) }; };
        return Byte(0) << 24 | Byte(1) << 16 | Byte(2) << 8 | Byte(3);
    }

    /// Write the four bytes of a word, the lowest or the highest one first.
    template <typename BYTE>
    constexpr void WordToLittle(BYTE * pBytes, std::uint32_t dwWord)
    {
        pBytes[0] = static_cast<BYTE>(dwWord);
        pBytes[1] = static_cast<BYTE>(dwWord >> 8);
        pBytes[2] = static_cast<BYTE>(dwWord >> 16);
        pBytes[3] = static_cast<BYTE>(dwWord >> 24);
    }

    template <typename BYTE>
    constexpr void WordToBig(BYTE * pBytes, std::uint32_t dwWord)
    {
        pBytes[0] = static_cast<BYTE>(dwWord >> 24);
        pBytes[1] = static_cast<BYTE>(dwWord >> 16);
        pBytes[2] = static_cast<BYTE>(dwWord >> 8);
        pBytes[3] = static_cast<BYTE>(dwWord);
    }
}
