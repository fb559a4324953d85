#include "zqcore/chash.h"

#include "platform/bytes.h"

namespace
{
    constexpr std::size_t LONG_WORD = sizeof(std::uint64_t);
    constexpr std::size_t SHORT_WORD = sizeof(std::uint32_t);

    template <typename WORD>
    std::uint64_t Load(char const * pText)
    {
        return plat::LoadAs<WORD>(pText);
    }

    // Returns the hash with a further word: multiplied by plat::GOLDEN_RATIO, the high half XORed into the low one.
    std::uint64_t Mix(std::uint64_t iHash, std::uint64_t nWord)
    {
        iHash = (iHash ^ nWord) * plat::GOLDEN_RATIO;
        return iHash ^ (iHash >> 32);
    }

    // Returns a character, extended with its sign to 32 bits and rotated left by its position.
    std::uint32_t RotatedCharacter(char cText, std::size_t iPosition)
    {
        auto const nWide = static_cast<std::int32_t>(static_cast<signed char>(cText));
        return std::rotl(static_cast<std::uint32_t>(nWide), static_cast<int>(iPosition % 32));
    }

    // Returns the XOR of eight ASCII characters, each shifted left by its position among them. Combines neighbours,
    // then pairs, then fours.
    std::uint32_t FoldEight(std::uint64_t nText)
    {
        nText = (nText & 0x00FF00FF00FF00FFu) ^ ((nText >> 8 & 0x00FF00FF00FF00FFu) << 1);
        nText = (nText & 0x0000FFFF0000FFFFu) ^ ((nText >> 16 & 0x0000FFFF0000FFFFu) << 2);
        return static_cast<std::uint32_t>(nText ^ nText >> 32 << 4);
    }
}

std::uint32_t StringHashOf(char const * szName, std::size_t nLength)
{
    static_assert(std::endian::native == std::endian::little, "the first character is the lowest byte");
    std::uint32_t iHash = 0;
    std::size_t i = 0;
    for (; i + LONG_WORD <= nLength; i += LONG_WORD)
    {
        std::uint64_t const nText = Load<std::uint64_t>(szName + i);
        if (nText & plat::HIGH_BITS) [[unlikely]]   // not all are ASCII
        {
            break;
        }
        iHash ^= std::rotl(FoldEight(nText), static_cast<int>(i % 32));
    }
    for (; i < nLength; ++i)
    {
        iHash ^= RotatedCharacter(szName[i], i);
    }
    return iHash;
}

std::uint32_t NameIndexHash(char const * szName, std::size_t nLength)
{
    std::uint64_t iHash = nLength;
    if (nLength >= LONG_WORD)
    {
        for (std::size_t i = 0; i + LONG_WORD < nLength; i += LONG_WORD)
        {
            iHash = Mix(iHash, Load<std::uint64_t>(szName + i));
        }
        iHash = Mix(iHash, Load<std::uint64_t>(szName + nLength - LONG_WORD));
    }
    else if (nLength >= SHORT_WORD)
    {
        iHash = Mix(iHash, Load<std::uint32_t>(szName) | Load<std::uint32_t>(szName + nLength - SHORT_WORD) << 32);
    }
    else if (nLength > 0)
    {
        iHash = Mix(iHash, Load<std::uint8_t>(szName) | Load<std::uint8_t>(szName + nLength / 2) << 8
                               | Load<std::uint8_t>(szName + nLength - 1) << 16);
    }
    return static_cast<std::uint32_t>(Mix(iHash, 0));
}
