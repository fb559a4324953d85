// ctimer.h: two clocks.
//
// The long time is in seconds. Until ModuleTimer_c is initialised it comes from a coarse clock of milliseconds, which
// wraps after 49 days. After the initialisation it comes from a good clock, if the machine has one. longTimeGetPassed
// continues across that change without a jump. Requires that values of longTimeGet from before and after the change are
// not compared. The short time is the cycle counter of an x86 processor, or the good clock on another one.
//
// Ownership: nothing is owned.
// Threads: any thread, without locks. The first calls of longTimeGetPassed and shortTimeGetSec belong to the main
// thread.
// Cost: a read of a clock. The waits spin and never yield the processor.
// Failure: no call fails.
//
//     double const tStart = longTimeGet();
//     longTimeWait(0.001);
//     Log("Waited %.1f ms.", 1000.0 * (longTimeGet() - tStart));
#pragma once

#include "zqcore/cmodule.h"

/// Returns the seconds since an arbitrary point in time.
ZQ_API double longTimeGet();

/// Returns the seconds since the first call of this function in the process. The start of ModuleTimer_c calls it too.
ZQ_API double longTimeGetPassed();

/// Spins for tSeconds and returns tSeconds.
ZQ_API double longTimeWait(double tSeconds);

/// Returns the cycle counter: rdtsc on x86, the ticks of the good clock on other processors.
ZQ_API std::int64_t shortTimeGet();

/// Returns the cycles in a second. The first call measures them for one second.
ZQ_API std::int64_t shortTimeGetSec();

/// Spins for nCycles of the cycle counter and returns nCycles.
ZQ_API std::int64_t shortTimeWait(std::int64_t nCycles);

/// Clock of the game's time, longTimeGet at start. A layer above may set its own, for instance one that pauses.
/// AppGetDeltaTime reads it, but the log's time column does not. Requires that no other thread reads it while it is
/// set.
extern ZQ_API double (*Game_longTimeGet)();

/// Module that chooses the clock. Without a good clock it asserts that the system accepts the period of the coarse one.
/// It depends on no other module.
class ZQ_API ModuleTimer_c : public Module_c
{
public:
    constexpr ModuleTimer_c()
        : Module_c("ModuleTimer_c")
    {}

    /// Returns the only instance.
    static ModuleTimer_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
};
