// step.h: what crash.cpp and the frames of its stack (step.cpp) share.
#pragma once

/// Arguments of a frame's function.
struct Argument_t
{
    int iNumber;
    double fNumber;
    char const * szText;
    int dNumbers[4];
};

/// Calls the next step with nDepth + 1. The last step faults instead, so no step returns.
template <int N>
int StepInto(Argument_t const & Argument, int nDepth);
