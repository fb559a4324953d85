// cprofile.h: a tree of named timers for code that is driven by frames.
//
// ProfilerPush and ProfilerPop enclose the code to be timed. ProfilerScope_c is both for a scope. Each timer keeps a
// ring of the last 150 frames. Once a frame ProfilerUpdateFrame derives its average and peak. Every 150 frames it
// appends all timers to the stats file, if one is named (docs/formats.md). The profiler runs from
// ModuleProfiler_c::Initialize to its Shutdown. At other times calls that return a timer return null, and all others do
// nothing, except ProfilerInitSwapStats, ProfilerSwapStatsFailed and ProfilerWriteComplete.
//
// Ownership: the profiler owns the timers, and a host only reads them. Requires that the host keeps no pointer to one
// beyond a reset or the shutdown.
// Threads: all calls belong to one thread. Nothing is locked or checked.
// Cost: a push and a pop read the clock twice and cost about 10 ns more, however many siblings a timer has. A frame
// update costs a few nanoseconds for each timer. A timer has 2.5 KB of static memory. Only ProfilerInitSwapStats
// allocates: the write buffer of the stats file, 1.3 MB, and spellings of its path. The system writes the stats file
// while the thread continues, if it can do that.
// Failure: misuse fails an assertion. A stats file that fails is logged (ProfilerSwapStatsFailed).
//
//     Module_c::Register(ModuleProfiler_c::Get());
//     Module_c::InitializeAllModules();
//     {
//         ProfilerFrameScope_c const Frame;
//         ProfilerScope_c const Timer("Physics");
//         longTimeWait(0.001);   // the work
//     }
//     ProfilerUpdateFrame(false);
//     Log("Physics took %lli ticks.", static_cast<long long>(ProfilerGetTimer("Physics")->tLast));
//     Module_c::ShutdownAllModules();
#pragma once

#include "zqcore/cfilename.h"
#include "zqcore/cmodule.h"
#include "zqcore/cstring.h"

/// Maximum number of timers and depth of the stack, the root included in both. A push without room fails an assertion.
/// If the developer continues, the push and all pushes inside it are skipped until its pop. Their time counts for the
/// parent.
inline constexpr int MAX_TIMERS_TOTAL = 512;
inline constexpr int MAX_TIMERS_INHERITED = 64;

/// Frames in the ring of a timer. Average and peak use all of them but the oldest.
inline constexpr int PROFILER_FRAMES = 150;

/// Identifiers of timers. If the top bit is set, the timer is a child of the root wherever it is pushed. Otherwise it
/// is a child of the timer on top of the stack, so one identifier under two parents is two timers.
inline constexpr std::uint32_t ZQ_TIMER_ROOT = 0x80000000u;   // the top bit alone
inline constexpr std::uint32_t ZQ_TIMER_APPLICATION = 0x801003E6u;
inline constexpr std::uint32_t ZQ_TIMER_PROFILER_UPDATE_FRAME = 0x00100384u;
inline constexpr std::uint32_t ZQ_TIMER_FILETRACKER = 0x00100672u;

/// One frame of one timer. Times are ticks of shortTimeGet.
struct timerFrame_t
{
    std::int64_t tTime = 0;     // time between push and pop
    std::uint32_t nCalls = 0;   // number of pops
    std::uint32_t nGap = 0;     // padding, in the stats file too
};

/// A namespace, because POSIX has a timer_t of its own.
namespace profiler
{
    /// A timer, for hosts to read. Its address is valid until the profiler shuts down. After a reset it may belong to
    /// another timer. Times are ticks of shortTimeGet. Order and alignment of the fields are those of a record in the
    /// stats file, as far as pointers of both sizes allow.
    struct timer_t
    {
        String_T<32> szName;                     // the first 31 characters
        std::uint32_t iTimer = 0;                // identifier as pushed, or one made of the name
        std::uint32_t nAtMax = 0;                // calls in the frame of tMax, the most recent one of several
        alignas(8) timer_t * pChild = nullptr;   // first child
        alignas(8) std::int64_t tStart = 0;      // time of the latest push
        timerFrame_t dFrames[PROFILER_FRAMES];   // ring of the latest frames
        std::int64_t tAverage = 0;               // per frame, frames without a call included
        std::int64_t tMax = 0;                   // largest time of a frame
        std::int64_t tLast = 0;                  // time of the frame just ended
        std::int64_t tMaxEver = 0;               // largest tMax since the reset
        timer_t * pNext = nullptr;               // next sibling, in the order of first pushes
        alignas(8) std::uint32_t nLast = 0;      // calls in the frame just ended
        std::int32_t iMaxSlot = -1;              // slot of the frame of tMax, -1 if no frame had a time above 0
    };
}

/// Ticks that the latest, and the longest, ProfilerSwapStats of a frame update took. No reset clears them.
extern ZQ_API std::int64_t g_tSwapLastTime;
extern ZQ_API std::int64_t g_tSwapMaxTime;

/// Pushes the timer with this identifier. The name is used only if the push makes a new timer. Its first 31 characters
/// are kept.
ZQ_API void ProfilerPush(std::uint32_t iTimer, char const * szName);

/// Pushes the timer of a name, as a child of the root if bRoot is set. The identifier is the CRC-32 (ccrc.h) of the
/// whole name, its top two bits replaced: bRoot, then 1. Asserts that the name is not null.
ZQ_API void ProfilerPush(char const * szName, bool bRoot = false);

/// Pop the timer that was pushed last. If the clock seems to run backwards, it counts as wrapped at 2^31. Assert that
/// there is a timer besides the root. The first function also asserts that the timer has this identifier, but pops it
/// in any case.
ZQ_API void ProfilerPop(std::uint32_t iTimer);
ZQ_API void ProfilerPop();

/// Push and pop ZQ_TIMER_APPLICATION. They enclose the work of a frame.
ZQ_API void ProfilerBeginFrame();
ZQ_API void ProfilerEndFrame();

/// Scope in which a timer runs. Pushes it as ProfilerPush does, and pops it at the end. Requires that each push inside
/// has its pop inside. Asserts at the end that no reset ran inside.
class ProfilerScope_c
{
public:
    /// Push the timer, as the ProfilerPush of the same parameters does.
    explicit ProfilerScope_c(char const * szName, bool bRoot = false)
        : m_bById(false)
        , m_iTimer(0)
    {
        ProfilerPush(szName, bRoot);
    }
    ProfilerScope_c(std::uint32_t iTimer, char const * szName)
        : m_bById(true)
        , m_iTimer(iTimer)
    {
        ProfilerPush(iTimer, szName);
    }
    ~ProfilerScope_c()
    {
        if (m_bById)
        {
            ProfilerPop(m_iTimer);
        }
        else
        {
            ProfilerPop();
        }
    }
    ProfilerScope_c(ProfilerScope_c const &) = delete;
    ProfilerScope_c & operator=(ProfilerScope_c const &) = delete;

private:
    bool const m_bById;
    std::uint32_t const m_iTimer;
};

/// Scope of the work of a frame: calls ProfilerBeginFrame, and ProfilerEndFrame at the end.
class ProfilerFrameScope_c
{
public:
    ProfilerFrameScope_c() { ProfilerBeginFrame(); }
    ~ProfilerFrameScope_c() { ProfilerEndFrame(); }
    ProfilerFrameScope_c(ProfilerFrameScope_c const &) = delete;
    ProfilerFrameScope_c & operator=(ProfilerFrameScope_c const &) = delete;
};

/// Ends the frame: derives the figures and moves to the next slot. With bTimeItself the update is a timer too, whose
/// time counts for the new frame.
ZQ_API void ProfilerUpdateFrame(bool bTimeItself);

/// Discards all timers, all frames and the stack at once.
ZQ_API void ProfilerReset();

/// Requests a reset at the end of the next ProfilerUpdateFrame. It may be called at any depth.
ZQ_API void ProfilerReload();

/// Returns the root of the tree, or null while the profiler is down.
ZQ_API profiler::timer_t * ProfilerGetRoot();

/// Returns the timer of this identifier that was made first, or null.
ZQ_API profiler::timer_t * ProfilerGetTimer(std::uint32_t iTimer);

/// Returns the timer of a name, given whole as it was pushed, or null. Looks first for one that was pushed without
/// bRoot, then for one under the root. Asserts that the name is not null.
ZQ_API profiler::timer_t * ProfilerGetTimer(char const * szName);

/// Creates the stats file, replacing an old one, and writes its header. It may be called at any time on the profiler's
/// thread. A path (char const *) converts to FileName_c.
/// - A second call ends the first file. An empty name does nothing.
/// - If the file can't be created, FileOpenTracker (cfilelog.h) complains unless it excepts the name, and a line is
///   logged. If the header can't be written, lines are logged. In both cases there is no stats file.
/// - A forked child has no stats file until it names its own.
ZQ_API void ProfilerInitSwapStats(FileName_c const & sName);

/// Returns whether the stats file of the latest ProfilerInitSwapStats has failed. The answer is final after
/// ModuleProfiler_c's Shutdown, which waits for the last batch. These failures count:
/// - the file can't be created.
/// - its header or a batch can't be written.
/// - its close fails.
ZQ_API bool ProfilerSwapStatsFailed();

/// Appends all timers to the stats file. ProfilerUpdateFrame calls it when the ring is full. Waits for the previous
/// batch, if the disk is still writing it, and for its own only on a system without asynchronous writes. A batch that
/// can't be written whole is logged and cut off the file: only this batch is lost. The next one is written in its
/// place. Does nothing without a file or while the profiler is down.
ZQ_API void ProfilerSwapStats();

/// Subtracts nBytes from the number of bytes of the stats file that are not yet known to be written. Ignores pRequest.
/// The library calls it after each write that succeeded, and after no other. Asserts that dwError is 0.
ZQ_API void ProfilerWriteComplete(std::uint32_t dwError, std::uint32_t nBytes, void * pRequest);

/// Module of the profiler. It depends on ModuleTimer_c. Its Shutdown waits for the stats file and closes it. The file
/// lacks the frames after the last full ring.
class ZQ_API ModuleProfiler_c : public Module_c
{
public:
    constexpr ModuleProfiler_c()
        : Module_c("ModuleProfiler_c")
    {}
    ~ModuleProfiler_c() override;

    /// Returns the only instance.
    static ModuleProfiler_c * Get();

protected:
    bool Initialize() override;
    void Shutdown() override;
    Module_c ** GetPrerequisites() const override;
};
