#include "tools/zqtool/statstrace.h"

#include "platform/clock.h"
#include "tools/zqtool/statstree.h"
#include "tools/zqtool/text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace
{
    constexpr double LAST_MOMENT = 9e18;   // in nanoseconds; below the limit of long long

    std::string Microseconds(long long tNanoseconds)
    {
        char szTime[32];
        std::snprintf(szTime, sizeof szTime, "%lld.%03lld", tNanoseconds / 1000, tNanoseconds % 1000);
        return szTime;
    }
}

StatsTrace_c::StatsTrace_c(std::ostream & Stream, double fTicksPerSecond)
    : m_Stream(Stream)
    , m_fNanosecondsPerTick(plat::NANOSECONDS_OF_SECOND / fTicksPerSecond)
{
    m_Stream << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n"
                "{\"ph\":\"M\",\"pid\":1,\"tid\":1,\"name\":\"thread_name\",\"args\":{\"name\":\"Frames\"}}";
}

// Writes an event, with its start and size in ticks. Rounds its start and its end to nanoseconds and writes their
// difference, so events nest exactly like their ticks.
void StatsTrace_c::AddEvent(std::string const & sName, double tStart, double tSize, std::string const & sArguments)
{
    auto const fnRound = [&](double tAt) { return std::llround(std::min(tAt * m_fNanosecondsPerTick, LAST_MOMENT)); };
    long long const tFrom = fnRound(tStart), tTo = fnRound(tStart + tSize);
    m_Stream << ",\n{\"ph\":\"X\",\"pid\":1,\"tid\":1,\"name\":" << JsonQuoted(sName)
             << ",\"ts\":" << Microseconds(tFrom) << ",\"dur\":" << Microseconds(tTo - tFrom) << ",\"args\":{"
             << sArguments << "}}";
}

void StatsTrace_c::AddFrame(StatsBatch_t const & Batch, std::vector<std::size_t> const & dOrder,
    std::vector<int> const & dParents, std::size_t iSlot)
{
    std::vector<double> dSizes, dStarts;
    for (StatsTimer_t const & Timer : Batch)
    {
        dSizes.push_back(static_cast<double>(Timer.dSlots[iSlot].tTime));
    }
    LayOutTree(dParents, dSizes, dStarts);
    AddEvent("Frame " + std::to_string(m_iFrame), m_tFrame, dSizes[0], "\"frame\":" + std::to_string(m_iFrame));
    for (std::size_t const i : dOrder)
    {
        auto const & [tTime, nCalls] = Batch[i].dSlots[iSlot];
        if (i > 0 && (dSizes[i] > 0 || nCalls > 0))
        {
            AddEvent(Batch[i].sName, m_tFrame + dStarts[i], dSizes[i],
                "\"calls\":" + std::to_string(nCalls) + ",\"ticks\":" + std::to_string(tTime));
        }
    }
    m_tFrame += dSizes[0];
    ++m_iFrame;
}

void StatsTrace_c::Add(StatsBatch_t const & Batch)
{
    std::vector<int> dParents;
    std::transform(Batch.begin(), Batch.end(), std::back_inserter(dParents),
        [](StatsTimer_t const & Timer) { return Timer.iParent; });
    std::vector<std::size_t> const dOrder = DepthFirst(dParents);
    for (std::size_t i = 0; i < STATS_FRAMES; ++i)
    {
        AddFrame(Batch, dOrder, dParents, i);
    }
}

void StatsTrace_c::Finish()
{
    m_Stream << "\n]}\n";
}
