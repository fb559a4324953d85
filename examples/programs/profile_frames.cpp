// Times its frames, and writes the timers of each frame for `zqtool stats`: profile_frames [FILE]
#include "zqcore/cprofile.h"
#include "zqcore/ctimer.h"

#include <cstdio>

namespace
{
    void Work(char const * szTimer, double tSeconds)
    {
        ProfilerScope_c const Timer(szTimer);
        longTimeWait(tSeconds);   // instead of the work
    }
}

int main(int nArguments, char ** dArguments)
{
    Module_c::Register(ModuleTimer_c::Get());
    Module_c::Register(ModuleProfiler_c::Get());
    if (!Module_c::InitializeAllModules())
    {
        return 1;
    }
    ProfilerInitSwapStats(nArguments > 1 ? dArguments[1] : "frames.stats");
    for (int iFrame = 0; iFrame < 2 * PROFILER_FRAMES; ++iFrame)   // the file gets whole rings only
    {
        {
            ProfilerFrameScope_c const Frame;
            Work("Physics", iFrame == 100 ? 0.005 : 0.0001);   // one frame is slow
            Work("Sound", 0.00005);
        }
        ProfilerUpdateFrame(false);
    }
    profiler::timer_t const * const pPhysics = ProfilerGetTimer("Physics");
    std::printf("Physics: %u call in the last frame\n", static_cast<unsigned>(pPhysics->nLast));
    Module_c::ShutdownAllModules();                                          // waits for the file
    return !ProfilerSwapStatsFailed() && std::fflush(stdout) == 0 ? 0 : 1;   // fails too if the output is lost
}
