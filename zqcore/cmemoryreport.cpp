#include "zqcore/cmemoryreport.h"

#include "zqcore/cmemory_internal.h"

#include "platform/debugheap.h"

bool MemoryCountersAddUp()
{
    MemoryCounters_s const & Counters = g_MemoryCounters;
    plat::PairSums_t const Sums = plat::SumPairs(Counters.dCount, Counters.dBytes, MemoryCounters_s::COUNT);
    return !Sums.bNegative && Sums.iFirst == Counters.iTotalCount && Sums.iSecond == Counters.iTotalBytes;
}

bool MemoryCheckConsistency()
{
    // A remainder below zero on the way is a fault even if the end is zero.
    std::ptrdiff_t iCount = g_MemoryCounters.iTotalCount;
    std::ptrdiff_t iBytes = g_MemoryCounters.iTotalBytes;
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
    return g_MemoryCounters.nLastFrameAllocs;
}

void MemoryResetFrameAllocCount()
{
    plat::LockScope_c const Scope(g_CategoryLock);
    MemoryCounters_s & Counters = g_MemoryCounters;
    Counters.nLastFrameAllocs = Counters.nFrameAllocs;
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
