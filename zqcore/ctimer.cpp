#include "zqcore/ctimer.h"

#include "platform/clock.h"

namespace
{
    constexpr unsigned COARSE_PERIOD = 1;   // milliseconds requested of the coarse clock
    constexpr std::uint32_t MEASURE_MILLISECONDS = 1000;

    // The main thread writes these, in ModuleTimer_c::Initialize and at the first calls of longTimeGetPassed and
    // shortTimeGetSec.
    bool g_bHighResolution = false;
    std::int64_t g_nFrequency = 0;   // ticks of the good clock in a second
    bool g_bStarted = false;
    double g_tStart = 0.0;   // long time from which longTimeGetPassed counts
    std::int64_t g_nCyclesPerSecond = 0;

    constinit ModuleTimer_c g_ModuleTimer;
}

double (*Game_longTimeGet)() = longTimeGet;

double longTimeGet()
{
    if (g_bHighResolution)
    {
        return static_cast<double>(plat::GoodClockTicks()) / static_cast<double>(g_nFrequency);
    }
    return plat::CoarseClockMilliseconds() / 1000.0;
}

double longTimeGetPassed()
{
    if (!g_bStarted)
    {
        g_bStarted = true;
        g_tStart = longTimeGet();
    }
    return longTimeGet() - g_tStart;
}

double longTimeWait(double tSeconds)
{
    double const tEnd = longTimeGet() + tSeconds;
    while (longTimeGet() < tEnd)
    {}
    return tSeconds;
}

std::int64_t shortTimeGet()
{
    return plat::CycleCounter();
}

std::int64_t shortTimeGetSec()
{
    if (g_nCyclesPerSecond == 0)
    {
        std::uint32_t const tBefore = plat::CoarseClockMilliseconds();
        std::uint32_t tStart = tBefore;
        while (tStart == tBefore)   // begin at a tick of the clock
        {
            tStart = plat::CoarseClockMilliseconds();
        }
        std::int64_t const nStart = shortTimeGet();
        while (plat::CoarseClockMilliseconds() - tStart < MEASURE_MILLISECONDS)
        {}
        g_nCyclesPerSecond = shortTimeGet() - nStart;
    }
    return g_nCyclesPerSecond;
}

std::int64_t shortTimeWait(std::int64_t nCycles)
{
    std::int64_t const nStart = shortTimeGet();
    while (shortTimeGet() - nStart < nCycles)
    {}
    return nCycles;
}

ModuleTimer_c * ModuleTimer_c::Get()
{
    return &g_ModuleTimer;
}

bool ModuleTimer_c::Initialize()
{
    double const tPassed = longTimeGetPassed();
    std::int64_t const nFrequency = plat::GoodClockFrequency();
    if (nFrequency != 0)
    {
        g_nFrequency = nFrequency;
        g_bHighResolution = true;
        g_tStart = longTimeGet() - tPassed;
    }
    else
    {
        bool const bRaised = plat::CoarseClockRaise(COARSE_PERIOD);
        ZQ_ASSERT_TEXT(bRaised, "result == TIMERR_NOERROR");
        g_bHighResolution = false;
    }
    return Module_c::Initialize();
}

void ModuleTimer_c::Shutdown()
{
    Module_c::Shutdown();
    plat::CoarseClockLower(COARSE_PERIOD);
}
