// cbitrows_internal.h: operations on runs of bytes by whole words.
//
// The runs need no alignment. Requires that the two runs of a call are the same or do not overlap.
#pragma once

#include "zqcore/cconfig.h"

#include "platform/bytes.h"
#include "platform/words.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace bits
{
    /// Bytes of a vector register, and of one step, which handles four registers.
    inline constexpr std::size_t REGISTER = sizeof(plat::Words_t);
    inline constexpr std::size_t STEP = 4 * REGISTER;

    /// Returns a number of bits, rounded up to whole bytes. Requires that nBits is at most BitVec_c::MAX_BITS.
    constexpr int RoundUp(int nBits)
    {
        return (nBits + 7) & ~7;
    }

    /// Returns the bytes to allocate for a field that grows from nHeld bytes to nNeeded: as many again as it holds, but
    /// at most 16 MiB more, and never less than nNeeded. So growing step by step rarely allocates.
    constexpr std::size_t RoomFor(std::size_t nHeld, std::size_t nNeeded)
    {
        constexpr std::size_t MOST_SPARE = std::size_t{ 1 } << 24;
        return std::max(nNeeded, nHeld + std::min(nHeld, MOST_SPARE));
    }

    /// Sets pTo[i] to fnCombine(pTo[i], pFrom[i]) for nBytes bytes. Requires that fnCombine is bitwise and accepts
    /// bytes, words of 8 bytes and vectors of words.
    template <typename COMBINE>
    void Combine(unsigned char * pTo, unsigned char const * pFrom, std::size_t nBytes, COMBINE fnCombine)
    {
        std::size_t i = 0;
        for (; i + STEP <= nBytes; i += STEP)
        {
            plat::Words_t const First = fnCombine(plat::WordsLoad(pTo + i), plat::WordsLoad(pFrom + i));
            plat::Words_t const Second =
                fnCombine(plat::WordsLoad(pTo + i + REGISTER), plat::WordsLoad(pFrom + i + REGISTER));
            plat::Words_t const Third =
                fnCombine(plat::WordsLoad(pTo + i + 2 * REGISTER), plat::WordsLoad(pFrom + i + 2 * REGISTER));
            plat::Words_t const Fourth =
                fnCombine(plat::WordsLoad(pTo + i + 3 * REGISTER), plat::WordsLoad(pFrom + i + 3 * REGISTER));
            plat::WordsStore(pTo + i, First);
            plat::WordsStore(pTo + i + REGISTER, Second);
            plat::WordsStore(pTo + i + 2 * REGISTER, Third);
            plat::WordsStore(pTo + i + 3 * REGISTER, Fourth);
        }
        for (; i + sizeof(std::uint64_t) <= nBytes; i += sizeof(std::uint64_t))
        {
            std::uint64_t const Word =
                fnCombine(plat::LoadAs<std::uint64_t>(pTo + i), plat::LoadAs<std::uint64_t>(pFrom + i));
            std::memcpy(pTo + i, &Word, sizeof(Word));
        }
        for (; i < nBytes; ++i)
        {
            pTo[i] = static_cast<unsigned char>(fnCombine(pTo[i], pFrom[i]));
        }
    }

    /// Replace nBytes of pTo by the result of the operation. AndNot clears the bits that are set in pFrom.
    inline void Or(unsigned char * pTo, unsigned char const * pFrom, std::size_t nBytes)
    {
        Combine(pTo, pFrom, nBytes, [](auto A, auto B) { return A | B; });
    }

    inline void Xor(unsigned char * pTo, unsigned char const * pFrom, std::size_t nBytes)
    {
        Combine(pTo, pFrom, nBytes, [](auto A, auto B) { return A ^ B; });
    }

    inline void And(unsigned char * pTo, unsigned char const * pFrom, std::size_t nBytes)
    {
        Combine(pTo, pFrom, nBytes, [](auto A, auto B) { return A & B; });
    }

    inline void AndNot(unsigned char * pTo, unsigned char const * pFrom, std::size_t nBytes)
    {
        Combine(pTo, pFrom, nBytes, [](auto A, auto B) { return A & ~B; });
    }

    inline void Not(unsigned char * pTo, std::size_t nBytes)
    {
        Combine(pTo, pTo, nBytes, [](auto A, auto) { return ~A; });
    }

    /// Returns the index of the first byte for which fnWord returns another value than 0, or nBytes if there is none.
    /// fnWord(i, Zero) returns the results for the bytes from i on as one value of Zero's type: a byte, a word of 8
    /// bytes or a vector.
    template <typename WORD>
    std::size_t FindByte(std::size_t nBytes, WORD fnWord)
    {
        std::size_t i = 0;
        plat::Words_t const None = {};
        for (; i + STEP <= nBytes; i += STEP)
        {
            if (plat::WordsAny(fnWord(i, None) | fnWord(i + REGISTER, None) | fnWord(i + 2 * REGISTER, None)
                               | fnWord(i + 3 * REGISTER, None)))
            {
                break;
            }
        }
        for (; i + sizeof(std::uint64_t) <= nBytes && fnWord(i, std::uint64_t{}) == 0; i += sizeof(std::uint64_t))
        {}
        for (; i < nBytes && fnWord(i, static_cast<unsigned char>(0)) == 0; ++i)
        {}
        return i;
    }

    /// Returns the index of the first byte that differs from cSkip, or nBytes if there is none. Requires that cSkip is
    /// 0 or 0xFF.
    inline std::size_t FindOther(unsigned char const * pBytes, std::size_t nBytes, unsigned char cSkip)
    {
        return FindByte(nBytes,
            [=](std::size_t i, auto Zero)
            {
                using Word_t = decltype(Zero);
                Word_t const Skip = cSkip != 0 ? static_cast<Word_t>(~Zero) : Zero;
                return static_cast<Word_t>(plat::LoadAs<Word_t>(pBytes + i) ^ Skip);
            });
    }

    /// Returns whether all bytes are 0, also if there are none.
    inline bool IsZero(unsigned char const * pBytes, std::size_t nBytes)
    {
        return FindOther(pBytes, nBytes, 0) == nBytes;
    }

    /// Returns the number of set bits.
    inline std::size_t Count(unsigned char const * pBytes, std::size_t nBytes)
    {
        std::size_t nSet = 0;
        std::size_t i = 0;
        for (; i + sizeof(std::uint64_t) <= nBytes; i += sizeof(std::uint64_t))
        {
            nSet += static_cast<std::size_t>(std::popcount(plat::LoadAs<std::uint64_t>(pBytes + i)));
        }
        for (; i < nBytes; ++i)
        {
            nSet += static_cast<std::size_t>(std::popcount(pBytes[i]));
        }
        return nSet;
    }

    /// Returns whether some bit is set in both runs.
    inline bool Meet(unsigned char const * pFirst, unsigned char const * pSecond, std::size_t nBytes)
    {
        std::size_t const iFound = FindByte(nBytes,
            [=](std::size_t i, auto Zero)
            {
                using Word_t = decltype(Zero);
                return static_cast<Word_t>(plat::LoadAs<Word_t>(pFirst + i) & plat::LoadAs<Word_t>(pSecond + i));
            });
        return iFound < nBytes;
    }

    /// Returns whether the runs are equal if the shorter one is padded with zeros.
    inline bool Equal(
        unsigned char const * pFirst, std::size_t nFirst, unsigned char const * pSecond, std::size_t nSecond)
    {
        std::size_t const nCommon = std::min(nFirst, nSecond);
        return (nCommon == 0 || std::memcmp(pFirst, pSecond, nCommon) == 0)
               && IsZero(pFirst + nCommon, nFirst - nCommon) && IsZero(pSecond + nCommon, nSecond - nCommon);
    }

    /// Copy pFrom to pTo, or keep in pTo the bits that are set in both. Cut pFrom at nTo bytes. Clear the bytes of pTo
    /// after nFrom.
    inline void CopyAndClear(unsigned char * pTo, std::size_t nTo, unsigned char const * pFrom, std::size_t nFrom)
    {
        std::size_t const nCommon = std::min(nTo, nFrom);
        std::copy_n(pFrom, nCommon, pTo);
        std::fill_n(pTo + nCommon, nTo - nCommon, static_cast<unsigned char>(0));
    }

    inline void AndAndClear(unsigned char * pTo, std::size_t nTo, unsigned char const * pFrom, std::size_t nFrom)
    {
        std::size_t const nCommon = std::min(nTo, nFrom);
        And(pTo, pFrom, nCommon);
        std::fill_n(pTo + nCommon, nTo - nCommon, static_cast<unsigned char>(0));
    }
}
