#include "platform/asyncwrite.h"
#include "tests/machine_support.h"
#include "zqcore/ccrc.h"
#include "zqcore/cfile_internal.h"
#include "zqcore/cfilename.h"
#include "zqcore/cprofile_internal.h"
#include "zqcore/ctimer.h"

#include <array>
#include <optional>
#include <random>

namespace
{
    constexpr char LOST[] = "ProfilerSwapStats: failed to write file - Ivo Renning";

    // Pushes names, and pops at ")". A name that begins with "/" goes under the root.
    void PushAndPop(std::initializer_list<char const *> dNames)
    {
        for (char const * szName : dNames)
        {
            if (*szName == ')')
            {
                ProfilerPop();
            }
            else
            {
                ProfilerPush(szName, *szName == '/');
            }
        }
    }

    // Returns the tree below a timer with the calls in a frame: "a*1(b*2 c*1)".
    std::string Tree(profiler::timer_t const * pParent, int iFrame = 0)
    {
        std::string sTree;
        for (profiler::timer_t const * pTimer = pParent->pChild; pTimer; pTimer = pTimer->pNext)
        {
            sTree += std::string(sTree.empty() ? "" : " ") + static_cast<char const *>(pTimer->szName) + "*"
                     + std::to_string(pTimer->dFrames[iFrame].nCalls)
                     + (pTimer->pChild ? "(" + Tree(pTimer, iFrame) + ")" : "");
        }
        return sTree;
    }

    using Frames_t = std::vector<std::pair<std::int64_t, std::uint32_t>>;   // time and calls

    using Figures_t = std::array<std::int64_t, 4>;   // average, peak, its calls, its slot

    // Returns the figures after the last of these frames, computed by looking back.
    Figures_t LookBack(Frames_t const & dFrames)
    {
        Figures_t dFigures{ 0, 0, 0, -1 };
        std::int64_t nCount = 0;
        for (std::size_t i = dFrames.size(); i-- > 0 && nCount < PROFILER_FRAMES - 1; ++nCount)
        {
            dFigures[0] += dFrames[i].first;
            if (dFrames[i].first > dFigures[1])
            {
                auto const iSlot = static_cast<std::int64_t>(i % PROFILER_FRAMES);
                dFigures = { dFigures[0], dFrames[i].first, dFrames[i].second, iSlot };
            }
        }
        dFigures[0] /= nCount;
        return dFigures;
    }

    class Profiler : public testing::Test
    {
    protected:
        Profiler() { EXPECT_TRUE(StartModule(ModuleProfiler_c::Get())); }
        ~Profiler() override
        {
            plat::AsyncFile_c::AllowConcurrent(true);
            Module_c::ShutdownAllModules();
        }

        LogCapture_c m_Log;
        DialogScript_c m_Dialogs;
        TempFolder_c m_Folder;
    };
}

TEST_F(Profiler, KeepsTheTreeOfNamesAndIds)
{
    constexpr char LONG_NAME[] = "a name of forty characters, of which 31.";
    PushAndPop({ "a", "b", ")", "b", ")", "/r", ")", "c", "b", ")", ")", ")", "b", ")", LONG_NAME, ")", "/r", ")" });
    EXPECT_EQ(Tree(ProfilerGetRoot()), "a*1(b*2 c*1(b*1)) /r*2 b*1 a name of forty characters, of *1");
    EXPECT_EQ(ProfilerGetTimer(0x40000000u | (GetCrc32Polynomial("b", 1) & 0x3FFFFFFFu)), ProfilerGetTimer("b"));
    EXPECT_EQ(ProfilerGetTimer(0xC0000000u | (GetCrc32Polynomial("/r", 2) & 0x3FFFFFFFu)), ProfilerGetTimer("/r"));
    EXPECT_EQ(ProfilerGetTimer("b"), ProfilerGetRoot()->pChild->pChild);   // the one that was made first
    for (bool const bRoot : { true, false })
    {
        ProfilerScope_c const Both("both", bRoot);
    }
    EXPECT_EQ(ProfilerGetTimer("both"), &ProfilerGetRoot()[g_iTimerTotalCount - 1])
        << "the one that was pushed without bRoot";
    EXPECT_STREQ(ProfilerGetTimer(LONG_NAME)->szName, "a name of forty characters, of ");
    EXPECT_EQ(ProfilerGetTimer("a name of forty characters, of "), nullptr);
    EXPECT_STREQ(ProfilerGetTimer(0x80000000u)->szName, "root");
    Module_c::HeartbeatAllModulesFrame(0.0);
    Module_c::HeartbeatAllModulesIdle();
    EXPECT_EQ(ProfilerGetTimer("Frame ModuleTimer_c       ")->dFrames[0].nCalls, 1u);
    EXPECT_EQ(ProfilerGetTimer("Idle ModuleProfiler_c    ")->dFrames[0].nCalls, 1u);
}

TEST_F(Profiler, AReloadEmptiesTheTreeOnceAndEndsWithItsProfiler)
{
    {
        ProfilerScope_c const Timer("a");
        ProfilerFrameScope_c const Frame;
        ProfilerReload();
    }
    EXPECT_EQ(g_iTimerStackTop, 1);
    EXPECT_EQ(Tree(ProfilerGetRoot()), "a*1 Application*1");
    ProfilerUpdateFrame(true);
    EXPECT_EQ(Tree(ProfilerGetRoot()), "");
    ProfilerUpdateFrame(true);   // its time counts for the frame that it begins
    EXPECT_EQ(Tree(ProfilerGetRoot(), 1), "ProfilerUpdateFrame*1") << "the reload came twice";
    ProfilerReload();
    Module_c::ShutdownAllModules();
    PushAndPop({ "a", ")", ")" });
    ProfilerUpdateFrame(true);
    EXPECT_EQ(ProfilerGetRoot(), nullptr);
    EXPECT_EQ(std::pair(g_iTimerTotalCount, m_Dialogs.GetCount()), std::pair(0, 0));
    EXPECT_TRUE(StartModule(ModuleProfiler_c::Get()));
    PushAndPop({ "a", ")" });
    ProfilerUpdateFrame(false);
    EXPECT_EQ(Tree(ProfilerGetRoot()), "a*1") << "a reload ends with its profiler";
}

TEST_F(Profiler, AScopePopsWhatAnExceptionLeft)
{
    auto const Run = [](bool bThrow)
    {
        ProfilerHostScope_c const Timer(7, "t");
        ProfilerPush("left", false);
        if (bThrow)
        {
            throw 1;
        }
    };
    EXPECT_THROW(Run(true), int);
    EXPECT_EQ(g_iTimerStackTop, 1);
    EXPECT_EQ(m_Dialogs.GetCount(), 0);
    Run(false);
    EXPECT_EQ(m_Dialogs.GetCount(), 1) << "the timer on top has another identifier";
}

TEST_F(Profiler, FiguresAreThoseOfTheLast149Frames)
{
    std::mt19937 Random(7);
    // Kinds of times: equal ones, ties, falling ones, rare ones, large ones.
    for (std::size_t iKind = 0; iKind < 5; ++iKind)
    {
        ProfilerReset();
        PushAndPop({ "t", ")" });
        profiler::timer_t & Timer = *ProfilerGetTimer("t");
        Frames_t dFrames;
        std::int64_t tMaxEver = 0;
        for (std::int64_t i = 0; i < 460; ++i)
        {
            auto const tTie = static_cast<std::int64_t>(Random() % 5);
            std::int64_t const tTime =
                std::array<std::int64_t, 5>{ 700, tTie, 999 - i - tTie, i % 200 ? 0 : 9, tTie << 50 }[iKind];
            dFrames.emplace_back(tTime, Random() % 9);
            Timer.dFrames[i % PROFILER_FRAMES] = { tTime, dFrames.back().second };
            ProfilerUpdateFrame(false);
            tMaxEver = std::max(tMaxEver, Timer.tMax);
            Figures_t const dFigures{ Timer.tAverage, Timer.tMax, Timer.nAtMax, Timer.iMaxSlot };
            ASSERT_EQ(dFigures, LookBack(dFrames)) << "kind " << iKind << " frame " << i;
            std::int64_t const tNext = Timer.dFrames[(i + 1) % PROFILER_FRAMES].tTime;
            ASSERT_EQ(std::tuple(Timer.tLast, Timer.nLast, Timer.tMaxEver, tNext),
                std::tuple(tTime, dFrames.back().second, tMaxEver, 0));
        }
    }
}

TEST_F(Profiler, MeasuresAcrossAClockThatRunsBackwards)
{
    constexpr std::int64_t WAIT = 20000;        // ticks
    constexpr std::int64_t WRAP = 0x80000000;   // ticks added to a time that is below 0
    for (std::int64_t const tOffset : { std::int64_t{ 0 }, std::int64_t{ 0x7000000000 } })   // ticks
    {
        ProfilerReset();
        std::int64_t const tBefore = shortTimeGet() + tOffset;
        ProfilerPush("a", false);
        ProfilerGetTimer("a")->tStart += tOffset;
        shortTimeWait(WAIT);
        ProfilerPop();
        std::int64_t const tTime = ProfilerGetTimer("a")->dFrames[0].tTime + tOffset - (tOffset ? WRAP : 0);
        EXPECT_GE(tTime, WAIT) << tOffset;
        EXPECT_LE(tTime, shortTimeGet() + tOffset - tBefore) << tOffset;
    }
}

TEST_F(Profiler, LeavesOutWhatFindsNoRoom)
{
    for (std::uint32_t i = 1; i < MAX_TIMERS_TOTAL; ++i)   // the root is the first
    {
        ProfilerPush(i, "t");
        ProfilerPop();
    }
    EXPECT_EQ(FailedConditions([] { ProfilerPush(MAX_TIMERS_TOTAL, "t"); }), "g_iTimerTotalCount < MAX_TIMERS_TOTAL");
    PushAndPop({ "t", ")" });
    EXPECT_EQ(FailedConditions(
                  []
                  {
                      ProfilerPop(MAX_TIMERS_TOTAL);
                      ProfilerPop();
                  }),
        "g_iTimerStackTop > 1");
    ProfilerReset();
    while (g_iTimerStackTop < MAX_TIMERS_INHERITED)
    {
        ProfilerPush("deep", false);
    }
    EXPECT_EQ(FailedConditions([] { ProfilerPush("deep", true); }), "g_iTimerStackTop < MAX_TIMERS_INHERITED");
    ProfilerPop();
    EXPECT_EQ(FailedConditions([] { ProfilerPop(7); }), "pTop->iTimer==_iTimer");
    EXPECT_EQ(g_iTimerStackTop, MAX_TIMERS_INHERITED - 1);
    EXPECT_EQ(m_Dialogs.GetCount(), 0);
}

// The parameter says whether the file may be written while the thread continues.
class ProfilerStats : public Profiler, public testing::WithParamInterface<bool>
{
protected:
    ProfilerStats() { plat::AsyncFile_c::AllowConcurrent(GetParam()); }

    void SetUp() override { SKIP_IF(GetParam() && !CanOpenRequestQueue(), "the system refuses a queue of requests"); }

    // Appends values as they lie in memory.
    template <typename T>
    static void Put(std::string & sTo, std::initializer_list<T> dValues)
    {
        sTo.append(reinterpret_cast<char const *>(dValues.begin()), dValues.size() * sizeof(T));
    }

    // Appends a record by its layout. Frame i of 150 takes tFirst + i ticks in i calls.
    static void PutRecord(std::string & sTo, char cName, std::uint32_t nChild, std::uint32_t nNext, int tFirst)
    {
        sTo += cName + std::string(31, '\0');
        Put<std::uint32_t>(sTo, { static_cast<std::uint32_t>(cName), nChild, nNext, 0 });
        Put<std::int64_t>(sTo, { START });
        for (std::int64_t i = 0; i < 150; ++i)
        {
            Put<std::int64_t>(sTo, { tFirst + i, i });
        }
        Put<std::int64_t>(sTo, { tFirst + 75, tFirst + 149, tFirst + 149, tFirst + 149 });
        Put<std::uint32_t>(sTo, { 149, 149, 149, 0 });
    }

    // Runs PROFILER_FRAMES frames with the tree root(a(c) b) and returns the batch that follows this header.
    static std::string RunBatch(std::string const & sHeader)
    {
        ProfilerReset();
        for (char const cName : std::string("ac  b "))   // a blank is a pop
        {
            if (cName == ' ')
            {
                ProfilerPop();
            }
            else
            {
                ProfilerPush(static_cast<std::uint32_t>(cName), std::string(1, cName).c_str());
            }
        }
        for (std::uint32_t i = 0; i < PROFILER_FRAMES; ++i)
        {
            for (std::int64_t j = 0; j < 4; ++j)
            {
                ProfilerGetRoot()[j].dFrames[i] = { j * 1000 + i, i };
                ProfilerGetRoot()[j].tStart = START;
            }
            ProfilerUpdateFrame(false);
        }
        std::string sBatch("\4\0\0\0", 4);
        std::uint32_t const nAddress = *reinterpret_cast<std::uint32_t const *>(sHeader.data() + 4);
        PutRecord(sBatch, 'r', nAddress + RECORD_SIZE, 0, 0);
        PutRecord(sBatch, 'a', nAddress + 2 * RECORD_SIZE, nAddress + 3 * RECORD_SIZE, 1000);
        PutRecord(sBatch, 'c', 0, 0, 2000);
        PutRecord(sBatch, 'b', 0, 0, 3000);
        // The root has another name and identifier.
        return sBatch.replace(4, 36, std::string("root").append(31, '\0') + '\x80');
    }

    static constexpr std::uint32_t RECORD_SIZE = 2504;          // bytes
    static constexpr std::int64_t START = 0x1122334455667700;   // ticks

    FileName_c const m_sName{ m_Folder.Join("stats").c_str() };
};

INSTANTIATE_TEST_SUITE_P(PlainAndConcurrent, ProfilerStats, testing::Bool());

TEST_P(ProfilerStats, FileHasTheLayout)
{
    m_Folder.Write("stats", std::string(20000, 'x'));
    ProfilerInitSwapStats("");
    std::ptrdiff_t const nBlocks = MemoryTotalAllocations();
    ProfilerInitSwapStats(m_sName);
    EXPECT_EQ(
        std::pair(MemoryTotalAllocations() - nBlocks, g_dOpenTracks.GetLength()), std::pair(std::ptrdiff_t{ 1 }, 1));
    EXPECT_EQ(IsQueueOpen(), GetParam());
    std::string const sHeader = m_Folder.Read("stats");
    auto const nAddress = reinterpret_cast<std::uintptr_t>(ProfilerGetRoot());
    std::string sExpected("\xC8\x09\0\0", 4);
    Put<std::uint32_t>(sExpected, { static_cast<std::uint32_t>(nAddress) });
    ASSERT_EQ(sHeader, sExpected);
    for (std::int64_t const tLongest : { std::int64_t{ 1 }, INT64_MAX })
    {
        g_tSwapMaxTime = tLongest;
        sExpected += RunBatch(sHeader);
        EXPECT_GT(g_tSwapLastTime, 1) << tLongest;
        EXPECT_EQ(g_tSwapMaxTime, std::max(tLongest, g_tSwapLastTime)) << tLongest;
    }
    for (int i = 0; i < PROFILER_FRAMES - 1; ++i)   // too few for a batch
    {
        ProfilerUpdateFrame(false);
    }
    std::ptrdiff_t const nLater = MemoryTotalAllocations();
    ProfilerInitSwapStats(m_Folder.Join("second").c_str());
    EXPECT_EQ(
        std::pair(MemoryTotalAllocations() - nLater, g_dOpenTracks.GetLength()), std::pair(std::ptrdiff_t{ 0 }, 1))
        << "the first one is closed";
    EXPECT_TRUE(m_Folder.Read("stats") == sExpected);
    std::string const sSecond = RunBatch(sHeader);
    std::ptrdiff_t const nOpen = MemoryTotalAllocations();
    ProfilerCloseStats();
    EXPECT_EQ(MemoryTotalAllocations(), nOpen - 1);
    EXPECT_EACH(m_Folder.Read("stats") == sExpected, m_Folder.Read("second") == sHeader + sSecond,
        !ProfilerSwapStatsFailed(), !IsQueueOpen());
    EXPECT_EACH(g_dOpenTracks.IsEmpty(), g_nBytesToWrite == 0);
}

TEST_P(ProfilerStats, AForkedChildLeavesTheFileToItsParent)
{
    ProfilerInitSwapStats(m_sName);
    std::string sExpected = m_Folder.Read("stats"), sHeader = sExpected;
    sExpected += RunBatch(sHeader);   // under way
    auto const UseAnother = [&]
    {
        RunBatch(sHeader);   // no file: nothing is written
        ProfilerInitSwapStats(m_Folder.Join("second").c_str());
        std::string const sOwn = RunBatch(sHeader);
        Module_c::ShutdownAllModules();
        EXPECT_EACH(m_Folder.Read("second") == sHeader + sOwn, g_dOpenTracks.IsEmpty());
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(UseAnother)), 0);
    sExpected += RunBatch(sHeader);
    WaitingChild_c const Child;
    ProfilerCloseStats();
    EXPECT_TRUE(m_Folder.Read("stats") == sExpected);
    ProfilerInitSwapStats(m_sName);
    EXPECT_FALSE(ProfilerSwapStatsFailed()) << "a child that lives does not hold the file";
}

TEST_P(ProfilerStats, AListenerOfAFailedBatchMayProfile)
{
    FullDisk_c const Full(100);
    ProfilerInitSwapStats(m_sName);
    LogAddCallback([](char const *) { ProfilerScope_c const Scope("Listener"); });
    for (int i = 0; i < 3 * PROFILER_FRAMES; ++i)
    {
        ProfilerUpdateFrame(false);
    }
    LogDone();   // removes the listener
    profiler::timer_t const * const pListener = ProfilerGetTimer("Listener");
    ASSERT_TRUE(pListener);
    EXPECT_EQ(std::pair(pListener->tMaxEver, pListener->tAverage), std::pair(std::int64_t{ 0 }, std::int64_t{ 0 }))
        << "the swap is between two frames";
}

TEST_P(ProfilerStats, AFailedBatchIsLoggedAndLost)
{
    ProfilerInitSwapStats(m_Folder.Join("gone/stats.bin").c_str());
    EXPECT_EQ(m_Log.GetText(), "ProfilerInit: failed to create file - Ivo Renning\n");
    EXPECT_TRUE(ProfilerSwapStatsFailed());
    std::optional<FullDisk_c> Full(std::in_place, 5);
    ProfilerInitSwapStats(m_sName);
    RunBatch(std::string(8, ' '));   // no file: nothing more
    EXPECT_EQ(m_Log.Count(LOST), 1);
    EXPECT_EQ(m_Folder.Read("stats"), "");
    Full.emplace(5000);
    ProfilerInitSwapStats(m_sName);
    std::string const sHeader = m_Folder.Read("stats");
    RunBatch(sHeader);
    ProfilerSwapStats();   // at the latest this one finds that the first has failed
    EXPECT_GE(m_Log.Count(LOST), 2);
    ProfilerFinishWrite();
    EXPECT_EQ(m_Log.Count(LOST), 3);
    EXPECT_EQ(m_Log.CountHolding("System message: File too large"), 3);
    EXPECT_TRUE(ProfilerSwapStatsFailed());
    EXPECT_EQ(m_Folder.Read("stats"), sHeader);
    Full.reset();
    std::string const sBatch = RunBatch(sHeader);
    Module_c::ShutdownAllModules();
    EXPECT_TRUE(m_Folder.Read("stats") == sHeader + sBatch);
    EXPECT_EACH(g_dOpenTracks.IsEmpty(), g_nBytesToWrite == 0);
}
