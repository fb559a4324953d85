// faultguard.h: the calls of FaultCallGuarded that are under way, and the thread that makes them.
//
// This guarded thread runs the filter of platform/faults.h, or is the one that the filter waits for.
#pragma once

namespace plat
{
    /// Returns the signal of the guard's timer. It is sent to the guarded thread only.
    int FaultGuardSignal();

    /// Returns whether the calling thread runs the filter, or ran it last without handling the fault.
    bool FaultFilterIsMine();

    /// Ends the calling thread's innermost guarded call because of a fault inside it. Returns if the thread is in none.
    void FaultGuardEscape();
}
