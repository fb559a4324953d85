// float4.h: four floats in a vector register. Each lane computes the same bits as a single float does, everywhere.
//
// The folder of a compiler defines, in namespace plat:
//
// - Float4_t and Int4_t hold four floats and four 32-bit integers. Operators apply to all lanes. [] reads one lane.
// - Int4_t Truncate(Float4_t) truncates the lanes toward zero. A lane that fits no integer becomes the smallest one.
// - Float4_t FloatsFromInts(Int4_t) returns the numbers as floats, rounded.
// - Float4_t Pick<LANE0, LANE1, LANE2, LANE3>(Float4_t First, Float4_t Second) picks four lanes out of eight: 0 to 3 of
//   the first, and 4 to 7 of the second.
// - Float4_t Spread<LANE>(Float4_t) copies one lane to all four.
#pragma once

#if defined(__GNUC__)
    #include "platform/gnu/float4.h"
#else
    #error "No folder of platform/ is for this compiler: see docs/porting.md"
#endif
