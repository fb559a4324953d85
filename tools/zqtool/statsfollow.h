// statsfollow.h: the page of a stats file that a program still writes, served to browsers on this machine.
#pragma once

#include "tools/zqtool/statspage.h"

/// What StatsFollow serves, and for how long.
struct StatsFollow_t
{
    std::string sFile;
    int iPort = 0;        // 0: a free one
    int nMaxFrames = 0;   // ends after so many; 0: only an interrupt ends it
};

/// Serves the page until an interrupt from the keyboard or the limit of frames. Prints the address. Keeps the times and
/// timers of the last 150,000 frames, and sums of all. Adds the last run's batches to Tree and faults to Facts. Returns
/// false, and prints why, if it can't open the port.
bool StatsFollow(StatsFollow_t const & Follow, StatsFacts_t & Facts, StatsTree_c & Tree);
