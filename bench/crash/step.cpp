// step.cpp: a frame of the stack, the one with the number STEP. With STEP_LAST it faults. Without STEP the source only
// has the debug information of heavy.h.
#include "heavy.h"

#ifdef STEP
    #include "step.h"

template <>
__attribute__((noinline)) int StepInto<STEP>(Argument_t const & Argument, int nDepth)
{
    Argument_t Next = { Argument.iNumber + STEP, Argument.fNumber / 2, "a text", { STEP, 1, 2, 3 } };
    int volatile iLocal = nDepth * 3;
    double volatile fLocal = Next.fNumber + nDepth;
    asm volatile("" ::"r"(&Next), "r"(&nDepth) : "memory");
    #ifdef STEP_LAST
    iLocal = *reinterpret_cast<int volatile *>(static_cast<__UINTPTR_TYPE__>(iLocal & 1));
    #else
    iLocal = StepInto<STEP + 1>(Next, nDepth + 1);
    #endif
    return iLocal + static_cast<int>(fLocal);
}
#endif
