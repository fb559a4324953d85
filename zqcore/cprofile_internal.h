// cprofile_internal.h: what the timers and their stats file share.
#pragma once

#include "zqcore/cprofile.h"

/// The profiler is up.
extern bool g_bProfilerInit;

/// Entries on the stack of timers, the root included; and records in use.
extern int g_iTimerStackTop;
extern int g_iTimerTotalCount;

/// Bytes handed to the stats file and not yet known to be written.
extern std::uint32_t g_nBytesToWrite;

/// The records, in the order in which they were taken; the root first.
profiler::timer_t * ProfilerTimers();

/// A timer that runs for a scope, which a host's exception may end.
class ProfilerScope_c
{
public:
    explicit ProfilerScope_c(char const * szName) { ProfilerPush(szName, false); }
    ProfilerScope_c(std::uint32_t iTimer, char const * szName) { ProfilerPush(iTimer, szName); }
    ~ProfilerScope_c() { ProfilerPop(); }
    ProfilerScope_c(ProfilerScope_c const &) = delete;
    ProfilerScope_c & operator=(ProfilerScope_c const &) = delete;
};

/// Whether a stats file is open.
bool ProfilerHasStats();

/// Waits for the write under way; false, with the complaint logged, if it failed.
bool ProfilerFinishWrite();

/// Waits for what is being written and closes the stats file, if there is one.
void ProfilerCloseStats();
