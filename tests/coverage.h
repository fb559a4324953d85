// coverage.h: the end of a process that keeps gcov's counts. A signal and `_exit` lose them.
#pragma once

#include <unistd.h>

/// Write the counts, and set them to 0. Both functions are gcov's, and null in builds without ZQCORE_COVERAGE.
extern "C" void CoverageDump() __asm__("__gcov_dump") __attribute__((weak));
extern "C" void CoverageReset() __asm__("__gcov_reset") __attribute__((weak));

/// Writes the counts since the start or the previous call. Does nothing without ZQCORE_COVERAGE.
inline void WriteCoverage()
{
    if (CoverageDump != nullptr && CoverageReset != nullptr)
    {
        CoverageDump();
        CoverageReset();
    }
}

/// Writes the counts and ends the process as `_exit` does.
[[noreturn]] inline void EndChild(int iStatus)
{
    WriteCoverage();
    _exit(iStatus);
}
