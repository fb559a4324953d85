// statspage.h: a stats file as one HTML page that needs nothing else: the frames' times, the timers of any frame.
//
// The page holds every frame's time, and the timers of as many batches as fit; those with the worst frames stay.
#pragma once

#include "tools/zqtool/statstree.h"

#include <iosfwd>

/// What the page says of the file as a whole.
struct StatsFacts_t
{
    std::string sFile;
    double fTicksPerSecond = 0;
    bool bMeasured = false;               // the ticks per second are those of this machine
    std::vector<std::string> dProblems;   // what is wrong with the file
};

class StatsPage_c
{
public:
    /// Keeps what the page shows of a batch. dNodes are the tree's nodes of its timers.
    void Add(StatsBatch_t const & Batch, std::vector<int> const & dNodes);

    /// Writes the page. The tree has taken the same batches.
    void Write(std::ostream & Stream, StatsFacts_t const & Facts, StatsTree_c const & Tree) const;

private:
    struct Batch_s
    {
        std::string sTimers;   // JSON, empty if it was left out
        double tWorst;         // time of the longest frame
    };

    std::vector<Batch_s> m_dBatches;
    std::size_t m_nBytes = 0;   // of all timers
};
