// float4.h: the types and functions of platform/float4.h for GCC and Clang, on processors with SSE2.
#pragma once

#include <emmintrin.h>

namespace plat
{
    typedef float Float4_t __attribute__((vector_size(16)));
    typedef int Int4_t __attribute__((vector_size(16)));

    inline Int4_t Truncate(Float4_t Value)
    {
        return reinterpret_cast<Int4_t>(_mm_cvttps_epi32(Value));
    }

    inline Float4_t FloatsFromInts(Int4_t Value)
    {
        return __builtin_convertvector(Value, Float4_t);
    }

    template <int LANE0, int LANE1, int LANE2, int LANE3>
    Float4_t Pick(Float4_t First, Float4_t Second)
    {
        return __builtin_shufflevector(First, Second, LANE0, LANE1, LANE2, LANE3);
    }

    template <int LANE>
    Float4_t Spread(Float4_t Value)
    {
        return Pick<LANE, LANE, LANE, LANE>(Value, Value);
    }
}
