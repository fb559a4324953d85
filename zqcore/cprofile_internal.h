// cprofile_internal.h: what the sources of the profiler share.
#pragma once

#include "zqcore/cprofile.h"

#include <exception>

/// Whether the profiler is initialised.
extern bool g_bProfilerInit;

/// Entries on the stack of timers, the root included, and records in use.
extern int g_iTimerStackTop;
extern int g_iTimerTotalCount;

/// Bytes passed to the stats file that are not yet known to be written.
extern std::uint32_t g_nBytesToWrite;

/// Returns the records in the order of their creation, the root first.
profiler::timer_t * ProfilerTimers();

/// Returns the number of open pushes, the root and those that found no room included.
int ProfilerDepth();

/// Writes pointers to the names of the timers that are open, the outermost first and the root left out, at most nMost.
/// Returns their number. If another thread pushes or pops meanwhile, a pointer may be to an old or a new name.
int ProfilerOpenTimers(char const ** pszNames, int nMost);

/// Pops down to this depth, but never the root.
void ProfilerPopTo(int iDepth);

/// A timer that runs for a scope. If a host's exception ends the scope, the pushes inside that were not popped are
/// popped too.
class ProfilerScope_c
{
public:
    explicit ProfilerScope_c(char const * szName) { ProfilerPush(szName, false); }
    ProfilerScope_c(std::uint32_t iTimer, char const * szName)
        : m_iTimer(iTimer)
    {
        ProfilerPush(iTimer, szName);
    }
    ~ProfilerScope_c()
    {
        if (std::uncaught_exceptions() > m_nExceptions)
        {
            ProfilerPopTo(m_iDepth);
        }
        else
        {
            if (m_iTimer != 0)
            {
                ProfilerPop(m_iTimer);
            }
            else
            {
                ProfilerPop();
            }
        }
    }
    ProfilerScope_c(ProfilerScope_c const &) = delete;
    ProfilerScope_c & operator=(ProfilerScope_c const &) = delete;

private:
    std::uint32_t const m_iTimer = 0;   // 0 if the timer was pushed by its name alone
    int const m_iDepth = ProfilerDepth();
    int const m_nExceptions = std::uncaught_exceptions();
};

/// Returns whether a stats file is open.
bool ProfilerHasStats();

/// Waits for the write in progress. Returns false, with log lines, if it failed.
bool ProfilerFinishWrite();

/// Waits for the write in progress and closes the stats file, if there is one.
void ProfilerCloseStats();
