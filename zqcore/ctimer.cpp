#include "zqcore/ctimer.h"

#include "zqcore/cdebug.h"

#include "platform/clock.h"

#include <atomic>

namespace
{
    constexpr unsigned COARSE_PERIOD = 1;   // milliseconds requested of the coarse clock
    constexpr std::uint32_t MEASURE_MILLISECONDS = plat::MILLISECONDS_OF_SECOND;

    // A clock of the long time.
    struct LongClock_s
    {
        std::int64_t nFrequency = 0;   // ticks of the good clock in a second; 0 for the coarse clock
        double tStart = 0.0;           // time in seconds from which longTimeGetPassed counts

        double Now() const
        {
            return nFrequency != 0 ? static_cast<double>(plat::GoodClockTicks()) / static_cast<double>(nFrequency)
                                   : plat::CoarseClockMilliseconds() / double{ plat::MILLISECONDS_OF_SECOND };
        }
    };

    // The main thread writes these, in ModuleTimer_c::Initialize and at the first calls of longTimeGetPassed and
    // shortTimeGetSec. After the first call of longTimeGetPassed, a clock to which g_pClock points does not change, so
    // other threads may read it.
    constinit LongClock_s g_CoarseClock, g_GoodClock;
    constinit std::atomic<LongClock_s const *> g_pClock = &g_CoarseClock;
    bool g_bStarted = false;
    std::int64_t g_nCyclesPerSecond = 0;

    constinit ModuleTimer_c g_ModuleTimer;

    // Waits for a second and returns the ticks of the cycle counter in it.
    std::int64_t MeasureCyclesPerSecond()
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
        return shortTimeGet() - nStart;
    }
}

double (*Game_longTimeGet)() = longTimeGet;

double longTimeGet()
{
    return g_pClock.load(std::memory_order_acquire)->Now();
}

double longTimeGetPassed()
{
    if (!g_bStarted)
    {
        g_bStarted = true;
        g_CoarseClock.tStart = g_CoarseClock.Now();
    }
    LongClock_s const & Clock = *g_pClock.load(std::memory_order_acquire);
    return Clock.Now() - Clock.tStart;
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
        g_nCyclesPerSecond = MeasureCyclesPerSecond();
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
    if (nFrequency == 0)
    {
        bool const bRaised = plat::CoarseClockRaise(COARSE_PERIOD);
        ZQ_ASSERT_TEXT(bRaised, "result == TIMERR_NOERROR");
    }
    else if (g_GoodClock.nFrequency == 0)
    {
        g_GoodClock.nFrequency = nFrequency;
        g_GoodClock.tStart = g_GoodClock.Now() - tPassed;
        g_pClock.store(&g_GoodClock, std::memory_order_release);
    }
    return Module_c::Initialize();
}

void ModuleTimer_c::Shutdown()
{
    Module_c::Shutdown();
    plat::CoarseClockLower(COARSE_PERIOD);
}
