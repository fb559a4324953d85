#include "loop.h"

#include "settings.h"
#include "survey.h"
#include "watch.h"

#include "zqcore/capp.h"
#include "zqcore/ccallback.h"
#include "zqcore/clog.h"
#include "zqcore/cmemoryreport.h"
#include "zqcore/cmodule.h"
#include "zqcore/cprofile.h"
#include "zqcore/csimpleprofile.h"
#include "zqcore/ctimer.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace
{
    constexpr auto IDLE_NAP = std::chrono::microseconds(500);

    void Idle(FrameStats_t & Stats)
    {
        Module_c::HeartbeatAllModulesIdle();
        ++Stats.nIdle;
        std::this_thread::sleep_for(IDLE_NAP);
    }

    // A kind of work, which both profilers measure while the object lives.
    class Work_c
    {
    public:
        Work_c(char const * szName, SimpleProfileType_e eType)
            : m_Timer(szName)
            , m_Kind(SIMPLE_PROFILE_CONTEXT_CURRENT, eType)
        {}

    private:
        ProfilerScope_c const m_Timer;
        SimpleProfileScope_c const m_Kind;
    };

    // Runs one frame, tDelta seconds after the previous one.
    void RunFrame(double tDelta, Survey_c & Survey)
    {
        ProfilerFrameScope_c const Application;
        {
            // A host with windows passes on each message of the system. The entropy pool needs the time at which each
            // arrives.
            Work_c const Work("Messages", SIMPLE_TIMER_CLIENT_DISPATCHMSG);
            g_ApplicationMessages.Fire(MessageData_s{}, false);
        }
        {
            Work_c const Work("Modules", SIMPLE_TIMER_SERVER_WORLDUPDATE);
            Module_c::HeartbeatAllModulesFrame(tDelta);
        }
        {
            Work_c const Work("Streaming", SIMPLE_TIMER_CLIENT_WORLDUPDATE);
            Survey.StreamFiles(ModuleSettings_c::Get()->m_nStream);
        }
        MemoryResetFrameAllocCount();
        // The worker (cfileasync.h) may log at the same time.
        std::atomic_ref(g_iLogFrameCounter).fetch_add(1, std::memory_order_relaxed);
    }

    void CloseFrame()
    {
        ProfilerUpdateFrame(true);
        for (int i = 0; i < SIMPLE_PROFILE_CONTEXT_TOTAL; ++i)
        {
            SimpleProfileReset(static_cast<SimpleProfileContext_e>(i));
        }
    }

    // Adds a frame of tTaken seconds to the figures.
    void Count(FrameStats_t & Stats, double tTaken)
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

FrameStats_t LoopRun(int nFrames, Survey_c & Survey)
{
    double const tFrame = 1.0 / ModuleSettings_c::Get()->m_nRate;
    FrameStats_t Stats;
    MemoryResetFrameAllocCount();   // allocations before the first frame do not count
    while (nFrames == FRAMES_UNTIL_OVER ? !Watch_c::CheckForEnd() : Stats.nFrames < nFrames)
    {
        double const tDelta = AppGetDeltaTime(tFrame);
        if (tDelta == 0.0)
        {
            Idle(Stats);
            continue;
        }
        double const tStart = longTimeGet();
        RunFrame(tDelta, Survey);
        Count(Stats, longTimeGet() - tStart);
        CloseFrame();
    }
    return Stats;
}
