#include "zqcore/cmemoryreport.h"

#include "zqcore/cdebug.h"
#include "zqcore/clog.h"
#include "zqcore/clogf.h"
#include "zqcore/cmemory_internal.h"
#include "zqcore/cscope_internal.h"

#include "platform/files.h"

namespace
{
    constexpr char CALL_LOG[] = "newcalls.csv";

    constinit bool g_bNewLogHeaderDone = false;
    constinit bool g_bInNewLog = false;   // whether the call log writes: its own allocations are not logged
    constinit bool g_bReportFailed = false;

    // Closes a file of the report. If it is not whole, marks the report as failed and logs the system's last error.
    void Close(std::FILE * pFile, char const * szWhatFails)
    {
        bool const bWritten = !std::ferror(pFile);
        if (std::fclose(pFile) != 0 || !bWritten)
        {
            g_bReportFailed = true;
            LogWinLastError(szWhatFails);
        }
    }
}

void MemoryWriteTally(std::FILE * pFile, MemoryTally_s const & Tally)
{
    std::fprintf(pFile, "\nTotal allocations\n%zu; total\n", Tally.nTotal);
    for (std::size_t i = 0; i < std::size(Tally.LIMITS); ++i)
    {
        auto const nBlocks = static_cast<std::uint64_t>(Tally.dInClass[i]);
        auto const nPercent = Tally.nTotal ? static_cast<int>(nBlocks * 100 / Tally.nTotal) : 0;
        std::fprintf(pFile, "%zu; %zu bytes; %i%%\n", Tally.dInClass[i], Tally.LIMITS[i], nPercent);
    }
    std::fputc('\n', pFile);
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
    MemoryNewLogSet(bEnable);
}

void MemoryNewLogToggle()
{
    MemoryNewLogEnable(!MemoryNewLogIsOn());
}

void MemoryNewLogRecord(plat::HeapBlock_t const & Block, mem::Categories_e eCategory)
{
    if (g_bInNewLog)
    {
        return;
    }
    ValueScope_T const InNewLog(g_bInNewLog, true);
    Logf(CALL_LOG, "%i;\"%s\";%i;%i;%zu", MemoryFrame(), Block.szFile ? Block.szFile : "unknown", Block.iLine,
        static_cast<int>(eCategory), Block.nBytes);
}

void MemoryLogAllocations()
{
    struct
    {
        std::FILE * f;    // all blocks
        std::FILE * fu;   // those without a category
    } const context = { plat::StreamOpen("allocations.csv", "w"), plat::StreamOpen("uncategorized.csv", "w") };
    ZQ_ASSERT(context.f);
    ZQ_ASSERT(context.fu);
    g_bReportFailed = !context.f || !context.fu;
    if (context.f)
    {
        std::fputs("Memory allocations\n", context.f);
    }
    MemoryTally_s const Tally = MemoryWriteBlocks(context.f, context.fu);
    if (context.f)
    {
        MemoryWriteTally(context.f, Tally);
        Close(context.f, "MemoryLogAllocations: allocations.csv");
    }
    if (context.fu)
    {
        Close(context.fu, "MemoryLogAllocations: uncategorized.csv");
    }
}

bool MemoryLogAllocationsFailed()
{
    return g_bReportFailed;
}
