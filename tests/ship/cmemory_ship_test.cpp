// The heap of a shipped game: what it counts, and what it costs. The debug heap's tests are in cmemory_test.cpp.
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory_internal.h"
#include "zqcore/cmemoryreport.h"

#include "tests/machine_support.h"
#include "tests/memory_support.h"

#include <barrier>
#include <cstdint>
#include <cstring>
#include <latch>
#include <memory>
#include <new>

namespace
{
    using Figures_t = std::tuple<std::ptrdiff_t, std::ptrdiff_t>;   // live blocks, live bytes

    Figures_t FiguresOf(mem::Categories_e eCategory)
    {
        mem::CategoryInfo const Info = InfoOf(eCategory);
        return { Info.iCount, Info.iBytes };
    }

    Figures_t Totals()
    {
        return { MemoryTotalAllocations(), MemoryTotalBytesAllocated() };
    }

    constexpr std::ptrdiff_t MIB = 1 << 20;
    constexpr std::ptrdiff_t PEAK_PLAY = 64 * MIB;   // the peak exceeds the bytes before the test by less than this
    constexpr int DECALS_WORD = WordOf(mem::Decals, MEMORY_CLIENT_BLOCK);
    void * g_pLast = nullptr;

    class CountedShip : public testing::Test
    {
    protected:
        // Threads and libraries of the test itself allocate under other categories.
        Figures_t const m_Before = FiguresOf(mem::Decals);
        Figures_t const m_TotalsBefore = Totals();
    };
}

TEST_F(CountedShip, CountsABlockUnderItsCategoryUntilItIsFreed)
{
    MemoryResetFrameAllocCount();
    char * pBlock;
    {
        MemCategoryScope_c const Category(mem::Decals);
        pBlock = ZQ_NEW char[100];
    }
    EXPECT_EQ(FiguresOf(mem::Decals), Figures_t(1, 100));
    EXPECT_EACH(MemoryBytesNow(mem::Decals) == 100, MemoryBytesNow(mem::CRT) == 0);
    EXPECT_EQ(Totals(), Figures_t(std::get<0>(m_TotalsBefore) + 1, std::get<1>(m_TotalsBefore) + 100));
    std::unique_ptr<void, void (*)(void *)> const Foreign(std::calloc(1, 24), std::free);
    EXPECT_EACH(MemoryIsOwnBlock(pBlock), !MemoryIsOwnBlock(Foreign.get()), !MemoryIsOwnBlock(nullptr),
        !MemoryIsOwnBlock(reinterpret_cast<void *>(16)));
    delete[] pBlock;
    EXPECT_EQ(FiguresOf(mem::Decals), m_Before);
    EXPECT_EQ(Totals(), m_TotalsBefore);
    EXPECT_EACH(InfoOf(mem::Decals).iMaxBytes == 100, InfoOf(mem::Decals).iFrameAllocs == 1);
    MemoryResetFrameAllocCount();
    EXPECT_EACH(MemoryGetFrameAllocCount() >= 1, InfoOf(mem::Decals).iLastFrameAllocs == 1,
        InfoOf(mem::Decals).iFrameAllocs == 0, MemoryCheckConsistency());
}

TEST_F(CountedShip, CountsABlockOfAnUnknownCategoryUnderNone)
{
    Figures_t const Before = FiguresOf(mem::UNDEFINED);
    MemCategoryScope_c const Category(mem::TOTAL);
    std::unique_ptr<char[]> const Block(ZQ_NEW char[100]);
    EXPECT_EQ(FiguresOf(mem::UNDEFINED), Figures_t(std::get<0>(Before) + 1, std::get<1>(Before) + 100));
}

TEST_F(CountedShip, NeedsSixteenBytesMoreThanItsCaller)
{
    for (std::size_t nBytes : { 0u, 1u, 24u, 64u, 1000u })
    {
        void * const p = ::operator new(nBytes);
        EXPECT_EQ(static_cast<char *>(p) - static_cast<char *>(get_block_from_aligned(p)), 16) << nBytes;
        ::operator delete(p);
    }
}

TEST_F(CountedShip, RefusesInvalidAlignmentsAndOffsets)
{
    HeapReports_c const Reports;
    for (auto const & [nBytes, nAlignment, nOffset] :
        Rows_t<std::size_t, std::size_t, std::size_t>{ { 10, 3, 0 }, { 10, 16, 10 }, { 10, 0, 0 } })
    {
        EXPECT_EQ(aligned_offset_malloc_dbg(nBytes, nAlignment, nOffset, DECALS_WORD, __FILE__, __LINE__), nullptr)
            << nAlignment;
    }
}

TEST_F(CountedShip, AlignsBlocksAndKeepsTheirContents)
{
    for (auto const & [nBytes, nAlignment, nOffset] : Rows_t<std::size_t, std::size_t, std::size_t>{
             { 10, 1, 0 }, { 10, 4, 3 }, { 64, 64, 0 }, { 100, 4096, 37 }, { 1 << 20, 1 << 16, 16 } })
    {
        SCOPED_TRACE(nAlignment);
        auto * p = static_cast<char *>(
            aligned_offset_malloc_dbg(nBytes, nAlignment, nOffset, DECALS_WORD, __FILE__, __LINE__));
        EXPECT_EQ((reinterpret_cast<std::uintptr_t>(p) + nOffset) % nAlignment, 0u);
        EXPECT_EQ(FiguresOf(mem::Decals), Figures_t(1, static_cast<std::ptrdiff_t>(nBytes)));
        EXPECT_EQ(get_aligned_from_block(get_block_from_aligned(p), nAlignment, nOffset), p);
        std::memset(p, 7, nBytes);
        p = static_cast<char *>(aligned_realloc_dbg(p, nBytes + 50, 32, DECALS_WORD, __FILE__, __LINE__));
        EXPECT_EQ(std::string(p, nBytes), std::string(nBytes, 7));
        aligned_free_dbg(p);
        EXPECT_EQ(FiguresOf(mem::Decals), m_Before);
    }
}

TEST_F(CountedShip, AddsUpTheFiguresOfAllThreads)
{
    constexpr int THREADS = 8, BLOCKS = 2000, BYTES = 1000;
    std::vector<char *> dBlocks(THREADS * BLOCKS);
    std::ptrdiff_t const nStart = MemoryTotalBytesAllocated();
    std::latch AllAllocated(THREADS);
    RunInThreads(THREADS,
        [&dBlocks, &AllAllocated](int iThread)
        {
            MemCategoryScope_c const Category(mem::Decals);
            char ** const ppOwn = &dBlocks[static_cast<std::size_t>(iThread * BLOCKS)];
            std::generate_n(ppOwn, BLOCKS, [] { return ZQ_NEW char[BYTES]; });
            AllAllocated.arrive_and_wait();
            for (int i = 0; i < BLOCKS; i += 2)   // half of a neighbour's blocks
            {
                delete[] dBlocks[static_cast<std::size_t>((iThread + 1) % THREADS * BLOCKS + i)];
            }
        });
    EXPECT_EQ(FiguresOf(mem::Decals), Figures_t(THREADS * BLOCKS / 2, THREADS * BLOCKS * BYTES / 2));
    EXPECT_GE(MemoryMaxTotalBytesAllocated(), nStart + (BLOCKS - MEMORY_PUBLISH_INTERVAL) * BYTES * THREADS);
    for (std::size_t i = 1; i < dBlocks.size(); i += 2)
    {
        delete[] dBlocks[i];
    }
    EXPECT_EQ(FiguresOf(mem::Decals), m_Before);
    EXPECT_TRUE(MemoryCheckConsistency());
}

TEST_F(CountedShip, ThePeakLacksWhatOtherThreadsHaveFreed)
{
    for (auto const & [nBlocks, nSize] : Rows_t<std::size_t, std::size_t>{ { 1, MIB }, { 1000, 1000 } })
    {
        std::vector<char *> dBlocks(nBlocks);
        std::barrier Turn(2);
        RunInThreads(2,
            [&dBlocks, &Turn, nBytes = nSize](int iThread)
            {
                for (int iRound = 0; iRound < 200; ++iRound)
                {
                    if (iThread == 0)
                    {
                        std::generate(dBlocks.begin(), dBlocks.end(), [nBytes] { return ZQ_NEW char[nBytes]; });
                    }
                    Turn.arrive_and_wait();
                    if (iThread == 1)
                    {
                        std::for_each(dBlocks.begin(), dBlocks.end(), [](char const * p) { delete[] p; });
                    }
                    Turn.arrive_and_wait();
                }
            });
        EXPECT_LT(MemoryMaxTotalBytesAllocated(), std::get<1>(m_TotalsBefore) + PEAK_PLAY) << nSize;
    }
}

TEST_F(CountedShip, CountsWhatAThreadDoesAfterItsOwnEnd)
{
    // The destructors of keys run in the order of the keys, and the library has made its own.
    ThreadKey_c const Key(
        [](void * pFirst)
        {
            ::operator delete(pFirst);
            g_pLast = ::operator new(10);
        });
    RunInThreads(1, [&Key](int) { Key.Store(::operator new(100)); });
    EXPECT_EQ(Totals(), Figures_t(std::get<0>(m_TotalsBefore) + 1, std::get<1>(m_TotalsBefore) + 10));
    ::operator delete(g_pLast);
    EXPECT_EQ(Totals(), m_TotalsBefore);
    for (int i = 0; i < 100; ++i)
    {
        RunInThreads(1, [&Key](int) { Key.Store(::operator new(MIB)); });
        ::operator delete(g_pLast);
    }
    EXPECT_LT(MemoryMaxTotalBytesAllocated(), std::get<1>(m_TotalsBefore) + PEAK_PLAY);
}

TEST_F(CountedShip, AThreadThatStartsReusesWhatAnEarlierOneHad)
{
    LogCapture_c const Log;   // a push without a stack is logged
    for (int i = 0; i < 300; ++i)
    {
        RunInThreads(1,
            [i](int)
            {
                delete (i % 2 == 0 ? new int : nullptr);   // every other thread allocates before its push
                MemCategoryScope_c const Category(mem::Decals);
                delete ZQ_NEW int;
            });
    }
    EXPECT_EQ(Log.GetText(), "");
}

TEST_F(CountedShip, WritesALineForEachCategory)
{
    TempFolder_c const Folder;
    CurrentFolderScope_c const Current(Folder.GetPath());
    MemCategoryScope_c const Category(mem::Decals);
    std::unique_ptr<char[]> const One(ZQ_NEW char[100]), Two(ZQ_NEW char[200]);
    MemoryLogAllocations();
    EXPECT_THAT(Folder.Read("allocations.csv"), testing::HasSubstr("\n300; Decals; blocks(2)\n"));
}

TEST_F(CountedShip, AForkedChildCountsOn)
{
    auto const fnCount = []
    {
        MemCategoryScope_c const Category(mem::Decals);
        g_pLast = ::operator new(100);
        RunInThreads(1,
            [](int)
            {
                MemCategoryScope_c const Inner(mem::Decals);
                g_pLast = ::operator new(10);
            });
        EXPECT_EQ(FiguresOf(mem::Decals), Figures_t(2, 110));
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(fnCount)), 0);
}

TEST_F(CountedShip, EachFormOfTheOperatorsFreesWhatItsCounterpartCounts)
{
    constexpr std::align_val_t WIDE{ 64 };
    MemCategoryScope_c const Category(mem::Decals);
    for (auto const & [szForm, fnNew, fnDelete] :
        Rows_t<char const *, void * (*)(), void (*)(void *)>{
            { "nothrow", [] { return ::operator new(100, std::nothrow); },
                [](void * p) { ::operator delete(p, std::nothrow); } },
            { "array, nothrow", [] { return ::operator new[](100, std::nothrow); },
                [](void * p) { ::operator delete[](p, std::nothrow); } },
            { "aligned", [] { return ::operator new(100, WIDE); }, [](void * p) { ::operator delete(p, WIDE); } },
            { "aligned, nothrow", [] { return ::operator new(100, WIDE, std::nothrow); },
                [](void * p) { ::operator delete(p, WIDE, std::nothrow); } },
            { "aligned array", [] { return ::operator new[](100, WIDE); },
                [](void * p) { ::operator delete[](p, 100, WIDE); } },
            { "aligned array, nothrow", [] { return ::operator new[](100, WIDE, std::nothrow); },
                [](void * p) { ::operator delete[](p, WIDE, std::nothrow); } },
            { "library's aligned",
                [] { return CoreMemory::operator_new_aligned(100, 64, MEMORY_CLIENT_BLOCK, "ship.cpp", 1); },
                [](void * p) { CoreMemory::operator_delete_aligned(p, 64); } },
            { "library's aligned array",
                [] { return CoreMemory::operator_new_array_aligned(100, 64, MEMORY_CLIENT_BLOCK, "ship.cpp", 1); },
                [](void * p) { CoreMemory::operator_delete_array_aligned(p, 64); } },
        })
    {
        void * const p = fnNew();
        EXPECT_EQ(FiguresOf(mem::Decals), Figures_t(1, 100)) << szForm;
        fnDelete(p);
        EXPECT_EQ(FiguresOf(mem::Decals), m_Before) << szForm;
    }
}

TEST_F(CountedShip, CallLogHasEachAllocationWhileItIsOn)
{
    TempFolder_c const Folder;
    auto const fnRun = [&Folder]
    {
        ModuleLog_c::SetLogPath(WideFromAscii(Folder.GetPath()).c_str());
        EXPECT_TRUE(StartModule(ModuleLog_c::Get()));
        MemCategoryScope_c const Category(mem::Decals);
        for (bool const bOn : { false, true, false })
        {
            MemoryNewLogEnable(bOn);
            CoreMemory::operator_delete(CoreMemory::operator_new(40, MEMORY_CLIENT_BLOCK, "ship.cpp", 11));
            ::operator delete(::operator new(24));
        }
        return 0;
    };
    EXPECT_EQ(StatusOfChild(StartChild(fnRun)), 0);
    std::string const sCategory = std::to_string(mem::Decals), sFrame = std::to_string(MemoryFrame());
    EXPECT_EQ(Folder.Read("newcalls.csv"), "frame;file;line;category;size;\n" + sFrame + ";\"ship.cpp\";11;" + sCategory
                                               + ";40\n" + sFrame + ";\"unknown\";0;" + sCategory + ";24\n");
}

TEST(ShipDeathTest, ExhaustionEndsInAbort)
{
    for (std::size_t const nBytes : { SIZE_MAX / 2, SIZE_MAX })
    {
        LogToStandardError();
        EXPECT_EXIT(g_pLast = ::operator new(nBytes), g_EndedAtBreakpoint, "Can't allocate additional [0-9]+ bytes\n");
        EXPECT_EXIT(g_pLast = ::operator new (nBytes, std::align_val_t{ 64 }), g_EndedAtBreakpoint,
            "Can't allocate additional [0-9]+ bytes\n");
        EXPECT_EXIT(std::exit(::operator new(nBytes, std::nothrow) ? 1 : 0), testing::ExitedWithCode(0), "");
        LogDone();
    }
}
