// cprofile_internal.h: what the timers and their stats file share.
#pragma once

#include "zqcore/cprofile.h"

#include <exception>

/// The profiler is up.
extern bool g_bProfilerInit;

/// Entries on the stack of timers, the root included; and records in use.
extern int g_iTimerStackTop;
extern int g_iTimerTotalCount;

/// Bytes handed to the stats file and not yet known to be written.
extern std::uint32_t g_nBytesToWrite;

/// The records, in the order in which they were taken; the root first.
profiler::timer_t * ProfilerTimers();

/// Pushes under way, the root and those that found no room included.
int ProfilerDepth();

/// Pops down to such a depth, but never the root.
void ProfilerPopTo(int iDepth);

/// A timer that runs for a scope. If a host's exception ends it, the pushes inside that were not popped are popped too.
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
            m_iTimer != 0 ? ProfilerPop(m_iTimer) : ProfilerPop();
        }
    }
    ProfilerScope_c(ProfilerScope_c const &) = delete;
    ProfilerScope_c & operator=(ProfilerScope_c const &) = delete;

private:
    std::uint32_t const m_iTimer = 0;   // 0 with a name
    int const m_iDepth = ProfilerDepth();
    int const m_nExceptions = std::uncaught_exceptions();
};

/// Whether a stats file is open.
bool ProfilerHasStats();

/// Waits for the write under way; false, with the complaint logged, if it failed.
bool ProfilerFinishWrite();

/// Waits for what is being written and closes the stats file, if there is one.
void ProfilerCloseStats();
