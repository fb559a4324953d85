#include "platform/checker.h"
#include "platform/clock.h"
#include "platform/debugheap.h"
#include "platform/files.h"
#include "platform/fork.h"
#include "tests/machine_support.h"
#include "zqcore/cdebug.h"
#include "zqcore/cmemory.h"
#include "zqcore/cstring.h"

#include <cstddef>
#include <latch>

// The Windows debug heap has the same values.
static_assert(plat::HEAP_NEW == 0xCD && plat::HEAP_FREED == 0xDD && plat::HEAP_FENCE == 0xFD);

TEST(DebugHeap, BlocksAreFilledFencedAndKnown)
{
    constexpr std::uint32_t WORD = 0x290004;
    HeapReports_c Reports;
    for (std::size_t const nBytes :
        { std::size_t{}, std::size_t{ 1 }, plat::HEAP_FILL_LIMIT, plat::HEAP_FILL_LIMIT + 1 })
    {
        SCOPED_TRACE(nBytes);
        auto * const p = static_cast<unsigned char *>(plat::HeapAlloc(nBytes, WORD, "file.cpp", 12));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t), 0u);
        auto const nEnds = static_cast<std::ptrdiff_t>(nBytes <= plat::HEAP_FILL_LIMIT ? nBytes : plat::HEAP_FILL_ENDS);
        EXPECT_EQ(std::count(p, p + nEnds, plat::HEAP_NEW), nEnds);
        EXPECT_EQ(std::count(p + nBytes - nEnds, p + nBytes, plat::HEAP_NEW), nEnds);
        EXPECT_EACH(
            std::count(p - 4, p, plat::HEAP_FENCE) == 4, std::count(p + nBytes, p + nBytes + 4, plat::HEAP_FENCE) == 4);
        plat::HeapBlock_t Block;
        ASSERT_TRUE(plat::HeapFindBlock(p, Block));
        EXPECT_EACH(Block.pUser == p, Block.nBytes == nBytes, Block.dwWord == WORD, Block.iLine == 12, Block.pOwn == p,
            Block.nOwn == nBytes);
        EXPECT_STREQ(Block.szFile, "file.cpp");
        EXPECT_EACH(plat::HeapBlockSize(p) == nBytes, plat::HeapBlockWord(p) == WORD);
        plat::HeapFree(p);
        EXPECT_FALSE(plat::HeapFindBlock(p, Block));
    }
    plat::HeapFree(nullptr);
    EXPECT_EQ(Reports.Extract(), "");
}

TEST(DebugHeap, DamageIsReportedAndABlockDamagedInFrontIsNotFreed)
{
    HeapReports_c Reports;
    auto * const pBlock = static_cast<unsigned char *>(plat::HeapAlloc(10, MEMORY_CLIENT_BLOCK, "file.cpp", 12));
    pBlock[-1] = 0;
    plat::HeapFree(pBlock);
    EXPECT_EQ(Reports.Extract(),
        "The block at " + AddressText(pBlock) + " is damaged in front, or none of this heap's. It is not freed.\n");
    pBlock[-1] = plat::HEAP_FENCE;
    pBlock[10] = 0;
    plat::HeapFree(pBlock);
    EXPECT_EQ(Reports.Extract(), "Damage after the block at " + AddressText(pBlock)
                                     + " of 10 bytes, category UNDEFINED, allocated at file.cpp(12).\n");
    plat::HeapBlock_t Block;
    EXPECT_FALSE(plat::HeapFindBlock(pBlock, Block));
}

// In a release build the compiler drops writes to memory that is released next, unless ZQ_KEEP_WRITES prevents it.
TEST(DebugHeap, FreedMemoryIsFilledAndASecondFreeIsNoticed)
{
    SKIP_IF(plat::ADDRESS_CHECKER, "the checker reports what this test does");
    HeapReports_c Reports;
    auto * const pFilled = static_cast<unsigned char volatile *>(plat::HeapAlloc(100, MEMORY_CLIENT_BLOCK, nullptr, 0));
    auto * const pBlock = const_cast<unsigned char *>(pFilled);
    plat::HeapFree(pBlock);
    EXPECT_EQ(std::count(pFilled, pFilled + 100, plat::HEAP_FREED), 100);
    plat::HeapFree(pBlock);
    EXPECT_EQ(Reports.Extract(), "The block at " + AddressText(pBlock) + " was freed already. It is left alone.\n");
    for (std::size_t const nBytes : { 1u, 64u, 4000u, 50000u })
    {
        auto * const pOwn = static_cast<char *>(aligned_malloc_dbg(nBytes, 1024, MEMORY_CLIENT_BLOCK, nullptr, 0));
        void * const volatile pAgain = pOwn;
        aligned_free_dbg(pOwn);
        aligned_free_dbg(pAgain);
        EXPECT_EQ(Reports.Extract(), "The block at " + AddressText(pAgain) + " was freed already. It is left alone.\n");
    }
}

TEST(DebugHeap, AFailedAllocationIsTriedAgainAsOftenAsTheHandlerSays)
{
    auto const Exhaust = []
    {
        static int s_nFailures = 0;
        MemoryDone();
        plat::HeapSetFailureHandler([](std::size_t nBytes) { return nBytes == SIZE_MAX && ++s_nFailures < 3; });
        EXPECT_EQ(plat::HeapAlloc(SIZE_MAX, MEMORY_CLIENT_BLOCK, nullptr, 0), nullptr);
        return s_nFailures;
    };
    EXPECT_EQ(StatusOfChild(StartChild(Exhaust)), 3);
}

TEST(PlatformThreads, RunLockAndWakeEachOther)
{
    static plat::Lock_c s_Lock(10);
    static plat::WakeUp_c s_Go;
    static std::uint32_t s_iThread = 0;
    static int s_nCount = 0;
    static auto const s_fnCount = []
    {
        for (int i = 0; i < 10000; ++i)
        {
            plat::LockScope_c const Outer(s_Lock), Again(s_Lock);
            ++s_nCount;
        }
    };
    auto const Run = [](void *)
    {
        s_Go.Wait();
        s_iThread = plat::ThreadId();
        s_fnCount();
    };
    plat::Thread_c Thread;
    Thread.Join();
    EXPECT_EACH(Thread.Start(Run, nullptr), Thread.IsStarted());
    s_Go.Signal();
    s_fnCount();
    Thread.Join();
    EXPECT_EACH(!Thread.IsStarted(), s_nCount == 20000, s_iThread != plat::ThreadId());
    s_Go.Signal();   // kept for the next Wait
    s_Go.Signal();
    s_Go.Wait();
}

TEST(Fork, AChildFindsTheHeapFreeAndNobodyOnTheStacks)
{
    NEEDS_FORKS;
    constexpr int THREADS = 100;
    std::atomic<bool> bStop = false;
    std::latch AllThere(THREADS + 1);
    auto const Allocate = [&](int)
    {
        MemCategoryScope_c const Scope(mem::AI);
        AllThere.arrive_and_wait();
        while (!bStop)
        {
            delete ZQ_NEW int;
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    };
    auto const InChild = []
    {
        std::latch Here(THREADS);
        RunInThreads(THREADS,
            [&Here](int)
            {
                // A push finds no slot while those of the parent's threads are in use.
                MemCategoryScope_c const Scope(mem::AI);
                Here.arrive_and_wait();
            });
        EXPECT_EQ(plat::ThreadId(), static_cast<std::uint32_t>(getpid()));
        return 0;
    };
    std::thread Others([&] { RunInThreads(THREADS, Allocate); });
    AllThere.arrive_and_wait();
    EXPECT_NE(plat::ThreadId(), 0u);   // kept from now on, but not by a child
    g_silentMode = true;               // a failed assertion ends the child
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_EQ(StatusOfChild(StartChild(InChild)), 0) << i;
    }
    g_silentMode = false;
    bStop = true;
    Others.join();
}

TEST(Fork, AChildConvertsTheTimeThatAThreadOfItsParentConverted)
{
    std::atomic<bool> bStop = false;
    std::thread Other(
        [&bStop]
        {
            while (!bStop)
            {
                plat::LocalTime();
                plat::LocalTimeKeep();
            }
        });
    for (int i = 0; i < 50; ++i)
    {
        auto const InChild = []
        {
            plat::LocalTimeKeep();
            EXPECT_EQ(plat::LocalTime().iHour, plat::LocalTimeByKept().iHour);
            return 0;
        };
        EXPECT_EQ(StatusOfChild(StartChild(InChild)), 0) << i;
    }
    bStop = true;
    Other.join();
}

TEST(Fork, EntersLocksThatOthersTakeInAnyOrderBetweenTheCallsOfServices)
{
    NEEDS_FORKS;
    static plat::Lock_c s_First, s_Second;
    static plat::WakeUp_c s_Forking;
    static std::string s_sCalls;
    static int s_dGuarded[2];
    plat::ForkLock_c const First(s_First), Second(s_Second);
    auto const Before = []
    {
        s_sCalls += 'b';
        s_Forking.Signal();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    };
    plat::ForkHandler_c const Older({ Before, [] { s_sCalls += 'p'; }, [] { s_sCalls += 'c'; } });
    plat::ForkHandler_c const Newer({ [] { s_sCalls += 'B'; }, [] { s_sCalls += 'P'; }, [] { s_sCalls += 'C'; } });
    for (auto const & Pair : { std::pair(&s_First, &s_Second), std::pair(&s_Second, &s_First) })
    {
        auto *const pHeld = Pair.first, *const pWanted = Pair.second;
        std::latch Held(2);
        std::thread Other(
            [&]
            {
                plat::LockScope_c const Scope(*pHeld);
                ++s_dGuarded[0];
                Held.arrive_and_wait();
                s_Forking.Wait();
                std::this_thread::sleep_for(std::chrono::milliseconds(60));   // the fork now waits for pHeld
                plat::SpellingsForget();                                      // enters a lock of the library
                plat::LockScope_c const Again(*pWanted);
                ++s_dGuarded[1];
            });
        Held.arrive_and_wait();
        auto const InChild = []
        {
            std::thread([] { EXPECT_EACH(s_First.TryEnter(), s_Second.TryEnter()); }).join();
            EXPECT_EQ(s_sCalls, "BbcC");
            EXPECT_EQ(s_dGuarded[0], s_dGuarded[1]);
            return 0;
        };
        EXPECT_EQ(StatusOfChild(StartChild(InChild)), 0);
        EXPECT_EQ(std::exchange(s_sCalls, ""), "BbpP");
        Other.join();
    }
}
