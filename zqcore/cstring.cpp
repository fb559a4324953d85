#include "zqcore/cstring.h"

#include "zqcore/clog_format_internal.h"

#include "platform/bytes.h"

#include <atomic>
#include <cstdarg>
#include <cstring>

namespace
{
    constexpr unsigned VA_BUFFERS = 16;
    constexpr std::size_t VA_SIZE = 4096;   // bytes of each

    // Returns eight characters in lower case. The additions set the top bit of each byte for "at least A" and "above
    // Z". Their difference becomes the bit that makes a letter lower case.
    std::uint64_t EightToLower(std::uint64_t nText)
    {
        std::uint64_t const nLow = nText & (plat::EACH_BYTE * 0x7F);
        std::uint64_t const nFromA = nLow + plat::EACH_BYTE * (0x80 - 'A');
        std::uint64_t const nAboveZ = nLow + plat::EACH_BYTE * (0x7F - 'Z');
        return nText | (((nFromA ^ nAboveZ) & ~nText & plat::HIGH_BITS) >> 2);
    }
}

int StrCompareNoCase(char const * szA, char const * szB)
{
    return StrCompareNoCase(szA, szB, SIZE_MAX);
}

int StrCompareNoCase(char const * szA, char const * szB, std::size_t nMax)
{
    for (std::size_t i = 0; i < nMax; ++i)
    {
        auto const cA = static_cast<unsigned char>(CharToLower(szA[i]));
        auto const cB = static_cast<unsigned char>(CharToLower(szB[i]));
        if (cA != cB || cA == 0)
        {
            return int(cA) - int(cB);
        }
    }
    return 0;
}

void StrToLower(char * szText)
{
    for (; *szText; ++szText)
    {
        *szText = CharToLower(*szText);
    }
}

void StrToUpper(char * szText)
{
    for (; *szText; ++szText)
    {
        *szText = CharToUpper(*szText);
    }
}

void CopyToLower(char * pTo, char const * pFrom, std::size_t nLength)
{
    auto const CopyEight = [=](std::size_t i)
    {
        std::uint64_t nText;
        std::memcpy(&nText, pFrom + i, sizeof nText);
        nText = EightToLower(nText);
        std::memcpy(pTo + i, &nText, sizeof nText);
    };
    if (nLength < sizeof(std::uint64_t))
    {
        for (std::size_t i = 0; i < nLength; ++i)
        {
            pTo[i] = CharToLower(pFrom[i]);
        }
        return;
    }
    for (std::size_t i = 0; i + sizeof(std::uint64_t) < nLength; i += sizeof(std::uint64_t))
    {
        CopyEight(i);
    }
    CopyEight(nLength - sizeof(std::uint64_t));
}

std::size_t StrLengthMax(char const * szText, std::size_t nMax)
{
    auto const * const pEnd = static_cast<char const *>(std::memchr(szText, 0, nMax));
    return pEnd ? static_cast<std::size_t>(pEnd - szText) : nMax;
}

std::size_t StrCopy(char * szTo, char const * szFrom, std::size_t nSize)
{
    std::size_t const nCopy = StrLengthMax(szFrom, nSize - 1);
    std::memmove(szTo, szFrom, nCopy);
    szTo[nCopy] = '\0';
    return nCopy;
}

String_T<256> NewString(char const * sFmt, ...)
{
    ZQ_ASSERT(sFmt);
    String_T<256> sResult;
    if (sFmt)
    {
        std::va_list args;
        va_start(args, sFmt);
        FormatText(sResult.GetBuffer(), static_cast<std::size_t>(sResult.Capacity()), sFmt, args);
        va_end(args);
    }
    return sResult;
}

char const * Va(char const * sFmt, ...)
{
    static constinit char s_dBuffers[VA_BUFFERS][VA_SIZE] = {};
    static constinit std::atomic<unsigned> s_iNext = 0;
    char * const szBuffer = s_dBuffers[s_iNext.fetch_add(1, std::memory_order_relaxed) % VA_BUFFERS];

    std::va_list args;
    va_start(args, sFmt);
    FormatText(szBuffer, VA_SIZE, sFmt, args);
    va_end(args);
    return szBuffer;
}
