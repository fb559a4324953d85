// ccallback_internal.h: the lock of the event lists that any thread may fire. Nothing public includes it.
#pragma once

#include "zqcore/ccallback.h"

/// Scope of one firing. Holds the lock that the lists of complaints and of files share. They share one because a
/// receiver of one list may fire another: with two locks, two threads could take them in opposite orders. The lock is
/// re-entrant, so a receiver may fire; Fire decides what that does (ccallback.h).
class Firing_c
{
public:
    Firing_c();
    ~Firing_c();
    Firing_c(Firing_c const &) = delete;
    Firing_c & operator=(Firing_c const &) = delete;

    /// Ends all firings of the calling thread. Requires that the thread does not return to them.
    static void EndAll();
};
