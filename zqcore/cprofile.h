// cprofile.h: brackets around stretches of work.
//
// The profiler is down: ProfilerPush and ProfilerPop do nothing today, as they do in a process that never brings the
// profiler up. Callers bracket their work all the same.
#pragma once

#include "zqcore/cconfig.h"

/// Begins a stretch of work under a name; with bRoot it hangs directly under the root.
ZQ_API void ProfilerPush(char const * szName, bool bRoot);

/// Ends the stretch that began last.
ZQ_API void ProfilerPop();
