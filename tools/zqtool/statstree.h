// statstree.h: the timers of all batches of a stats file as one tree, with sums over all frames.
#pragma once

#include "tools/zqtool/statsfile.h"

#include <map>
#include <tuple>

/// One timer over the whole file. Times are in ticks. As doubles they are exact up to 2^53.
struct StatsNode_t
{
    std::string sName;
    std::uint32_t iTimer = 0;
    int iParent = -1;   // index in the tree, below the node's own; -1 only for the root
    double tSum = 0;
    std::uint64_t nCalls = 0;
    std::int64_t tPeak = 0;
    int iPeakFrame = -1;   // of the whole file; -1 if no frame had a time above 0
    std::uint32_t nPeakCalls = 0;
    double tOwn = 0;         // sum without the children's, over the frames of whole batches or of the only one
    int nBrokenFrames = 0;   // frames of a broken batch that has the timer, unless it is the only batch
};

/// A timer's ticks and calls per frame. The frames of a broken batch count only if the batch has the timer.
struct StatsAverage_t
{
    double tTime = 0;
    double tOwn = 0;   // without its children's, over the frames of whole batches or of the only one; not below 0
    double fCalls = 0;
};

/// Statistics of the times of frames, in ticks. Without a frame all times are 0 and iWorst is -1. t95 is the smallest
/// time that 95 percent of the frames do not exceed, t99 that of 99 percent.
struct StatsSummary_t
{
    double tMean = 0, tMedian = 0, t95 = 0, t99 = 0, tWorst = 0;
    int iWorst = -1;   // number of the slowest frame in the whole file
};

/// Tree of the timers of all batches that were added.
class StatsTree_c
{
public:
    /// Adds a batch, a broken one if bWhole is false, and returns the indices of its timers' nodes, which all differ.
    /// Requires that no batch follows a broken one.
    std::vector<int> Add(StatsBatch_t const & Batch, bool bWhole);

    /// Returns all nodes, the root first. The result is empty without a batch.
    std::vector<StatsNode_t> const & GetNodes() const { return m_dNodes; }

    /// Forgets the times of the oldest batch's frames. Sums, averages and peaks still count them. Requires a batch
    /// that is not forgotten.
    void ForgetBatch();

    /// Returns the number of the first frame that is not forgotten.
    int GetFirstFrame() const { return m_iFirstFrame; }

    /// Returns the time of each frame that is not forgotten, in ticks.
    std::vector<double> const & GetFrames() const { return m_dFrames; }

    /// Returns the number of all frames.
    int GetFrameCount() const { return m_iFirstFrame + static_cast<int>(m_dFrames.size()); }

    /// Returns the averages of each node.
    std::vector<StatsAverage_t> GetAverages() const;

    /// Returns the statistics of the frames that are not forgotten.
    StatsSummary_t GetSummary() const;

private:
    int FindNode(StatsTimer_t const & Timer, int iParent, int iFirstFrame);

    std::vector<StatsNode_t> m_dNodes;
    int m_nWholeFrames = 0;      // of whole batches; a single broken one counts as whole
    std::vector<int> m_dTaken;   // by node: first frame of the last batch that used it; 0 for the root

    /// Indices of nodes by parent, identifier, and number among the nodes that share both.
    std::map<std::tuple<int, std::uint32_t, int>, int> m_dIndices;

    std::vector<double> m_dFrames;
    int m_iFirstFrame = 0;
};

/// Divides a line among the members of a tree, and sets dStarts and dSizes. A member has its own size, which dSizes
/// holds at the call, or the sum of its children's, whichever is larger. Its children lie inside it, from its start on.
/// Negative sizes count as 0. Requires parents before their children, and -1 as the parent of a root.
void LayOutTree(std::vector<int> const & dParents, std::vector<double> & dSizes, std::vector<double> & dStarts);

/// Returns the indices of a tree's members in depth-first order: each member comes right before its descendants.
/// Requires parents before children, and no root but the first.
std::vector<std::size_t> DepthFirst(std::vector<int> const & dParents);
