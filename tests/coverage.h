// coverage.h: the end of a process that keeps gcov's counts. A signal and `_exit` lose them.
#pragma once

#include <unistd.h>

/// Writes the counts of code coverage. Null in builds without ZQCORE_COVERAGE.
extern "C" void WriteCoverage() __asm__("__gcov_dump") __attribute__((weak));

/// Ends the process as `_exit` does, after it has written the counts.
[[noreturn]] inline void EndChild(int iStatus)
{
    if (WriteCoverage != nullptr)
    {
        WriteCoverage();
    }
    _exit(iStatus);
}
