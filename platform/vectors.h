// vectors.h: sums of runs of numbers, in the widest registers that the processor has.
#pragma once

#include <cstddef>

namespace plat
{
    /// Numbers in 64 bytes, the widest register that SumPairs may use.
    inline constexpr std::size_t VECTOR_NUMBERS = 64 / sizeof(std::ptrdiff_t);

    /// Result of SumPairs.
    struct PairSums_t
    {
        std::ptrdiff_t iFirst;    // sum of the first run
        std::ptrdiff_t iSecond;   // sum of the second run
        bool bNegative;           // whether any number of either run is negative
    };

    /// Returns the sums of two runs of nNumbers each. Sums wrap. Requires that nNumbers is a multiple of VECTOR_NUMBERS
    /// and that both runs begin at a multiple of 64 bytes.
    PairSums_t SumPairs(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers);
}
