// cprofile_internal.h: what the sources of the profiler share.
#pragma once

#include "zqcore/cprofile.h"

#include <exception>

/// Whether the profiler is initialised.
extern bool g_bProfilerInit;

/// Numbers of entries on the stack of timers, the root included, and of records in use.
extern int g_iTimerStackTop;
extern int g_iTimerTotalCount;

/// Bytes passed to the stats file that are not yet known to be written.
extern std::uint32_t g_nBytesToWrite;

/// Returns the records in the order of their creation, the root first.
profiler::timer_t * ProfilerTimers();

/// Returns the number of open pushes, the root and those that found no room included.
int ProfilerDepth();

/// Writes pointers to the names of the timers that are open, the outermost first and the root left out, at most nMost,
/// and returns their number. If another thread pushes or pops meanwhile, a pointer may be to an old or a new name.
int ProfilerOpenTimers(char const ** dNames, int nMost);

/// Pops down to this depth, but never the root.
void ProfilerPopTo(int nDepth);

/// Scope in which a timer runs around calls of a host's code. If an exception ends it, it also pops the pushes that the
/// calls left open.
class ProfilerHostScope_c
{
public:
    explicit ProfilerHostScope_c(char const * szName)
        : m_Timer(szName)
    {}
    ProfilerHostScope_c(std::uint32_t iTimer, char const * szName)
        : m_Timer(iTimer, szName)
    {}
    ~ProfilerHostScope_c()
    {
        if (std::uncaught_exceptions() > m_nExceptions)
        {
            ProfilerPopTo(m_nDepth);
        }
    }
    ProfilerHostScope_c(ProfilerHostScope_c const &) = delete;
    ProfilerHostScope_c & operator=(ProfilerHostScope_c const &) = delete;

private:
    ProfilerScope_c const m_Timer;
    int const m_nDepth = ProfilerDepth();   // with the timer
    int const m_nExceptions = std::uncaught_exceptions();
};

/// Returns whether a stats file is open.
bool ProfilerHasStats();

/// Waits for the write in progress, if there is one, and returns true. Returns false, with log lines, if it failed.
bool ProfilerFinishWrite();

/// Waits for the write in progress and closes the stats file, if one is open. On failure logs the reason, and
/// ProfilerSwapStatsFailed returns true.
void ProfilerCloseStats();
