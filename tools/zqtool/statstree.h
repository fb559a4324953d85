// statstree.h: the timers of all batches of a stats file as one tree, with sums over all frames.
#pragma once

#include "tools/zqtool/statsfile.h"

#include <map>
#include <tuple>

/// One timer over the whole file. Times are ticks; as doubles they are exact up to 2^53.
struct StatsNode_t
{
    std::string sName;
    std::uint32_t iTimer = 0;
    int iParent = -1;   // index in the tree, below the node's own; -1 at the root alone
    double tSum = 0;
    std::uint64_t nCalls = 0;
    std::int64_t tPeak = 0;
    int iPeakFrame = -1;   // of the whole file; -1 if no frame had a time above 0
    std::uint32_t nPeakCalls = 0;
    double tOwn = 0;         // the sum without that of the children, over the frames of whole batches
    int nBrokenFrames = 0;   // frames of a broken batch that has the timer
};

/// What a timer took of a frame: ticks and calls. Frames in which it is not known don't count.
struct StatsAverage_t
{
    double tTime = 0;
    double tOwn = 0;   // without that of its children, not below 0
    double nCalls = 0;
};

/// Figures of the frames' times, in ticks; all 0 without a frame.
struct StatsSummary_t
{
    double tMean = 0, tMedian = 0, t95 = 0, t99 = 0, tWorst = 0;
    int iWorst = -1;
};

class StatsTree_c
{
public:
    /// Takes a batch in; the node of each of its timers, no two the same. Nothing comes behind a broken one.
    std::vector<int> Add(StatsBatch_t const & Batch, bool bWhole);

    /// The root is the first one, if there was a batch at all.
    std::vector<StatsNode_t> const & GetNodes() const { return m_dNodes; }

    /// The time of each frame.
    std::vector<double> const & GetFrames() const { return m_dFrames; }

    int GetFrameCount() const { return static_cast<int>(m_dFrames.size()); }

    /// Of each node.
    std::vector<StatsAverage_t> GetAverages() const;

    StatsSummary_t GetSummary() const;

private:
    int FindNode(StatsTimer_t const & Timer, int iParent, int iFirstFrame);

    std::vector<StatsNode_t> m_dNodes;
    int m_nWholeFrames = 0;      // of batches that are whole; a lone broken one is taken for whole
    std::vector<int> m_dTaken;   // first frame of the batch that used a node last
    std::map<std::tuple<int, std::uint32_t, int>, int> m_dIndices;   // by parent, id, and which of its likes
    std::vector<double> m_dFrames;
};

/// Shares a line among the members of a tree: each gets room for its size or for its children, whichever is more, and its
/// children lie in it from its start on. Parents stand before their children; dStarts and dSizes get the outcome.
void LayOutTree(std::vector<int> const & dParents, std::vector<double> & dSizes, std::vector<double> & dStarts);

/// The order in which each member of a tree is followed by its children and theirs. Parents stand before their children.
std::vector<std::size_t> DepthFirst(std::vector<int> const & dParents);
