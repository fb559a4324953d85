#include "platform/vectors.h"

#include "platform/compiler.h"

#include <atomic>
#include <utility>

namespace plat
{
    namespace
    {
        using Sum_t = PairSums_t (*)(std::ptrdiff_t const *, std::ptrdiff_t const *, std::size_t);

        // Adds to each lane the lane that is DISTANCE apart. Combines the signs in the same way.
        template <std::size_t DISTANCE, typename VECTOR, std::size_t... LANE>
        ZQ_INLINE void AddDistant(VECTOR & First, VECTOR & Second, VECTOR & Signs, std::index_sequence<LANE...>)
        {
            First += __builtin_shufflevector(First, First, static_cast<int>(LANE ^ DISTANCE)...);
            Second += __builtin_shufflevector(Second, Second, static_cast<int>(LANE ^ DISTANCE)...);
            Signs |= __builtin_shufflevector(Signs, Signs, static_cast<int>(LANE ^ DISTANCE)...);
        }

        // Returns the sums, computed with one width of register. It is inlined into functions that may use that
        // width.
        template <typename VECTOR>
        ZQ_INLINE PairSums_t SumWith(
            std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers)
        {
            constexpr std::size_t LANES = sizeof(VECTOR) / sizeof(std::ptrdiff_t);
            VECTOR First = {};
            VECTOR Second = {};
            VECTOR Signs = {};
            for (std::size_t i = 0; i < nNumbers; i += LANES)
            {
                VECTOR const FromFirst = *reinterpret_cast<VECTOR const *>(pFirst + i);
                VECTOR const FromSecond = *reinterpret_cast<VECTOR const *>(pSecond + i);
                First += FromFirst;
                Second += FromSecond;
                Signs |= FromFirst | FromSecond;
            }
            constexpr std::make_index_sequence<LANES> SEQUENCE;
            if constexpr (LANES > 8)
            {
                AddDistant<8>(First, Second, Signs, SEQUENCE);
            }
            if constexpr (LANES > 4)
            {
                AddDistant<4>(First, Second, Signs, SEQUENCE);
            }
            if constexpr (LANES > 2)
            {
                AddDistant<2>(First, Second, Signs, SEQUENCE);
            }
            AddDistant<1>(First, Second, Signs, SEQUENCE);
            auto const fnSigned = [](std::size_t nSum) { return static_cast<std::ptrdiff_t>(nSum); };
            return { fnSigned(First[0]), fnSigned(Second[0]), fnSigned(Signs[0]) < 0 };
        }

        // Vectors of unsigned numbers, so that sums wrap.
        typedef std::size_t Vector16_t __attribute__((vector_size(16), may_alias));
        typedef std::size_t Vector32_t __attribute__((vector_size(32), may_alias));
        typedef std::size_t Vector64_t __attribute__((vector_size(64), may_alias));

        PairSums_t SumBaseline(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers)
        {
            return SumWith<Vector16_t>(pFirst, pSecond, nNumbers);
        }

        ZQ_TARGET("avx2")
        PairSums_t SumAvx2(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers)
        {
            return SumWith<Vector32_t>(pFirst, pSecond, nNumbers);
        }

        ZQ_TARGET("avx512f")
        PairSums_t SumAvx512(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers)
        {
            return SumWith<Vector64_t>(pFirst, pSecond, nNumbers);
        }

        PairSums_t SumFirstTime(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers);

        // The function of the widest registers that the processor has. The first call chooses it.
        constinit std::atomic<Sum_t> g_fnSum = SumFirstTime;

        PairSums_t SumFirstTime(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers)
        {
            Sum_t const fnSum = ZQ_PROCESSOR_HAS("avx512f") ? SumAvx512
                                : ZQ_PROCESSOR_HAS("avx2")  ? SumAvx2
                                                            : SumBaseline;
            g_fnSum.store(fnSum, std::memory_order_relaxed);
            return fnSum(pFirst, pSecond, nNumbers);
        }
    }

    PairSums_t SumPairs(std::ptrdiff_t const * pFirst, std::ptrdiff_t const * pSecond, std::size_t nNumbers)
    {
        return g_fnSum.load(std::memory_order_relaxed)(pFirst, pSecond, nNumbers);
    }
}
