// ctimer.h: two clocks.
//
// The long time is seconds from the best clock that the machine has. It runs from the first instant of the process on
// the coarse clock, and on the good one once ModuleTimer_c is up; longTimeGetPassed goes on across that change without
// a jump, but raw values of longTimeGet from before and after must not be compared. The short time is the processor's
// cycle counter. No locks; any thread. The first calls of longTimeGetPassed and shortTimeGetSec belong to the main
// thread. The waits spin and never give up the processor.
#pragma once

#include "zqcore/cmodule.h"

/// Seconds since an arbitrary point.
ZQ_API double longTimeGet();

/// Seconds since the first call of this function in the process.
ZQ_API double longTimeGetPassed();

/// Spins for dSeconds, and returns them.
ZQ_API double longTimeWait(double dSeconds);

/// The cycle counter: rdtsc on x86.
ZQ_API std::int64_t shortTimeGet();

/// Cycles in a second, measured at the first call, which takes a second.
ZQ_API std::int64_t shortTimeGetSec();

/// Spins for nCycles of the cycle counter, and returns them.
ZQ_API std::int64_t shortTimeWait(std::int64_t nCycles);

/// The clock of the game's time, at first longTimeGet. A layer above may put its own here, one that pauses for
/// instance. AppGetDeltaTime reads it; the log's time column does not.
extern ZQ_API double (*Game_longTimeGet)();

/// Chooses the clock. Needs no other module.
class ZQ_API ModuleTimer_c : public Module_c
{
public:
    constexpr ModuleTimer_c()
        : Module_c("ModuleTimer_c")
    {}

    /// The instance.
    static ModuleTimer_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
};
