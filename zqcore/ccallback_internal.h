// ccallback_internal.h: firing the lists that any thread may fire. Nothing public includes it.
#pragma once

#include "zqcore/ccallback.h"

/// Holds the lock of all such lists for one firing: those of complaints and of files. They share one re-entrant lock,
/// since a receiver of one list may fire another, and two threads would do so in opposite orders. A firing inside a
/// firing, by a receiver, enters again and meets the list's own rule.
class Firing_c
{
public:
    Firing_c();
    ~Firing_c();
    Firing_c(Firing_c const &) = delete;
    Firing_c & operator=(Firing_c const &) = delete;

    /// Ends all firings of the calling thread, which does not return to them.
    static void EndAll();
};
