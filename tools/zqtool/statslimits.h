// statslimits.h: limits for the times of a stats file, such as "frame.p99=20ms".
#pragma once

#include "tools/zqtool/statstree.h"

/// Name of a limit of frames.
inline constexpr char STATS_FRAME[] = "frame";

/// Largest time that a figure of a stats file may have.
struct StatsLimit_t
{
    std::string sName;     // STATS_FRAME or the name of a timer, printable as in the tree
    std::string sFigure;   // of frames: mean, median, p95, p99, worst; of a timer: mean, peak
    double tLimit = 0;     // milliseconds
};

/// Measured time that a limit is compared with. If several timers share a name, the largest time counts.
struct StatsMeasured_t
{
    bool bKnown = false;   // whether the name is STATS_FRAME or that of a timer
    double tMilliseconds = 0;
};

/// Returns the figures that may be limited, with what they belong to, for the help.
std::string StatsFigures();

/// Reads a limit. The name ends at the last dot before the last '='. Units are s, ms and us. A negative time is wrong.
/// Returns what is wrong with the text, and may change Limit even then. Returns an empty text if nothing is wrong.
std::string ReadStatsLimit(std::string const & sText, StatsLimit_t & Limit);

/// Returns the time that the file has for a limit. Figures of frames leave out the frames that the tree has forgotten.
/// Requires a limit that ReadStatsLimit accepted, a tree with a frame and a rate above 0.
StatsMeasured_t MeasureStats(StatsLimit_t const & Limit, StatsTree_c const & Tree, double fTicksPerSecond);
