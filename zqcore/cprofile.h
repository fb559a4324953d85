// cprofile.h: a tree of named timers for code that is driven by frames.
//
// Work is bracketed by ProfilerPush and ProfilerPop; each timer keeps a ring of the last 150 frames, and once a frame
// its average and peak are derived. With a stats file named, all timers are appended to it every 150 frames, beside the
// frame (docs/formats.md). The profiler is up from ModuleProfiler_c::Initialize to its Shutdown; otherwise the calls
// do nothing. All belong to one thread, which is not checked, and nothing is locked.
//
// A push and a pop cost two readings of the clock and about ten nanoseconds, whatever the number of siblings; a frame
// update a few nanoseconds a timer. Nothing is allocated but the write buffer of a stats file.
#pragma once

#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

class FileName_c;

/// Timers in all, the root among them, and entries of the stack. A push for which there is no room fails an assertion;
/// if that is ignored, the push and all pushes inside it are left out until its pop, and their time is its parent's.
inline constexpr int MAX_TIMERS_TOTAL = 512;
inline constexpr int MAX_TIMERS_INHERITED = 64;

/// Frames in the ring of a timer. All but the oldest are looked at for average and peak.
inline constexpr int PROFILER_FRAMES = 150;

/// Ids of timers. With the top bit a timer hangs directly under the root wherever it is pushed; without, under the
/// timer that was pushed last, so that one name under two parents is two timers.
inline constexpr std::uint32_t ZQ_TIMER_APPLICATION = 0x801003E6u;
inline constexpr std::uint32_t ZQ_TIMER_PROFILER_UPDATE_FRAME = 0x00100384u;
inline constexpr std::uint32_t ZQ_TIMER_FILETRACKER = 0x00100672u;

/// One frame of one timer. Times are ticks of shortTimeGet.
struct timerFrame_t
{
    std::int64_t tTime = 0;     // spent between push and pop
    std::uint32_t nCalls = 0;   // pops
    std::uint32_t nGap = 0;     // in the stats file too
};

/// A namespace, because POSIX has a timer_t of its own.
namespace profiler
{
    /// A timer. Its address is stable while the profiler is up; a reset makes it another timer. Hosts read. Order and
    /// alignment are those of a record of the stats file, as far as pointers of both sizes allow.
    struct timer_t
    {
        String_T<32> szName;   // the first 31 characters
        std::uint32_t iTimer = 0;
        std::uint32_t nAtMax = 0;                // calls in the frame of tMax, the most recent one if several had it
        alignas(8) timer_t * pChild = nullptr;   // first child
        alignas(8) std::int64_t tStart = 0;      // of the latest push
        timerFrame_t dFrames[PROFILER_FRAMES];
        std::int64_t tAverage = 0;            // per frame, frames without a call included
        std::int64_t tMax = 0;                // largest time of a frame
        std::int64_t tLast = 0;               // of the frame just ended
        std::int64_t tMaxEver = 0;            // largest tMax since the reset
        timer_t * pNext = nullptr;            // next sibling, in the order of their first pushes
        alignas(8) std::uint32_t nLast = 0;   // calls in the frame just ended
        std::int32_t iMaxSlot = -1;           // slot of the frame of tMax, -1 if no frame had a time above 0
    };
}

/// Ticks of the latest, and of the longest, ProfilerSwapStats of a frame update. No reset touches them.
extern ZQ_API std::int64_t g_tSwapLastTime;
extern ZQ_API std::int64_t g_tSwapMaxTime;

/// Pushes the timer with this id; the name is used only when that makes a new timer.
ZQ_API void ProfilerPush(std::uint32_t iTimer, char const * szName);

/// The same with the id of a name: its CRC-32 (ccrc.h) under two bits that say whether it hangs under the root. All
/// characters of the name count.
ZQ_API void ProfilerPush(char const * szName, bool bRoot);

/// Pops the timer that was pushed last, which must have this id; it is popped in any case. The root stays. A clock that
/// seems to have run backwards is taken to have wrapped at 2^31.
ZQ_API void ProfilerPop(std::uint32_t iTimer);
ZQ_API void ProfilerPop();

/// Push and pop ZQ_TIMER_APPLICATION, around a frame's work.
ZQ_API void ProfilerBeginFrame();
ZQ_API void ProfilerEndFrame();

/// Ends the frame: derives the figures and goes on to the next slot. With bTimeItself the update is a timer too, whose
/// time counts for the new frame.
ZQ_API void ProfilerUpdateFrame(bool bTimeItself);

/// Forgets all timers and frames at once, and whatever is pushed with them.
ZQ_API void ProfilerReset();

/// Asks for a reset at the end of the next ProfilerUpdateFrame, from any depth.
ZQ_API void ProfilerReload();

/// The root of the tree, or null while the profiler is down.
ZQ_API profiler::timer_t * ProfilerGetRoot();

/// The timer of this id that was made first, or null.
ZQ_API profiler::timer_t * ProfilerGetTimer(std::uint32_t iTimer);

/// The timer of a name, whole as it was pushed: first one that hangs under another, then one under the root; or null.
ZQ_API profiler::timer_t * ProfilerGetTimer(char const * szName);

/// Makes the stats file, in place of an old one, and writes its header. Any time, on the profiler's thread; a second
/// call ends the first file. A file that can't be made is logged, after FileOpenTracker's complaint, and it is as if
/// none had been named. An empty name does nothing. A forked process has no
/// stats file until it names one of its own.
ZQ_API void ProfilerInitSwapStats(FileName_c const & sName);

/// Whether the stats file of the latest ProfilerInitSwapStats could not be made, or lost a batch that could not be
/// written. Known for certain after ModuleProfiler_c's Shutdown, which waits for the last batch.
ZQ_API bool ProfilerSwapStatsFailed();

/// Appends all timers to the stats file, which ProfilerUpdateFrame does when the ring is full. Waits only for the
/// batch before, if the disk still has it. A batch that can't be written whole is logged and cut off the file: only it
/// is lost, and the next goes to its place. Nothing happens without a file or while the profiler is down.
ZQ_API void ProfilerSwapStats();

/// Called when a write to the stats file is done. An error is a precondition broken: the library deals with a failed
/// write itself and passes 0.
ZQ_API void ProfilerWriteComplete(std::uint32_t dwError, std::uint32_t nBytes, void * pRequest);

/// Brings the profiler up and down. Shutdown waits for the stats file and closes it; frames behind the last full ring
/// are not in it.
class ZQ_API ModuleProfiler_c : public Module_c
{
public:
    constexpr ModuleProfiler_c()
        : Module_c("ModuleProfiler_c")
    {}
    ~ModuleProfiler_c() override;

    /// The instance.
    static ModuleProfiler_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
    Module_c ** GetPrerequisites() const override;
};
