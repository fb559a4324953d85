#include "tools/zqtool/statsprint.h"

#include "platform/clock.h"
#include "tools/zqtool/statstree.h"

#include <algorithm>
#include <cstdio>

namespace
{
    // Returns how many ancestors each node has. A parent comes before its children.
    std::vector<std::size_t> Depths(std::vector<StatsNode_t> const & dNodes)
    {
        std::vector<std::size_t> dDepths;
        for (StatsNode_t const & Node : dNodes)
        {
            dDepths.push_back(Node.iParent < 0 ? 0 : dDepths[static_cast<std::size_t>(Node.iParent)] + 1);
        }
        return dDepths;
    }

    std::vector<std::size_t> Order(std::vector<StatsNode_t> const & dNodes)
    {
        std::vector<int> dParents;
        std::transform(dNodes.begin(), dNodes.end(), std::back_inserter(dParents),
            [](StatsNode_t const & Node) { return Node.iParent; });
        return DepthFirst(dParents);
    }

    int BatchesOf(StatsTree_c const & Tree)
    {
        return Tree.GetFrameCount() / static_cast<int>(STATS_FRAMES);
    }

    void PrintTree(StatsTree_c const & Tree, double fMillisecondsOfTick)
    {
        std::vector<StatsNode_t> const & dNodes = Tree.GetNodes();
        std::vector<StatsAverage_t> const dAverages = Tree.GetAverages();
        std::vector<std::size_t> const dDepths = Depths(dNodes);
        std::printf("%12s %12s %12s %9s %12s %12s  %s\n", "average ms", "own ms", "peak ms", "at frame", "calls",
            "calls/frame", "timer");
        for (std::size_t const i : Order(dNodes))
        {
            StatsNode_t const & Node = dNodes[i];
            if (i > 0)   // the root is not timed
            {
                std::printf("%12.4f %12.4f %12.4f %9s %12llu %12.2f  %*s%s\n", dAverages[i].tTime * fMillisecondsOfTick,
                    dAverages[i].tOwn * fMillisecondsOfTick, static_cast<double>(Node.tPeak) * fMillisecondsOfTick,
                    Node.iPeakFrame < 0 ? "-" : std::to_string(Node.iPeakFrame).c_str(),
                    static_cast<unsigned long long>(Node.nCalls), dAverages[i].fCalls,
                    static_cast<int>(2 * dDepths[i] - 2), "", Node.sName.c_str());
            }
        }
    }

    // Returns the timers in depth-first order, without the root, which is not timed.
    Json_t JsonOfTimers(StatsTree_c const & Tree, double fMillisecondsOfTick)
    {
        std::vector<StatsNode_t> const & dNodes = Tree.GetNodes();
        std::vector<StatsAverage_t> const dAverages = Tree.GetAverages();
        std::vector<std::size_t> const dDepths = Depths(dNodes);
        std::vector<int> dPlaces(dNodes.size(), -1);
        Json_t Timers = Json_t::array();
        for (std::size_t const i : Order(dNodes))
        {
            StatsNode_t const & Node = dNodes[i];
            if (i > 0)
            {
                dPlaces[i] = static_cast<int>(Timers.size());
                int const iParent = dPlaces[static_cast<std::size_t>(Node.iParent)];
                Timers.push_back({ { "name", Node.sName }, { "parent", iParent < 0 ? Json_t() : Json_t(iParent) },
                    { "depth", dDepths[i] - 1 }, { "mean_ms", dAverages[i].tTime * fMillisecondsOfTick },
                    { "own_ms", dAverages[i].tOwn * fMillisecondsOfTick },
                    { "peak_ms", static_cast<double>(Node.tPeak) * fMillisecondsOfTick },
                    { "peak_frame", Node.iPeakFrame < 0 ? Json_t() : Json_t(Node.iPeakFrame) },
                    { "calls", Node.nCalls }, { "calls_per_frame", dAverages[i].fCalls } });
            }
        }
        return Timers;
    }
}

void PrintStats(StatsTree_c const & Tree, StatsFacts_t const & Facts)
{
    int const nBatches = BatchesOf(Tree);
    std::printf("%i frames in %i %s; %.0f ticks a second%s\n", Tree.GetFrameCount(), nBatches,
        nBatches == 1 ? "batch" : "batches", Facts.fTicksPerSecond,
        Facts.bMeasured ? ", as on this machine (--ticks-per-second sets another rate)" : "");
    if (Tree.GetFrameCount() == 0)
    {
        std::printf("The profiler writes its first batch after %i frames.\n", static_cast<int>(STATS_FRAMES));
        return;
    }
    double const fMillisecondsOfTick = plat::MILLISECONDS_OF_SECOND / Facts.fTicksPerSecond;
    StatsSummary_t const Summary = Tree.GetSummary();
    std::printf("frame time in ms: mean %.4f, median %.4f, 95 %% %.4f, 99 %% %.4f, worst %.4f (frame %i)\n\n",
        Summary.tMean * fMillisecondsOfTick, Summary.tMedian * fMillisecondsOfTick, Summary.t95 * fMillisecondsOfTick,
        Summary.t99 * fMillisecondsOfTick, Summary.tWorst * fMillisecondsOfTick, Summary.iWorst);
    PrintTree(Tree, fMillisecondsOfTick);
}

Json_t JsonOfStats(StatsTree_c const & Tree, StatsFacts_t const & Facts)
{
    double const fMillisecondsOfTick = plat::MILLISECONDS_OF_SECOND / Facts.fTicksPerSecond;
    StatsSummary_t const Summary = Tree.GetSummary();
    Json_t Frame;
    if (Tree.GetFrameCount() > 0)
    {
        Frame = { { "mean_ms", Summary.tMean * fMillisecondsOfTick },
            { "median_ms", Summary.tMedian * fMillisecondsOfTick }, { "p95_ms", Summary.t95 * fMillisecondsOfTick },
            { "p99_ms", Summary.t99 * fMillisecondsOfTick }, { "worst_ms", Summary.tWorst * fMillisecondsOfTick },
            { "worst_frame", Summary.iWorst } };
    }
    return { { "file", Facts.sFile }, { "frames", Tree.GetFrameCount() }, { "batches", BatchesOf(Tree) },
        { "ticks_per_second", Facts.fTicksPerSecond }, { "frame", Frame },
        { "timers", JsonOfTimers(Tree, fMillisecondsOfTick) }, { "problems", Facts.dProblems } };
}
