// vectors.h: runs of numbers, added with the widest registers that the processor has.
#pragma once

#include <cstddef>

namespace plat
{
    /// Numbers that fill a whole number of the widest registers.
    constexpr std::size_t VECTOR_NUMBERS = 64 / sizeof(std::ptrdiff_t);

    struct PairSums_t
    {
        std::ptrdiff_t iFirst;    // sum of the first run
        std::ptrdiff_t iSecond;   // sum of the second run
        bool bNegative;           // any number of either run is negative
    };

    /// Adds two runs of nNumbers each, a multiple of VECTOR_NUMBERS; both begin at a multiple of 64 bytes. Sums wrap.
    PairSums_t SumPairs(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers);
}
