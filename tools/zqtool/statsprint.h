// statsprint.h: a stats file as text for people and as JSON.
#pragma once

#include "tools/zqtool/json.h"
#include "tools/zqtool/statspage.h"
#include "tools/zqtool/statstree.h"

/// Prints the statistics of the times of frames, and the tree of timers with their figures, on standard output. The
/// statistics leave out the frames that the tree has forgotten. Without frames, prints that there are none and when the
/// profiler writes the first ones. Requires that Facts.fTicksPerSecond is above 0.
void PrintStats(StatsTree_c const & Tree, StatsFacts_t const & Facts);

/// Returns the statistics of the times of frames and the tree of timers as a JSON object, with the file's name and
/// problems. The statistics leave out the frames that the tree has forgotten. Without frames, they are null. Requires
/// that Facts.fTicksPerSecond is above 0.
Json_t JsonOfStats(StatsTree_c const & Tree, StatsFacts_t const & Facts);
