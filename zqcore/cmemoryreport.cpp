#include "zqcore/cmemoryreport.h"

#include "zqcore/cdebug.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory_internal.h"
#include "zqcore/cscope_internal.h"

#include "platform/debugheap.h"
#include "platform/files.h"

#include <algorithm>

namespace
{
    constexpr char CALL_LOG[] = "newcalls.csv";

    constinit bool g_bNewLogHeaderDone = false;
    constinit bool g_bInNewLog = false;   // the log's own allocations are not logged

    // State of a report of live blocks.
    struct Report_s
    {
        std::FILE * f;    // all blocks
        std::FILE * fu;   // those without a category
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
        if ((Block.dwType & 0xFFFF) != MEMORY_CLIENT_BLOCK)
        {
            return;
        }
        auto & Report = *static_cast<Report_s *>(pContext);
        mem::Categories_e const eCategory = MemoryCategoryInWord(Block.dwType);
        char szFile[1024];
        plat::HeapFileName(Block, szFile, sizeof szFile);
        if (eCategory == mem::UNDEFINED && Report.fu)
        {
            std::fprintf(Report.fu, "%zu; %s(%i)\n", Block.nBytes, szFile, Block.iLine);
        }
        if (Report.f)
        {
            std::fprintf(
                Report.f, "%zu; %s; %s(%i)\n", Block.nBytes, MemoryCategoryName(eCategory), szFile, Block.iLine);
        }
        TallyBlock(Report.Tally, Block.nBytes);
    }
}

void MemoryWriteTally(std::FILE * f, MemoryTally_s const & Tally)
{
    std::fprintf(f, "\nTotal allocations\n%zu; total\n", Tally.nTotal);
    for (std::size_t i = 0; i < std::size(Tally.LIMITS); ++i)
    {
        auto const nBlocks = static_cast<std::uint64_t>(Tally.dInClass[i]);
        auto const iPercent = Tally.nTotal ? static_cast<int>(nBlocks * 100 / Tally.nTotal) : 0;
        std::fprintf(f, "%zu; %zu bytes; %i%%\n", Tally.dInClass[i], Tally.LIMITS[i], iPercent);
    }
    std::fputc('\n', f);
}

void MemoryNewLogEnable(bool bEnable)
{
    if (bEnable && !g_bNewLogHeaderDone)
    {
        if (!g_bInNewLog)
        {
            ValueScope_T const InNewLog(g_bInNewLog, true);
            Logf(CALL_LOG, "frame;file;line;category;size;");
        }
        g_bNewLogHeaderDone = true;
    }
    g_MemoryCounters.bNewLogEnabled = bEnable;
}

void MemoryNewLogToggle()
{
    MemoryNewLogEnable(!g_MemoryCounters.bNewLogEnabled);
}

void MemoryNewLogRecord(plat::HeapBlock_t const & Block, mem::Categories_e eCategory)
{
    if (g_bInNewLog)
    {
        return;
    }
    ValueScope_T const InNewLog(g_bInNewLog, true);
    Logf(CALL_LOG, "%i;\"%s\";%i;%i;%zu", g_MemoryCounters.iFrame, Block.szFile ? Block.szFile : "unknown", Block.iLine,
        static_cast<int>(eCategory), Block.nBytes);
}

void MemoryLogAllocations()
{
    Report_s context = { plat::StreamOpen("allocations.csv", "w"), plat::StreamOpen("uncategorized.csv", "w"), {} };
    ZQ_ASSERT(context.f);
    ZQ_ASSERT(context.fu);
    if (context.f)
    {
        std::fputs("Memory allocations\n", context.f);
    }
    plat::HeapWalk(ReportBlock, &context);
    if (context.f)
    {
        MemoryWriteTally(context.f, context.Tally);
        std::fclose(context.f);
    }
    if (context.fu)
    {
        std::fclose(context.fu);
    }
}

bool MemoryCountersAddUp()
{
    MemoryCounters_s const & Counters = g_MemoryCounters;
    plat::PairSums_t const Sums = plat::SumPairs(Counters.dCount, Counters.dBytes, MemoryCounters_s::COUNT);
    return !Sums.bNegative && Sums.iFirst == Counters.iTotalCount && Sums.iSecond == Counters.iTotalBytes;
}

bool MemoryCheckConsistency()
{
    // A negative remainder before the end is a fault even if the final one is zero.
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
