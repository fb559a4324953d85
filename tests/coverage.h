// coverage.h: the end of a process that keeps gcov's counts. A signal and `_exit` lose them.
#pragma once

#include <unistd.h>

/// Write the counts, and set them to 0. Both functions are gcov's, and null in builds without ZQCORE_COVERAGE.
extern "C" void DumpCoverage() __asm__("__gcov_dump") __attribute__((weak));
extern "C" void ResetCoverage() __asm__("__gcov_reset") __attribute__((weak));

/// Writes the counts since the start or the previous call. Does nothing without ZQCORE_COVERAGE.
inline void WriteCoverage()
{
    if (DumpCoverage != nullptr && ResetCoverage != nullptr)
    {
        DumpCoverage();
        ResetCoverage();
    }
}

/// Writes the counts and ends the process as `_exit` does.
[[noreturn]] inline void EndChild(int iStatus)
{
    WriteCoverage();
    _exit(iStatus);
}
