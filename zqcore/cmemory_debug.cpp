// The counting of the debug heap: each event under the heap's lock, with a check of the live counts and bytes.
#include "zqcore/ccallback_internal.h"
#include "zqcore/cdebug.h"
#include "zqcore/cmemory_internal.h"
#include "zqcore/cmemoryreport.h"

#include "platform/debugheap.h"
#include "platform/memory.h"

#include <algorithm>
#include <cstring>
#include <iterator>

constinit MemoryCounters_s g_MemoryCounters = {};

namespace
{
    // Adds to a number that is written under the lock and read without it.
    template <typename NUMBER>
    void AddUnderLock(std::atomic<NUMBER> & Number, NUMBER iChange)
    {
        Number.store(Number.load(std::memory_order_relaxed) + iChange, std::memory_order_relaxed);
    }

    // Counts a live block, but no allocation of the frame.
    ZQ_INLINE void CountLive(mem::Categories_e eCategory, std::size_t nBytes)
    {
        MemoryCounters_s & Counters = g_MemoryCounters;
        auto const iBytes = static_cast<std::ptrdiff_t>(nBytes);
        Counters.dCount[eCategory] += 1;
        Counters.dMaxCount[eCategory] = std::max(Counters.dMaxCount[eCategory], Counters.dCount[eCategory]);
        Counters.dBytes[eCategory] += iBytes;
        Counters.dMaxBytes[eCategory] = std::max(Counters.dMaxBytes[eCategory], Counters.dBytes[eCategory]);
        AddUnderLock<std::ptrdiff_t>(Counters.nTotalCount, 1);
        AddUnderLock(Counters.nTotalBytes, iBytes);
        Counters.nMaxTotalBytes.store(std::max(Counters.nMaxTotalBytes.load(std::memory_order_relaxed),
                                          Counters.nTotalBytes.load(std::memory_order_relaxed)),
            std::memory_order_relaxed);
    }

    // Counts an allocation.
    void CountIn(mem::Categories_e eCategory, std::size_t nBytes)
    {
        CountLive(eCategory, nBytes);
        g_MemoryCounters.nFrameAllocs += 1;
        g_MemoryCounters.dFrameAllocs[eCategory] += 1;
    }

    // Counts a release.
    void CountOut(mem::Categories_e eCategory, std::size_t nBytes)
    {
        MemoryCounters_s & Counters = g_MemoryCounters;
        auto const iBytes = static_cast<std::ptrdiff_t>(nBytes);
        Counters.dCount[eCategory] -= 1;
        Counters.dBytes[eCategory] -= iBytes;
        AddUnderLock<std::ptrdiff_t>(Counters.nTotalCount, -1);
        AddUnderLock(Counters.nTotalBytes, -iBytes);
    }

    // Counts an event of the debug heap, and writes an allocation to the call log while that is on. Asserts that the
    // counters add up. The heap holds g_CategoryLock meanwhile.
    void CoreAllocHook(plat::HeapEvent_e eEvent, void * pUser, std::size_t nBytes, std::uint32_t dwWord)
    {
        // Checks the state before this event. The counters were not written just before, so the processor reads them
        // at full speed. Both sides change by the same amounts below, so the balance stays. Only the counters that
        // change can become negative.
        bool const bSoundBefore = MemoryCountersAddUp();
        mem::Categories_e const eCategory = MemoryCountedCategory(dwWord);
        if (eCategory != mem::CRT)
        {
            if (eEvent == plat::HeapEvent_e::Free)
            {
                CountOut(eCategory, nBytes);
            }
            else
            {
                CountIn(eCategory, nBytes);
                if (g_MemoryCounters.bNewLogEnabled)
                {
                    MemoryNewLogRecord(plat::HeapDescribe(pUser), eCategory);
                }
            }
        }
        bool const bNegative = g_MemoryCounters.dCount[eCategory] < 0 || g_MemoryCounters.dBytes[eCategory] < 0;
        if (!bSoundBefore || bNegative)
        {
            FiringNoWait_c const NoWait;   // a receiver of another thread may wait for the heap's lock
            ZQ_ASSERT_TEXT(MemoryCheckConsistency(), "MemoryCheckConsistency()");
        }
    }

    // Counts the live blocks anew, because those of other libraries' first constructors are older than the tracking.
    // Leaves out the blocks under mem::CRT. Requires that the thread holds g_CategoryLock.
    void CountLiveBlocks()
    {
        MemoryCounters_s & Counters = g_MemoryCounters;
        std::fill_n(Counters.dCount, std::size(Counters.dCount), 0);
        std::fill_n(Counters.dBytes, std::size(Counters.dBytes), 0);
        Counters.nTotalCount = 0;
        Counters.nTotalBytes = 0;
        plat::HeapWalk(
            [](plat::HeapBlock_t const & Block, void *)
            {
                mem::Categories_e const eCategory = MemoryCountedCategory(Block.dwWord);
                if (eCategory != mem::CRT)
                {
                    CountLive(eCategory, Block.nBytes);
                }
            },
            nullptr);
    }

    // Returns whether the module of an object's class is still loaded: the table of its virtual functions and the first
    // of them can be read.
    bool IsClassLoaded(mem::Object_i const * pObject)
    {
        std::uintptr_t nTable;
        std::memcpy(&nTable, static_cast<void const *>(pObject), sizeof nTable);
        void const * pOperation = nullptr;
        return plat::MemoryReadObject(nTable, pOperation) && plat::MemoryIsReadable(pOperation, 1);
    }

    // Returns the object at the start of an aligned block. Reports any other block and returns null.
    mem::Object_i const * FindObject(plat::HeapBlock_t const & Block)
    {
        bool const bAligned = get_block_from_aligned(Block.pOwn) == Block.pUser;   // whatever its alignment
        return static_cast<mem::Object_i const *>(
            bAligned ? Block.pOwn : get_aligned_from_block(Block.pUser, MEMORY_ALIGNMENT, 0));
    }

    // Adds to the leak report the description of a block that describes itself.
    void CoreDumpHook(plat::HeapBlock_t const & Block)
    {
        if (!(Block.dwWord & MEMORY_OBJECT_FLAG))
        {
            return;
        }
        std::uint32_t const dwKind = Block.dwWord & MEMORY_KIND_MASK;
        ZQ_ASSERT_TEXT(dwKind == MEMORY_CLIENT_BLOCK, "blocktype == _CLIENT_BLOCK");
        ZQ_ASSERT_TEXT(sizeof(mem::Object_i) <= Block.nBytes, "sizeof ( mem::Object_i ) <= nBytes");
        if (mem::Object_i const * const pObject = FindObject(Block))
        {
            char szDescription[256] = {};
            bool const bLoaded = IsClassLoaded(pObject);
            if (bLoaded)
            {
                pObject->Describe(szDescription, sizeof szDescription);
            }
            plat::HeapReport("Memory object dump:\n%s\n", bLoaded ? szDescription : "object of an unloaded module");
        }
    }

    // State of a report of live blocks.
    struct Report_s
    {
        std::FILE * pAll;         // all client blocks; may be null
        std::FILE * pUndefined;   // those without a category; may be null
        MemoryTally_s Tally;
    };

    void TallyBlock(MemoryTally_s & Tally, std::size_t nBytes)
    {
        ++Tally.nTotal;
        auto const * const pLimit = std::lower_bound(std::begin(Tally.LIMITS), std::end(Tally.LIMITS), nBytes);
        if (pLimit != std::end(Tally.LIMITS))
        {
            ++Tally.dInClass[pLimit - Tally.LIMITS];
        }
    }

    void ReportBlock(plat::HeapBlock_t const & Block, void * pContext)
    {
        if ((Block.dwWord & MEMORY_KIND_MASK) != MEMORY_CLIENT_BLOCK)
        {
            return;
        }
        auto & Report = *static_cast<Report_s *>(pContext);
        mem::Categories_e const eCategory = MemoryCategoryInWord(Block.dwWord);
        char szFile[1024];
        plat::HeapFileName(Block, szFile, sizeof szFile);
        if (eCategory == mem::UNDEFINED && Report.pUndefined)
        {
            std::fprintf(Report.pUndefined, "%zu; %s(%i)\n", Block.nBytes, szFile, Block.iLine);
        }
        if (Report.pAll)
        {
            std::fprintf(
                Report.pAll, "%zu; %s; %s(%i)\n", Block.nBytes, MemoryCategoryName(eCategory), szFile, Block.iLine);
        }
        TallyBlock(Report.Tally, Block.nBytes);
    }
}

void MemoryHeapStart()
{
    plat::HeapSetLeakCheck(true);
    plat::HeapSetFailureHandler(MemoryOnExhausted);
    plat::HeapSetDump(CoreDumpHook);
    plat::LockScope_c const Scope(g_CategoryLock);   // a block is either in the list now, or the hook counts it
    CountLiveBlocks();
    plat::HeapSetHook(CoreAllocHook);
}

void MemoryHeapStop()
{
    plat::HeapSetHook(nullptr);
    plat::HeapSetFailureHandler(nullptr);
}

void MemoryHeapThreadEnd() {}

void * MemoryAllocNormal(std::size_t nBytes, char const * szFile, int iLine)
{
    return plat::HeapAlloc(nBytes, MEMORY_NORMAL_BLOCK, szFile, iLine);
}

void MemoryFreeNormal(void * pBlock)
{
    plat::HeapFree(pBlock);
}

std::ptrdiff_t MemoryBytesNow(mem::Categories_e eCategory)
{
    return g_MemoryCounters.dBytes[eCategory];
}

void MemoryCategoriesGet(
    mem::CategoryInfo * pInfo, std::ptrdiff_t & iAllocs, std::ptrdiff_t & iBytes, std::ptrdiff_t & iMaxBytes)
{
    CategoryLockScope_c const Scope;
    MemoryCounters_s const & Counters = g_MemoryCounters;
    for (int i = 0; i < mem::TOTAL; ++i)
    {
        pInfo[i] = { Counters.dCount[i], Counters.dMaxCount[i], Counters.dBytes[i], Counters.dMaxBytes[i],
            Counters.dLastFrameAllocs[i], Counters.dFrameAllocs[i] };
    }
    iAllocs = Counters.nTotalCount;
    iBytes = Counters.nTotalBytes;
    iMaxBytes = Counters.nMaxTotalBytes;
}

std::ptrdiff_t MemoryTotalAllocations()
{
    return g_MemoryCounters.nTotalCount.load(std::memory_order_relaxed);
}

std::ptrdiff_t MemoryTotalBytesAllocated()
{
    return g_MemoryCounters.nTotalBytes.load(std::memory_order_relaxed);
}

std::ptrdiff_t MemoryMaxTotalBytesAllocated()
{
    return g_MemoryCounters.nMaxTotalBytes.load(std::memory_order_relaxed);
}

bool MemoryNewLogIsOn()
{
    return g_MemoryCounters.bNewLogEnabled;
}

void MemoryNewLogSet(bool bOn)
{
    g_MemoryCounters.bNewLogEnabled = bOn;
}

int MemoryFrame()
{
    return g_MemoryCounters.iFrame;
}

MemoryTally_s MemoryWriteBlocks(std::FILE * pAll, std::FILE * pUndefined)
{
    Report_s Report = { pAll, pUndefined, {} };
    plat::HeapWalk(ReportBlock, &Report);
    return Report.Tally;
}

bool MemoryCountersAddUp()
{
    MemoryCounters_s const & Counters = g_MemoryCounters;
    plat::PairSums_t const Sums = plat::SumPairs(Counters.dCount, Counters.dBytes, MemoryCounters_s::COUNT);
    return !Sums.bNegative && Sums.iFirst == Counters.nTotalCount && Sums.iSecond == Counters.nTotalBytes;
}

bool MemoryCheckConsistency()
{
    // A negative remainder before the end is a fault even if the final one is zero.
    std::ptrdiff_t iCount = g_MemoryCounters.nTotalCount;
    std::ptrdiff_t iBytes = g_MemoryCounters.nTotalBytes;
    for (int i = 0; i < mem::TOTAL; ++i)
    {
        iCount -= g_MemoryCounters.dCount[i];
        iBytes -= g_MemoryCounters.dBytes[i];
        if (iCount < 0 || iBytes < 0)
        {
            return false;
        }
    }
    return iCount == 0 && iBytes == 0;
}

unsigned MemoryGetFrameAllocCount()
{
    return g_MemoryCounters.nLastFrameAllocs.load(std::memory_order_relaxed);
}

void MemoryResetFrameAllocCount()
{
    plat::LockScope_c const Scope(g_CategoryLock);
    MemoryCounters_s & Counters = g_MemoryCounters;
    Counters.nLastFrameAllocs.store(Counters.nFrameAllocs, std::memory_order_relaxed);
    Counters.nFrameAllocs = 0;
    ++Counters.iFrame;
    for (int i = 0; i < mem::TOTAL; ++i)
    {
        Counters.dLastFrameAllocs[i] = Counters.dFrameAllocs[i];
        Counters.dFrameAllocs[i] = 0;
    }
}

void MemoryAbort()
{
    plat::HeapSetLeakCheck(false);
}
