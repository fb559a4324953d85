// statsfollow.h: the page of a stats file that a program still writes, served to browsers on this machine.
#pragma once

#include "tools/zqtool/statspage.h"
#include "tools/zqtool/statstree.h"

/// Options of StatsFollow: the file, the port and the end.
struct StatsFollow_t
{
    std::string sFile;
    int iPort = 0;        // 0: a free one
    int nMaxFrames = 0;   // frames until the end, which may come earlier if the rest is not read; 0: until an interrupt
};

/// Serves the page until an interrupt from the keyboard or the end in Follow. Serves an open page for up to 3 s after
/// that end. Prints the address. Adds the last run's batches to Tree, and up to MAX_PROBLEMS of its problems to Facts.
/// Returns true. Returns false, and prints why, if it can't open the port.
///
/// Keeps the times of the last 150,000 frames, the timers of as many as fit in a page, and sums of all. After damage,
/// or once the tree has more than 65,536 timers, the rest of the run is not read.
bool StatsFollow(StatsFollow_t const & Follow, StatsFacts_t & Facts, StatsTree_c & Tree);
