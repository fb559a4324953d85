#include "zqcore/cprofile.h"

#include "zqcore/ccrc_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/cprofile_internal.h"
#include "zqcore/ctimer.h"

#include <algorithm>

bool g_bProfilerInit = false;
int g_iTimerStackTop = 0;
int g_iTimerTotalCount = 0;
std::int64_t g_tSwapLastTime = 0;
std::int64_t g_tSwapMaxTime = 0;

namespace
{
    using profiler::timer_t;

    constexpr std::uint32_t ID_UNDER_ROOT = ZQ_TIMER_ROOT;   // the bit of children of the root
    constexpr std::uint32_t ID_OF_NAME = 0x40000000u;        // the bit of identifiers made of names
    constexpr std::uint32_t ID_HASH_MASK = 0x3FFFFFFFu;
    constexpr int FRAMES_AVERAGED = PROFILER_FRAMES - 1;
    constexpr std::int64_t CLOCK_WRAP = 0x80000000;   // ticks to add if a time seems to run backwards
    constexpr int LOOKUP_BITS = 10;
    constexpr unsigned LOOKUP_SLOTS = 1u << LOOKUP_BITS;
    static_assert(LOOKUP_SLOTS >= 2 * MAX_TIMERS_TOTAL);

    // Records of the timers, zero at load, so a process that profiles nothing never touches these pages.
    union Records_u
    {
        char cNone;
        timer_t dTimers[MAX_TIMERS_TOTAL];

        constexpr Records_u()
            : cNone(0)
        {}
        ~Records_u() {}
    };
    constinit Records_u g_Records;

    // State of a timer that is not part of its record.
    struct State_s
    {
        std::uint64_t tSum = 0;   // time of the frames that average and peak use
        timer_t * pParent = nullptr;
        timer_t * pLastChild = nullptr;
    };
    constinit State_s g_dStates[MAX_TIMERS_TOTAL];

    // Indices of records by parent and identifier. 0 is free, because the root is no child.
    constinit std::uint16_t g_dLookup[LOOKUP_SLOTS] = {};

    timer_t * g_dStack[MAX_TIMERS_INHERITED];
    int g_nDropped = 0;          // open pushes that found no room, with those inside them
    std::int64_t g_nFrame = 0;   // frames since the reset
    int g_iRing = 0;             // current slot: g_nFrame modulo PROFILER_FRAMES
    bool g_bReload = false;      // whether the next update ends with a reset

    constinit ModuleProfiler_c g_ModuleProfiler;

    State_s & StateOf(timer_t const * pTimer)
    {
        return g_dStates[pTimer - g_Records.dTimers];
    }

    std::uint32_t IdOfName(char const * szName, std::uint32_t dwUnderRoot)
    {
        auto const dwHash = Crc32OfText(szName);
        return dwUnderRoot | ID_OF_NAME | (dwHash & ID_HASH_MASK);
    }

    unsigned LookupSlot(timer_t const * pParent, std::uint32_t iTimer)
    {
        constexpr std::uint32_t GOLDEN = 0x9E3779B1u;   // prime near 2^32 over the golden ratio (Knuth, TAOCP 3, 6.4)
        auto const nParent = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pParent) >> 3);
        return ((nParent * GOLDEN ^ iTimer) * GOLDEN) >> (32 - LOOKUP_BITS);
    }

    // Returns the parent's child of this identifier, or null. Sets iSlot to the child's place in the lookup, or to the
    // free place where it belongs.
    timer_t * FindChild(timer_t const * pParent, std::uint32_t iTimer, unsigned & iSlot)
    {
        for (iSlot = LookupSlot(pParent, iTimer); g_dLookup[iSlot] != 0; iSlot = (iSlot + 1) % LOOKUP_SLOTS)
        {
            timer_t & Timer = g_Records.dTimers[g_dLookup[iSlot]];
            if (Timer.iTimer == iTimer && g_dStates[g_dLookup[iSlot]].pParent == pParent)
            {
                return &Timer;
            }
        }
        return nullptr;
    }

    timer_t * AddRecord(std::uint32_t iTimer, char const * szName)
    {
        timer_t & Timer = g_Records.dTimers[g_iTimerTotalCount++];
        Timer.szName = szName;
        Timer.iTimer = iTimer;
        Timer.iMaxSlot = -1;
        return &Timer;
    }

    // Makes the last child of the parent and returns it. Asserts that a record is free, and returns null otherwise.
    ZQ_COLD timer_t * MakeChild(timer_t * pParent, std::uint32_t iTimer, char const * szName, unsigned iSlot)
    {
        bool const bRoom = g_iTimerTotalCount < MAX_TIMERS_TOTAL;
        ZQ_ASSERT_TEXT(bRoom, "g_iTimerTotalCount < MAX_TIMERS_TOTAL");
        if (!bRoom)
        {
            return nullptr;
        }
        g_dLookup[iSlot] = static_cast<std::uint16_t>(g_iTimerTotalCount);
        timer_t * const pTimer = AddRecord(iTimer, szName);
        State_s & Parent = StateOf(pParent);
        timer_t *& pLink = Parent.pLastChild ? Parent.pLastChild->pNext : pParent->pChild;
        pLink = pTimer;
        Parent.pLastChild = pTimer;
        StateOf(pTimer).pParent = pParent;
        return pTimer;
    }

    // Skips a push. Asserts that the stack has room, unless the push is inside a skipped one.
    ZQ_COLD void Drop()
    {
        ZQ_ASSERT_TEXT(
            g_nDropped > 0 || g_iTimerStackTop < MAX_TIMERS_INHERITED, "g_iTimerStackTop < MAX_TIMERS_INHERITED");
        ++g_nDropped;
    }

    void Push(std::uint32_t iTimer, char const * szName)
    {
        if (g_nDropped > 0) [[unlikely]]
        {
            return Drop();
        }
        timer_t * const pParent = iTimer & ID_UNDER_ROOT ? g_Records.dTimers : g_dStack[g_iTimerStackTop - 1];
        unsigned iSlot;
        timer_t * pTimer = FindChild(pParent, iTimer, iSlot);
        if (!pTimer) [[unlikely]]
        {
            pTimer = MakeChild(pParent, iTimer, szName, iSlot);
        }
        if (!pTimer || g_iTimerStackTop >= MAX_TIMERS_INHERITED) [[unlikely]]
        {
            return Drop();
        }
        g_dStack[g_iTimerStackTop++] = pTimer;
        pTimer->tStart = shortTimeGet();
    }

    // Begins a pop and returns the timer to pop. If the latest open push was skipped, ends that push and returns null.
    // Asserts that there is a timer besides the root, and returns null otherwise.
    timer_t * BeginPop()
    {
        if (g_nDropped > 0) [[unlikely]]
        {
            --g_nDropped;
            return nullptr;
        }
        ZQ_ASSERT(g_iTimerStackTop > 1);
        return g_iTimerStackTop > 1 ? g_dStack[g_iTimerStackTop - 1] : nullptr;
    }

    void Pop(timer_t & Timer)
    {
        std::int64_t tNow = shortTimeGet();
        if (tNow < Timer.tStart) [[unlikely]]
        {
            tNow += CLOCK_WRAP;
        }
        --g_iTimerStackTop;
        timerFrame_t & Frame = Timer.dFrames[g_iRing];
        Frame.tTime += tNow - Timer.tStart;
        ++Frame.nCalls;
    }

    // Finds the peak of all frames but the oldest, which is about to be overwritten. Reads older frames first, so of
    // equal peaks the most recent one is kept.
    void FindPeak(timer_t & Timer, int iOldest)
    {
        std::int64_t tBest = 1;
        int iBest = -1;
        auto const Scan = [&](int iFrom, int iTo)
        {
            for (int i = iFrom; i < iTo; ++i)
            {
                bool const bBetter = Timer.dFrames[i].tTime >= tBest;
                tBest = bBetter ? Timer.dFrames[i].tTime : tBest;
                iBest = bBetter ? i : iBest;
            }
        };
        Scan(iOldest + 1, PROFILER_FRAMES);
        Scan(0, iOldest);
        Timer.iMaxSlot = iBest;
        Timer.tMax = iBest >= 0 ? tBest : 0;
        Timer.nAtMax = iBest >= 0 ? Timer.dFrames[iBest].nCalls : 0;
    }

    // Adds the new frame to the sum and removes the oldest. Searches the peak again only when its frame is removed.
    // Slots that no frame has used yet are zero, so they change neither sum nor peak.
    void Derive(timer_t & Timer, State_s & State, int iOldest, std::int64_t nAveraged)
    {
        timerFrame_t const & Frame = Timer.dFrames[g_iRing];
        State.tSum += static_cast<std::uint64_t>(Frame.tTime);
        State.tSum -= static_cast<std::uint64_t>(Timer.dFrames[iOldest].tTime);
        Timer.tAverage = State.tSum == 0 ? 0 : static_cast<std::int64_t>(State.tSum) / nAveraged;
        if (Frame.tTime > 0 && Frame.tTime >= Timer.tMax)
        {
            Timer.tMax = Frame.tTime;
            Timer.nAtMax = Frame.nCalls;
            Timer.iMaxSlot = g_iRing;
        }
        else if (Timer.iMaxSlot == iOldest)
        {
            FindPeak(Timer, iOldest);
        }
        Timer.tMaxEver = std::max(Timer.tMaxEver, Timer.tMax);
        Timer.tLast = Frame.tTime;
        Timer.nLast = Frame.nCalls;
    }

    void DeriveAll()
    {
        int const iOldest = (g_iRing + 1) % PROFILER_FRAMES;
        auto const nAveraged = std::min<std::int64_t>(g_nFrame + 1, FRAMES_AVERAGED);
        for (int i = 0; i < g_iTimerTotalCount; ++i)
        {
            Derive(g_Records.dTimers[i], g_dStates[i], iOldest, nAveraged);
        }
    }

    void SwapTimed()
    {
        std::int64_t const tStart = shortTimeGet();
        ProfilerSwapStats();
        g_tSwapLastTime = shortTimeGet() - tStart;
        g_tSwapMaxTime = std::max(g_tSwapMaxTime, g_tSwapLastTime);
    }

    void MoveToNextSlot()
    {
        ++g_nFrame;
        if (++g_iRing == PROFILER_FRAMES)
        {
            g_iRing = 0;   // before the swap: a listener of its log lines may push and pop
            if (ProfilerHasStats())
            {
                SwapTimed();
            }
        }
        for (int i = 0; i < g_iTimerTotalCount; ++i)
        {
            g_Records.dTimers[i].dFrames[g_iRing] = {};
        }
    }

    // Discards all timers. Records that were never in use are zero already.
    void ForgetTimers()
    {
        std::memset(
            static_cast<void *>(g_Records.dTimers), 0, static_cast<std::size_t>(g_iTimerTotalCount) * sizeof(timer_t));
        std::fill_n(g_dStates, g_iTimerTotalCount, State_s());
        std::fill(std::begin(g_dLookup), std::end(g_dLookup), std::uint16_t{ 0 });
        g_iTimerStackTop = 0;
        g_iTimerTotalCount = 0;
        g_nDropped = 0;
    }
}

profiler::timer_t * ProfilerTimers()
{
    return g_Records.dTimers;
}

void ProfilerPush(std::uint32_t iTimer, char const * szName)
{
    if (g_bProfilerInit)
    {
        Push(iTimer, szName);
    }
}

void ProfilerPush(char const * szName, bool bRoot)
{
    if (g_bProfilerInit)
    {
        ZQ_ASSERT(szName);
        Push(IdOfName(szName ? szName : "", bRoot ? ID_UNDER_ROOT : 0), szName);
    }
}

void ProfilerPop(std::uint32_t iTimer)
{
    profiler::timer_t * const pTop = g_bProfilerInit ? BeginPop() : nullptr;
    if (pTop)
    {
        ZQ_ASSERT_TEXT(pTop->iTimer == iTimer, "pTop->iTimer==_iTimer");
        Pop(*pTop);
    }
}

void ProfilerPop()
{
    profiler::timer_t * const pTop = g_bProfilerInit ? BeginPop() : nullptr;
    if (pTop)
    {
        Pop(*pTop);
    }
}

int ProfilerDepth()
{
    return g_iTimerStackTop + g_nDropped;
}

int ProfilerOpenTimers(char const ** dNames, int nMost)
{
    int const nOpen = std::clamp(g_iTimerStackTop - 1, 0, nMost);
    for (int i = 0; i < nOpen; ++i)
    {
        dNames[i] = g_dStack[i + 1]->szName;
    }
    return nOpen;
}

void ProfilerPopTo(int nDepth)
{
    for (int nLeft = ProfilerDepth() - std::max(nDepth, 1); nLeft > 0; --nLeft)
    {
        ProfilerPop();
    }
}

void ProfilerBeginFrame()
{
    ProfilerPush(ZQ_TIMER_APPLICATION, "Application");
}

void ProfilerEndFrame()
{
    ProfilerPop(ZQ_TIMER_APPLICATION);
}

void ProfilerUpdateFrame(bool bTimeItself)
{
    if (!g_bProfilerInit)
    {
        return;
    }
    if (bTimeItself)
    {
        ProfilerPush(ZQ_TIMER_PROFILER_UPDATE_FRAME, "ProfilerUpdateFrame");
    }
    DeriveAll();
    MoveToNextSlot();
    if (bTimeItself)
    {
        ProfilerPop(ZQ_TIMER_PROFILER_UPDATE_FRAME);
    }
    if (g_bReload)
    {
        g_bReload = false;
        ProfilerReset();
    }
}

void ProfilerReset()
{
    if (g_bProfilerInit)
    {
        ForgetTimers();
        profiler::timer_t * const pRoot = AddRecord(ZQ_TIMER_ROOT, "root");
        g_dStack[g_iTimerStackTop++] = pRoot;
        pRoot->tStart = shortTimeGet();
        g_nFrame = 0;
        g_iRing = 0;
    }
}

void ProfilerReload()
{
    g_bReload = g_bProfilerInit;
}

profiler::timer_t * ProfilerGetRoot()
{
    return g_bProfilerInit ? g_Records.dTimers : nullptr;
}

profiler::timer_t * ProfilerGetTimer(std::uint32_t iTimer)
{
    for (int i = 0; i < g_iTimerTotalCount; ++i)
    {
        if (g_Records.dTimers[i].iTimer == iTimer)
        {
            return &g_Records.dTimers[i];
        }
    }
    return nullptr;
}

profiler::timer_t * ProfilerGetTimer(char const * szName)
{
    ZQ_ASSERT(szName);
    if (!g_bProfilerInit || !szName)
    {
        return nullptr;
    }
    profiler::timer_t * const pTimer = ProfilerGetTimer(IdOfName(szName, 0));
    return pTimer ? pTimer : ProfilerGetTimer(IdOfName(szName, ID_UNDER_ROOT));
}

ModuleProfiler_c::~ModuleProfiler_c() = default;

ModuleProfiler_c * ModuleProfiler_c::Get()
{
    return &g_ModuleProfiler;
}

bool ModuleProfiler_c::Initialize()
{
    ZQ_ASSERT(!g_bProfilerInit);
    g_bProfilerInit = true;
    ProfilerReset();
    return Module_c::Initialize();
}

void ModuleProfiler_c::Shutdown()
{
    Module_c::Shutdown();
    g_bProfilerInit = false;
    g_bReload = false;
    ForgetTimers();
    ProfilerCloseStats();
}

Module_c ** ModuleProfiler_c::GetPrerequisites() const
{
    static constinit Module_c * s_dPrerequisites[2] = {};
    s_dPrerequisites[0] = ModuleTimer_c::Get();   // at each call: a global constructor of a host may make the first one
    return s_dPrerequisites;
}
