#include "loop.h"

#include "settings.h"
#include "survey.h"

#include "zqcore/capp.h"
#include "zqcore/ccallback.h"
#include "zqcore/clog.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cmodule.h"
#include "zqcore/ctimer.h"

#include <chrono>
#include <thread>

namespace
{
    constexpr auto IDLE_NAP = std::chrono::microseconds(500);

    void Idle(FrameStats_s & Stats)
    {
        Module_c::HeartbeatAllModulesIdle();
        ++Stats.nIdle;
        std::this_thread::sleep_for(IDLE_NAP);
    }

    void Frame(double dt, Survey_c & Survey)
    {
        // A windowed host passes each message of the system on; the entropy pool lives on their moments.
        g_ApplicationMessages.Fire(MessageData_s{}, false);
        Module_c::HeartbeatAllModulesFrame(dt);
        Survey.StreamFiles(ModuleSettings_c::Get()->m_nStream);
        MemoryResetFrameAllocCount();
        ++g_iLogFrameCounter;
    }

    void Count(FrameStats_s & Stats, double tTaken)
    {
        Stats.tTotal += tTaken;
        if (tTaken > Stats.tWorst)
        {
            Stats.tWorst = tTaken;
            Stats.iWorstFrame = Stats.nFrames;
        }
        if (MemoryGetFrameAllocCount() > Stats.nMostAllocs)
        {
            Stats.nMostAllocs = MemoryGetFrameAllocCount();
        }
        ++Stats.nFrames;
    }
}

FrameStats_s LoopRun(int nFrames, Survey_c & Survey)
{
    double const tFrame = 1.0 / ModuleSettings_c::Get()->m_nRate;
    FrameStats_s Stats;
    MemoryResetFrameAllocCount();   // what came before is no frame's
    while (Stats.nFrames < nFrames)
    {
        double const dt = AppGetDeltaTime(tFrame);
        if (dt == 0.0)
        {
            Idle(Stats);
            continue;
        }
        double const tStart = longTimeGet();
        Frame(dt, Survey);
        Count(Stats, longTimeGet() - tStart);
    }
    return Stats;
}
