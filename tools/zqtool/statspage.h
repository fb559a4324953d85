// statspage.h: a stats file as one HTML page: times of frames, and timers of those that fit.
//
// The page holds the time of every frame that is not forgotten. It holds 24 MiB of timers at most, those of the batches
// with the worst frames. It loads nothing, unless it is live: then it asks its server for news.
#pragma once

#include "tools/zqtool/statsfile.h"
#include "tools/zqtool/statstree.h"

#include <deque>
#include <iosfwd>

/// Facts of the whole file that the page shows.
struct StatsFacts_t
{
    std::string sFile;
    double fTicksPerSecond = 0;
    bool bMeasured = false;               // whether the ticks per second are this machine's
    std::vector<std::string> dProblems;   // what is wrong with the file

    static constexpr std::size_t MAX_PROBLEMS = 20;   // problems that a page lists

    /// Adds what is wrong at an offset of the file. Returns false, and adds nothing, if there are MAX_PROBLEMS.
    bool AddProblem(std::uint64_t nOffset, std::string const & sText);
};

/// Request for a page, or for news to an open page.
struct StatsRequest_t
{
    int iFrom = 0;                             // first frame that is wanted
    std::size_t nMaxBytes = std::size_t(-1);   // of the timers; one batch may have more
    bool bLive = false;                        // whether the page asks for news
    int iRun = 0;                              // number of the file's run; another run has other frames
};

/// Page of a stats file, collected batch by batch.
class StatsPage_c
{
public:
    /// Keeps what the page shows of a batch. dNodes is what StatsTree_c::Add has returned for the batch.
    void Add(StatsBatch_t const & Batch, std::vector<int> const & dNodes);

    /// Forgets the oldest batch. Requires a batch.
    void ForgetBatch();

    /// Writes the page. Requires a tree of the same batches.
    void Write(std::ostream & Stream, StatsFacts_t const & Facts, StatsTree_c const & Tree,
        StatsRequest_t const & Request = {}) const;

    /// Returns as JSON what a page shows: the facts, the sums, and the batches from Request.iFrom on up to
    /// Request.nMaxBytes. Requires a tree of the same batches.
    std::string MakeNews(StatsFacts_t const & Facts, StatsTree_c const & Tree, StatsRequest_t const & Request) const;

private:
    struct Batch_s
    {
        std::string sTimers;   // JSON; empty if dropped
        double tWorst;         // ticks of the longest frame
    };

    std::deque<Batch_s> m_dBatches;
    std::size_t m_nBytes = 0;   // of all timers
};
