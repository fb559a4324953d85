#include "tests/memory_support.h"
#include "tests/test_support.h"
#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory_internal.h"
#include "zqcore/cmemoryreport.h"

#include <array>
#include <cerrno>
#include <latch>
#include <map>
#include <mutex>
#include <random>

namespace
{
    std::atomic<void const *> g_pSeen;   // keeps the compiler from removing an allocation

    struct Figures_s
    {
        Figures_s() { MemoryCategoriesGet(dInfo, iAllocs, iBytes, iMaxBytes); }

        mem::CategoryInfo dInfo[mem::TOTAL];
        std::ptrdiff_t iAllocs, iBytes, iMaxBytes;
    };

    // Growth of the categories that changed, in blocks and bytes. It is negative if a category shrank.
    using Changes_t = std::map<int, std::pair<std::ptrdiff_t, std::ptrdiff_t>>;

    Changes_t operator-(Figures_s const & New, Figures_s const & Old)
    {
        Changes_t Changes;
        for (int i = 0; i < mem::TOTAL; ++i)
        {
            Changes[i] = { New.dInfo[i].iCount - Old.dInfo[i].iCount, New.dInfo[i].iBytes - Old.dInfo[i].iBytes };
        }
        std::erase_if(
            Changes, [](auto const & Change) { return Change.second == std::pair<std::ptrdiff_t, std::ptrdiff_t>(); });
        return Changes;
    }

    void * New(std::size_t nBytes, int iWord = MEMORY_CLIENT_BLOCK)
    {
        return CoreMemory::operator_new(nBytes, iWord, "f.cpp", 1);
    }
}

TEST(Memory, BlocksCountUnderTheCategoryOfTheirWordOrTheThread)
{
    HeapReports_c Reports;
    MemoryResetFrameAllocCount();
    constexpr int NORMAL = MEMORY_NORMAL_BLOCK, RUNTIME = MEMORY_CRT_BLOCK, CLIENT = MEMORY_CLIENT_BLOCK;
    for (auto const & [iWord, ePushed, iExpected] :
        Rows_t<int, mem::Categories_e, int>{ { WordOf(0, CLIENT), mem::UNDEFINED, mem::UNDEFINED },
            { WordOf(0, CLIENT), mem::file, mem::file }, { WordOf(mem::Core, CLIENT), mem::file, mem::Core },
            { WordOf(0, NORMAL), mem::logger, mem::logger }, { WordOf(mem::AI, NORMAL), mem::logger, mem::logger },
            { WordOf(mem::AI, NORMAL), mem::UNDEFINED, mem::UNDEFINED },
            { WordOf(mem::TOTAL, CLIENT), mem::file, mem::file },
            { WordOf(0x7FFF, CLIENT), mem::UNDEFINED, mem::UNDEFINED },
            { WordOf(0, CLIENT), static_cast<mem::Categories_e>(0x8000), mem::UNDEFINED },
            { WordOf(mem::AI, RUNTIME), mem::file, mem::AI } })
    {
        SCOPED_TRACE(testing::PrintToString(std::pair(iWord, int{ ePushed })));
        MemCategoryScope_c const Scope(ePushed);
        Figures_s const Before;
        void * const p = New(100, iWord);
        Figures_s const After;
        void * const pBlock = get_block_from_aligned(p);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
        EXPECT_EQ(plat::HeapBlockWord(pBlock), static_cast<std::uint32_t>(WordOf(iExpected, CLIENT)));
        EXPECT_EQ(After - Before, (Changes_t{ { iExpected, { 1, plat::HeapBlockSize(pBlock) } } }));
        EXPECT_EACH(After.iAllocs == Before.iAllocs + 1,
            After.dInfo[iExpected].iFrameAllocs == Before.dInfo[iExpected].iFrameAllocs + 1);
        MemCategoryScope_c const Other(mem::Sound);   // does not count for what is freed
        CoreMemory::operator_delete(p);
        Figures_s const Freed;
        EXPECT_EQ(std::pair(Freed - Before, Freed.iBytes), std::pair(Changes_t(), Before.iBytes));
    }
    EXPECT_EQ(Reports.Extract(), "");
    CoreMemory::operator_delete(New(1, 5));
    EXPECT_EQ(Reports.Extract(), "operator_new: 5 is no kind of block\n");
    MemoryResetFrameAllocCount();
    Figures_s const Reset;
    EXPECT_GE(MemoryGetFrameAllocCount(), 11u);   // one for each row and one more
    EXPECT_EACH(Reset.dInfo[mem::AI].iLastFrameAllocs == 1, Reset.dInfo[mem::AI].iFrameAllocs == 0);
}

TEST(Memory, PeaksStayWhenBlocksGoAndNewOnesStayBelow)
{
    auto const Peaks = []
    {
        Figures_s const Now;
        mem::CategoryInfo const & Info = Now.dInfo[mem::Generator];   // no earlier test uses it
        return std::tuple(Info.iMaxCount, Info.iMaxBytes, Now.iMaxBytes);
    };
    constexpr std::size_t NEW_PEAK = std::size_t{ 64 } << 20;
    MemCategoryScope_c const Scope(mem::Generator);
    void * const pLarge = New(NEW_PEAK);
    void * const pSmall = New(100);
    auto const nBytes = static_cast<std::ptrdiff_t>(
        plat::HeapBlockSize(get_block_from_aligned(pLarge)) + plat::HeapBlockSize(get_block_from_aligned(pSmall)));
    auto const Expected = std::tuple<std::ptrdiff_t, std::ptrdiff_t, std::ptrdiff_t>(2, nBytes, Figures_s().iBytes);
    EXPECT_EQ(Peaks(), Expected);
    CoreMemory::operator_delete(pLarge);
    CoreMemory::operator_delete(pSmall);
    void * const pLater = New(100);
    EXPECT_EQ(Peaks(), Expected);
    CoreMemory::operator_delete(pLater);
}

TEST(Memory, AnEndedThreadLeavesNoCategoryToTheNext)
{
    RunInThreads(1, [](int) { MemoryCategoryPush(mem::AI); });
    RunInThreads(1,
        [](int)
        {
            {
                MemCategoryScope_c const Scope(mem::Lua);
            }
            void * const p = New(10);
            EXPECT_EQ(plat::HeapBlockWord(get_block_from_aligned(p)), static_cast<std::uint32_t>(MEMORY_CLIENT_BLOCK));
            CoreMemory::operator_delete(p);
        });
}

TEST(Memory, NamesItsCategories)
{
    EXPECT_STREQ(MemoryCategoryName(mem::Core), "Core");
    EXPECT_STREQ(MemoryCategoryName(mem::Generator), "Generator");
}

// A fence follows the caller's bytes directly, with every alignment. It ends 4 bytes after the heap's block. Its first
// 16 bytes and its last 4 are checked.
TEST(Memory, EveryOverrunIsReportedWithWhatTheCallerKnowsAndLogged)
{
    static std::string s_sReports;
    s_sReports.clear();
    LogCapture_c Log;
    MemoryReport_t const fnPrevious = MemoryReportSet([](char const * szText) { s_sReports += szText; });
    std::string sExpected;
    for (std::size_t const nAlignment : { 4u, 8u, 16u, 64u })
    {
        for (std::size_t iOverrun = 0; iOverrun < 20; ++iOverrun)
        {
            std::size_t const nBytes = 30 + nAlignment % 3;
            auto * const p = static_cast<char *>(aligned_malloc_dbg(
                nBytes, nAlignment, WordOf(mem::Lua, MEMORY_CLIENT_BLOCK), "a file", static_cast<int>(iOverrun)));
            auto const nFence = plat::HeapBlockSize(get_block_from_aligned(p)) + 4
                                - static_cast<std::size_t>(p - static_cast<char *>(get_block_from_aligned(p))) - nBytes;
            EXPECT_GE(nFence, 4u) << nAlignment;
            if (iOverrun < std::min<std::size_t>(nFence, 16))
            {
                const_cast<char volatile *>(p)[nBytes + iOverrun] = 'x';
                sExpected += NewString("Damage after the block at 0x%08zX of %zu bytes, category Lua, allocated at a "
                                       "file(%zu).\n",
                    reinterpret_cast<std::size_t>(p), nBytes, iOverrun);
            }
            aligned_free_dbg(p);
        }
    }
    auto * const pNormal = static_cast<char *>(MemoryAllocNormal(16, "a file", 1));
    const_cast<char volatile *>(pNormal)[16] = 'x';
    MemoryFreeNormal(pNormal);
    sExpected += NewString("Damage after the block at 0x%08zX of 16 bytes, category NORMAL_BLOCK, allocated at a "
                           "file(1).\n",
        reinterpret_cast<std::size_t>(pNormal));
    MemoryReportSet(fnPrevious);
    EXPECT_EQ(s_sReports, sExpected);
    EXPECT_EQ(Log.GetText(), sExpected);
}

TEST(Memory, EveryFormOfNewIsTracked)
{
    // clang-format off
    struct alignas(64) Wide_s { char c = 0; };
    struct Thrower_s { Thrower_s() { throw 1; } };
    // clang-format on
    MemCategoryScope_c const Scope(mem::kiln);
    Figures_s const Before;
    auto * const pPlain = new std::array<int, 9>;
    auto * const pWide = new Wide_s[2];
    auto * const pQuiet = new (std::nothrow) char[3];
    g_pSeen = pPlain;
    g_pSeen = pWide;
    g_pSeen = pQuiet;
    auto * const pNamed = ZQ_NEW int(5);
    int const iLine = __LINE__ - 1;
    EXPECT_THROW(ZQ_NEW Thrower_s, int);
    Wide_s * dWide[8];   // a single one may be aligned by chance
    std::ranges::generate(dWide, [] { return ZQ_NEW Wide_s; });
    Figures_s const After;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pWide) % alignof(Wide_s), 0u);
    EXPECT_EQ(After.dInfo[mem::kiln].iCount, Before.dInfo[mem::kiln].iCount + 4 + std::ssize(dWide));
    for (Wide_s const * const p : dWide)
    {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(Wide_s), 0u);
        delete p;
    }
    plat::HeapBlock_t Block;
    EXPECT_TRUE(plat::HeapFindBlock(get_block_from_aligned(pNamed), Block));
    EXPECT_EQ(Block.iLine, iLine);
    EXPECT_STREQ(Block.szFile, __FILE__);
    delete pPlain;
    delete[] pWide;
    delete pNamed;
    delete[] pQuiet;
    EXPECT_EQ(Figures_s() - Before, Changes_t());
}

TEST(Memory, StackMergesPushesAndCountsChanges)
{
    MemCategoryStack_c Stack;
    Stack.Add(mem::file);
    Stack.Add(mem::file);
    Stack.Add(mem::logger);
    EXPECT_EQ(Stack.top, 1);
    Stack.Remove(mem::logger);
    EXPECT_EACH(Stack.Top() == mem::file, Stack.m_dStack[0].m_iCallCount == 2);
    EXPECT_EQ(FailedConditions([&] { Stack.Remove(mem::logger); }), "m_dStack[top].m_eCategory==category");
    Stack.Remove(mem::file);
    EXPECT_EQ(Stack.Top(), mem::UNDEFINED);
    EXPECT_EQ(FailedConditions([&] { Stack.Remove(mem::file); }), "top < CATEGORY_STACK_DEPTH && top >= 0");
    for (int i = 0; i < MemCategoryStack_c::CATEGORY_STACK_DEPTH; ++i)
    {
        EXPECT_EQ(FailedConditions([&] { Stack.Add(i % 2 ? mem::AI : mem::Lua); }), "") << i;
    }
    EXPECT_EQ(FailedConditions([&] { Stack.Add(mem::Lua); }), "top >= -1 && top < CATEGORY_STACK_DEPTH-1");
    EXPECT_EQ(Stack.top, MemCategoryStack_c::CATEGORY_STACK_DEPTH - 1);
}

TEST(Memory, TrackingStartsOnceAndEndsOnce)
{
    EXPECT_EQ(FailedConditions([] { MemoryInit(); }), "g_MemoryInit == false && \"ModuleDone expected\"");
    auto const EndTwice = []
    {
        LogToStandardError();
        g_silentMode = true;
        MemoryDone();
        g_pSeen = New(SIZE_MAX);   // no failure aborts any more
        MemoryDone();
    };
    EXPECT_EXIT(EndTwice(), testing::ExitedWithCode(1), "g_MemoryInit == true && \"ModuleInit expected\"");
}

TEST(Memory, TrackingThatStartsAgainCountsTheBlocksThatItFinds)
{
    auto const fnRestart = []
    {
        void * const pFreed = New(1000, WordOf(mem::Generator, MEMORY_CLIENT_BLOCK));
        Figures_s const Before;
        MemoryDone();
        CoreMemory::operator_delete(pFreed);
        void * const p = New(100, WordOf(mem::Decals, MEMORY_CLIENT_BLOCK));
        void * const pRuntime = aligned_malloc_dbg(10, 16, WordOf(mem::Decals, MEMORY_CRT_BLOCK), "f.cpp", 1);
        MemoryInit();
        Figures_s const After;
        CoreMemory::operator_delete(p);
        aligned_free_dbg(pRuntime);
        auto const iGrown = After.dInfo[mem::Generator].iCount - Before.dInfo[mem::Generator].iCount;
        bool const bSameFrame = After.dInfo[mem::Decals].iFrameAllocs == Before.dInfo[mem::Decals].iFrameAllocs;
        EXPECT_EACH(iGrown == -1, After.dInfo[mem::Decals].iCount == Before.dInfo[mem::Decals].iCount + 1, bSameFrame,
            After.iAllocs == Before.iAllocs, MemoryCheckConsistency());
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(fnRestart)), 0);
}

TEST(Memory, AlignedBlocksHoldTheirPromisesOverRandomRequests)
{
    HeapReports_c Reports;
    std::mt19937 Random(7);
    for (int iRound = 0; iRound < 3000; ++iRound)
    {
        std::size_t const nAlignment = std::size_t{ 1 } << Random() % 13;
        std::size_t const nSize = 1 + Random() % 3000, nNewSize = 1 + Random() % 3000;
        std::size_t const nOffset = Random() % 2 ? Random() % std::min(nSize, nNewSize) : 0;
        auto const IsAligned = [=](void * pUser)
        { return (reinterpret_cast<std::uintptr_t>(pUser) + nOffset) % nAlignment == 0; };
        auto const cFill = static_cast<unsigned char>(iRound);   // at times that of the fences
        auto * p = static_cast<unsigned char *>(
            aligned_offset_malloc_dbg(nSize, nAlignment, nOffset, MEMORY_CLIENT_BLOCK, "f.cpp", 1));
        ASSERT_TRUE(IsAligned(p)) << "round " << iRound;
        ASSERT_EQ(get_aligned_from_block(get_block_from_aligned(p), nAlignment, nOffset), p) << "round " << iRound;
        std::fill_n(p, nSize, cFill);
        p = static_cast<unsigned char *>(
            aligned_offset_realloc_dbg(p, nNewSize, nAlignment, nOffset, MEMORY_CLIENT_BLOCK, "f.cpp", 2));
        ASSERT_EQ(Reports.Extract(), "") << "round " << iRound;
        ASSERT_TRUE(IsAligned(p)) << "round " << iRound;
        auto const nKept = static_cast<std::ptrdiff_t>(std::min(nSize, nNewSize));
        ASSERT_EQ(std::count(p, p + nKept, cFill), nKept) << "round " << iRound;
        std::fill_n(p, nNewSize, cFill);
        ASSERT_EQ(aligned_realloc_dbg(p, 0, nAlignment, MEMORY_CLIENT_BLOCK, "f.cpp", 3), nullptr);   // frees
    }
    aligned_free_dbg(aligned_realloc_dbg(nullptr, 5, 8, MEMORY_CLIENT_BLOCK, "f.cpp", 4));
    aligned_free_dbg(nullptr);
    EXPECT_EQ(get_block_from_aligned(nullptr), nullptr);
    EXPECT_EQ(Reports.Extract(), "");
}

TEST(Memory, AlignedOperationsReportMisuse)
{
    HeapReports_c Reports;
    for (auto const & [nAlignment, nOffset, szReport] : Rows_t<std::size_t, std::size_t, char const *>{
             { 3, 0, "alignment must be a power of 2" }, { 16, 8, "offset must be within size" } })
    {
        errno = 0;
        EXPECT_EQ(aligned_offset_malloc_dbg(8, nAlignment, nOffset, MEMORY_CLIENT_BLOCK, nullptr, 0), nullptr);
        EXPECT_EQ(Reports.Extract(), szReport);
        EXPECT_EQ(errno, EINVAL);
    }
    void * const pPlain = plat::HeapAlloc(100, MEMORY_CLIENT_BLOCK, nullptr, 0);
    aligned_free_dbg(pPlain);
    EXPECT_EQ(Reports.Extract(),
        "The block at " + AddressText(pPlain) + " was not allocated by _aligned routines, use free()");
    EXPECT_EQ(aligned_realloc_dbg(pPlain, 5, 4, MEMORY_CLIENT_BLOCK, nullptr, 0), nullptr);
    EXPECT_EQ(Reports.Extract(),
        "The block at " + AddressText(pPlain) + " was not allocated by _aligned routines, use realloc()");
    EXPECT_EQ(get_aligned_from_block(pPlain, 16, 0), nullptr);
    EXPECT_EQ(Reports.Extract(), "The Block at " + AddressText(pPlain) + " was not allocated by aligned routines");
    plat::HeapFree(pPlain);

    auto * const pUser = static_cast<unsigned char *>(aligned_malloc_dbg(8, 16, MEMORY_CLIENT_BLOCK, nullptr, 0));
    pUser[-1] = 0;
    EXPECT_EQ(get_block_from_aligned(pUser), nullptr);
    aligned_free_dbg(pUser);
    EXPECT_EQ(Reports.Extract(), "Damage before " + AddressText(pUser) + " which was allocated by aligned routine\n");

    auto * const pFront = static_cast<unsigned char *>(aligned_malloc_dbg(8, 16, MEMORY_CLIENT_BLOCK, nullptr, 0));
    std::fill_n(pFront - 2 * sizeof(void *), 2 * sizeof(void *), 0x11);   // the address of its block, too
    aligned_free_dbg(pFront);
    EXPECT_EQ(Reports.Extract(), "Damage before " + AddressText(pFront) + " which was allocated by aligned routine\n");
    plat::HeapBlock_t Block;
    EXPECT_FALSE(plat::HeapFindBlock(pFront, Block));

    alignas(16) char dForeign[64] = {};
    aligned_free_dbg(dForeign + 32);
    EXPECT_EQ(aligned_realloc_dbg(dForeign + 32, 5, 4, MEMORY_CLIENT_BLOCK, nullptr, 0), nullptr);
    std::string const sForeign = "Damage before " + AddressText(dForeign + 32)
                                 + " which was allocated by aligned routine\nNo live block of this heap starts at "
                                 + AddressText(dForeign + 32)
                                 + ": freed already, or another heap's. It is left alone.\n";
    EXPECT_EQ(Reports.Extract(), sForeign + sForeign);
}

TEST(Memory, UserAllocatorsFillTheSlotsAndReuseThem)
{
    constexpr unsigned SLOTS = mem::MAX_USER_ALLOCATORS;
    mem::UserAllocatorInfo_c dAllocators[SLOTS + 1];
    for (unsigned i = 0; i <= SLOTS; ++i)
    {
        EXPECT_EQ(mem::RegisterUserAllocator(dAllocators[i]), i < SLOTS) << i;
    }
    EXPECT_EACH(mem::UnRegisterUserAllocator(dAllocators[5]), !mem::UnRegisterUserAllocator(dAllocators[5]),
        mem::GetUserAllocators(nullptr, 0) == SLOTS - 1, mem::RegisterUserAllocator(dAllocators[SLOTS]));
    dAllocators[SLOTS].m_dwInfo1 = 9;
    mem::UserAllocatorInfo_i * dFound[SLOTS];
    EXPECT_EACH(mem::GetUserAllocators(dFound, 0) == 0, mem::GetUserAllocators(dFound, 7) == 7);
    mem::UserAllocatorInfo_t Info;
    EXPECT_EACH(dFound[5] == &dAllocators[SLOTS], dFound[5]->GetInfo(Info), Info.dwInfo1 == 9);
    std::for_each(dAllocators, dAllocators + SLOTS + 1, mem::UnRegisterUserAllocator);
    EXPECT_EQ(mem::GetUserAllocators(nullptr, 0), 0u);
}

TEST(Memory, FiguresReturnToTheirStartAfterThreadsThatShareBlocks)
{
    static std::atomic<int> s_nLines;
    s_nLines = 0;
    LogDone();
    LogAddCallback([](char const *) { ++s_nLines; });
    Figures_s const Before;
    {
        std::atomic<std::string *> dShared[4] = {};
        auto const Work = [&dShared](int iThread)
        {
            std::mt19937 Random(static_cast<unsigned>(iThread));
            for (int i = 0; i < 2000; ++i)
            {
                MemCategoryScope_c const Outer(static_cast<mem::Categories_e>(Random() % mem::TOTAL));
                MemCategoryScope_c const Inner(static_cast<mem::Categories_e>(Random() % mem::TOTAL));
                // Mostly frees blocks that another thread allocated under another category.
                delete dShared[Random() % 4].exchange(ZQ_NEW std::string(Random() % 200, 'x'));
                Logc(i % 100 == 0, "thread");
            }
        };
        RunInThreads(8, Work);
        std::for_each(dShared, dShared + 4, [](std::atomic<std::string *> & pText) { delete pText.load(); });
    }
    Figures_s const After;
    EXPECT_EQ(After - Before, Changes_t());
    EXPECT_EACH(After.iAllocs == Before.iAllocs, After.iBytes == Before.iBytes, MemoryCheckConsistency());
    EXPECT_EQ(s_nLines, 8 * 20);
    LogDone();
}

TEST(Memory, AThreadWithoutASlotIsReported)
{
    EXPECT_EQ(FailedConditions([] { RunInThreads(1, [](int) { MemoryCategoryPop(mem::AI); }); }), "pStack");
    auto const FillSlots = []
    {
        LogDone();
        LogToStandardError();
        LogAddCallback([](char const *) { MemCategoryScope_c const Scope(mem::AI); });   // finds no slot either
        for (int i = 0; i < 300; ++i)
        {
            RunInThreads(1, [](int) { MemoryCategoryPush(mem::AI); });   // the next has this one's slot, emptied
        }
        std::fputs("300 in turn\n", stderr);
        constexpr int THREADS = CategoryStacks_t::iMask + 2;   // one more than there are slots
        std::latch AllThere(THREADS);
        std::mutex OneComplaint;
        RunInThreads(THREADS,
            [&](int)
            {
                OneComplaint.lock();
                MemoryCategoryPush(mem::AI);
                OneComplaint.unlock();
                AllThere.arrive_and_wait();
            });
        std::exit(0);
    };
    EXPECT_EXIT(FillSlots(), testing::ExitedWithCode(0),
        "^300 in turn\nCould not push memory category. Result=2\n\nAssertEx failed, iResult == 0, Could not push "
        "memory category. "
        "See log for details, ");
}

TEST(Memory, AWrongCountIsCaughtByTheNextEvent)
{
    // What is added to the blocks and bytes of a category and to the bytes of the next one, and whether that is wrong.
    for (auto const & [iCount, iBytes, iNextBytes, bWrong] : Rows_t<int, std::ptrdiff_t, std::ptrdiff_t, bool>{
             { 1, 0, 0, true }, { -1, 0, 0, true }, { 0, 8, 0, true }, { 0, -8, 0, true }, { 0, PTRDIFF_MAX, 0, true },
             { 0, -8, 8, false }, { 0, PTRDIFF_MAX, -PTRDIFF_MAX, true } })
    {
        void * p = nullptr;
        bool bConsistent = false;
        auto const Allocate = [&, n = iCount, i = iBytes, iNext = iNextBytes]
        {
            g_MemoryCounters.dCount[mem::Decals] += n;
            g_MemoryCounters.dBytes[mem::Decals] += i;
            g_MemoryCounters.dBytes[mem::Application] += iNext;
            p = New(16);
            bConsistent = MemoryCheckConsistency();
            g_MemoryCounters.dCount[mem::Decals] -= n;
            g_MemoryCounters.dBytes[mem::Decals] -= i;
            g_MemoryCounters.dBytes[mem::Application] -= iNext;
        };
        EXPECT_EQ(FailedConditions(Allocate), bWrong ? "MemoryCheckConsistency()" : "") << iCount << ' ' << iBytes;
        EXPECT_EQ(bConsistent, !bWrong) << iCount << ' ' << iBytes;
        CoreMemory::operator_delete(p);
    }
}

TEST(Memory, ExhaustionEndsInAbort)
{
    for (char const * const szName : { "ASAN_OPTIONS", "TSAN_OPTIONS" })   // a checker refuses like the system then
    {
        char const * const szOptions = std::getenv(szName);
        setenv(szName, (std::string(szOptions ? szOptions : "") + ":allocator_may_return_null=1").c_str(), 1);
    }
    for (std::size_t const nBytes : { SIZE_MAX / 2, SIZE_MAX })
    {
        LogToStandardError();
        EXPECT_EXIT(g_pSeen = New(nBytes), g_EndedAtBreakpoint, "Can't allocate additional [0-9]+ bytes\n");
        EXPECT_EXIT(std::exit(::operator new(nBytes, std::nothrow) ? 1 : 0), testing::ExitedWithCode(0), "");
        LogDone();
    }
}
