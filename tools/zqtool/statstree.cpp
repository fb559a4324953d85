#include "tools/zqtool/statstree.h"

#include <algorithm>
#include <numeric>

namespace
{
    // Adds the frames of a timer to its node. Returns the sum of their times.
    double AddFrames(StatsNode_t & Node, StatsTimer_t const & Timer, int iFirstFrame)
    {
        double tSum = 0;
        for (std::size_t i = 0; i < STATS_FRAMES; ++i)
        {
            auto const & [tTime, nCalls] = Timer.dSlots[i];
            tSum += static_cast<double>(tTime);
            Node.nCalls += nCalls;
            if (tTime > Node.tPeak)
            {
                Node.tPeak = tTime;
                Node.iPeakFrame = iFirstFrame + static_cast<int>(i);
                Node.nPeakCalls = nCalls;
            }
        }
        Node.tSum += tSum;
        return tSum;
    }
}

// Finds or adds the node of a timer, marks it as used by the batch at iFirstFrame and returns its index. In a damaged
// file one parent may have two timers with one identifier: each has its own node.
int StatsTree_c::FindNode(StatsTimer_t const & Timer, int iParent, int iFirstFrame)
{
    for (int iLike = 0;; ++iLike)
    {
        auto const [itNode, bNew] =
            m_dIndices.try_emplace({ iParent, Timer.iTimer, iLike }, static_cast<int>(m_dNodes.size()));
        if (bNew)
        {
            m_dNodes.push_back({ .sName = Timer.sName, .iTimer = Timer.iTimer, .iParent = iParent });
            m_dTaken.push_back(-1);
        }
        int & iTaken = m_dTaken[static_cast<std::size_t>(itNode->second)];
        if (iTaken != iFirstFrame)
        {
            iTaken = iFirstFrame;
            return itNode->second;
        }
    }
}

std::vector<int> StatsTree_c::Add(StatsBatch_t const & Batch, bool bWhole)
{
    int const iFirstFrame = GetFrameCount();
    bool const bCounts = bWhole || iFirstFrame == 0;
    std::vector<int> dNodes;
    for (StatsTimer_t const & Timer : Batch)
    {
        int const iParent = Timer.iParent < 0 ? -1 : dNodes[static_cast<std::size_t>(Timer.iParent)];
        dNodes.push_back(iParent < 0 && !m_dNodes.empty() ? 0 : FindNode(Timer, iParent, iFirstFrame));
        StatsNode_t & Node = m_dNodes[static_cast<std::size_t>(dNodes.back())];
        double const tSum = AddFrames(Node, Timer, iFirstFrame);
        Node.nBrokenFrames = bCounts ? 0 : static_cast<int>(STATS_FRAMES);
        Node.tOwn += bCounts ? tSum : 0;
        if (bCounts && iParent >= 0)
        {
            m_dNodes[static_cast<std::size_t>(iParent)].tOwn -= tSum;
        }
    }
    for (std::size_t i = 0; i < STATS_FRAMES; ++i)
    {
        m_dFrames.push_back(StatsFrameTime(Batch, i));
    }
    m_nWholeFrames += bCounts ? static_cast<int>(STATS_FRAMES) : 0;
    return dNodes;
}

void StatsTree_c::ForgetBatch()
{
    m_dFrames.erase(m_dFrames.begin(), m_dFrames.begin() + STATS_FRAMES);
    m_iFirstFrame += static_cast<int>(STATS_FRAMES);
}

std::vector<StatsAverage_t> StatsTree_c::GetAverages() const
{
    std::vector<StatsAverage_t> dAverages;
    for (StatsNode_t const & Node : m_dNodes)
    {
        double const fFrames = m_nWholeFrames + Node.nBrokenFrames;
        dAverages.push_back({ Node.tSum / fFrames, std::max(Node.tOwn / m_nWholeFrames, 0.0),
            static_cast<double>(Node.nCalls) / fFrames });
    }
    return dAverages;
}

StatsSummary_t StatsTree_c::GetSummary() const
{
    StatsSummary_t Summary;
    if (m_dFrames.empty())
    {
        return Summary;
    }
    std::vector<double> dSorted = m_dFrames;
    std::sort(dSorted.begin(), dSorted.end());
    // Returns the smallest time that nPercent percent of the frames do not exceed.
    auto const Rank = [&](std::size_t nPercent) { return dSorted[(dSorted.size() * nPercent + 99) / 100 - 1]; };
    Summary.tMean = std::accumulate(dSorted.begin(), dSorted.end(), 0.0) / static_cast<double>(dSorted.size());
    Summary.tMedian = Rank(50);
    Summary.t95 = Rank(95);
    Summary.t99 = Rank(99);
    Summary.tWorst = dSorted.back();
    auto const itWorst = std::max_element(m_dFrames.begin(), m_dFrames.end());
    Summary.iWorst = m_iFirstFrame + static_cast<int>(itWorst - m_dFrames.begin());
    return Summary;
}

void LayOutTree(std::vector<int> const & dParents, std::vector<double> & dSizes, std::vector<double> & dStarts)
{
    std::vector<double> dChildren(dParents.size(), 0), dNext(dParents.size(), 0);
    dStarts.assign(dParents.size(), 0);
    for (std::size_t i = dParents.size(); i-- > 0;)
    {
        dSizes[i] = std::max({ dSizes[i], dChildren[i], 0.0 });
        if (dParents[i] >= 0)
        {
            dChildren[static_cast<std::size_t>(dParents[i])] += dSizes[i];
        }
    }
    for (std::size_t i = 0; i < dParents.size(); ++i)
    {
        if (dParents[i] >= 0)
        {
            double & fNext = dNext[static_cast<std::size_t>(dParents[i])];
            dStarts[i] = fNext;
            fNext += dSizes[i];
        }
        dNext[i] = dStarts[i];
    }
}

std::vector<std::size_t> DepthFirst(std::vector<int> const & dParents)
{
    std::vector<std::size_t> dSizes(dParents.size(), 1), dNext(dParents.size(), 0), dOrder(dParents.size());
    for (std::size_t i = dParents.size(); i-- > 1;)
    {
        dSizes[static_cast<std::size_t>(dParents[i])] += dSizes[i];
    }
    for (std::size_t i = 0; i < dParents.size(); ++i)
    {
        std::size_t iPlace = 0;
        if (i > 0)
        {
            std::size_t & iNext = dNext[static_cast<std::size_t>(dParents[i])];
            iPlace = iNext;
            iNext += dSizes[i];
        }
        dOrder[iPlace] = i;
        dNext[i] = iPlace + 1;
    }
    return dOrder;
}
