#include "tools/zqtool/statspage.h"

#include "tools/zqtool/page.h"
#include "tools/zqtool/parse.h"
#include "tools/zqtool/statsfile.h"
#include "tools/zqtool/text.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

// The parts of the page, which the build makes from stats_page.html and stats_*.js.
extern char const STATS_PAGE_HTML[], STATS_DATA_JS[], STATS_GRAPH_JS[], STATS_FLAME_JS[], STATS_PAGE_JS[];

namespace
{
    constexpr std::size_t MAX_TIMER_BYTES = 24 << 20;   // of the batches' timers in a page

    // Returns the texts of members, all or those from iFrom to before iTo, as a JSON array.
    template <typename RANGE, typename CALL>
    std::string ArrayOf(RANGE const & Range, CALL const & fnText, std::size_t iFrom = 0, std::size_t iTo = SIZE_MAX)
    {
        std::string sArray = "[";
        for (std::size_t i = iFrom; i < std::min(iTo, Range.size()); ++i)
        {
            sArray += sArray.size() > 1 ? "," : "";
            sArray += fnText(Range[i]);
        }
        return sArray + "]";
    }

    // Returns a number as JSON, with all digits of the double. Requires that it is finite.
    std::string NumberText(double fNumber)
    {
        char szNumber[32];
        std::snprintf(szNumber, sizeof szNumber, "%.17g", fNumber);
        return szNumber;
    }

    template <typename T>
    std::string IntegerText(T nNumber)
    {
        return std::to_string(nNumber);
    }

    // Returns [node, average, max, last, max ever, calls of the last, calls at max, slot of max, [times], [calls]]. The
    // last two are empty if no frame has a time or a call.
    std::string TimerText(StatsTimer_t const & Timer, int iNode)
    {
        StatsFigures_t const & Figures = Timer.Figures;
        std::string sText = "[" + std::to_string(iNode);
        for (std::int64_t const nFigure : { Figures.tAverage, Figures.tMax, Figures.tLast, Figures.tMaxEver,
                 std::int64_t{ Figures.nLast }, std::int64_t{ Figures.nAtMax }, std::int64_t{ Figures.iMaxSlot } })
        {
            sText += "," + std::to_string(nFigure);
        }
        bool const bIdle = std::all_of(Timer.dSlots.begin(), Timer.dSlots.end(),
            [](StatsSlot_t const & Slot) { return Slot.tTime == 0 && Slot.nCalls == 0; });
        if (bIdle)
        {
            return sText + ",[],[]]";
        }
        return sText + "," + ArrayOf(Timer.dSlots, [](StatsSlot_t const & Slot) { return IntegerText(Slot.tTime); })
               + "," + ArrayOf(Timer.dSlots, [](StatsSlot_t const & Slot) { return IntegerText(Slot.nCalls); }) + "]";
    }

    // Returns [name, id, parent, average time, average own time, average calls, calls in all, peak, frame of the peak,
    // calls at the peak].
    std::string NodeText(StatsNode_t const & Node, StatsAverage_t const & Average)
    {
        return "[" + JsonQuoted(Node.sName) + "," + std::to_string(Node.iTimer) + "," + std::to_string(Node.iParent)
               + "," + NumberText(Average.tTime) + "," + NumberText(Average.tOwn) + "," + NumberText(Average.fCalls)
               + "," + std::to_string(Node.nCalls) + "," + std::to_string(Node.tPeak) + ","
               + std::to_string(Node.iPeakFrame) + "," + std::to_string(Node.nPeakCalls) + "]";
    }

    std::string SummaryText(StatsSummary_t const & Summary)
    {
        return "{\"mean\":" + NumberText(Summary.tMean) + ",\"median\":" + NumberText(Summary.tMedian)
               + ",\"p95\":" + NumberText(Summary.t95) + ",\"p99\":" + NumberText(Summary.t99)
               + ",\"worst\":" + NumberText(Summary.tWorst) + ",\"worstFrame\":" + std::to_string(Summary.iWorst) + "}";
    }
}

bool StatsFacts_t::AddProblem(std::uint64_t nOffset, std::string const & sText)
{
    bool const bFits = dProblems.size() < MAX_PROBLEMS;
    if (bFits)
    {
        dProblems.push_back("byte " + std::to_string(nOffset) + ": " + sText);
    }
    return bFits;
}

void StatsPage_c::Add(StatsBatch_t const & Batch, std::vector<int> const & dNodes)
{
    Batch_s & New = m_dBatches.emplace_back();
    auto itNode = dNodes.begin();
    New.sTimers = ArrayOf(Batch, [&](StatsTimer_t const & Timer) { return TimerText(Timer, *itNode++); });
    New.tWorst = StatsFrameTime(Batch, 0);
    for (std::size_t i = 1; i < STATS_FRAMES; ++i)
    {
        New.tWorst = std::max(New.tWorst, StatsFrameTime(Batch, i));
    }
    m_nBytes += New.sTimers.size();
    while (m_nBytes > MAX_TIMER_BYTES)
    {
        auto const Key = [](Batch_s const & Held) { return std::make_pair(Held.sTimers.empty(), Held.tWorst); };
        auto const itLeast = std::min_element(m_dBatches.rbegin(), m_dBatches.rend(),
            [&](Batch_s const & First, Batch_s const & Second) { return Key(First) < Key(Second); });
        m_nBytes -= itLeast->sTimers.size();
        std::string().swap(itLeast->sTimers);
    }
}

void StatsPage_c::ForgetBatch()
{
    m_nBytes -= m_dBatches.front().sTimers.size();
    m_dBatches.pop_front();
}

std::string StatsPage_c::MakeNews(
    StatsFacts_t const & Facts, StatsTree_c const & Tree, StatsRequest_t const & Request) const
{
    int const iFirst = Tree.GetFirstFrame();
    auto const nKnown = static_cast<std::size_t>(std::max(Request.iFrom - iFirst, 0)) / STATS_FRAMES;
    std::size_t const iFrom = std::min(nKnown, m_dBatches.size());
    std::size_t iTo = iFrom, nBytes = 0;
    while (iTo < m_dBatches.size() && (iTo == iFrom || nBytes + m_dBatches[iTo].sTimers.size() <= Request.nMaxBytes))
    {
        nBytes += m_dBatches[iTo++].sTimers.size();
    }
    std::vector<StatsAverage_t> const dAverages = Tree.GetAverages();
    auto itAverage = dAverages.begin();
    auto const Truth = [](bool bTrue) { return bTrue ? "true" : "false"; };
    return "{\"file\":" + JsonQuoted(Facts.sFile) + ",\"rate\":" + NumberText(Facts.fTicksPerSecond)
           + ",\"measured\":" + Truth(Facts.bMeasured) + ",\"problems\":" + ArrayOf(Facts.dProblems, JsonQuoted)
           + ",\"live\":" + Truth(Request.bLive) + ",\"run\":" + std::to_string(Request.iRun)
           + ",\"more\":" + Truth(iTo < m_dBatches.size()) + ",\"first\":" + std::to_string(iFirst)
           + ",\"from\":" + std::to_string(iFirst + static_cast<int>(iFrom * STATS_FRAMES))
           + ",\n\"summary\":" + SummaryText(Tree.GetSummary()) + ",\n\"timers\":"
           + ArrayOf(Tree.GetNodes(), [&](StatsNode_t const & Node) { return NodeText(Node, *itAverage++); })
           + ",\n\"frames\":" + ArrayOf(Tree.GetFrames(), NumberText, iFrom * STATS_FRAMES, iTo * STATS_FRAMES)
           + ",\n\"batches\":"
           + ArrayOf(
               m_dBatches, [](Batch_s const & Batch) { return '"' + Batch.sTimers + "\"\n"; }, iFrom, iTo)
           + "}";
}

void StatsPage_c::Write(
    std::ostream & Stream, StatsFacts_t const & Facts, StatsTree_c const & Tree, StatsRequest_t const & Request) const
{
    std::string_view sRest = STATS_PAGE_HTML;
    Stream << TakeUpTo(sRest, "<!--head-->") << PageHead(Facts.sFile, Request.bLive);
    Stream << TakeUpTo(sRest, "<!--data-->") << PageData(MakeNews(Facts, Tree, Request));
    Stream << TakeUpTo(sRest, "<!--script-->")
           << PageScripts({ STATS_DATA_JS, STATS_GRAPH_JS, STATS_FLAME_JS, STATS_PAGE_JS }) << sRest;
}
