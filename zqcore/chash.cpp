#include "zqcore/chash.h"

namespace
{
    template <typename WORD>
    std::uint64_t Load(char const * p)
    {
        WORD iWord;
        std::memcpy(&iWord, p, sizeof iWord);
        return iWord;
    }

    // Multiplies by the golden ratio's 64 bits, and brings the high half down.
    std::uint64_t Mix(std::uint64_t iHash, std::uint64_t iWord)
    {
        iHash = (iHash ^ iWord) * 0x9E3779B97F4A7C15u;
        return iHash ^ (iHash >> 32);
    }
}

std::uint32_t NameIndexHash(char const * szName, std::size_t nLength)
{
    std::uint64_t iHash = nLength;
    if (nLength >= 8)
    {
        for (std::size_t i = 0; i + 8 < nLength; i += 8)
        {
            iHash = Mix(iHash, Load<std::uint64_t>(szName + i));
        }
        iHash = Mix(iHash, Load<std::uint64_t>(szName + nLength - 8));
    }
    else if (nLength >= 4)
    {
        iHash = Mix(iHash, Load<std::uint32_t>(szName) | Load<std::uint32_t>(szName + nLength - 4) << 32);
    }
    else if (nLength > 0)
    {
        iHash = Mix(iHash, Load<std::uint8_t>(szName) | Load<std::uint8_t>(szName + nLength / 2) << 8
                               | Load<std::uint8_t>(szName + nLength - 1) << 16);
    }
    return static_cast<std::uint32_t>(Mix(iHash, 0));
}
