// step.h: what the program and the frames of its stack share.
#pragma once

/// Arguments of a frame's function.
struct Argument_t
{
    int nNumber;
    double fNumber;
    char const * szText;
    int dNumbers[4];
};

/// Calls the next step, or faults after the last one.
template <int N>
int StepInto(Argument_t const & Argument, int nDepth);
