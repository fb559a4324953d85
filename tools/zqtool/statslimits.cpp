#include "tools/zqtool/statslimits.h"

#include "platform/clock.h"
#include "tools/zqtool/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <span>
#include <string_view>

namespace
{
    constexpr std::string_view PEAK = "peak";
    constexpr std::string_view FRAME_FIGURES[] = { "mean", "median", "p95", "p99", "worst" };
    constexpr std::string_view TIMER_FIGURES[] = { "mean", PEAK };

    // Unit of a limit's time.
    struct Unit_s
    {
        std::string_view sName;
        double tLength;   // in milliseconds
    };
    constexpr Unit_s UNITS[] = { { "ms", 1 }, { "us", 1e-3 }, { "s", 1e3 } };

    // Returns the milliseconds of a time such as "20ms". Returns a negative number for a negative time and for any
    // other text.
    double ReadTime(std::string_view sText)
    {
        double fNumber = 0;
        auto const [pRest, eError] = std::from_chars(sText.data(), sText.data() + sText.size(), fNumber);
        std::string_view const sUnit(pRest, static_cast<std::size_t>(sText.data() + sText.size() - pRest));
        for (Unit_s const & Unit : UNITS)
        {
            if (eError == std::errc() && sUnit == Unit.sName && std::isfinite(fNumber))
            {
                return fNumber * Unit.tLength;
            }
        }
        return -1;
    }

    // Returns words as "mean, median and worst".
    std::string ListOf(std::span<std::string_view const> dWords)
    {
        std::string sList;
        for (std::size_t i = 0; i < dWords.size(); ++i)
        {
            sList += i == 0 ? "" : i + 1 == dWords.size() ? " and " : ", ";
            sList += dWords[i];
        }
        return sList;
    }

    double FrameFigure(StatsSummary_t const & Summary, std::string_view sFigure)
    {
        double const dTimes[] = { Summary.tMean, Summary.tMedian, Summary.t95, Summary.t99, Summary.tWorst };
        return dTimes[std::ranges::find(FRAME_FIGURES, sFigure) - std::begin(FRAME_FIGURES)];
    }
}

std::string StatsFigures()
{
    return ListOf(FRAME_FIGURES) + " of frames, " + ListOf(TIMER_FIGURES) + " of a timer";
}

std::string ReadStatsLimit(std::string const & sText, StatsLimit_t & Limit)
{
    std::size_t const iTime = std::min(sText.rfind('='), sText.size());
    std::size_t const iFigure = std::min(sText.rfind('.', iTime), iTime);
    if (iFigure == 0 || iFigure == iTime || iTime == sText.size())
    {
        return sText + " is not a limit such as frame.p99=20ms";
    }
    Limit = { Printable(sText.substr(0, iFigure)), sText.substr(iFigure + 1, iTime - iFigure - 1),
        ReadTime(std::string_view(sText).substr(iTime + 1)) };
    bool const bFrame = Limit.sName == STATS_FRAME;
    if (bFrame ? std::ranges::count(FRAME_FIGURES, Limit.sFigure) == 0
               : std::ranges::count(TIMER_FIGURES, Limit.sFigure) == 0)
    {
        return sText + ": there is no " + Limit.sFigure
               + (bFrame ? " of frames, only " + ListOf(FRAME_FIGURES) : " of a timer, only " + ListOf(TIMER_FIGURES));
    }
    return Limit.tLimit < 0 ? sText + ": the limit is a number from 0 on with the unit s, ms or us" : "";
}

StatsMeasured_t MeasureStats(StatsLimit_t const & Limit, StatsTree_c const & Tree, double fTicksPerSecond)
{
    double const fMillisecondsOfTick = plat::MILLISECONDS_OF_SECOND / fTicksPerSecond;
    if (Limit.sName == STATS_FRAME)
    {
        return { true, FrameFigure(Tree.GetSummary(), Limit.sFigure) * fMillisecondsOfTick };
    }
    StatsMeasured_t Measured;
    std::vector<StatsAverage_t> const dAverages = Tree.GetAverages();
    for (std::size_t i = 1; i < dAverages.size(); ++i)   // the root is not timed
    {
        StatsNode_t const & Node = Tree.GetNodes()[i];
        if (Node.sName == Limit.sName)
        {
            double const tTime = Limit.sFigure == PEAK ? static_cast<double>(Node.tPeak) : dAverages[i].tTime;
            Measured = { true, std::max(Measured.tMilliseconds, tTime * fMillisecondsOfTick) };
        }
    }
    return Measured;
}
