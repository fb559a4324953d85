#include "zqcore/cdebug.h"
#include "zqcore/cprofile_internal.h"
#include "zqcore/cprofile_stats_internal.h"

#include "zqcore/cfilelog.h"
#include "zqcore/cfilename.h"
#include "zqcore/clog.h"
#include "zqcore/cmemory.h"

#include "platform/asyncwrite.h"
#include "platform/filewrite.h"
#include "platform/process.h"

#include <bit>
#include <cstddef>

std::uint32_t g_nBytesToWrite = 0;

namespace
{
    using profiler::timer_t;

    constexpr std::uint32_t RECORD_SIZE = statsrecord::SIZE;
    constexpr std::size_t ERROR_SIZE = 256;
    static_assert(statsrecord::MAX_BATCH == 1282052);

    // The copied fields have the same offsets as in the file.
    static_assert(std::endian::native == std::endian::little && sizeof(timer_t) == RECORD_SIZE);
    static_assert(offsetof(timer_t, iTimer) == statsrecord::TIMER && offsetof(timer_t, tStart) == statsrecord::START);
    static_assert(offsetof(timer_t, dFrames) == statsrecord::SLOTS && sizeof(timerFrame_t) == statsrecord::SLOT_SIZE);
    static_assert(offsetof(timer_t, tAverage) == statsrecord::AVERAGE);
    static_assert(offsetof(timer_t, tMaxEver) == statsrecord::MAX_EVER);

    constinit plat::AsyncFile_c g_StatsFile;
    plat::File_t g_hTracked = nullptr;   // handle passed to FileOpenTracker
    char * g_pBuffer = nullptr;          // null unless a file is open, or was open before a fork
    std::uint64_t g_nPosition = 0;       // end of what is known to be written: header and batches
    bool g_bFailed = false;              // whether the latest file, or a batch of it, is lost

    // Returns the array's address in 32 bits. Moves it down if the array would cross their end, so that no linked
    // record has the address 0, which means none.
    std::uint32_t FileAddress()
    {
        constexpr std::uint32_t HIGHEST = 0xFFFFFFFFu - MAX_TIMERS_TOTAL * RECORD_SIZE;
        auto const nAddress = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ProfilerTimers()));
        return nAddress < HIGHEST ? nAddress : HIGHEST;
    }

    // Returns the address of a record in 32 bits, or 0 for none.
    std::uint32_t FileAddress(timer_t const * pTimer)
    {
        return pTimer ? FileAddress() + static_cast<std::uint32_t>(pTimer - ProfilerTimers()) * RECORD_SIZE : 0;
    }

    // Writes the fields whose form in the file differs from memory.
    void PutMoved(char * pRecord, timer_t const & Timer)
    {
        std::uint32_t const dLinks[] = { FileAddress(Timer.pChild), FileAddress(Timer.pNext), 0 };
        std::uint32_t const dCounts[] = { Timer.nLast, Timer.nAtMax, static_cast<std::uint32_t>(Timer.iMaxSlot), 0 };
        static_assert(statsrecord::CHILD + sizeof dLinks == statsrecord::START);
        static_assert(statsrecord::N_LAST + sizeof dCounts == statsrecord::SIZE);
        std::memcpy(pRecord + statsrecord::CHILD, dLinks, sizeof dLinks);
        std::memcpy(pRecord + statsrecord::N_LAST, dCounts, sizeof dCounts);
    }

    // Copies the timers to the buffer in one piece, which is faster than field by field. Returns the size of the batch
    // in bytes.
    std::size_t CopyBatch()
    {
        auto const nRecords = static_cast<std::uint32_t>(g_iTimerTotalCount);
        std::size_t const nBytes = nRecords * RECORD_SIZE;
        char * const pRecords = g_pBuffer + sizeof nRecords;
        std::memcpy(g_pBuffer, &nRecords, sizeof nRecords);
        std::memcpy(pRecords, static_cast<void const *>(ProfilerTimers()), nBytes);
        for (std::uint32_t i = 0; i < nRecords; ++i)
        {
            PutMoved(pRecords + i * RECORD_SIZE, ProfilerTimers()[i]);
        }
        return sizeof nRecords + nBytes;
    }

    // Waits for the write that is under way, if any, and returns true if it is whole. Otherwise writes the reason to
    // szError and cuts off the part that was written, so that no reader sees it.
    bool EndWrite(char (&szError)[ERROR_SIZE])
    {
        std::uint32_t const nBytes = g_nBytesToWrite;
        bool const bWhole = g_StatsFile.Finish();
        if (bWhole)
        {
            g_nPosition += nBytes;
            ProfilerWriteComplete(0, nBytes, &g_StatsFile);
        }
        else
        {
            g_bFailed = true;
            plat::LastErrorText(szError, sizeof szError);
            plat::FileSetSize(g_StatsFile.GetHandle(), g_nPosition);
        }
        g_nBytesToWrite = 0;
        return bWhole;
    }

    // Logs that a batch or the header is lost.
    ZQ_COLD void LogLostWrite(char const * szError)
    {
        Log("ProfilerSwapStats: failed to write file - Ivo Renning");
        Log("System message: %s", szError);
    }

    void StartWrite(std::size_t nBytes)
    {
        g_nBytesToWrite += static_cast<std::uint32_t>(nBytes);
        g_StatsFile.Write(g_nPosition, g_pBuffer, nBytes);
    }

    bool WriteHeader()
    {
        std::memset(g_pBuffer, 0, statsrecord::MAX_BATCH);
        std::uint32_t const dHeader[] = { RECORD_SIZE, FileAddress() };
        std::memcpy(g_pBuffer, dHeader, sizeof dHeader);
        g_nPosition = 0;
        StartWrite(sizeof dHeader);
        return ProfilerFinishWrite();
    }

    // Allocates the buffer so that the records, which follow a count of four bytes, begin on a cache line.
    void AllocateBuffer()
    {
        g_pBuffer = static_cast<char *>(aligned_offset_malloc_dbg(statsrecord::MAX_BATCH, ZQ_CACHE_LINE,
            sizeof(std::uint32_t), static_cast<int>(MemoryBlockWord(MEMORY_CLIENT_BLOCK)), __FILE__, __LINE__));
    }

    void FreeBuffer()
    {
        aligned_free_dbg(g_pBuffer);
        g_pBuffer = nullptr;
    }
}

bool ProfilerFinishWrite()
{
    char szError[ERROR_SIZE];
    bool const bWhole = EndWrite(szError);
    if (!bWhole)
    {
        LogLostWrite(szError);
    }
    return bWhole;
}

bool ProfilerHasStats()
{
    return g_StatsFile.GetHandle() != nullptr;
}

void ProfilerCloseStats()
{
    if (!g_pBuffer)
    {
        return;
    }
    if (ProfilerHasStats())
    {
        ProfilerFinishWrite();
    }
    g_nBytesToWrite = 0;
    FileCloseTracker(g_hTracked);
    if (!g_StatsFile.Close())
    {
        g_bFailed = true;
        LogWinLastError("ProfilerSwapStats");
    }
    FreeBuffer();
}

void ProfilerInitSwapStats(FileName_c const & sName)
{
    if (sName.IsEmpty())
    {
        return;
    }
    ProfilerCloseStats();
    AllocateBuffer();
    bool const bCreated = g_StatsFile.Create(sName);
    g_bFailed = !bCreated;
    g_hTracked = g_StatsFile.GetHandle();
    FileOpenTracker(g_hTracked, sName);
    if (!bCreated)
    {
        Log("ProfilerInit: failed to create file - Ivo Renning");
        FreeBuffer();
    }
    else if (!WriteHeader())
    {
        ProfilerCloseStats();
    }
}

bool ProfilerSwapStatsFailed()
{
    return g_bFailed;
}

void ProfilerSwapStats()
{
    if (!g_bProfilerInit || !ProfilerHasStats())
    {
        return;
    }
    char szError[ERROR_SIZE];
    bool const bWhole = EndWrite(szError);
    StartWrite(CopyBatch());
    if (!bWhole)
    {
        LogLostWrite(szError);   // after the copy: a listener may push and pop
    }
    if (!g_StatsFile.IsBusy())
    {
        ProfilerFinishWrite();
    }
}

void ProfilerWriteComplete(std::uint32_t dwError, std::uint32_t nBytes, void *)
{
    ZQ_ASSERT(dwError == 0);
    g_nBytesToWrite -= nBytes;
}
