// faultguard.h: the guarded calls that are under way. They belong to the one thread that the filter is told on, or that
// it waits for.
#pragma once

#include <csignal>

namespace plat
{
    /// Signal of the guard's clock; sent to the guarded thread alone.
    int FaultGuardSignal();

    /// Ends the innermost guarded call, for a fault inside; returns if there is none.
    void FaultGuardEscape();
}
